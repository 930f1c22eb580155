/* The first look at a received reply: frame, then binding, then the length that its type needs. */
#ifndef TRANSPORT_REPLY_ADMISSION_H
#define TRANSPORT_REPLY_ADMISSION_H

#include "transport/context.h"

enum class reply_admission_t {
    dropped,      /* logged; nothing may be touched */
    whole,        /* as long as its type needs */
    failure_only, /* carries a non-zero result, but not the fields of its type */
};

/** Message number of a message. Requires: at least two bytes. */
uint32_t reply_msgno(const void *msg);

/**
 * Judges a reply of types 0 and 4 to 13.
 * @param handler name of the handler, for the log.
 * @param info    receives the client info unless the reply is dropped.
 */
reply_admission_t reply_admit(const void *msg, size_t size, const char *handler, fwx_nat64_client_info_t **info);

#endif
