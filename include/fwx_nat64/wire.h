/** @file
 * Wire layouts: every message between the library and the server, in both directions. Op codes, and the records that
 * travel unchanged except for the byte order of IPv4 addresses, are declared with the commands in fwx_nat64/config.h.
 *
 * Both sides must agree on every size and offset here; the asserts after each struct check them. Byte order is the
 * host's (little-endian), except for fields whose comment says network order, and for address records: their IPv4
 * address is in network order in every message, in either direction.
 *
 * `reserved` bytes have no meaning, and the receiver ignores them. The library writes 0 to those of the interface and
 * logging payloads and copies those of a prefix from the caller; all others keep what the messaging service's buffer
 * held. The configuration messages share one envelope: header, op code, payload, four reserved bytes. "Defined by the
 * server" is explained in fwx_nat64/config.h.
 */
#ifndef FWX_NAT64_WIRE_H
#define FWX_NAT64_WIRE_H

#include <stddef.h>
#include <stdint.h>

#include "fwx_nat64/config.h"
#include "fwx_nat64/layout.h"
#include "fwx_nat64/mapt.h"
#include "fwx_nat64/query.h"
#include "fwx_nat64/transport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* --- The envelope of configuration commands. --- */

/** Configuration command; the whole message is sizeof(fwx_nat64_cfg_msg_t) + payload length bytes long. */
typedef struct {
    fwx_nat64_msg_hdr_t hdr; /**< header */
    uint32_t op_code;        /**< FWX_NAT64_CFG_* */
    uint8_t payload[4];      /**< start of the payload; four reserved bytes follow it, which nothing writes */
} fwx_nat64_cfg_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_cfg_msg_t, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_cfg_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_cfg_msg_t, op_code, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_cfg_msg_t, payload, 36);

/** Synchronous control command; the whole message is sizeof(fwx_nat64_ctrl_msg_t) + data length bytes long. */
typedef struct {
    fwx_nat64_sync_hdr_t hdr; /**< header */
    uint32_t op_code;         /**< FWX_NAT64_CFG_* */
} fwx_nat64_ctrl_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_ctrl_msg_t, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_ctrl_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_ctrl_msg_t, op_code, 16);

/* --- Payloads of configuration commands. --- */

/** Service: op code 20. */
typedef struct {
    uint32_t add;                /**< 1 add, 0 delete */
    fwx_nat64_service_t service; /**< as given, with a delete too */
} fwx_nat64_service_payload_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_service_payload_t, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_service_payload_t, add, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_service_payload_t, service, 4);

/** Delete of a mapping or pool: op codes 5, 9 and 12. */
typedef struct {
    uint32_t id;  /**< identifier */
    uint32_t one; /**< 1 */
} fwx_nat64_delete_payload_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_delete_payload_t, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_delete_payload_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_delete_payload_t, one, 4);

/** Interface: op codes 1 and 2. */
typedef struct {
    uint32_t ifh;                         /**< interface handle */
    uint32_t enable;                      /**< 0: off; 1 in op code 2 */
    uint32_t nvi;                         /**< 0 in op code 1, 1 in op code 2 */
    uint32_t sless_prefix_valid;          /**< non-zero: `sless_prefix` is given */
    uint32_t sful_prefix_valid;           /**< non-zero: `sful_prefix` is given */
    uint32_t sless_prefix_v6v4_valid;     /**< non-zero: `sless_prefix_v6v4` is given */
    fwx_nat64_prefix_t sless_prefix;      /**< stateless translation; like the next two, zeros when not given */
    fwx_nat64_prefix_t sful_prefix;       /**< stateful translation */
    fwx_nat64_prefix_t sless_prefix_v6v4; /**< stateless translation from IPv6 to IPv4 */
    uint32_t mtu_valid;                   /**< non-zero: `mtu` is given */
    uint16_t mtu;                         /**< bytes; 0 when not given */
    uint8_t reserved90[2];                /**< written as 0 */
} fwx_nat64_intf_payload_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_intf_payload_t, 92);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, ifh, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, enable, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, nvi, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, sless_prefix_valid, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, sful_prefix_valid, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, sless_prefix_v6v4_valid, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, sless_prefix, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, sful_prefix, 44);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, sless_prefix_v6v4, 64);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, mtu_valid, 84);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, mtu, 88);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_payload_t, reserved90, 90);

/** Global prefix: op codes 3 and 27. */
typedef struct {
    uint32_t add;              /**< 1 add or modify, 0 delete */
    fwx_nat64_prefix_t prefix; /**< as given */
} fwx_nat64_glb_prefix_payload_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_glb_prefix_payload_t, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_glb_prefix_payload_t, add, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_glb_prefix_payload_t, prefix, 4);

