/* Result codes of the host platform's own; xerr_strerror knows their texts. */
#ifndef FWX_HOST_ERRORS_H
#define FWX_HOST_ERRORS_H

#include <stdint.h>

#define FWX_HOST_ERR_NO_SERVER 0x5001u    /* nobody serves that channel name */
#define FWX_HOST_ERR_BAD_CHANNEL 0x5002u  /* the handle is of no open channel */
#define FWX_HOST_ERR_CHANNEL_DOWN 0x5003u /* the other side is gone */
#define FWX_HOST_ERR_NO_ANSWER 0x5004u    /* a synchronous message was not answered in time */
#define FWX_HOST_ERR_CLOSED 0x5005u       /* the channel was closed before the server took the message */
#define FWX_HOST_ERR_FULL 0x5006u         /* the channel holds as much as it may */
#define FWX_HOST_ERR_TOO_LONG 0x5007u     /* a message longer than a channel carries */
#define FWX_HOST_ERR_BAD_BUFFER 0x5008u   /* not a transmit buffer, or one that is not the caller's now */
#define FWX_HOST_ERR_NAME_TAKEN 0x5009u   /* another server has that name */
#define FWX_HOST_ERR_NOT_LISTED 0x500au   /* the element is not on the list */
#define FWX_HOST_ERR_LISTED 0x500bu       /* the element is on a list already */
#define FWX_HOST_ERR_NO_KEY 0x500cu       /* the key is not in the table or tree */
#define FWX_HOST_ERR_KEY_TAKEN 0x500du    /* the key is in the table or tree already */
#define FWX_HOST_ERR_BAD_ARG 0x500eu      /* an argument that the operation cannot take */
#define FWX_HOST_ERR_NO_CLIENT 0x500fu    /* no classifier client is registered under that id */
#define FWX_HOST_ERR_FAULT 0x5010u        /* a fault that a test armed */
#define FWX_HOST_ERR_FOREIGN 0x5011u      /* another user's server, or a socket directory that others can get at */
#define FWX_HOST_ERR_BAD_ANSWER 0x5012u   /* a synchronous message was answered with less than a result, or another's */
#define FWX_HOST_ERR_VERSION 0x5013u      /* the server's channels are laid out as those of another version */
#define FWX_HOST_ERR_BUSY 0x5014u         /* the server has as many clients as it takes */
#define FWX_HOST_ERR_FORKED 0x5015u       /* what is named belongs to the process that this one was forked from */

#ifdef __cplusplus
extern "C" {
#endif

/** Text of any code: the library's, this platform's, an errno value, or one that a program added; never null. */
const char *xerr_strerror(uint32_t code);

/** Gives xerr_strerror the text of a program's own code; `text` is not copied. A later text for the same code replaces
 * it. Without memory for one more text nothing changes. */
void fwx_host_error_text_add(uint32_t code, const char *text);

#ifdef __cplusplus
}
#endif

#endif
