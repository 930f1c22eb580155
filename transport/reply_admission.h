/* First check of a received reply: minimum length, then binding. The caller checks the length by type. */
#ifndef TRANSPORT_REPLY_ADMISSION_H
#define TRANSPORT_REPLY_ADMISSION_H

#include "fwx_nat64/client.h"

/**
 * Checks a reply of types 0 and 4 to 13.
 * @param handler name of the handler, for the log.
 * @return the client info, or null: the reply was logged, and the caller must drop it without touching anything.
 */
fwx_nat64_client_info_t *reply_admit(const void *msg, size_t size, const char *handler);

#endif