/** First byte of the second part when a dynamic mapping has no second part. */
#define FWX_NAT64_DMAPPING_NO_SECOND_PART 4u

/** Dynamic mapping: op codes 11 and 13. */
typedef struct {
    fwx_nat64_dmapping_t map; /**< as given */
    uint8_t second[24];       /**< copy of `ext` in op code 11; in 13 FWX_NAT64_DMAPPING_NO_SECOND_PART, then zeros */
    uint32_t ext_arg;         /**< copy of the record's `ext_arg` in op code 11; 0 in 13 */
} fwx_nat64_dmapping_payload_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_dmapping_payload_t, 80);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_payload_t, map, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_payload_t, second, 52);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_payload_t, ext_arg, 76);

/** Pool: op code 4. */
typedef struct {
    uint32_t id;         /**< identifier */
    uint32_t param;      /**< defined by the server */
    uint32_t hsl_id;     /**< defined by the server */
    uint32_t id2;        /**< the same identifier again */
    uint32_t start_addr; /**< network order */
    uint32_t end_addr;   /**< network order */
} fwx_nat64_pool_payload_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_pool_payload_t, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_payload_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_payload_t, param, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_payload_t, hsl_id, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_payload_t, id2, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_payload_t, start_addr, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_payload_t, end_addr, 20);

/** Delete of a pool range: op code 7. */
typedef struct {
    fwx_nat64_pool_range_t range; /**< as given, IPv4 addresses in network order */
    uint32_t one;                 /**< 1 */
} fwx_nat64_pool_range_del_payload_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_pool_range_del_payload_t, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_range_del_payload_t, range, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_range_del_payload_t, one, 44);

/** Logging: op codes 23, 24 and 25. */
typedef struct {
    uint32_t dest;         /**< network order */
    uint32_t reserved4;    /**< written as 0 */
    uint16_t dest_port;    /**< host order */
    uint16_t param2;       /**< defined by the server */
    uint32_t mode;         /**< FWX_NAT64_LOGGING_MODE */
    uint8_t param;         /**< defined by the server */
    uint8_t reserved17[3]; /**< written as 0 */
} fwx_nat64_logging_payload_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_logging_payload_t, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_payload_t, dest, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_payload_t, reserved4, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_payload_t, dest_port, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_payload_t, param2, 10);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_payload_t, mode, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_payload_t, param, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_payload_t, reserved17, 17);

/** Classifier update: op code 22, in both forms. */
typedef struct {
    uint8_t data[24];  /**< as the classifier manager gave it; the server interprets it */
    uint32_t batch_id; /**< number that the classifier manager gave the batch */
} fwx_nat64_classifier_update_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_classifier_update_t, 28);
FWX_NAT64_WIRE_AT(fwx_nat64_classifier_update_t, data, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_classifier_update_t, batch_id, 24);

/* --- Commands with their own message numbers. --- */

#define FWX_NAT64_INIT_CODE 0x00010090u /**< first word of an init command */
#define FWX_NAT64_MAPT_RULE_BMR 0u      /**< basic mapping rule */
#define FWX_NAT64_MAPT_RULE_DMR 1u      /**< default mapping rule */

/** Init, asynchronous (after a reconnection). */
typedef struct {
    fwx_nat64_msg_hdr_t hdr; /**< header */
    uint32_t init_code;      /**< FWX_NAT64_INIT_CODE */
    uint8_t client_id[4];    /**< the PAL's identifier */
} fwx_nat64_init_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_init_msg_t, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_init_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_init_msg_t, init_code, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_init_msg_t, client_id, 36);

/** Init, synchronous (at bind). */
typedef struct {
    fwx_nat64_sync_hdr_t hdr; /**< header */
    uint32_t init_code;       /**< FWX_NAT64_INIT_CODE */
    uint8_t client_id[4];     /**< the PAL's identifier */
} fwx_nat64_sync_init_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_sync_init_msg_t, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_sync_init_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_sync_init_msg_t, init_code, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_sync_init_msg_t, client_id, 20);

/** System statistics query. */
typedef struct {
    fwx_nat64_msg_hdr_t hdr; /**< header */
    uint32_t sel;            /**< which statistics; defined by the server */
    uint8_t reserved36[4];   /**< reserved */
} fwx_nat64_stats_sys_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_sys_msg_t, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_msg_t, sel, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_msg_t, reserved36, 36);

