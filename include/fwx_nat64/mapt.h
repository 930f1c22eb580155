/** @file
 * MAP-T rules and the table that the library keeps of them.
 *
 * A basic mapping rule is named by Rule ID and Domain ID. It is pending from the command until the server's reply, then
 * installed: its IPv4 and its IPv6 prefix become leaves of a lookup tree whose leaf data carries the server's index of
 * the rule. The table is process-wide and outlives a binding.
 *
 * Calling context: the thread that runs the event loop of the binding; no two operations at the same time.
 */
#ifndef FWX_NAT64_MAPT_H
#define FWX_NAT64_MAPT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

#define FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX 64u /**< longest IPv6 prefix of a basic mapping rule, in bits */
#define FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX 32u /**< longest IPv4 prefix of a basic mapping rule, in bits */

/** A basic mapping rule. Prefixes: first byte most significant; the IPv6 prefix by its first 64 bits. */
typedef struct {
    uint32_t rule_id;        /**< not 0 */
    uint32_t domain_id;      /**< Domain ID */
    uint8_t v6_prefix[8];    /**< IPv6 prefix */
    uint8_t v6_prefix_len;   /**< bits, 0 to FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX */
    uint8_t v4_prefix[4];    /**< IPv4 prefix */
    uint8_t v4_prefix_len;   /**< bits, 0 to FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX */
    uint16_t rule_params[4]; /**< the server's */
} fwx_nat64_mapt_bmr_t;

/** A default mapping rule; only the identifier is looked at. */
typedef struct {
    uint32_t id;        /**< not 0 */
    uint8_t opaque[24]; /**< the server's */
} fwx_nat64_mapt_dmr_t;

/** A rule in the table. */
typedef struct {
    fwx_nat64_mapt_bmr_t rule; /**< as given */
    uint32_t mapt_bmr;         /**< the server's index of the rule; not set while the rule is pending */
} fwx_mapt_rule_hash_elem_t;

/** Application data of a lookup-tree leaf, read by the data plane. */
typedef struct {
    uint32_t reserved0;   /**< reserved, 0 */
    uint32_t mapt_bmr;    /**< big-endian index of the rule */
    uint8_t reserved8[8]; /**< reserved, 0 */
} fwx_mapt_app_leaf_t;

/**
 * Prepares the rule table for use; bind calls it. May be called again; touches no rule.
 * @return 0, or FWX_NAT64_ERR_INVALID or 22 when its own tables are inconsistent.
 */
uint32_t fwx_mapt_plu_init(void);

/**
 * Adds or deletes a basic mapping rule, in the table and at the server. An added rule is pending when the call returns,
 * also when the send failed; a deleted one has left the table. The verdict of an add is the rule table's.
 * @param op      FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL.
 * @param bmr     only read; a delete looks at its Rule ID and Domain ID.
 * @param pal_ctx handed back to `cfg_reply_cb`.
 * @return 0 when handed to the channel; FWX_NAT64_ERR_INVALID for null, Rule ID 0, or a prefix longer than its field;
 *         FWX_NAT64_ERR_NOT_READY; 22 for another operation; the rule table's code (FWX_NAT64_ERR_EXISTS for a rule
 * that is pending already), nothing is sent then; or as fwx_nat64_client_async_cmd_init and _send.
 */
uint32_t fwx_nat64_mapt_bmr_set_a(uint32_t op, const fwx_nat64_mapt_bmr_t *bmr, void *pal_ctx);
/** Sends a default mapping rule with any operation; the table is not touched. FWX_NAT64_ERR_INVALID for null or id 0.
 */
uint32_t fwx_nat64_mapt_dmr_set_a(uint32_t op, const fwx_nat64_mapt_dmr_t *dmr, void *pal_ctx);

/* --- The rule table itself. fwx_nat64_mapt_bmr_set_a and the reply handler call these; a PAL has no need to. --- */

/**
 * Records a copy of a rule as pending.
 * @return 0; FWX_NAT64_ERR_INVALID for null or a prefix longer than its field; FWX_NAT64_ERR_EXISTS when the rule is
 * pending already; 12; or the hash facility's code.
 */
uint32_t fwx_mapt_plu_add_pending_rule(const fwx_nat64_mapt_bmr_t *bmr);
/**
 * Installs the pending rule that a reply names, under the reply's index; a reply that names none changes nothing.
 * @param reply a type 13 message of at least 64 bytes, 8-byte aligned, only read.
 * @return 0; FWX_NAT64_ERR_INVALID for null, or when no rule was ever pending; FWX_NAT64_ERR_EXISTS when the rule is
 *         installed already; 12; FWX_NAT64_ERR_PLU_FAILED; or the platform's code.
 */
uint32_t fwx_mapt_plu_add_rule(const void *reply);
/** Inserts the two prefixes of an installed rule into the lookup tree. @return 0, 12, 22, FWX_NAT64_ERR_PLU_FAILED or
 * the tree library's code; an IPv4 leaf stays when the IPv6 one fails. */
uint32_t fwx_mapt_plu_rule_insert(fwx_mapt_rule_hash_elem_t *elem);
/**
 * Deletes the rule that the record's Rule ID and Domain ID name: the pending one, else the installed one with its
 * leaves.
 * @return 0, also when there is none; FWX_NAT64_ERR_INVALID for null; 22 when a leaf is missing;
 * FWX_NAT64_ERR_PLU_FAILED; or the platform's code. An installed rule stays installed after a failure.
 */
uint32_t fwx_mapt_plu_del_rule(const fwx_nat64_mapt_bmr_t *bmr);
/** Empties the whole rule table; failures are logged and the rest goes on. */
void fwx_mapt_plu_cleanup(void);
/** Gives the tree library the leaf data of the insert under way. @return 0, or 1 for a null `buffer` of 16 bytes. */
uint32_t fwx_mapt_tbm_plu_leaf_contents_func_t_v2(void *unused, void *buffer, void *app_leaf, void *app_handle);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
