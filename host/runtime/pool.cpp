/*
 * Pools of fixed-size elements. Elements are cut from zeroed slabs, which a pool can find by address. A header before
 * each element tells whether it is in use. It points to the pool while the element is in use, and to the next free
 * element while it is free. Freeing does not change the element's bytes, so its list links still say that it is on no
 * list.
 */
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <new>
#include <string>

#include "host/runtime/fault.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"
#include "host/runtime/slabs.h"
#include "platform/runtime.h"

namespace {

constexpr size_t alignment = 16;
constexpr size_t link_bytes = sizeof(fwx_list_link_t); /* cleared at the front of every element handed out */

enum class element_state_t : uint32_t { FREE = 0x46524545, OUT = 0x4f555421 };

struct alignas(alignment) element_header_t {
    union {
        element_header_t *next_free;
        fwx_chunk_t *pool;
    };
    element_state_t state;
};
static_assert(sizeof(element_header_t) == 16);

using caps_t = std::map<std::string, uint64_t>;

caps_t &caps = *new caps_t; /* never destroyed, because pools may outlive static destructors */

/** The cap of a pool name, at an address that never changes; null when memory is exhausted. */
uint64_t *cap_of(const char *name) {
    return host_guarded<uint64_t *>(nullptr, [name] {
        return &caps.emplace(name == nullptr ? "" : name, std::numeric_limits<uint64_t>::max()).first->second;
    });
}

}  // namespace

struct slab_t {
    unsigned char *begin;
    size_t bytes; /* size of all elements with their headers */

    size_t offset_of(const void *address) const {
        return reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(begin);
    }
    bool has(const void *address) const { return offset_of(address) < bytes; }
};

struct fwx_chunk {
    const uint64_t *cap;
    size_t stride;           /* size of an element with its header */
    uint32_t slab_elements;  /* elements in each of the first slabs; later slabs are at least a huge page */
    unsigned char *uncarved; /* the part of the newest slab that was never used */
    unsigned char *newest_end;
    slab_t recent; /* cache of the slab found last by address */
    slab_t *slabs; /* sorted by address */
    uint32_t slab_count;
    uint32_t slab_room; /* capacity of `slabs` */
    element_header_t *free_list;
    uint64_t out;
    bool is_plain; /* made by chunk_create */
};

namespace {

fwx_chunk_t *pool_create(const char *name, size_t element_size, uint32_t count, bool is_plain) {
    constexpr size_t largest_element = size_t{1} << 30;
    if (element_size == 0 || element_size > largest_element || count == 0) return nullptr;
    const uint64_t *cap = cap_of(name);
    auto *pool = cap == nullptr ? nullptr : new (std::nothrow) fwx_chunk_t{};
    if (pool == nullptr) return nullptr;
    pool->cap = cap;
    pool->stride = sizeof(element_header_t) + (element_size + alignment - 1) / alignment * alignment;
    pool->slab_elements = count;
    pool->is_plain = is_plain;
    host_live.pools += 1;
    return pool;
}

void pool_destroy(fwx_chunk_t *pool, bool is_plain) {
    if (pool == nullptr) return;
    if (pool->is_plain != is_plain) host_errors.bad_frees += 1;
    std::for_each_n(pool->slabs, pool->slab_count, [](const slab_t &slab) { host_slab_free(slab.begin, slab.bytes); });
    free(pool->slabs);
    host_errors.destroyed_in_use += pool->out;
    host_live.pool_elements -= pool->out;
    host_live.pools -= 1;
    delete pool;
}

/** The position in `slabs` of the first slab that begins behind `address`. */
slab_t *slab_behind(const fwx_chunk_t *pool, const void *address) {
    return std::upper_bound(
        pool->slabs, pool->slabs + pool->slab_count, address,
        [](const void *at, const slab_t &slab) { return std::less<const void *>()(at, slab.begin); });
}

bool make_room_for_slab(fwx_chunk_t *pool) {
    if (pool->slab_count < pool->slab_room) return true;
    const uint32_t room = std::max(8U, pool->slab_room * 2);
    auto *grown = static_cast<slab_t *>(realloc(pool->slabs, room * sizeof(*pool->slabs)));
    if (grown == nullptr) return false;
    pool->slabs = grown;
    pool->slab_room = room;
    return true;
}

bool grow(fwx_chunk_t *pool) {
    if (!make_room_for_slab(pool)) return false;
    constexpr uint32_t first_slabs = 4;
    const size_t least = pool->slab_count < first_slabs ? 1 : host_huge_page_bytes / pool->stride;
    const size_t bytes = std::max<size_t>(pool->slab_elements, least) * pool->stride;
    auto *begin = static_cast<unsigned char *>(host_slab_alloc(bytes));
    if (begin == nullptr) return false;
    slab_t *place = slab_behind(pool, begin);
    std::copy_backward(place, pool->slabs + pool->slab_count, pool->slabs + pool->slab_count + 1);
    *place = {begin, bytes};
    pool->slab_count += 1;
    pool->uncarved = begin;
    pool->newest_end = begin + bytes;
    return true;
}

void *hand_out(fwx_chunk_t *pool, element_header_t *header) {
    header->pool = pool;
    header->state = element_state_t::OUT;
    pool->out += 1;
    host_live.pool_elements += 1;
    return memset(header + 1, 0, link_bytes);
}

/** Cold path of chunk_malloc, out of line so that the hot path saves no registers. */
[[gnu::noinline]] void *hand_out_new(fwx_chunk_t *pool) {
    if (pool->uncarved == pool->newest_end && !grow(pool)) return nullptr;
    auto *header = reinterpret_cast<element_header_t *>(pool->uncarved);
    pool->uncarved += pool->stride;
    return hand_out(pool, header);
}

/** Whether an address is in a slab of the pool. If it is, stores that slab in `recent`. */
bool find_slab(fwx_chunk_t *pool, const void *address) {
    const slab_t *behind = slab_behind(pool, address);
    if (behind == pool->slabs) return false;
    pool->recent = behind[-1];
    return pool->recent.has(address);
}

}  // namespace

