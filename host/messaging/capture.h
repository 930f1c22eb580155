/* Writes messages to the capture file as packets. */
#ifndef HOST_MESSAGING_CAPTURE_H
#define HOST_MESSAGING_CAPTURE_H

#include <cstddef>
#include <cstdint>

#include "fwx_host/smc.h"

/** Whether the sender of a message waits for an answer (sync). The values are those in a packet's header. */
enum class exchange_t : uint8_t { async = 0, sync = 1 };

[[gnu::visibility("hidden")]] extern bool capture_is_open;

/** Writes a message to the capture file. Requires capture_is_open. */
void capture_write(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size);

#endif
