/** @file
 * Configuration commands: one function per command, its record, and the operations.
 *
 * Conventions of all setters. The record is only read: it is copied into the message and stays the caller's. `pal_ctx`
 * is passed to `cfg_reply_cb` and never dereferenced. A result of 0 means that the message was handed to the channel;
 * the server's verdict reaches `cfg_reply_cb` later. Other results are FWX_NAT64_ERR_INVALID for a rejected argument,
 * FWX_NAT64_ERR_NOT_READY while unbound, or those of fwx_nat64_client_async_cmd_init and _send. After such a result
 * `cfg_reply_cb` is not called; after FWX_NAT64_ERR_INVALID nothing was sent. Arguments are checked before
 * FWX_NAT64_ERR_NOT_READY unless a function says otherwise.
 *
 * Calling context: the thread that runs the event loop of the binding; allowed from inside the PAL's callbacks.
 *
 * Byte order: records are in host order; the library converts IPv4 addresses when it copies them into the message.
 *
 * Fields: where a comment gives a range, the library checks it and refuses every other value. "Defined by the server"
 * means that the library passes the field on unchanged, and that the server alone gives it its meaning, unit and range.
 */
#ifndef FWX_NAT64_CONFIG_H
#define FWX_NAT64_CONFIG_H

#include <stdint.h>

#include "fwx_nat64/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

#define FWX_NAT64_OP_ADD 1u /**< add */
#define FWX_NAT64_OP_MOD 2u /**< modify */
#define FWX_NAT64_OP_DEL 3u /**< delete */

#define FWX_NAT64_FAMILY_IPV4 0u /**< any other value means IPv6 */

/* Values that the library accepts; it refuses every other one with FWX_NAT64_ERR_INVALID. */
#define FWX_NAT64_ADJ_TYPE_MAX 13u     /**< types of adjacencies: 1 to this */
#define FWX_NAT64_TIMEOUT_TYPE_MAX 7u  /**< types of timeouts: 1 to this */
#define FWX_NAT64_DMAPPING_TYPE_MAX 7u /**< types of dynamic mappings: 0 to this */
#define FWX_NAT64_PREFIX_KIND_MAX 4u   /**< kinds of global prefixes: 1 to this */
#define FWX_NAT64_PREFIX_KIND2 2u      /**< the kind of global prefix with an op code of its own */
#define FWX_NAT64_LIMIT_TYPE 1u        /**< the only type of limit */
#define FWX_NAT64_SERVICE_TYPE 1u      /**< the only type of service */
#define FWX_NAT64_LOGGING_TYPE 1u      /**< the only type of logging */
#define FWX_NAT64_LOGGING_MODE 1u      /**< the only mode of logging */

/* Meaning that the server of this project gives to numbers that the library passes on. */
#define FWX_NAT64_TIMEOUT_UDP 1u          /**< UDP session */
#define FWX_NAT64_TIMEOUT_TCP_TRANS 2u    /**< TCP session that is being opened or closed */
#define FWX_NAT64_TIMEOUT_TCP_EST 3u      /**< established TCP session */
#define FWX_NAT64_TIMEOUT_TCP_IN_SYN 4u   /**< TCP SYN from outside that waits for one from inside */
#define FWX_NAT64_TIMEOUT_FRAGMENT_MIN 5u /**< lower bound for a fragment that waits for the others */
#define FWX_NAT64_TIMEOUT_ICMP 6u         /**< ICMP session */
#define FWX_NAT64_TIMEOUT_UDP_MIN 7u      /**< lower bound for a UDP session */

#define FWX_NAT64_PREFIX_STATEFUL 1u       /**< stateful translation */
#define FWX_NAT64_PREFIX_STATELESS 2u      /**< stateless translation */
#define FWX_NAT64_PREFIX_STATELESS_V6V4 3u /**< stateless translation from IPv6 to IPv4 */
#define FWX_NAT64_PREFIX_DNS64 4u          /**< prefix with which a DNS64 synthesises addresses */

#define FWX_NAT64_DMAPPING_EIM 0u  /**< endpoint-independent mapping */
#define FWX_NAT64_DMAPPING_ADM 1u  /**< address-dependent mapping */
#define FWX_NAT64_DMAPPING_APDM 2u /**< address- and port-dependent mapping */

