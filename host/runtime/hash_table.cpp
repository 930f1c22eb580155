/*
 * Hash tables from a 64-bit key to an element. Keys and elements stand in one array of slots, which are the API's
 * buckets: a key is in the first slots from its hash on that are not free. So a look-up in a table of any size waits
 * for memory about once. An entry that is removed in the middle of others leaves a mark, so that those behind it are
 * still found. The array is made anew, of twice the size if need be, when a quarter or less of it is free.
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

namespace {

constexpr uint32_t largest_size_log2 = 30;
constexpr uint64_t most_slots = uint64_t{1} << largest_size_log2;
char removed; /* the element of a slot whose entry was removed */

/** Hash function: keys that differ in a few bits get different values in all bits. */
uint64_t mix(uint64_t key) {
    key ^= key >> 33;
    key *= 0xff51afd7ed558ccd;
    key ^= key >> 33;
    key *= 0xc4ceb9fe1a85ec53;
    return key ^ (key >> 33);
}

}  // namespace

/** A slot. One of all zero bytes is free. */
struct fwx_cl_hash_entry {
    uint64_t key;
    void *element;

    bool is_free() const { return element == nullptr; }
    bool is_in_use() const { return element != nullptr && element != &removed; }
};

struct fwx_cl_hash {
    fwx_cl_hash_entry_t *slots;
    uint64_t mask; /* number of slots less 1 */
    uint64_t count = 0;
    uint64_t taken = 0; /* slots that are not free */

    explicit fwx_cl_hash(uint64_t slot_count)
        : slots(static_cast<fwx_cl_hash_entry_t *>(host_slab_alloc(slot_count * sizeof(fwx_cl_hash_entry_t)))),
          mask(slot_count - 1) {}
    ~fwx_cl_hash() { host_slab_free(slots, (mask + 1) * sizeof(fwx_cl_hash_entry_t)); }
    fwx_cl_hash(const fwx_cl_hash &) = delete;
    fwx_cl_hash &operator=(const fwx_cl_hash &) = delete;

    /** The slot of `key`, or the free slot where it is not. */
    fwx_cl_hash_entry_t &slot_of(uint64_t key) {
        uint64_t at = mix(key);
        while (!slots[at & mask].is_free() && !(slots[at & mask].key == key && slots[at & mask].is_in_use())) {
            ++at;
        }
        return slots[at & mask];
    }

    /** Puts an entry into the free slot where its key is not. */
    void enter(fwx_cl_hash_entry_t &slot, fwx_cl_hash_entry_t entry) {
        slot = entry;
        count += 1;
        taken += 1;
    }

    bool has_room() const { return taken < (mask + 1) / 4 * 3; }

    /** Makes room for an entry, which moves all others. False when memory is exhausted and only the free slot is left
     * that ends each search. */
    [[gnu::noinline]] bool make_room() {
        const uint64_t slot_count = count >= (mask + 1) / 2 ? (mask + 1) * 2 : mask + 1;
        if (slot_count > most_slots) return taken < mask;
        fwx_cl_hash_t made(slot_count);
        if (made.slots == nullptr) return taken < mask;
        for (uint64_t i = 0; i <= mask; ++i) {
            if (slots[i].is_in_use()) made.enter(made.slot_of(slots[i].key), slots[i]);
        }
        std::swap(slots, made.slots);
        std::swap(mask, made.mask);
        taken = count;
        return true;
    }

    void remove(fwx_cl_hash_entry_t &entry) {
        const bool is_last = slots[static_cast<uint64_t>(&entry - slots + 1) & mask].is_free();
        entry.element = is_last ? nullptr : &removed;
        taken -= is_last ? 1 : 0;
        count -= 1;
    }
};

extern "C" {

uint32_t fwx_cl_hash_create(const char *, uint32_t size_log2, uint32_t, void *hash_fn, void *compare_fn,
                            fwx_cl_hash_t **table) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_HASH_CREATE)) return code;
    if (table == nullptr || size_log2 > largest_size_log2) return FWX_HOST_ERR_BAD_ARG;
    if (hash_fn != nullptr || compare_fn != nullptr) return FWX_HOST_ERR_BAD_ARG;
    std::unique_ptr<fwx_cl_hash_t> made(new (std::nothrow) fwx_cl_hash_t(uint64_t{1} << size_log2));
    if (made == nullptr || made->slots == nullptr) return host_errno_nomem;
    host_live.hash_tables += 1;
    *table = made.release();
    return 0;
}

uint32_t fwx_cl_hash_add(fwx_cl_hash_t *table, uint64_t key, void *element) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_HASH_ADD)) return code;
    if (table == nullptr || element == nullptr) return FWX_HOST_ERR_BAD_ARG;
    fwx_cl_hash_entry_t *slot = &table->slot_of(key);
    if (slot->is_in_use()) return FWX_HOST_ERR_KEY_TAKEN;
    if (!table->has_room()) {
        if (!table->make_room()) return host_errno_nomem;
        slot = &table->slot_of(key);
    }
    table->enter(*slot, {key, element});
    return 0;
}

void *fwx_cl_hash_find(fwx_cl_hash_t *table, uint64_t key) {
    return table == nullptr ? nullptr : table->slot_of(key).element;
}

uint32_t fwx_cl_hash_delete(fwx_cl_hash_t *table, uint64_t key) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_HASH_DELETE)) return code;
    if (table == nullptr) return FWX_HOST_ERR_BAD_ARG;
    fwx_cl_hash_entry_t &slot = table->slot_of(key);
    if (slot.is_free()) return FWX_HOST_ERR_NO_KEY;
    table->remove(slot);
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
    const bool is_there = table != nullptr && bucket <= table->mask && table->slots[bucket].is_in_use();
    return is_there ? &table->slots[bucket] : nullptr;
}

fwx_cl_hash_entry_t *fwx_cl_hash_entry_next(fwx_cl_hash_entry_t *) {
    return nullptr; /* a bucket has one entry at most */
}

void *fwx_cl_hash_entry_element(fwx_cl_hash_entry_t *entry) {
    return entry == nullptr ? nullptr : entry->element;
}

}  // extern "C"
