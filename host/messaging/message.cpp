/*
 * Allocates message memory, in size classes of powers of two with a free list each. Most messages are short and reuse a
 * freed one, so this case has a hot path without calls.
 */
#include "host/messaging/message.h"

#include <sanitizer/asan_interface.h>

#include <cstdlib>
#include <cstring>

#include "fwx_host/errors.h"
#include "fwx_host/fault.h"
#include "host/runtime/bytes.h"
#include "host/runtime/fault.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"

namespace {

/* Size class n holds 64 << n bytes. Freed messages are never returned to the system. */
constexpr size_t smallest_class_bytes = 64;
constexpr uint32_t class_count = 17;
static_assert(smallest_class_bytes << (class_count - 1) == message_limit);
message_t *free_messages[class_count];

size_t bytes_of(uint32_t size_class) {
    return smallest_class_bytes << size_class;
}

uint32_t class_of(size_t size) {
    constexpr int smallest_class_leading_zeros = 57; /* of smallest_class_bytes */
    return size <= smallest_class_bytes
               ? 0
               : static_cast<uint32_t>(smallest_class_leading_zeros + 1 - __builtin_clzll(size - 1));
}

/** Takes the first free message of a class, for `size` bytes. Requires that the class has a free message. */
message_t *take_free(uint32_t size_class, size_t size, message_owner_t owner) {
    message_t *message = free_messages[size_class];
    free_messages[size_class] = message->next;
    message->owner = owner;
    ASAN_UNPOISON_MEMORY_REGION(message->bytes(), size);
    return message;
}

message_t *alloc(size_t size, message_owner_t owner) {
    const uint32_t size_class = class_of(size);
    if (free_messages[size_class] == nullptr) {
        const size_t bytes = sizeof(message_t) + bytes_of(size_class);
        auto *message = static_cast<message_t *>(aligned_alloc(alignof(message_t), bytes));
        if (message == nullptr) return nullptr;
        message->size_class = size_class;
        message_free(message);
    }
    return take_free(size_class, size, owner);
}

/* Whether the hot path can serve a message: it is short, and a free message is at hand. The hot path makes no calls and
 * therefore saves no registers. */
static_assert(2 * bytes_half == smallest_class_bytes);
bool is_at_hand(size_t size) {
    return bytes_are_few(size) && free_messages[0] != nullptr;
}

void *give_to_caller(message_t *message, size_t size) {
    message->capacity = static_cast<uint32_t>(size);
    host_live.tx_buffers += 1;
    bytes_clear(message->bytes(), size);
    return message->bytes();
}

[[gnu::noinline]] uint32_t alloc_for_caller(size_t size, void **msg) {
    if (size > message_limit) return FWX_HOST_ERR_TOO_LONG;
    message_t *message = alloc(size, message_owner_t::CALLER);
    if (message == nullptr) return host_errno_nomem;
    *msg = give_to_caller(message, size);
    return 0;
}

}  // namespace

message_t *message_alloc(size_t size) {
    message_t *message = alloc(size, message_owner_t::CHANNEL);
    if (message != nullptr) message->size = static_cast<uint32_t>(size);
    return message;
}

message_t *message_copy(const void *bytes, size_t size) {
    message_t *message = message_alloc(size);
    if (message != nullptr) bytes_copy(message->bytes(), bytes, size);
    return message;
}

message_t *message_copy_at_hand(const void *bytes, size_t size) {
    if (!is_at_hand(size)) return nullptr;
    message_t *message = take_free(0, size, message_owner_t::CHANNEL);
    message->size = static_cast<uint32_t>(size);
    bytes_copy(message->bytes(), bytes, size);
    return message;
}

void message_free(message_t *message) {
    ASAN_POISON_MEMORY_REGION(message->bytes(), bytes_of(message->size_class));
    message->owner = message_owner_t::NOBODY;
    message->next = free_messages[message->size_class];
    free_messages[message->size_class] = message;
}

message_t *message_of_caller(void *buffer) {
    if (buffer == nullptr) return nullptr;
    message_t *message = static_cast<message_t *>(buffer) - 1;
    return message->owner == message_owner_t::CALLER ? message : nullptr;
}

void message_release(message_t *message) {
    host_live.tx_buffers -= 1;
    message_free(message);
}

extern "C" {

uint32_t smc_msg_tx_buffer_alloc(size_t size, void **msg) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_TX_ALLOC)) return code;
    if (msg == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (!is_at_hand(size)) return alloc_for_caller(size, msg);
    *msg = give_to_caller(take_free(0, size, message_owner_t::CALLER), size);
    return 0;
}

void smc_msg_tx_buffer_free(void *msg) {
    if (msg == nullptr) return;
    message_t *message = message_of_caller(msg);
    if (message == nullptr) {
        host_errors.bad_frees += 1;
        return;
    }
    message_release(message);
}

void fwx_host_tx_buffer_offer(void *buffer) {
    message_t *message = static_cast<message_t *>(buffer) - 1;
    message->size_class = 0;
    message_free(message);
}

}  // extern "C"