/** All-pools and all-mappings statistics query. */
typedef struct {
    fwx_nat64_msg_hdr_t hdr; /**< header */
    uint32_t sel;            /**< which statistics; defined by the server */
    uint32_t one;            /**< 1 */
    uint32_t zero;           /**< 0 */
    uint32_t count;          /**< largest number of entries to answer with */
    uint32_t arg;            /**< defined by the server */
    uint8_t reserved52[4];   /**< reserved */
    uint64_t cookie;         /**< where to continue, 0 for the start */
} fwx_nat64_stats_all_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_all_msg_t, 64);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_msg_t, sel, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_msg_t, one, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_msg_t, zero, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_msg_t, count, 44);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_msg_t, arg, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_msg_t, reserved52, 52);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_msg_t, cookie, 56);

/** All-limits statistics query. */
typedef struct {
    fwx_nat64_msg_hdr_t hdr; /**< header */
    uint32_t sel;            /**< which statistics; defined by the server */
    uint32_t one;            /**< 1 */
    uint8_t reserved40[8];   /**< reserved */
    uint32_t count;          /**< largest number of entries to answer with */
    uint8_t reserved52[4];   /**< reserved */
} fwx_nat64_stats_limit_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_limit_msg_t, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_limit_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_limit_msg_t, sel, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_limit_msg_t, one, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_limit_msg_t, reserved40, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_limit_msg_t, count, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_limit_msg_t, reserved52, 52);

/** Session walk. */
typedef struct {
    fwx_nat64_msg_hdr_t hdr;             /**< header */
    uint64_t cookie;                     /**< where to continue, 0 for the start */
    uint32_t arg;                        /**< defined by the server */
    uint32_t walk_arg;                   /**< defined by the server */
    uint32_t count;                      /**< sessions per reply */
    uint8_t reserved52[4];               /**< reserved */
    fwx_nat64_sess_walk_filter_t filter; /**< `src` with IPv4 in network order, `dst` always zeros */
} fwx_nat64_sess_walk_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_sess_walk_msg_t, 144);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_msg_t, cookie, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_msg_t, arg, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_msg_t, walk_arg, 44);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_msg_t, count, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_msg_t, reserved52, 52);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_msg_t, filter, 56);

/** Basic mapping rule. Each prefix travels byte-swapped, as one number of 64 or 32 bits. */
typedef struct {
    fwx_nat64_msg_hdr_t hdr; /**< header */
    uint32_t rule_type;      /**< FWX_NAT64_MAPT_RULE_BMR */
    uint32_t op;             /**< FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL */
    uint32_t rule_id;        /**< Rule ID, not 0 */
    uint32_t domain_id;      /**< Domain ID */
    uint8_t v6_prefix[8];    /**< last byte first */
    uint8_t v6_prefix_len;   /**< bits */
    uint8_t reserved57[3];   /**< reserved */
    uint8_t v4_prefix[4];    /**< last byte first */
    uint8_t v4_prefix_len;   /**< bits */
    uint8_t reserved65;      /**< reserved */
    uint16_t rule_params[4]; /**< defined by the server */
    uint8_t reserved74[6];   /**< reserved */
} fwx_nat64_bmr_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_bmr_msg_t, 80);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, rule_type, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, op, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, rule_id, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, domain_id, 44);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, v6_prefix, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, v6_prefix_len, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, reserved57, 57);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, v4_prefix, 60);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, v4_prefix_len, 64);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, reserved65, 65);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, rule_params, 66);
FWX_NAT64_WIRE_AT(fwx_nat64_bmr_msg_t, reserved74, 74);

/** Default mapping rule; FWX_NAT64_DMR_MSG_SIZE bytes on the wire, without the padding of the struct. */
typedef struct {
    fwx_nat64_msg_hdr_t hdr;  /**< header */
    uint32_t rule_type;       /**< FWX_NAT64_MAPT_RULE_DMR */
    uint32_t op;              /**< as the caller gave it, any value */
    fwx_nat64_mapt_dmr_t dmr; /**< as given */
} fwx_nat64_dmr_msg_t;
#define FWX_NAT64_DMR_MSG_SIZE 68u /**< bytes */
FWX_NAT64_WIRE_AT(fwx_nat64_dmr_msg_t, rule_type, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_dmr_msg_t, op, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_dmr_msg_t, dmr, 40);
static_assert(offsetof(fwx_nat64_dmr_msg_t, dmr) + sizeof(fwx_nat64_mapt_dmr_t) == FWX_NAT64_DMR_MSG_SIZE,
              "the record ends the message");

/* --- From the server. A reply is at least FWX_NAT64_REPLY_MIN_SIZE bytes long, up to and including `result`. A reply
 * whose result is not 0 may end there, except for MAP-T rules, whose replies identify the rule after the result. --- */

#define FWX_NAT64_REPLY_MIN_SIZE 36u /**< bytes */

