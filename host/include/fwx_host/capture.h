/*
 * Capture files: while one is open, every message that the tap would see is written to it as a packet, and in the
 * process of a server every message between it and clients in other processes.
 *
 * The file is a pcap file with nanoseconds, in the machine's byte order, of link type DLT_USER0 (147). A packet is four
 * bytes and the message: version (1), direction (0 to the server, 1 to the client), form (0 asynchronous, 1
 * synchronous), and a zero. Of a message that would make its packet longer than 262144 bytes, the rest is left out.
 *
 * A packet is in the file when the message goes on its way, so a program that dies has lost none, and the file is well
 * formed at any time. Not thread-safe.
 */
#ifndef FWX_HOST_CAPTURE_H
#define FWX_HOST_CAPTURE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Starts capturing into a file, which is emptied first if it exists; there is one capture at a time.
 * @return 0, FWX_HOST_ERR_BAD_ARG for a null path, or an errno value: EBUSY while a capture is open, else why the file
 * could not be opened or begun. */
uint32_t fwx_host_capture_open(const char *path);

/** Ends the capture; harmless without one.
 * @return 0, or an errno value: the file could not take all packets. It ends with the last one that it took. */
uint32_t fwx_host_capture_close(void);

#ifdef __cplusplus
}
#endif

#endif
