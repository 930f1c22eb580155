/* The whole API of the host platform. */
#ifndef FWX_HOST_FWX_HOST_H
#define FWX_HOST_FWX_HOST_H

#include "fwx_host/capture.h"
#include "fwx_host/cgm.h"
#include "fwx_host/debug.h"
#include "fwx_host/errors.h"
#include "fwx_host/fault.h"
#include "fwx_host/inspect.h"
#include "fwx_host/loop.h"
#include "fwx_host/smc.h"
#include "fwx_host/tbm.h"
#include "fwx_host/user_socket.h"

#endif