/** Result of a command: types 0, 10 and 11. Every other reply begins with it too. */
typedef struct {
    fwx_nat64_msg_hdr_t hdr; /**< header */
    uint32_t result;         /**< 0, or the reason of the refusal */
    uint8_t reserved36[4];   /**< reserved */
} fwx_nat64_reply_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_reply_t, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_reply_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_reply_t, result, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_reply_t, reserved36, 36);

/** Answer to a synchronous command. */
typedef struct {
    fwx_nat64_sync_hdr_t hdr; /**< header */
    uint32_t result;          /**< 0, or the reason of the refusal */
} fwx_nat64_sync_reply_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_sync_reply_t, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_sync_reply_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_sync_reply_t, result, 16);

/** System statistics: type 4. One fwx_nat64_stats_sys_entry_t follows, or another record selected by `sel`. */
typedef struct {
    fwx_nat64_reply_t reply; /**< header and result */
    uint32_t more;           /**< not 0 until the last reply */
    uint32_t sel;            /**< defined by the server; FWX_NAT64_SEL_* or 0 from the server of this project */
} fwx_nat64_stats_sys_reply_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_sys_reply_t, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_reply_t, reply, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_reply_t, more, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_reply_t, sel, 44);

/** Interface and limit statistics: types 5 and 8. `value` entries follow. */
typedef struct {
    fwx_nat64_reply_t reply; /**< header and result */
    uint32_t more;           /**< not 0 until the last reply */
    uint32_t value;          /**< entries that follow */
} fwx_nat64_stats_intf_reply_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_intf_reply_t, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_intf_reply_t, reply, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_intf_reply_t, more, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_intf_reply_t, value, 44);

/** Pool and mapping statistics: types 6 and 7. `value2` entries follow. */
typedef struct {
    fwx_nat64_reply_t reply; /**< header and result */
    uint32_t more;           /**< not 0 until the last reply */
    uint8_t reserved44[4];   /**< reserved */
    uint64_t value;          /**< cookie with which to continue, 0: complete */
    uint32_t value2;         /**< entries that follow */
    uint8_t reserved60[4];   /**< reserved */
} fwx_nat64_stats_all_reply_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_all_reply_t, 64);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_reply_t, reply, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_reply_t, more, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_reply_t, reserved44, 44);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_reply_t, value, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_reply_t, value2, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_all_reply_t, reserved60, 60);

/** Session walk: type 9. `count` fwx_nat64_session_t follow. */
typedef struct {
    fwx_nat64_reply_t reply; /**< header and result */
    uint32_t count;          /**< entries that follow */
    uint8_t reserved44[4];   /**< reserved */
    uint32_t more;           /**< non-zero: further replies follow */
    uint32_t stopped;        /**< non-zero: the server ends the walk here, whatever `more` is */
    uint64_t value;          /**< cookie with which to continue, 0: complete */
    uint32_t value2;         /**< defined by the server */
    uint8_t reserved68[4];   /**< reserved */
} fwx_nat64_sess_walk_reply_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_sess_walk_reply_t, 72);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_reply_t, reply, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_reply_t, count, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_reply_t, reserved44, 44);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_reply_t, more, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_reply_t, stopped, 52);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_reply_t, value, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_reply_t, value2, 64);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_reply_t, reserved68, 68);

/** MAP-T rule: type 13. The server sends it whole, refusals too: a refusal that ends before `bmr_index` does not
 * identify its rule, and an added rule then stays pending. */
typedef struct {
    fwx_nat64_reply_t reply; /**< header and result */
    uint32_t rule_id;        /**< Rule ID */
    uint32_t domain_id;      /**< Domain ID */
    uint32_t rule_type;      /**< FWX_NAT64_MAPT_RULE_* */
    uint32_t op;             /**< operation of the command */
    uint32_t cleanup;        /**< 1 in the reply to a delete: clean up the whole rule table */
    uint32_t bmr_index;      /**< the server's index of the rule */
} fwx_nat64_mapt_reply_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_mapt_reply_t, 64);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_reply_t, reply, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_reply_t, rule_id, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_reply_t, domain_id, 44);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_reply_t, rule_type, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_reply_t, op, 52);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_reply_t, cleanup, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_mapt_reply_t, bmr_index, 60);

/**
 * Reads the server's own verdict on a rule from the received message, because `cfg_reply_cb` gets the verdict of the
 * rule table (fwx_nat64/mapt.h). The platform shows the message while that callback runs. On the host platform:
 *
 *     size_t size = 0;
 *     const void *head = fwx_host_smc_head(&size);
 *     uint32_t verdict, index;
 *     if (fwx_nat64_mapt_verdict(head, size, &verdict, &index)) ...
 *
 * @param head    start of the message, 8-byte aligned, or null.
 * @param size    bytes at `head`.
 * @param verdict receives the server's result.
 * @param index   receives the server's index of the rule, 0 if the reply is too short to have one. May be null.
 * @return 1; 0 when the message is not a reply to a rule command, and then nothing is written.
 */