#define FWX_NAT64_ADJ_INSIDE 1u      /**< next hop on the IPv6 side */
#define FWX_NAT64_ADJ_OUTSIDE 2u     /**< next hop on the IPv4 side */
#define FWX_NAT64_ADJ_LOGGING 3u     /**< next hop to the logging destination */
#define FWX_NAT64_ADJ_REPLICATION 4u /**< next hop to the peer of a redundant pair */

#define FWX_NAT64_LOGGING_TEMPLATE_ALL 0u     /**< every event */
#define FWX_NAT64_LOGGING_TEMPLATE_SESSION 6u /**< sessions; as below, the IPFIX natEvent of a creation */
#define FWX_NAT64_LOGGING_TEMPLATE_BIB 10u    /**< bindings */
#define FWX_NAT64_LOGGING_TEMPLATE_PORTS 16u  /**< port blocks */

/* Op codes of the configuration commands. 10, 18 and 30 are unused. */
#define FWX_NAT64_CFG_INTF_SET 1u           /**< interface */
#define FWX_NAT64_CFG_NVI_INTF_ENABLE 2u    /**< NVI interface */
#define FWX_NAT64_CFG_GLB_PREFIX 3u         /**< global prefix of kind 1, 3 or 4 */
#define FWX_NAT64_CFG_POOL_ADD 4u           /**< pool, added or modified */
#define FWX_NAT64_CFG_POOL_DEL 5u           /**< pool, deleted */
#define FWX_NAT64_CFG_POOL_RANGE_ADD 6u     /**< pool range, added */
#define FWX_NAT64_CFG_POOL_RANGE_DEL 7u     /**< pool range, deleted */
#define FWX_NAT64_CFG_SMAPPING_ADD 8u       /**< static mapping, added */
#define FWX_NAT64_CFG_SMAPPING_DEL 9u       /**< static mapping, deleted */
#define FWX_NAT64_CFG_DMAPPING_ADD 11u      /**< dynamic mapping, added */
#define FWX_NAT64_CFG_DMAPPING_DEL 12u      /**< dynamic mapping, deleted */
#define FWX_NAT64_CFG_DMAPPING_MOD 13u      /**< dynamic mapping, modified */
#define FWX_NAT64_CFG_TIMEOUT_SET 14u       /**< timeout */
#define FWX_NAT64_CFG_LIMIT_SET 15u         /**< limit, added or modified */
#define FWX_NAT64_CFG_LIMIT_DEL 16u         /**< limit, deleted */
#define FWX_NAT64_CFG_IPALIAS_UPLOAD 17u    /**< upload of the IP aliases */
#define FWX_NAT64_CFG_SESSION_CLEAR 19u     /**< sessions, cleared */
#define FWX_NAT64_CFG_SERVICE_SET 20u       /**< service, added or deleted */
#define FWX_NAT64_CFG_END_BATCH 21u         /**< end of a classifier batch */
#define FWX_NAT64_CFG_CLASSIFIER_UPDATE 22u /**< classifier update */
#define FWX_NAT64_CFG_LOGGING_ADD 23u       /**< logging destination, added */
#define FWX_NAT64_CFG_LOGGING_MOD 24u       /**< logging destination, modified */
#define FWX_NAT64_CFG_LOGGING_DEL 25u       /**< logging destination, deleted */
#define FWX_NAT64_CFG_ADJ_SET 26u           /**< adjacency */
#define FWX_NAT64_CFG_GLB_PREFIX_KIND2 27u  /**< global prefix of kind 2 */
#define FWX_NAT64_CFG_GLOBAL_SETTINGS 28u   /**< global settings */
#define FWX_NAT64_CFG_REPLICATION_SET 29u   /**< replication */
#define FWX_NAT64_CFG_REPLICATION_UNSET 31u /**< replication, removed */

/** An address. IPv4: a host-order 32-bit word in the first four bytes of `addr`; the other bytes are passed on
 * unchanged. IPv6: the sixteen bytes in network order. */
