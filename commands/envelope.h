/* What the command families share: the configuration envelope and the byte-order rule. */
#ifndef COMMANDS_ENVELOPE_H
#define COMMANDS_ENVELOPE_H

#include <stddef.h>
#include <stdint.h>

#include "fwx_nat64/config.h"

/**
 * Sends a configuration command.
 * @param payload copied into the message; only read. May be null when `len` is 0.
 * @param len     bytes of payload.
 * @return 0 when handed to the channel, FWX_NAT64_ERR_NOT_READY while unbound, or as fwx_nat64_client_async_cmd_init
 * and _send.
 */
uint32_t fwx_nat64_client_cfg_cmd_send_a(uint32_t op_code, const void *payload, size_t len, void *pal_ctx);

/** Sends the delete of a mapping or pool, which is known by its identifier alone. */
uint32_t cfg_delete_send_a(uint32_t op_code, uint32_t id, void *pal_ctx);

/** The IPv4 word of an address record. */
uint32_t addr_ipv4_word(const fwx_nat64_addr_t *addr);
/** Puts the IPv4 address of a copied record into network order; IPv6 addresses stay as they are. */
void addr_to_wire(fwx_nat64_addr_t *addr);

static inline uint32_t to_network_order(uint32_t word) {
    return __builtin_bswap32(word);
}

#endif
