/** @file
 * The NAT64 client library: includes every header that a PAL needs. A PAL is the control-plane program that uses this
 * library to configure and query a NAT64 server.
 */
#ifndef FWX_NAT64_FWX_NAT64_H
#define FWX_NAT64_FWX_NAT64_H

#include "fwx_nat64/client.h"
#include "fwx_nat64/config.h"
#include "fwx_nat64/debug.h"
#include "fwx_nat64/mapt.h"
#include "fwx_nat64/query.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/transport.h"
#include "fwx_nat64/wire.h"

#endif
