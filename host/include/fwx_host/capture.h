/*
 * Capture files. While one is open, the platform writes every message that the tap would see to it as a packet. In a
 * server's process it also writes every message between the server and clients in other processes.
 *
 * The file is a pcap file with nanosecond timestamps, in the machine's byte order, of link type DLT_USER0 (147). A
 * packet is a four-byte header and the message. The header is version (1), direction (0 to the server, 1 to the
 * client), form (0 asynchronous, 1 synchronous) and a zero byte. A longer message is truncated so that its packet is
 * 262144 bytes long.
 *
 * A packet is written before its message goes on. So a program that dies loses no packet, and the file is well formed
 * at any time. Not thread-safe.
 */
#ifndef FWX_HOST_CAPTURE_H
#define FWX_HOST_CAPTURE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Starts capturing into a file, which is truncated if it exists. One capture can be open at a time.
 * @return 0, FWX_HOST_ERR_BAD_ARG for a null path, EBUSY while a capture is open, or the errno value with which opening
 * the file or writing its header failed. */
uint32_t fwx_host_capture_open(const char *path);

/** Ends the capture. Does nothing when none is open.
 * @return 0, or the errno value of the write that failed. The file then ends with the last packet written completely.
 */
uint32_t fwx_host_capture_close(void);

#ifdef __cplusplus
}
#endif

#endif
