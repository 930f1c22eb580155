/*
 * Chained hash tables from a 64-bit key to an element. Entries come from slabs of the table's own, and the bucket array
 * doubles when there are more entries than buckets, so an operation costs a bucket and about one entry whatever the
 * table holds.
 */
#include <cstdlib>
#include <memory>
#include <new>

#include "fwx_host/errors.h"
#include "host/runtime/fault.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"
#include "platform/runtime.h"

struct fwx_cl_hash_entry {
    fwx_cl_hash_entry_t *next;
    uint64_t key;
    void *element;
};

namespace {

constexpr uint32_t largest_size_log2 = 30;
constexpr size_t first_slab_entries = 32;
constexpr size_t largest_slab_entries = 4096;

struct slab_t {
    std::unique_ptr<slab_t> next;
    std::unique_ptr<fwx_cl_hash_entry_t[]> entries;
};

using buckets_t = std::unique_ptr<fwx_cl_hash_entry_t *[]>;

buckets_t make_buckets(uint64_t count) {
    return buckets_t(new (std::nothrow) fwx_cl_hash_entry_t *[count]());
}

/** Spreads keys that differ in a few bits only over all bits. */
uint64_t mix(uint64_t key) {
    key ^= key >> 33;
    key *= 0xff51afd7ed558ccd;
    key ^= key >> 33;
    key *= 0xc4ceb9fe1a85ec53;
    return key ^ (key >> 33);
}

}  // namespace

struct fwx_cl_hash {
    buckets_t buckets;
    uint64_t mask = 0; /* number of buckets less 1 */
    uint64_t count = 0;
    fwx_cl_hash_entry_t *free_list = nullptr;
    std::unique_ptr<slab_t> slabs;            /* the newest first */
    size_t slab_entries = first_slab_entries; /* of the next slab */

    ~fwx_cl_hash() {
        while (slabs != nullptr) {
            slabs = std::move(slabs->next); /* no recursion over the chain */
        }
    }

    fwx_cl_hash_entry_t *&bucket_of(uint64_t key) { return buckets[mix(key) & mask]; }

    /** Where the entry of `key` is linked, or the null link at the end of its chain. */
    fwx_cl_hash_entry_t *&link_of(uint64_t key) {
        fwx_cl_hash_entry_t **link = &bucket_of(key);
        while (*link != nullptr && (*link)->key != key) {
            link = &(*link)->next;
        }
        return *link;
    }

    bool add_slab() {
        std::unique_ptr<slab_t> slab(new (std::nothrow) slab_t);
        if (slab == nullptr) return false;
        slab->entries.reset(new (std::nothrow) fwx_cl_hash_entry_t[slab_entries]);
        if (slab->entries == nullptr) return false;
        for (size_t i = slab_entries; i-- > 0;) {
            slab->entries[i].next = free_list;
            free_list = &slab->entries[i];
        }
        slab->next = std::move(slabs);
        slabs = std::move(slab);
        if (slab_entries < largest_slab_entries) slab_entries *= 2;
        return true;
    }

    /** Doubles the buckets; without memory for it the chains just become longer. */
    void grow() {
        const uint64_t old_count = mask + 1;
        if (old_count >> largest_size_log2 != 0) return;
        buckets_t old = make_buckets(old_count * 2);
        if (old == nullptr) return;
        old.swap(buckets);
        mask = old_count * 2 - 1;
        for (uint64_t i = 0; i < old_count; ++i) {
            while (fwx_cl_hash_entry_t *entry = old[i]) {
                old[i] = entry->next;
                fwx_cl_hash_entry_t *&bucket = bucket_of(entry->key);
                entry->next = bucket;
                bucket = entry;
            }
        }
    }
};

extern "C" {

uint32_t fwx_cl_hash_create(const char *, uint32_t size_log2, uint32_t, void *hash_fn, void *compare_fn,
                            fwx_cl_hash_t **table) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_HASH_CREATE)) return code;
    if (table == nullptr || size_log2 > largest_size_log2) return FWX_HOST_ERR_BAD_ARG;
    if (hash_fn != nullptr || compare_fn != nullptr) return FWX_HOST_ERR_BAD_ARG;
    std::unique_ptr<fwx_cl_hash_t> made(new (std::nothrow) fwx_cl_hash_t);
    if (made == nullptr) return host_errno_nomem;
    made->buckets = make_buckets(uint64_t{1} << size_log2);
    if (made->buckets == nullptr) return host_errno_nomem;
    made->mask = (uint64_t{1} << size_log2) - 1;
    host_live.hash_tables += 1;
    *table = made.release();
    return 0;
}

uint32_t fwx_cl_hash_add(fwx_cl_hash_t *table, uint64_t key, void *element) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_HASH_ADD)) return code;
    if (table == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (table->link_of(key) != nullptr) return FWX_HOST_ERR_KEY_TAKEN;
    if (table->free_list == nullptr && !table->add_slab()) return host_errno_nomem;
    if (table->count > table->mask) table->grow();
    fwx_cl_hash_entry_t *entry = table->free_list;
    table->free_list = entry->next;
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
