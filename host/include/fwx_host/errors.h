/* Result codes of the host platform; xerr_strerror knows their texts. */
#ifndef FWX_HOST_ERRORS_H
#define FWX_HOST_ERRORS_H

#include <stdint.h>

#define FWX_HOST_ERR_NO_SERVER 0x5001u    /* no server is registered for that channel name */
#define FWX_HOST_ERR_BAD_CHANNEL 0x5002u  /* no open channel has that handle */
#define FWX_HOST_ERR_CHANNEL_DOWN 0x5003u /* the other side is gone */
#define FWX_HOST_ERR_NO_ANSWER 0x5004u    /* a synchronous message was not answered in time */
#define FWX_HOST_ERR_CLOSED 0x5005u       /* the channel was closed before the server took the message */
#define FWX_HOST_ERR_FULL 0x5006u         /* the channel's limit of untaken messages is reached */
#define FWX_HOST_ERR_TOO_LONG 0x5007u     /* a message longer than a channel carries */
#define FWX_HOST_ERR_BAD_BUFFER 0x5008u   /* not a transmit buffer, or the caller does not own it now */
#define FWX_HOST_ERR_NAME_TAKEN 0x5009u   /* another server has that name */
#define FWX_HOST_ERR_NOT_LISTED 0x500au   /* the element is not on the list */
#define FWX_HOST_ERR_LISTED 0x500bu       /* the element is on a list already */
#define FWX_HOST_ERR_NO_KEY 0x500cu       /* the key is not in the table or tree */
#define FWX_HOST_ERR_KEY_TAKEN 0x500du    /* the key is in the table or tree already */
#define FWX_HOST_ERR_BAD_ARG 0x500eu      /* an argument is invalid */
#define FWX_HOST_ERR_NO_CLIENT 0x500fu    /* no classifier client is registered under that id */
#define FWX_HOST_ERR_FAULT 0x5010u        /* injected by a test through fwx_host_fault_arm */
#define FWX_HOST_ERR_FOREIGN 0x5011u      /* another user's server, or other users can access the socket directory */
#define FWX_HOST_ERR_BAD_ANSWER 0x5012u   /* the answer to a synchronous message is too short, or to another message */
#define FWX_HOST_ERR_VERSION 0x5013u      /* the server uses another version of the shared memory layout */
#define FWX_HOST_ERR_BUSY 0x5014u         /* the server has reached its limit of clients */
#define FWX_HOST_ERR_FORKED 0x5015u       /* the object belongs to the process that this one was forked from */

#ifdef __cplusplus
extern "C" {
#endif

/** Text of any code: the library's, this platform's, an errno value, or a code that a program added. Never null. */
const char *xerr_strerror(uint32_t code);

/** Adds the text of a program's own code to xerr_strerror; `text` is not copied. A later text for the same code
 * replaces it. Changes nothing when memory is exhausted. */
void fwx_host_error_text_add(uint32_t code, const char *text);

#ifdef __cplusplus
}
#endif

#endif
