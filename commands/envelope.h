/* What all configuration commands share: the message envelope and the byte-order conversion of addresses. */
#ifndef COMMANDS_ENVELOPE_H
#define COMMANDS_ENVELOPE_H

#include <stddef.h>
#include <stdint.h>

#include "fwx_nat64/config.h"

/**
 * Sends a configuration command.
 * @param op_code FWX_NAT64_CFG_*.
 * @param payload copied into the message; only read. May be null when `len` is 0.
 * @param len     bytes of payload.
 * @param pal_ctx passed to `cfg_reply_cb`.
 * @return 0 when handed to the channel, FWX_NAT64_ERR_NOT_READY while unbound, or the codes of
 *         fwx_nat64_client_async_cmd_init and _send.
 */
uint32_t fwx_nat64_client_cfg_cmd_send_a(uint32_t op_code, const void *payload, size_t len, void *pal_ctx);

/** Sends the delete of a mapping or pool, which its identifier alone names. Results as above. */
uint32_t cfg_delete_send_a(uint32_t op_code, uint32_t id, void *pal_ctx);

/** Returns the IPv4 word of an address record, in host order. */
uint32_t addr_ipv4_word(const fwx_nat64_addr_t *addr);
/** Converts the IPv4 address of a copied record to network order; an IPv6 address stays unchanged. */
void addr_to_wire(fwx_nat64_addr_t *addr);

static inline uint32_t to_network_order(uint32_t word) {
    return __builtin_bswap32(word);
}

#endif
