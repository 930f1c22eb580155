/** @file
 * MAP-T rules and the table that the library keeps of them.
 *
 * A basic mapping rule is named by Rule ID and Domain ID. It is pending from the command until the server's reply, then
 * installed: its IPv4 and its IPv6 prefix become leaves of a lookup tree whose leaf data carries the server's index of
 * the rule. The table is process-wide and outlives a binding.
 *
 * Verdicts. What reaches `cfg_reply_cb` is the rule table's result, not the server's: for an add what
 * fwx_mapt_plu_add_rule returned, for a delete and for every default mapping rule 0. The server's own result is not
 * looked at and a rule that it refused is installed all the same, save when the refusal is shorter than a whole reply:
 * then its result is told, and an added rule stays pending. A command that is flushed hears FWX_NAT64_ERR_AGAIN; its
 * rule stays pending, or deleted.
 *
 * Order. A reply names its rule by the two IDs alone, so the next command for a rule waits for the reply to the one
 * before. An add behind a delete behind an add would be installed by the first reply, under the first index; a delete's
 * reply that orders a clean-up takes every rule that was added meanwhile.
 *
 * Shared prefixes. Rules with the same prefix share its leaf, which carries the index of the rule that made it.
 * Deleting any of them deletes the leaf. The others stay installed without it, and deleting one of them then fails with
 * 22, until fwx_mapt_plu_rule_insert has put the leaf back or the table is cleaned up.
 *
 * Failed inserts. A rule whose leaves could not all be made stays installed with those that were; deleting it fails
 * with 22 at the first leaf that is missing.
 *
 * Restarts. A server that was started again has no rules, and gives new indices to those that it gets. The table still
 * has the old rules with the old indices: an add of one of them is carried out by the server, and its verdict here is
 * FWX_NAT64_ERR_EXISTS, with the leaves under an index that means another rule by now. So a PAL that sees the server go
 * calls fwx_mapt_plu_cleanup before it adds the rules again.
 *
 * Clean-up. It takes pending rules too, also when it is called from a callback: the reply to an add that is under way
 * installs nothing then, and its verdict is FWX_NAT64_ERR_INVALID, or 0 if another rule has become pending since.
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

/** A basic mapping rule. Prefixes: first byte most significant; the IPv6 prefix by its first 64 bits. */
typedef struct {
    uint32_t rule_id;        /**< Rule ID, not 0 */
    uint32_t domain_id;      /**< Domain ID, any */
    uint8_t v6_prefix[8];    /**< IPv6 prefix; bits behind its length are sent and not looked up */
    uint8_t v6_prefix_len;   /**< bits, 0 to FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX */
    uint8_t v4_prefix[4];    /**< IPv4 prefix, likewise */
    uint8_t v4_prefix_len;   /**< bits, 0 to FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX */
    uint16_t rule_params[4]; /**< to the server: EA bits, PSID offset, PSID length, PSID unless EA bits hold it */
} fwx_nat64_mapt_bmr_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_mapt_bmr_t, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_bmr_t, v6_prefix, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_bmr_t, v4_prefix, 17);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_bmr_t, rule_params, 22);