typedef struct {
    uint32_t family;  /**< FWX_NAT64_FAMILY_IPV4, anything else IPv6 */
    uint8_t addr[16]; /**< see above */
} fwx_nat64_addr_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_addr_t, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_addr_t, family, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_addr_t, addr, 4);

/** Settings of the whole service; the library does not interpret them. */
typedef struct {
    uint8_t opaque[16]; /**< defined by the server */
} fwx_nat64_global_settings_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_global_settings_t, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_global_settings_t, opaque, 0);

/** An adjacency. */
typedef struct {
    uint32_t type;            /**< 1 to FWX_NAT64_ADJ_TYPE_MAX; the server reads it as FWX_NAT64_ADJ_* */
    fwx_nat64_addr_t address; /**< any address; the neighbour */
} fwx_nat64_adj_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_adj_t, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_adj_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_adj_t, address, 4);

/** A limit. */
typedef struct {
    uint32_t type;  /**< FWX_NAT64_LIMIT_TYPE */
    uint32_t value; /**< the maximum; the server defines what it limits */
} fwx_nat64_limit_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_limit_t, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_limit_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_limit_t, value, 4);

/** A service. */
typedef struct {
    uint32_t type;  /**< FWX_NAT64_SERVICE_TYPE */
    uint32_t value; /**< defined by the server */
} fwx_nat64_service_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_service_t, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_service_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_service_t, value, 4);

/** A timeout. */
typedef struct {
    uint32_t type;  /**< 1 to FWX_NAT64_TIMEOUT_TYPE_MAX; the server reads it as FWX_NAT64_TIMEOUT_* */
    uint32_t value; /**< the time; the server reads it as seconds */
} fwx_nat64_timeout_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_timeout_t, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_timeout_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_timeout_t, value, 4);

/** The replication. */
typedef struct {
    uint32_t value;  /**< defined by the server */
    uint32_t set;    /**< 0 removes the replication, any other value sets it */
    uint32_t value2; /**< defined by the server */
} fwx_nat64_replication_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_replication_t, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_replication_t, value, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_replication_t, set, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_replication_t, value2, 8);

/** Filter of the sessions to clear. */
typedef struct {
    uint32_t value;       /**< defined by the server */
    fwx_nat64_addr_t src; /**< source address; the server defines the wildcard */
    fwx_nat64_addr_t dst; /**< destination address, likewise */
    uint8_t opaque[60];   /**< defined by the server */
} fwx_nat64_session_filter_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_session_filter_t, 104);
FWX_NAT64_WIRE_AT(fwx_nat64_session_filter_t, value, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_session_filter_t, src, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_session_filter_t, dst, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_session_filter_t, opaque, 44);

/** An IPv6 prefix, given by its first twelve bytes. In the prefixes of an interface `kind` is defined by the server. */
typedef struct {
    uint8_t prefix[12];  /**< first bytes, in network order */
    uint8_t reserved[3]; /**< ignored, sent as given */
    uint8_t prefix_len;  /**< bits; the server defines which lengths are valid */
    uint32_t kind; /**< global prefix: 1 to FWX_NAT64_PREFIX_KIND_MAX; the server reads it as FWX_NAT64_PREFIX_* */
} fwx_nat64_prefix_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_prefix_t, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_prefix_t, prefix, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_prefix_t, prefix_len, 15);
FWX_NAT64_WIRE_AT(fwx_nat64_prefix_t, kind, 16);

/** The translation settings of an interface. A prefix or the MTU is sent only if its valid flag is set; otherwise zeros
 * are sent in its place. The flags are sent as given. */
typedef struct {
    uint32_t ifh;                         /**< interface handle, any */
    uint32_t enable;                      /**< 0: off; sent as given */
    uint32_t sless_prefix_valid;          /**< non-zero: `sless_prefix` is given */
    fwx_nat64_prefix_t sless_prefix;      /**< stateless translation */
    uint32_t sful_prefix_valid;           /**< non-zero: `sful_prefix` is given */
    fwx_nat64_prefix_t sful_prefix;       /**< stateful translation */
    uint32_t sless_prefix_v6v4_valid;     /**< non-zero: `sless_prefix_v6v4` is given */
    fwx_nat64_prefix_t sless_prefix_v6v4; /**< stateless translation from IPv6 to IPv4 */
    uint32_t mtu_valid;                   /**< non-zero: `mtu` is given */
    uint16_t mtu;                         /**< bytes; the server defines the range */
} fwx_nat64_intf_info_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_intf_info_t, 88);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_info_t, sless_prefix, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_info_t, sful_prefix, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_info_t, sless_prefix_v6v4, 60);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_info_t, mtu, 84);

