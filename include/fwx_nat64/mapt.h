/** @file
 * MAP-T rules, and the table in which the library keeps them.
 *
 * Rule ID and Domain ID identify a basic mapping rule. The rule is pending from the command until the server's reply,
 * then installed: its IPv4 and its IPv6 prefix become leaves of a lookup tree, and the data of a leaf is the server's
 * index of the rule. The table is process-wide and outlives a binding.
 *
 * Verdicts. `cfg_reply_cb` gets the rule table's result, not the server's: for an add the result of
 * fwx_mapt_plu_add_rule, for a delete and for every default mapping rule 0. The library ignores the server's own
 * result, and installs a rule that the server refused. The exception is a refusal shorter than a whole reply: the
 * callback gets its result, and an added rule stays pending. A flushed command gets FWX_NAT64_ERR_AGAIN; its rule stays
 * pending, or deleted.
 *
 * Order. A reply identifies its rule only by the two IDs, so send the next command for a rule after the reply to the
 * one before. Otherwise, if an add follows a delete that follows an add, the first reply installs the last rule under
 * the first index; and the reply to a delete that orders a clean-up removes every rule that was added meanwhile.
 *
 * Shared prefixes. Rules with the same prefix share its leaf, which holds the index of the rule that created it.
 * Deleting any of them deletes the leaf. The others stay installed without a leaf, and deleting one of them fails with
 * 22 until fwx_mapt_plu_rule_insert has put the leaf back or the table is cleaned up.
 *
 * Failed inserts. A rule whose leaves could not all be created stays installed with the leaves that were. Deleting it
 * fails with 22 at the first leaf that is missing.
 *
 * Restarts. A restarted server has no rules, and assigns new indices to the rules that it gets. The table still holds
 * the old rules with the old indices. If the PAL adds such a rule again, the server carries the add out, but the
 * verdict here is FWX_NAT64_ERR_EXISTS and the leaves keep an index that by now stands for another rule. So a PAL that
 * loses its server calls fwx_mapt_plu_cleanup before it adds the rules again.
 *
 * Clean-up. It removes pending rules too, also when it is called from a callback. The reply to an outstanding add then
 * installs nothing, and its verdict is FWX_NAT64_ERR_INVALID, or 0 if another rule has become pending since.
 *
 * Calling context: the thread that runs the event loop of the binding, no two operations at the same time; allowed from
 * inside the PAL's callbacks.
 */
#ifndef FWX_NAT64_MAPT_H
#define FWX_NAT64_MAPT_H

#include <stdint.h>

#include "fwx_nat64/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

#define FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX 64u /**< longest IPv6 prefix of a basic mapping rule, in bits */
#define FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX 32u /**< longest IPv4 prefix of a basic mapping rule, in bits */

/** A basic mapping rule. Prefixes are in network order; the IPv6 prefix is given by its first 64 bits. */
typedef struct {
    uint32_t rule_id;        /**< Rule ID, not 0 */
    uint32_t domain_id;      /**< Domain ID, any */
    uint8_t v6_prefix[8];    /**< IPv6 prefix; bits after its length are sent, but not looked up */
    uint8_t v6_prefix_len;   /**< bits, 0 to FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX */
    uint8_t v4_prefix[4];    /**< IPv4 prefix, likewise */
    uint8_t v4_prefix_len;   /**< bits, 0 to FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX */
    uint16_t rule_params[4]; /**< the server reads: EA bits, PSID offset, PSID length, PSID unless in the EA bits */
} fwx_nat64_mapt_bmr_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_mapt_bmr_t, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_bmr_t, v6_prefix, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_bmr_t, v4_prefix, 17);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_bmr_t, rule_params, 22);

/** A default mapping rule; the library checks only the identifier. */
typedef struct {
    uint32_t id;        /**< identifier of the rule, not 0 */
    uint8_t opaque[24]; /**< the server reads: 16 bytes of IPv6 prefix in network order, its length in bits (1 byte),
                             reserved bytes */
} fwx_nat64_mapt_dmr_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_mapt_dmr_t, 28);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_dmr_t, id, 0);

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
FWX_NAT64_WIRE_SIZE(fwx_mapt_app_leaf_t, 16);
FWX_NAT64_WIRE_AT(fwx_mapt_app_leaf_t, mapt_bmr, 4);

/**
 * Prepares the rule table for use; bind calls it. May be called again; does not touch any rule.
 * @return 0, or FWX_NAT64_ERR_INVALID or 22 when the table's own parameters are inconsistent.
 */