static inline int fwx_nat64_mapt_verdict(const void *head, size_t size, uint32_t *verdict, uint32_t *index) {
    const fwx_nat64_mapt_reply_t *reply = (const fwx_nat64_mapt_reply_t *)head;
    if (head == NULL || size < FWX_NAT64_REPLY_MIN_SIZE) return 0;
    if (reply->reply.hdr.type != (FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_MAPT_RULE)) return 0;
    *verdict = reply->reply.result;
    if (index != NULL) *index = size >= sizeof(*reply) ? reply->bmr_index : 0;
    return 1;
}

/* --- Records after the fixed part of statistics and walk replies. --- */

/** System statistics: one record with the number of items of each kind that the server holds. */
typedef struct {
    uint64_t interfaces;       /**< configured */
    uint64_t prefixes;         /**< global prefixes */
    uint64_t static_mappings;  /**< configured */
    uint64_t dynamic_mappings; /**< configured */
    uint64_t pools;            /**< configured */
    uint64_t pool_ranges;      /**< configured */
    uint64_t loggings;         /**< configured */
    uint64_t rules;            /**< basic and default mapping rules */
    uint64_t sessions;         /**< open sessions */
} fwx_nat64_stats_sys_entry_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_sys_entry_t, 72);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_entry_t, interfaces, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_entry_t, prefixes, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_entry_t, static_mappings, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_entry_t, dynamic_mappings, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_entry_t, pools, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_entry_t, pool_ranges, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_entry_t, loggings, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_entry_t, rules, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_sys_entry_t, sessions, 64);

/* Selectors (`sel`) of a system statistics query. The server of this project answers each with another record. */
#define FWX_NAT64_SEL_COUNTS 1u /**< fwx_nat64_stats_counts_t */
#define FWX_NAT64_SEL_BOOT 2u   /**< fwx_nat64_stats_boot_t */
#define FWX_NAT64_SEL_SYSTEM 3u /**< fwx_nat64_stats_system_t */
#define FWX_NAT64_SEL_CONFIG 4u /**< the whole configuration, one fwx_nat64_config_page_t per reply */

/** Counters of the server since its start; fields that say "now" are current values. The last three fields are about
 * clients in other processes, and are sums over all servers of the server's process. */
typedef struct {
    uint64_t commands;     /**< well-formed commands received */
    uint64_t malformed;    /**< refused because of a wrong length, domain, type or op code */
    uint64_t refused;      /**< well formed, answered with a code other than 0 */
    uint64_t replies;      /**< asynchronous replies sent */
    uint64_t held;         /**< replies that are held back or delayed now */
    uint64_t clients;      /**< channels that are open now */
    uint64_t queued_bytes; /**< memory used by messages that wait now for a client to read them */
    uint64_t dropped;      /**< messages dropped when a client that did not read was disconnected */
    uint64_t turned_away;  /**< clients refused when they connected */
} fwx_nat64_stats_counts_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_counts_t, 72);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_counts_t, commands, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_counts_t, clients, 40);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_counts_t, turned_away, 64);

/** Lets a client detect a restart of the server, and changes that another client has made to its configuration. */
typedef struct {
    uint64_t boot_id;       /**< random id of this run of the server, from its creation to its end; never 0 */
    uint64_t changes;       /**< changes of the configuration since the server was created */
    uint64_t reserved16[7]; /**< reserved */
} fwx_nat64_stats_boot_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_boot_t, 72);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_boot_t, boot_id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_boot_t, changes, 8);

#define FWX_NAT64_CONFIG_MAGIC 0x31464e4f4334364eu /**< first word of a page: the text "N64CONF1" */

/** A page of the configuration that the server runs; its entries follow. The pages of one answer describe one
 * configuration only if their boot ids and numbers of changes are equal; otherwise it was changed while it was read. */
typedef struct {
    uint64_t magic;   /**< FWX_NAT64_CONFIG_MAGIC; a server without this query answers with another record */
    uint32_t bytes;   /**< size of this page, this header included */
    uint32_t entries; /**< entries in this page */
    uint64_t boot_id; /**< as in fwx_nat64_stats_boot_t */
    uint64_t changes; /**< number of configuration changes when the page was written */
} fwx_nat64_config_page_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_config_page_t, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_config_page_t, magic, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_config_page_t, bytes, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_config_page_t, entries, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_config_page_t, boot_id, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_config_page_t, changes, 24);

