#include "host/messaging/message.h"

#include <sanitizer/asan_interface.h>

#include <cstdlib>
#include <cstring>

#include "fwx_host/errors.h"
#include "host/runtime/fault.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"

namespace {

/* Size class n holds 64 << n bytes. Freed messages stay here as long as the process lives. */
constexpr size_t smallest_class_bytes = 64;
constexpr uint32_t class_count = 17;
static_assert(smallest_class_bytes << (class_count - 1) == message_limit);
message_t *free_messages[class_count];

uint32_t class_of(size_t size) {
    constexpr int smallest_class_leading_zeros = 57; /* of smallest_class_bytes */
    return size <= smallest_class_bytes
               ? 0
               : static_cast<uint32_t>(smallest_class_leading_zeros + 1 - __builtin_clzll(size - 1));
}

}  // namespace

message_t *message_alloc(size_t size) {
    const uint32_t size_class = class_of(size);
    const size_t class_bytes = smallest_class_bytes << size_class;
    message_t *message = free_messages[size_class];
    if (message != nullptr) {
        free_messages[size_class] = message->next;
    } else {
        message = static_cast<message_t *>(aligned_alloc(alignof(message_t), sizeof(message_t) + class_bytes));
        if (message == nullptr) return nullptr;
    }
    message->owner = message_owner_t::CHANNEL;
    message->capacity = static_cast<uint32_t>(size);
    message->size = static_cast<uint32_t>(size);
    message->size_class = size_class;
    ASAN_POISON_MEMORY_REGION(message->bytes(), class_bytes);
    ASAN_UNPOISON_MEMORY_REGION(message->bytes(), size);
    return message;
}

void message_free(message_t *message) {
    ASAN_POISON_MEMORY_REGION(message->bytes(), smallest_class_bytes << message->size_class);
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
    if (size > message_limit) return FWX_HOST_ERR_TOO_LONG;
    message_t *message = message_alloc(size);
    if (message == nullptr) return host_errno_nomem;
    message->owner = message_owner_t::CALLER;
    host_live.tx_buffers += 1;
    *msg = memset(message->bytes(), 0, size);
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

}  // extern "C"
