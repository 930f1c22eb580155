/* The first look at a received reply: frame, then binding. Its length by type is judged by who reads more of it. */
#ifndef TRANSPORT_REPLY_ADMISSION_H
#define TRANSPORT_REPLY_ADMISSION_H

#include "fwx_nat64/client.h"

/**
 * Judges a reply of types 0 and 4 to 13.
 * @param handler name of the handler, for the log.
 * @return the client info, or null: the reply is dropped, which is logged, and nothing of it may be touched.
 */
fwx_nat64_client_info_t *reply_admit(const void *msg, size_t size, const char *handler);

#endif