/** An entry of a configuration page: the command that creates one item. `size` bytes follow, padded with zeros to a
 * multiple of 8. For a configuration command they are its payload. For a rule command they are the message after its
 * header; a basic rule adds the server's index, 32 bits. */
typedef struct {
    uint16_t number;  /**< FWX_NAT64_MSG_CONFIG or FWX_NAT64_MSG_MAPT_RULE */
    uint16_t op_code; /**< FWX_NAT64_CFG_*, or FWX_NAT64_MAPT_RULE_BMR or _DMR */
    uint32_t size;    /**< bytes that follow, without the padding */
} fwx_nat64_config_entry_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_config_entry_t, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_config_entry_t, number, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_config_entry_t, op_code, 2);
FWX_NAT64_WIRE_AT(fwx_nat64_config_entry_t, size, 4);

/** The bytes that follow the entry of a basic rule. */
typedef struct {
    uint8_t request[sizeof(fwx_nat64_bmr_msg_t) - sizeof(fwx_nat64_msg_hdr_t)]; /**< from `rule_type` on */
    uint32_t index;                                                             /**< the server's index of the rule */
} fwx_nat64_config_bmr_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_config_bmr_t, 52);
FWX_NAT64_WIRE_AT(fwx_nat64_config_bmr_t, request, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_config_bmr_t, index, 48);

/** The number of items that the server holds, and of messages that it has refused for each reason
 * (fwx_nat64/server_result.h). */
typedef struct {
    fwx_nat64_stats_sys_entry_t holds; /**< items of each kind */
    uint64_t malformed;                /**< length, domain or type does not match the op code */
    uint64_t unknown;                  /**< unknown message number or op code */
    uint64_t no_entry;                 /**< the entry to delete or modify does not exist */
    uint64_t exists;                   /**< the entry to add exists already */
    uint64_t no_pool;                  /**< the pool of the range does not exist */
    uint64_t value;                    /**< a field has a value that the server does not accept */
    uint64_t overlap;                  /**< the pool or range overlaps another pool */
    uint64_t has_ranges;               /**< the pool to delete still has ranges */
    uint64_t prefix_len;               /**< no IPv4 address can be embedded after a prefix of this length */
    uint64_t too_many;                 /**< the client has too many walks and long lists in progress */
    uint64_t not_saved;                /**< carried out, but not written to the journal */
    uint64_t ordered;                  /**< refused by order: the server was told to refuse */
    uint64_t not_here;                 /**< this kind of server does not support it */
    uint64_t not_in_force;             /**< the gateway's kernel rejected it */
    uint64_t in_use;                   /**< a mapping uses the pool to delete */
    uint64_t failed_sessions;          /**< not messages: flows that got no address and port */
} fwx_nat64_stats_system_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_system_t, 200);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_system_t, holds, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_system_t, malformed, 72);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_system_t, ordered, 160);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_system_t, failed_sessions, 192);

/** Statistics of an interface. */
typedef struct {
    uint32_t ifh;        /**< interface handle */
    uint32_t enabled;    /**< 0: off */
    uint32_t nvi;        /**< 0: not an NVI interface */
    uint32_t mtu;        /**< bytes, 0 when not set */
    uint32_t prefixes;   /**< number of prefixes given with the interface */
    uint32_t reserved20; /**< reserved */
} fwx_nat64_stats_intf_entry_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_intf_entry_t, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_intf_entry_t, ifh, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_intf_entry_t, enabled, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_intf_entry_t, nvi, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_intf_entry_t, mtu, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_intf_entry_t, prefixes, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_intf_entry_t, reserved20, 20);

/** A limit and its use. */
typedef struct {
    uint32_t type;   /**< 1 */
    uint32_t value;  /**< the maximum */
    uint64_t in_use; /**< current use */
} fwx_nat64_stats_limit_entry_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_limit_entry_t, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_limit_entry_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_limit_entry_t, value, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_limit_entry_t, in_use, 8);

/** Statistics of a pool. */
typedef struct {
    uint32_t id;        /**< identifier of the pool */
    uint32_t ranges;    /**< number of ranges added to the pool */
    uint64_t addresses; /**< addresses in the pool and its ranges; UINT64_MAX when they are more */
    uint64_t sessions;  /**< open sessions */
} fwx_nat64_stats_pool_entry_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_pool_entry_t, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_pool_entry_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_pool_entry_t, ranges, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_pool_entry_t, addresses, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_pool_entry_t, sessions, 16);

#define FWX_NAT64_MAPPING_UNKNOWN 0u /**< unknown: the record comes from a notification */
#define FWX_NAT64_MAPPING_STATIC 1u  /**< static mapping */
#define FWX_NAT64_MAPPING_DYNAMIC 2u /**< dynamic mapping */

