/* Writes messages to the capture file as packets. */
#ifndef HOST_MESSAGING_CAPTURE_H
#define HOST_MESSAGING_CAPTURE_H

#include <cstddef>
#include <cstdint>

#include "fwx_host/smc.h"

/** Whether the sender of a message waits for an answer (sync). The values are those in a packet's header. */
enum class exchange_t : uint8_t { async = 0, sync = 1 };

/** The observers of messages that are in use: one word, so that the hot path makes one check for all of them. */
enum : uint32_t { OBSERVED_BY_TAP = 1, OBSERVED_BY_CAPTURE = 2 };
[[gnu::visibility("hidden")]] extern uint32_t message_observers;

inline bool capture_is_open() {
    return (message_observers & OBSERVED_BY_CAPTURE) != 0;
}
/** Writes a message to the capture file. Requires capture_is_open(). */
void capture_write(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size);

#endif