/** A default mapping rule; only the identifier is looked at. */
typedef struct {
    uint32_t id;        /**< of the rule, not 0 */
    uint8_t opaque[24]; /**< to the server: an IPv6 prefix in 16 bytes, first byte most significant, its length in
                             bits, and reserved bytes */
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
 * Prepares the rule table for use; bind calls it. May be called again; touches no rule.
 * @return 0, or FWX_NAT64_ERR_INVALID or 22 when its own tables are inconsistent.
 */
uint32_t fwx_mapt_plu_init(void);

/**
 * Adds or deletes a basic mapping rule, in the table and at the server. An added rule is pending when the call returns,
 * also when the send failed; a deleted one has left the table, also when the send failed. A delete of a rule that the
 * table does not hold is sent.
 * @param op      FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL.
 * @param bmr     only read. A delete finds its rule by the two IDs and sends the whole record, lengths unchecked.
 * @param pal_ctx handed back to `cfg_reply_cb`.
 * @return 0 when handed to the channel; FWX_NAT64_ERR_INVALID for null, Rule ID 0, or an added prefix longer than its
 *         field; FWX_NAT64_ERR_NOT_READY; 22 for another operation; the code of fwx_mapt_plu_add_pending_rule or
 *         fwx_mapt_plu_del_rule, nothing is sent then; or as fwx_nat64_client_async_cmd_init and _send.
 */
uint32_t fwx_nat64_mapt_bmr_set_a(uint32_t op, const fwx_nat64_mapt_bmr_t *bmr, void *pal_ctx);
/** Sends a default mapping rule with any operation, unchecked; the table is not touched. FWX_NAT64_ERR_INVALID for null
 * or id 0. */
uint32_t fwx_nat64_mapt_dmr_set_a(uint32_t op, const fwx_nat64_mapt_dmr_t *dmr, void *pal_ctx);

/* --- The rule table itself. fwx_nat64_mapt_bmr_set_a and the reply handler call these; a PAL needs them to take back
 * what a server refused, and to put back a leaf that rules shared. None of them sends anything. --- */

/**
 * Records a copy of a rule as pending.
 * @return 0, also when the rule is installed already; FWX_NAT64_ERR_INVALID for null or a prefix longer than its field;
 * FWX_NAT64_ERR_EXISTS when the rule is pending already; 12; or the hash facility's code.
 */
uint32_t fwx_mapt_plu_add_pending_rule(const fwx_nat64_mapt_bmr_t *bmr);
/**
 * Installs the pending rule that a reply names, under the reply's index.
 * @param reply a type 13 message of at least 64 bytes, 8-byte aligned, only read; its result is not looked at.
 * @return 0, also when the reply names no pending rule, which changes nothing; FWX_NAT64_ERR_INVALID for null, or when
 * no rule has been pending since the start or the last clean-up; FWX_NAT64_ERR_EXISTS when the rule is installed
 *         already: the new one is dropped, the old one stays; the hash facility's code: the rule is dropped; or as
 *         fwx_mapt_plu_rule_insert: the rule is installed.
 */
uint32_t fwx_mapt_plu_add_rule(const void *reply);
/**
 * Inserts the two prefixes of a rule into the lookup tree; a leaf that is there already stays as it is.
 * @param elem the rule and the server's index of it; only read.
 * @return 0; FWX_NAT64_ERR_INVALID for null or a prefix longer than its field; 12; 22 before fwx_mapt_plu_init;
 *         FWX_NAT64_ERR_PLU_FAILED when the tree takes no leaf; or the code of the list or tree service. An IPv4 leaf
 *         stays when the IPv6 one fails.
 */
uint32_t fwx_mapt_plu_rule_insert(fwx_mapt_rule_hash_elem_t *elem);
/**
 * Deletes the rule that the record's Rule ID and Domain ID name: the pending one, else the installed one with its
 * leaves, the IPv4 one first.
 * @return 0, also when there is none; FWX_NAT64_ERR_INVALID for null; 22 when a leaf is missing;
 * FWX_NAT64_ERR_PLU_FAILED when some complexes failed and others did not; or the code of the hash, list or tree
 * service. After a failure the rule stays as it was, pending or installed, but for leaves that are gone already.
 */
uint32_t fwx_mapt_plu_del_rule(const fwx_nat64_mapt_bmr_t *bmr);
/** Empties the whole rule table, pending rules too; failures are logged and the rest goes on. The server hears nothing
 * of it. */
void fwx_mapt_plu_cleanup(void);
/** Gives the tree library the leaf data of the insert under way. @return 0, or 1 for a null `buffer` of 16 bytes. */
uint32_t fwx_mapt_tbm_plu_leaf_contents_func_t_v2(void *unused, void *buffer, void *app_leaf, void *app_handle);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
