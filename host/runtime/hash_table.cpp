/*
 * Chained hash tables from a 64-bit key to an element. Entries come from the table's own slabs. The bucket array
 * doubles when there are more entries than buckets. So a look-up reads a bucket and about one entry, whatever the
 * table's size.
 */
#include <memory>
#include <new>
#include <utility>

#include "fwx_host/errors.h"
#include "host/runtime/fault.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"
#include "host/runtime/slabs.h"
#include "platform/runtime.h"

struct fwx_cl_hash_entry {
    fwx_cl_hash_entry_t *next;
    uint64_t key;
    void *element;
};

namespace {

constexpr uint32_t largest_size_log2 = 30;
fwx_cl_hash_entry_t **make_buckets(uint64_t count) {
    return static_cast<fwx_cl_hash_entry_t **>(host_slab_alloc(count * sizeof(fwx_cl_hash_entry_t *)));
}
void free_buckets(fwx_cl_hash_entry_t **buckets, uint64_t count) {
    host_slab_free(buckets, count * sizeof(fwx_cl_hash_entry_t *));
}

/** Hash function: keys that differ in a few bits get different values in all bits. */
uint64_t mix(uint64_t key) {
    key ^= key >> 33;
    key *= 0xff51afd7ed558ccd;
    key ^= key >> 33;
    key *= 0xc4ceb9fe1a85ec53;
    return key ^ (key >> 33);
}

}  // namespace

struct fwx_cl_hash {
    fwx_cl_hash_entry_t **buckets = nullptr;
    uint64_t mask = 0; /* number of buckets less 1 */
    uint64_t count = 0;
    fwx_cl_hash_entry_t *free_list = nullptr;
    slabs_t slabs{}; /* memory of the entries */

    explicit fwx_cl_hash(uint64_t bucket_count) : buckets(make_buckets(bucket_count)), mask(bucket_count - 1) {}
    ~fwx_cl_hash() {
        slabs.clear();
        free_buckets(buckets, mask + 1);
    }
    fwx_cl_hash(const fwx_cl_hash &) = delete;
    fwx_cl_hash &operator=(const fwx_cl_hash &) = delete;

    fwx_cl_hash_entry_t *&bucket_of(uint64_t key) { return buckets[mix(key) & mask]; }

    /** The link to the entry of `key`, or the null link at the end of its chain. */
    fwx_cl_hash_entry_t *&link_of(uint64_t key) {
        fwx_cl_hash_entry_t **link = &bucket_of(key);
        while (*link != nullptr && (*link)->key != key) {
            link = &(*link)->next;
        }
        return *link;
    }

    /** Allocates an entry; null when memory is exhausted. */
    fwx_cl_hash_entry_t *take() {
        if (free_list == nullptr) return static_cast<fwx_cl_hash_entry_t *>(slabs.cut(sizeof(fwx_cl_hash_entry_t)));
        fwx_cl_hash_entry_t *entry = free_list;
        free_list = entry->next;
        return entry;
    }

    /** Doubles the buckets. When memory is exhausted, does nothing, and the chains become longer. */
    void grow() {
        const uint64_t old_count = mask + 1;
        if (old_count >> largest_size_log2 != 0) return;
        fwx_cl_hash_entry_t **old = make_buckets(old_count * 2);
        if (old == nullptr) return;
        std::swap(old, buckets);
        mask = old_count * 2 - 1;
        for (uint64_t i = 0; i < old_count; ++i) {
            while (fwx_cl_hash_entry_t *entry = old[i]) {
                old[i] = entry->next;
                fwx_cl_hash_entry_t *&bucket = bucket_of(entry->key);
                entry->next = bucket;
                bucket = entry;
            }
        }
        free_buckets(old, old_count);
    }
};

extern "C" {

uint32_t fwx_cl_hash_create(const char *, uint32_t size_log2, uint32_t, void *hash_fn, void *compare_fn,
                            fwx_cl_hash_t **table) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_HASH_CREATE)) return code;
    if (table == nullptr || size_log2 > largest_size_log2) return FWX_HOST_ERR_BAD_ARG;
    if (hash_fn != nullptr || compare_fn != nullptr) return FWX_HOST_ERR_BAD_ARG;
    std::unique_ptr<fwx_cl_hash_t> made(new (std::nothrow) fwx_cl_hash_t(uint64_t{1} << size_log2));
    if (made == nullptr || made->buckets == nullptr) return host_errno_nomem;
    host_live.hash_tables += 1;
    *table = made.release();
    return 0;
}

uint32_t fwx_cl_hash_add(fwx_cl_hash_t *table, uint64_t key, void *element) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_HASH_ADD)) return code;
    if (table == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (table->link_of(key) != nullptr) return FWX_HOST_ERR_KEY_TAKEN;
    fwx_cl_hash_entry_t *entry = table->take();
    if (entry == nullptr) return host_errno_nomem;
    if (table->count > table->mask) table->grow();
    fwx_cl_hash_entry_t *&bucket = table->bucket_of(key);
    *entry = {bucket, key, element};
    bucket = entry;
    table->count += 1;
    return 0;
}

void *fwx_cl_hash_find(fwx_cl_hash_t *table, uint64_t key) {
    if (table == nullptr) return nullptr;
    const fwx_cl_hash_entry_t *entry = table->link_of(key);
    return entry == nullptr ? nullptr : entry->element;
}

uint32_t fwx_cl_hash_delete(fwx_cl_hash_t *table, uint64_t key) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_HASH_DELETE)) return code;
    if (table == nullptr) return FWX_HOST_ERR_BAD_ARG;
    fwx_cl_hash_entry_t *&link = table->link_of(key);
    if (link == nullptr) return FWX_HOST_ERR_NO_KEY;
    fwx_cl_hash_entry_t *entry = link;
    link = entry->next;
    entry->next = table->free_list;
    table->free_list = entry;
    table->count -= 1;
    return 0;
}

uint32_t fwx_cl_hash_destroy(fwx_cl_hash_t *table, uint32_t) {
    const uint32_t code = host_fault_check(FWX_HOST_OP_HASH_DESTROY);
    if (table == nullptr) return code != 0 ? code : FWX_HOST_ERR_BAD_ARG;
    delete table;
    host_live.hash_tables -= 1;
    return code;
}

uint32_t fwx_cl_hash_bucket_count(fwx_cl_hash_t *table) {
    return table == nullptr ? 0 : static_cast<uint32_t>(table->mask + 1);
}

fwx_cl_hash_entry_t *fwx_cl_hash_bucket_first(fwx_cl_hash_t *table, uint32_t bucket) {
    return table == nullptr || bucket > table->mask ? nullptr : table->buckets[bucket];
}

fwx_cl_hash_entry_t *fwx_cl_hash_entry_next(fwx_cl_hash_entry_t *entry) {
    return entry == nullptr ? nullptr : entry->next;
}

void *fwx_cl_hash_entry_element(fwx_cl_hash_entry_t *entry) {
    return entry == nullptr ? nullptr : entry->element;
}

}  // extern "C"