extern "C" {

fwx_chunk_t *chunk_create(const char *name, size_t element_size, uint32_t count, uint32_t, uint32_t, uint32_t) {
    if (host_fault_check(FWX_HOST_OP_CHUNK_CREATE) != 0) return nullptr;
    return pool_create(name, element_size, count, true);
}

fwx_chunk_t *fwx_chunk_create(const char *name, size_t element_size, uint32_t count, uint32_t, uint32_t, uint32_t) {
    if (host_fault_check(FWX_HOST_OP_FWX_CHUNK_CREATE) != 0) return nullptr;
    return pool_create(name, element_size, count, false);
}

void *chunk_malloc(fwx_chunk_t *pool) {
    if (host_fault_check(FWX_HOST_OP_CHUNK_MALLOC) != 0 || pool == nullptr || pool->out >= *pool->cap) return nullptr;
    element_header_t *header = pool->free_list;
    if (header == nullptr) return hand_out_new(pool);
    pool->free_list = header->next_free;
    return hand_out(pool, header);
}

void chunk_free(fwx_chunk_t *pool, void *element) {
    if (pool == nullptr || element == nullptr) return;
    auto *header = static_cast<element_header_t *>(element) - 1;
    if (header->state != element_state_t::OUT || header->pool != pool) {
        host_errors.bad_frees += 1;
        return;
    }
    header->state = element_state_t::FREE;
    header->next_free = pool->free_list;
    pool->free_list = header;
    pool->out -= 1;
    host_live.pool_elements -= 1;
}

/* Reads a header only if the address is that of an element in a slab of this pool. */
uint32_t fwx_chunk_owns(fwx_chunk_t *pool, const void *element) {
    if (pool == nullptr) return 0;
    if (!pool->recent.has(element) && !find_slab(pool, element)) return 0;
    const size_t offset = pool->recent.offset_of(element);
    if (offset % pool->stride != sizeof(element_header_t)) return 0;
    const auto *header = reinterpret_cast<const element_header_t *>(pool->recent.begin + offset) - 1;
    return header->state == element_state_t::OUT ? 1 : 0;
}

void chunk_destroy(fwx_chunk_t *pool) {
    pool_destroy(pool, true);
}

void fwx_chunk_destroy(fwx_chunk_t *pool) {
    pool_destroy(pool, false);
}

void fwx_host_pool_cap_set(const char *name, uint64_t max_elements) {
    if (uint64_t *cap = cap_of(name)) *cap = max_elements;
}

}  // extern "C"
