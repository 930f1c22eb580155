/*
 * Tagged memory. Every block has a header with its size and the account of its tag, so that live blocks and bytes can
 * be counted for each tag. Small blocks come from slabs, large blocks from calloc.
 */
#include "host/runtime/memory.h"

#include <cstdlib>
#include <cstring>

#include "host/runtime/bytes.h"
#include "host/runtime/fault.h"
#include "host/runtime/inspect.h"
#include "host/runtime/slabs.h"
#include "platform/runtime.h"

namespace {

/** Live blocks and bytes of one tag. Never freed, so that blocks can point to it. */
struct account_t {
    account_t *next;
    uint64_t blocks;
    uint64_t bytes;
    uint32_t tag;
};

/** Precedes every block. Its size of 16 bytes keeps the block aligned. */
struct block_header_t {
    union {
        account_t *account;
        block_header_t *next_free;
    };
    size_t size;
};
static_assert(sizeof(block_header_t) == 16);

/** Small blocks are cut from slabs, in classes of their size with the header. A freed block is reused for the next
 * block of its class. When the last block of a class is freed, so are the slabs of the class. */
constexpr size_t size_unit = 16;
constexpr size_t largest_small = 128;
#ifdef ADDRESS_SANITIZER /* it checks the bounds of blocks from malloc only */
constexpr bool has_small = false;
#else
constexpr bool has_small = true;
#endif

constexpr size_t given_back = SIZE_MAX; /* size in the header of a freed small block */

struct small_blocks_t {
    slabs_t slabs;
    block_header_t *free_list;
    uint64_t live;
};
small_blocks_t small_blocks[largest_small / size_unit + 1];

constexpr size_t whole_units(size_t bytes) {
    return (bytes + size_unit - 1) / size_unit * size_unit;
}

small_blocks_t *small_blocks_of(size_t whole) {
    return has_small && whole <= largest_small ? &small_blocks[whole_units(whole) / size_unit] : nullptr;
}

/** Allocates a zeroed block; null when memory is exhausted. */
block_header_t *take_block(size_t whole) {
    small_blocks_t *blocks = small_blocks_of(whole);
    if (blocks == nullptr) return static_cast<block_header_t *>(calloc(1, whole));
    block_header_t *header = blocks->free_list;
    if (header == nullptr) {
        header = static_cast<block_header_t *>(blocks->slabs.cut(whole_units(whole)));
        if (header == nullptr) return nullptr;
    } else {
        blocks->free_list = header->next_free;
        memset(header, 0, whole);
    }
    blocks->live += 1;
    return header;
}

void give_block_back(block_header_t *header) {
    small_blocks_t *blocks = small_blocks_of(sizeof(*header) + header->size);
    if (blocks == nullptr) return free(header);
    header->size = given_back;
    header->next_free = blocks->free_list;
    blocks->free_list = header;
    if (--blocks->live != 0) return;
    blocks->slabs.clear();
    blocks->free_list = nullptr;
}

constexpr uint32_t chain_count = 128; /* a power of two above the tags in use, so that no two share a chain */
account_t *accounts[chain_count];

account_t *account_find(uint32_t tag) {
    account_t *account = accounts[tag % chain_count];
    while (account != nullptr && account->tag != tag) {
        account = account->next;
    }
    return account;
}

account_t *account_get(uint32_t tag) {
    account_t *account = account_find(tag);
    if (account != nullptr) return account;
    account = static_cast<account_t *>(calloc(1, sizeof(account_t)));
    if (account == nullptr) return nullptr;
    account->tag = tag;
    account->next = accounts[tag % chain_count];
    accounts[tag % chain_count] = account;
    return account;
}

/** Enters a block of `size` bytes in an account and returns the bytes behind its header. */
void *hand_out(block_header_t *header, account_t *account, size_t size) {
    header->account = account;
    header->size = size;
    account->blocks += 1;
    account->bytes += size;
    host_live.memory_blocks += 1;
    host_live.memory_bytes += size;
    return header + 1;
}

/** Allocates any block, also the first one of its tag. */
[[gnu::noinline]] void *block_alloc(uint32_t tag, size_t size) {
    size_t whole = 0;
    if (__builtin_add_overflow(size, sizeof(block_header_t), &whole)) return nullptr;
    account_t *account = account_get(tag);
    if (account == nullptr) return nullptr;
    block_header_t *header = take_block(whole);
    return header == nullptr ? nullptr : hand_out(header, account, size);
}

}  // namespace

/* The hot path cuts a small block from a slab without a call, for the latest tag of its chain. */
void *host_block_alloc(uint32_t tag, size_t size) {
    account_t *account = accounts[tag % chain_count];
    if (account == nullptr || account->tag != tag || size > largest_small - sizeof(block_header_t) || !has_small) {
        return block_alloc(tag, size);
    }
    const size_t whole = whole_units(sizeof(block_header_t) + size);
    small_blocks_t &blocks = small_blocks[whole / size_unit];
    void *piece = blocks.free_list == nullptr ? blocks.slabs.cut_at_hand(whole) : nullptr;
    if (piece == nullptr) return block_alloc(tag, size);
    blocks.live += 1;
    return hand_out(static_cast<block_header_t *>(piece), account, size);
}

extern "C" {

void *fwx_calloc_named(uint32_t tag, size_t count, size_t size) {
    size_t bytes = 0;
    if (host_fault_check(FWX_HOST_OP_CALLOC) != 0 || __builtin_mul_overflow(count, size, &bytes)) return nullptr;
    return host_block_alloc(tag, bytes);
}

void fwx_free_named(void *ptr) {
    if (ptr == nullptr) return;
    auto *header = static_cast<block_header_t *>(ptr) - 1;
    if (header->size == given_back) {
        host_errors.bad_frees += 1;
        return;
    }
    header->account->blocks -= 1;
    header->account->bytes -= header->size;
    host_live.memory_blocks -= 1;
    host_live.memory_bytes -= header->size;
    give_block_back(header);
}

void *fwx_memcpy(void *dst, const void *src, size_t size) {
    return bytes_copy_short(dst, src, size) ? dst : memcpy(dst, src, size);
}

void *fwx_memset(void *dst, int value, size_t size) {
    return size == 0 ? dst : memset(dst, value, size);
}

char *fwx_getenv(const char *name) {
    return getenv(name);
}

uint64_t fwx_host_memory_live(void) {
    return host_live.memory_bytes;
}

uint64_t fwx_host_memory_live_tag(uint32_t tag) {
    const account_t *account = account_find(tag);
    return account == nullptr ? 0 : account->bytes;
}

uint64_t fwx_host_memory_blocks_tag(uint32_t tag) {
    const account_t *account = account_find(tag);
    return account == nullptr ? 0 : account->blocks;
}

}  // extern "C"