/** A static mapping; a delete reads only `id`. */
typedef struct {
    uint32_t id;            /**< of the mapping, any */
    uint8_t opaque4[4];     /**< defined by the server */
    fwx_nat64_addr_t addr1; /**< first address; the server defines its side */
    uint8_t opaque28[16];   /**< defined by the server */
    fwx_nat64_addr_t addr2; /**< second address */
    uint8_t opaque64[20];   /**< defined by the server */
} fwx_nat64_smapping_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_smapping_t, 84);
FWX_NAT64_WIRE_AT(fwx_nat64_smapping_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_smapping_t, addr1, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_smapping_t, addr2, 44);

/** A dynamic mapping; a delete checks `id` and `type`, and sends only `id`. */
typedef struct {
    uint32_t id;         /**< of the mapping, not 0 */
    uint8_t opaque4[8];  /**< defined by the server */
    uint32_t type;       /**< 0 to FWX_NAT64_DMAPPING_TYPE_MAX; the server reads it as FWX_NAT64_DMAPPING_* */
    uint8_t ext[24];     /**< the second part, defined by the server; only an add sends it twice */
    uint32_t ext_arg;    /**< defined by the server; only an add sends it twice */
    uint8_t opaque44[8]; /**< defined by the server */
} fwx_nat64_dmapping_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_dmapping_t, 52);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_t, type, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_t, ext, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_t, ext_arg, 40);

/** An address pool; a delete reads only `id`. */
typedef struct {
    uint32_t id;                 /**< of the pool, not 0 */
    uint32_t family;             /**< FWX_NAT64_FAMILY_IPV4 */
    uint32_t param;              /**< not 0; otherwise defined by the server */
    fwx_nat64_addr_t start_addr; /**< first address; its IPv4 word is sent, whatever its `family` */
    fwx_nat64_addr_t end_addr;   /**< last address, likewise */
    uint32_t hsl_id;             /**< defined by the server */
} fwx_nat64_pool_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_pool_t, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_t, start_addr, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_t, hsl_id, 52);

/** A range of addresses to add to a pool or to delete from it. */
typedef struct {
    uint32_t id;                 /**< of the pool, not 0 */
    fwx_nat64_addr_t start_addr; /**< first address, any */
    fwx_nat64_addr_t end_addr;   /**< last address, any */
} fwx_nat64_pool_range_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_pool_range_t, 44);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_range_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_range_t, start_addr, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_range_t, end_addr, 24);

/** A destination of translation logs. */
typedef struct {
    uint32_t type;         /**< FWX_NAT64_LOGGING_TYPE */
    uint32_t mode;         /**< FWX_NAT64_LOGGING_MODE */
    uint8_t param;         /**< the server reads it as the IP protocol of the log transport, 0: its own choice */
    fwx_nat64_addr_t dest; /**< IPv4, not 0.0.0.0 */
    uint16_t dest_port;    /**< not 0; host order, in the message too */
    uint16_t param2;       /**< the server reads it as FWX_NAT64_LOGGING_TEMPLATE_* */
} fwx_nat64_logging_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_logging_t, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_t, dest, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_t, param2, 34);

/** Sets the global settings. FWX_NAT64_ERR_INVALID for null. */
uint32_t fwx_nat64_global_settings_set_a(const fwx_nat64_global_settings_t *settings, void *pal_ctx);
/** Sets an adjacency; `op` is ignored. FWX_NAT64_ERR_INVALID for null or a type out of range. */
uint32_t fwx_nat64_adj_set_a(uint32_t op, const fwx_nat64_adj_t *adj, void *pal_ctx);
/** Adds, modifies (sent as an add) or deletes a limit; a delete sends `value` too. FWX_NAT64_ERR_INVALID for null,
 * another type or another operation. */
