/* Recognises errors that mean that no server got a command. */
#ifndef RECONCILE_NO_SERVER_H
#define RECONCILE_NO_SERVER_H

#include <cstdint>

#include "fwx_host/errors.h"
#include "fwx_nat64/result.h"

/** True if a result code means that no server serves the channel. As the result of a command that was sent, it means
 * that the server never got the command. */
inline bool is_no_server(uint32_t code) {
    return code == FWX_NAT64_ERR_AGAIN || code == FWX_HOST_ERR_NO_SERVER || code == FWX_HOST_ERR_CHANNEL_DOWN;
}

#endif