uint32_t fwx_mapt_plu_init(void);

/**
 * Adds or deletes a basic mapping rule, in the table and at the server. When the call returns, an added rule is pending
 * and a deleted one has left the table, even if the send failed. A delete of a rule that is not in the table is still
 * sent.
 * @param op      FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL.
 * @param bmr     only read. A delete finds its rule by the two IDs and sends the whole record; the lengths are not
 *                checked.
 * @param pal_ctx passed to `cfg_reply_cb`.
 * @return 0 when handed to the channel; FWX_NAT64_ERR_INVALID for null, Rule ID 0, or an added prefix longer than its
 *         field; FWX_NAT64_ERR_NOT_READY; 22 for another operation; the code of fwx_mapt_plu_add_pending_rule or
 *         fwx_mapt_plu_del_rule, after which nothing is sent; or those of fwx_nat64_client_async_cmd_init and _send.
 */
uint32_t fwx_nat64_mapt_bmr_set_a(uint32_t op, const fwx_nat64_mapt_bmr_t *bmr, void *pal_ctx);
/** Sends a default mapping rule. `op` is not checked, and the table does not change. FWX_NAT64_ERR_INVALID for null or
 * id 0. */
uint32_t fwx_nat64_mapt_dmr_set_a(uint32_t op, const fwx_nat64_mapt_dmr_t *dmr, void *pal_ctx);

/* --- The rule table itself. fwx_nat64_mapt_bmr_set_a and the reply handler call these functions. A PAL needs them to
 * remove a rule that the server refused, and to put back a shared leaf. None of them sends anything. --- */

/**
 * Stores a copy of a rule as pending.
 * @return 0, also when the rule is already installed; FWX_NAT64_ERR_INVALID for null or a prefix longer than its field;
 *         FWX_NAT64_ERR_EXISTS when the rule is already pending; 12 when memory is out; or the hash facility's code.
 */
uint32_t fwx_mapt_plu_add_pending_rule(const fwx_nat64_mapt_bmr_t *bmr);
/**
 * Installs the pending rule that a reply names, under the reply's index.
 * @param reply a type 13 message of at least 64 bytes, 8-byte aligned, only read; its result is ignored.
 * @return 0, also when the reply names no pending rule, which changes nothing; FWX_NAT64_ERR_INVALID for null, or when
 *         no rule has been pending since the start or the last clean-up; FWX_NAT64_ERR_EXISTS when the rule is already
 *         installed: the new one is dropped, the old one stays; the hash facility's code: the rule is dropped; or those
 *         of fwx_mapt_plu_rule_insert: the rule is installed.
 */
uint32_t fwx_mapt_plu_add_rule(const void *reply);
/**
 * Inserts the two prefixes of a rule into the lookup tree; a leaf that exists already stays unchanged.
 * @param elem the rule and the server's index of it; only read.
 * @return 0; FWX_NAT64_ERR_INVALID for null or a prefix longer than its field; 12 when memory is out; 22 before
 *         fwx_mapt_plu_init; FWX_NAT64_ERR_PLU_FAILED when the tree rejects a leaf; or the code of the list or tree
 *         service. The IPv4 leaf stays when the IPv6 one fails.
 */
uint32_t fwx_mapt_plu_rule_insert(fwx_mapt_rule_hash_elem_t *elem);
/**
 * Deletes the rule that the record's Rule ID and Domain ID name: the pending rule, else the installed one with its
 * leaves, the IPv4 leaf first.
 * @return 0, also when there is no such rule; FWX_NAT64_ERR_INVALID for null; 22 when a leaf is missing;
 *         FWX_NAT64_ERR_PLU_FAILED when some complexes failed and others did not; or the code of the hash, list or tree
 *         service. After a failure the rule stays pending or installed, without the leaves that were already deleted.
 */
uint32_t fwx_mapt_plu_del_rule(const fwx_nat64_mapt_bmr_t *bmr);
/** Empties the whole rule table, pending rules included. A failed step is logged and the next steps still run. Nothing
 * is sent to the server. */
void fwx_mapt_plu_cleanup(void);
/**
 * Copies the leaf data of the insert in progress into the tree library's 16-byte `buffer`.
 * @return 0, or 1 for a null `buffer`.
 */
uint32_t fwx_mapt_tbm_plu_leaf_contents_func_t_v2(void *unused, void *buffer, void *app_leaf, void *app_handle);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
