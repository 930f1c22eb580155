/** @file
 * The NAT64 client library: everything that a PAL includes.
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