/** Statistics of a mapping. The library also builds this record, with an unknown kind, from notification
 * FWX_NAT64_UNSOL_MAPPING. */
typedef struct {
    uint32_t id;         /**< identifier of the mapping */
    uint32_t kind;       /**< FWX_NAT64_MAPPING_* */
    uint32_t active;     /**< 0: inactive */
    uint32_t reserved12; /**< reserved */
    uint64_t sessions;   /**< open sessions */
} fwx_nat64_stats_mapping_entry_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_stats_mapping_entry_t, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_mapping_entry_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_mapping_entry_t, kind, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_mapping_entry_t, active, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_mapping_entry_t, reserved12, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_stats_mapping_entry_t, sessions, 16);

/** A session. */
typedef struct {
    uint64_t id;          /**< identifier of the session */
    fwx_nat64_addr_t src; /**< source address; like `dst`, IPv4 in network order */
    fwx_nat64_addr_t dst; /**< destination address */
    uint16_t src_port;    /**< host order */
    uint16_t dst_port;    /**< host order */
    uint32_t protocol;    /**< IP protocol number, 0 for any */
    uint32_t mapping_id;  /**< 0 for none */
    uint32_t age_s;       /**< seconds */
} fwx_nat64_session_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_session_t, 64);
FWX_NAT64_WIRE_AT(fwx_nat64_session_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_session_t, src, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_session_t, dst, 28);
FWX_NAT64_WIRE_AT(fwx_nat64_session_t, src_port, 48);
FWX_NAT64_WIRE_AT(fwx_nat64_session_t, dst_port, 50);
FWX_NAT64_WIRE_AT(fwx_nat64_session_t, protocol, 52);
FWX_NAT64_WIRE_AT(fwx_nat64_session_t, mapping_id, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_session_t, age_s, 60);

#define FWX_NAT64_WALK_FULL 1u /**< `walk_arg` that asks the server of this project for full sessions */

/* States of a full session. */
#define FWX_NAT64_SESSION_ACTIVE 1u      /**< UDP or ICMP */
#define FWX_NAT64_SESSION_V6_INIT 2u     /**< TCP, opened from the IPv6 side, not yet answered */
#define FWX_NAT64_SESSION_V4_INIT 3u     /**< TCP, opened from the IPv4 side, not yet answered */
#define FWX_NAT64_SESSION_ESTABLISHED 4u /**< TCP, established */
#define FWX_NAT64_SESSION_V6_FIN 5u      /**< TCP, closed by the IPv6 side */
#define FWX_NAT64_SESSION_V4_FIN 6u      /**< TCP, closed by the IPv4 side */
#define FWX_NAT64_SESSION_FIN 7u         /**< TCP, closed by both sides */
#define FWX_NAT64_SESSION_TRANS 8u       /**< TCP, transitory */

/** A full session; a reply with full sessions has FWX_NAT64_WALK_FULL in `value2`. A field for which the server has no
 * value is 0. */
typedef struct {
    uint64_t id;                /**< identifier of the session */
    uint32_t protocol;          /**< IP protocol number, 0 for any */
    uint32_t state;             /**< FWX_NAT64_SESSION_*, 0 for none */
    fwx_nat64_addr_t src;       /**< address of the inside host */
    fwx_nat64_addr_t dst_ipv6;  /**< IPv6 address under which the inside host reaches the destination */
    fwx_nat64_addr_t pool_addr; /**< translated source address; like `dst`, IPv4 in network order */
    fwx_nat64_addr_t dst;       /**< destination */
    uint16_t src_port;          /**< source port; all three ports in host order */
    uint16_t pool_port;         /**< translated source port */
    uint16_t dst_port;          /**< destination port, the same on both sides */
    uint16_t reserved102;       /**< reserved */
    uint32_t mapping_id;        /**< 0 for none */
    uint32_t pool_id;           /**< 0 for none */
    uint32_t age_s;             /**< seconds */
    uint32_t remaining_s;       /**< seconds until the session ends if no packet arrives */
    uint64_t packets_out;       /**< packets from the IPv6 side */
    uint64_t bytes_out;         /**< bytes in these packets */
    uint64_t packets_in;        /**< packets from the IPv4 side */
    uint64_t bytes_in;          /**< bytes in these packets */
} fwx_nat64_session_full_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_session_full_t, 152);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, protocol, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, state, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, src, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, dst_ipv6, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, pool_addr, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, dst, 76);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, src_port, 96);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, pool_port, 98);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, dst_port, 100);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, mapping_id, 104);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, pool_id, 108);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, age_s, 112);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, remaining_s, 116);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, packets_out, 120);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, bytes_out, 128);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, packets_in, 136);
FWX_NAT64_WIRE_AT(fwx_nat64_session_full_t, bytes_in, 144);