uint32_t fwx_nat64_limit_set_a(uint32_t op, const fwx_nat64_limit_t *limit, void *pal_ctx);
/** Adds or deletes a service. FWX_NAT64_ERR_INVALID for null, another type or another operation. */
uint32_t fwx_nat64_service_set_a(uint32_t op, const fwx_nat64_service_t *service, void *pal_ctx);
/** Sets or removes the replication, depending on `set`; `op` is ignored. FWX_NAT64_ERR_INVALID for null. */
uint32_t fwx_nat64_replication_set_a(uint32_t op, const fwx_nat64_replication_t *repl, void *pal_ctx);
/** Sets a timeout; `op` is ignored. FWX_NAT64_ERR_INVALID for null or a type out of range. */
uint32_t fwx_nat64_timeout_set_a(uint32_t op, const fwx_nat64_timeout_t *timeout, void *pal_ctx);
/** Asks the server to upload its IP aliases. */
uint32_t fwx_nat64_ipalias_upload_a(void *pal_ctx);
/** Clears the sessions that match the filter. FWX_NAT64_ERR_INVALID for null. */
uint32_t fwx_nat64_session_clear_a(const fwx_nat64_session_filter_t *filter, void *pal_ctx);

/** Sets an interface's prefixes and MTU. FWX_NAT64_ERR_NOT_READY while unbound, and also for null. */
uint32_t fwx_nat64_interface_set_a(const fwx_nat64_intf_info_t *info, void *pal_ctx);
/** Enables an NVI interface by its handle, without prefixes and MTU. */
uint32_t fwx_nat64_nvi_interface_enable_a(uint32_t ifh, void *pal_ctx);
/**
 * Adds a global prefix. FWX_NAT64_ERR_NOT_READY while unbound is checked first; FWX_NAT64_ERR_INVALID for null or a
 * kind out of range.
 */
uint32_t fwx_nat64_glb_prefix_add_a(const fwx_nat64_prefix_t *prefix, void *pal_ctx);
/** Modifies a global prefix (sent as an add). Results as fwx_nat64_glb_prefix_add_a. */
uint32_t fwx_nat64_glb_prefix_mod_a(const fwx_nat64_prefix_t *prefix, void *pal_ctx);
/** Deletes a global prefix. Results as fwx_nat64_glb_prefix_add_a. */
uint32_t fwx_nat64_glb_prefix_del_a(const fwx_nat64_prefix_t *prefix, void *pal_ctx);
/** Adds or deletes (by `id`, which may be any) a static mapping. FWX_NAT64_ERR_INVALID for null or another operation.
 */
uint32_t fwx_nat64_smapping_set_a(uint32_t op, const fwx_nat64_smapping_t *map, void *pal_ctx);
/** Adds, modifies or deletes (by `id`) a dynamic mapping. A modification sends FWX_NAT64_DMAPPING_NO_SECOND_PART
 * instead of the second part. FWX_NAT64_ERR_INVALID for null, id 0 or a type out of range, with a delete too, and for
 * another operation. */
uint32_t fwx_nat64_dmapping_set_a(uint32_t op, const fwx_nat64_dmapping_t *map, void *pal_ctx);
/**
 * Adds, modifies (sent as an add) or deletes (by `id`) an address pool. FWX_NAT64_ERR_INVALID for null, id 0 or another
 * operation; unless it is a delete, also for a family other than IPv4 or `param` 0.
 */
uint32_t fwx_nat64_pool_set_a(uint32_t op, const fwx_nat64_pool_t *pool, void *pal_ctx);
/** Adds or deletes a range of a pool; both operations send the whole range. FWX_NAT64_ERR_INVALID for null, id 0 or
 * another operation. */
uint32_t fwx_nat64_pool_range_set_a(uint32_t op, const fwx_nat64_pool_range_t *range, void *pal_ctx);
/**
 * Adds, modifies or deletes a logging destination; all three operations check and send the whole record.
 * FWX_NAT64_ERR_INVALID for null, another type or mode, a destination that is not an IPv4 address or is 0.0.0.0, port
 * 0, or another operation.
 */
uint32_t fwx_nat64_logging_set_a(uint32_t op, const fwx_nat64_logging_t *log, void *pal_ctx);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