/** How the server of this project reads the last bytes of a walk's filter, and the first opaque bytes of the filter
 * with which sessions are cleared. A field that is 0 matches every session. The first word of a walk's filter is the
 * protocol. */
typedef struct {
    uint8_t pool_addr[4];  /**< translated source address, network order */
    fwx_nat64_addr_t dst;  /**< destination, IPv4 in network order; read in a walk only */
    uint16_t port;         /**< source, translated source or destination port, host order */
    uint8_t reserved26[2]; /**< reserved */
} fwx_nat64_session_where_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_session_where_t, 28);
FWX_NAT64_WIRE_AT(fwx_nat64_session_where_t, pool_addr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_session_where_t, dst, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_session_where_t, port, 24);

/* Events of an unsolicited notification, which begins with the short header of synchronous messages. */
#define FWX_NAT64_UNSOL_RECORD 0u              /**< a record was added or deleted */
#define FWX_NAT64_UNSOL_EVENT 1u               /**< event */
#define FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP 2u /**< wakeup of the command queue */
#define FWX_NAT64_UNSOL_MAPPING 3u             /**< a mapping became active or inactive */
#define FWX_NAT64_UNSOL_DEBUG 4u               /**< switches debug flags */

/** Any notification. */
typedef struct {
    fwx_nat64_sync_hdr_t hdr; /**< type word FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_UNSOL_SETUP */
    uint32_t event;           /**< FWX_NAT64_UNSOL_* */
} fwx_nat64_unsol_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_unsol_msg_t, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_msg_t, hdr, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_msg_t, event, 16);

/** Unsolicited command 0, a record; the last field ends at offset 42. */
typedef struct {
    fwx_nat64_unsol_msg_t msg; /**< header and event */
    uint32_t word2;            /**< second word of the record */
    uint32_t word1;            /**< first word of the record */
    uint8_t reserved28[4];     /**< reserved */
    uint32_t word3;            /**< third word of the record */
    uint8_t reserved36[4];     /**< reserved */
    uint16_t add;              /**< non-zero add, 0 delete */
} fwx_nat64_unsol_record_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_unsol_record_msg_t, 44);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_record_msg_t, msg, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_record_msg_t, word2, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_record_msg_t, word1, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_record_msg_t, reserved28, 28);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_record_msg_t, word3, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_record_msg_t, reserved36, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_record_msg_t, add, 40);

/** Unsolicited command 3, a mapping; the last field ends at offset 62. */
typedef struct {
    fwx_nat64_unsol_msg_t msg; /**< header and event */
    uint32_t id;               /**< identifier of the mapping */
    uint8_t reserved24[4];     /**< reserved */
    uint32_t value;            /**< becomes `sessions` in fwx_nat64_stats_mapping_entry_t */
    uint8_t reserved32[29];    /**< reserved */
    uint8_t inactive;          /**< 0: active */
} fwx_nat64_unsol_mapping_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_unsol_mapping_msg_t, 64);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_mapping_msg_t, msg, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_mapping_msg_t, id, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_mapping_msg_t, reserved24, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_mapping_msg_t, value, 28);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_mapping_msg_t, reserved32, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_mapping_msg_t, inactive, 61);

/* Selectors of the debug flags that unsolicited command 4 switches. */
#define FWX_NAT64_UNSOL_DEBUG_INFO 1u    /**< info */
#define FWX_NAT64_UNSOL_DEBUG_TRACE 2u   /**< trace */
#define FWX_NAT64_UNSOL_DEBUG_WARNING 3u /**< warning */
#define FWX_NAT64_UNSOL_DEBUG_ERROR 4u   /**< error */
#define FWX_NAT64_UNSOL_DEBUG_ALL 5u     /**< all four */

/** Unsolicited command 4, debug flags. */
typedef struct {
    fwx_nat64_unsol_msg_t msg; /**< header and event */
    uint32_t selector;         /**< FWX_NAT64_UNSOL_DEBUG_INFO to _ALL */
    uint32_t on;               /**< 0: off */
} fwx_nat64_unsol_debug_msg_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_unsol_debug_msg_t, 28);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_debug_msg_t, msg, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_debug_msg_t, selector, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_unsol_debug_msg_t, on, 24);

/* Minimum lengths of the notifications that carry a body. */
#define FWX_NAT64_UNSOL_RECORD_MIN_SIZE 42u  /**< bytes */
#define FWX_NAT64_UNSOL_MAPPING_MIN_SIZE 62u /**< bytes */

#ifdef __cplusplus
}
#endif

#endif
