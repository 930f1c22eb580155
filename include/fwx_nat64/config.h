/** @file
 * Configuration commands: one function per command, its record, and the operations.
 *
 * Conventions of all setters: the record is only read, copied into the message, and stays the caller's; `pal_ctx` is
 * handed back to `cfg_reply_cb` and never dereferenced. A result of 0 says that the message was handed
 * to the channel; the server's verdict reaches `cfg_reply_cb` later. Other results: FWX_NAT64_ERR_INVALID for a
 * rejected argument (nothing is sent), FWX_NAT64_ERR_NOT_READY while unbound, or as fwx_nat64_client_async_cmd_init and
 * _send; `cfg_reply_cb` is then not called. Argument errors come before FWX_NAT64_ERR_NOT_READY unless a function says
 * otherwise.
 *
 * Calling context: the thread that runs the event loop of the binding; allowed from inside the PAL's callbacks.
 *
 * Byte order: records are in host order; the library converts IPv4 addresses on their way into the message.
 *
 * Fields: a range that is given is checked by the library, and every other value refused. "The server's" means that the
 * server alone gives a field its meaning, unit and range; the library passes it on as it is.
 */
#ifndef FWX_NAT64_CONFIG_H
#define FWX_NAT64_CONFIG_H

#include <stdint.h>

#include "fwx_nat64/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

#define FWX_NAT64_OP_ADD 1u /**< adds */
#define FWX_NAT64_OP_MOD 2u /**< modifies */
#define FWX_NAT64_OP_DEL 3u /**< deletes */

#define FWX_NAT64_FAMILY_IPV4 0u /**< any other value stands for IPv6 */

/* What the library takes; it refuses every other value with FWX_NAT64_ERR_INVALID. */
#define FWX_NAT64_ADJ_TYPE_MAX 13u     /**< adjacencies have types 1 to this */
#define FWX_NAT64_TIMEOUT_TYPE_MAX 7u  /**< timeouts have types 1 to this */
#define FWX_NAT64_DMAPPING_TYPE_MAX 7u /**< dynamic mappings have types 0 to this */
#define FWX_NAT64_PREFIX_KIND_MAX 4u   /**< global prefixes have kinds 1 to this */
#define FWX_NAT64_PREFIX_KIND2 2u      /**< the kind of global prefix that has an op code of its own */
#define FWX_NAT64_LIMIT_TYPE 1u        /**< the only type of limit */
#define FWX_NAT64_SERVICE_TYPE 1u      /**< the only type of service */
#define FWX_NAT64_LOGGING_TYPE 1u      /**< the only type of logging */
#define FWX_NAT64_LOGGING_MODE 1u      /**< the only mode of logging */

/* What the server of this project means by numbers that the library passes on. */
#define FWX_NAT64_TIMEOUT_UDP 1u          /**< a UDP session */
#define FWX_NAT64_TIMEOUT_TCP_TRANS 2u    /**< a TCP session that opens or closes */
#define FWX_NAT64_TIMEOUT_TCP_EST 3u      /**< an established TCP session */
#define FWX_NAT64_TIMEOUT_TCP_IN_SYN 4u   /**< a TCP SYN from outside that waits for one from inside */
#define FWX_NAT64_TIMEOUT_FRAGMENT_MIN 5u /**< a fragment that waits for its others, at least */
#define FWX_NAT64_TIMEOUT_ICMP 6u         /**< an ICMP session */
#define FWX_NAT64_TIMEOUT_UDP_MIN 7u      /**< a UDP session, at least */

#define FWX_NAT64_PREFIX_STATEFUL 1u       /**< stateful translation */
#define FWX_NAT64_PREFIX_STATELESS 2u      /**< stateless translation */
#define FWX_NAT64_PREFIX_STATELESS_V6V4 3u /**< stateless translation from IPv6 to IPv4 */
#define FWX_NAT64_PREFIX_DNS64 4u          /**< what a DNS64 makes addresses with */

#define FWX_NAT64_DMAPPING_EIM 0u  /**< endpoint-independent mapping */
#define FWX_NAT64_DMAPPING_ADM 1u  /**< address-dependent mapping */
#define FWX_NAT64_DMAPPING_APDM 2u /**< address- and port-dependent mapping */

#define FWX_NAT64_ADJ_INSIDE 1u      /**< next hop on the IPv6 side */
#define FWX_NAT64_ADJ_OUTSIDE 2u     /**< next hop on the IPv4 side */
#define FWX_NAT64_ADJ_LOGGING 3u     /**< next hop to where translations are logged */
#define FWX_NAT64_ADJ_REPLICATION 4u /**< next hop to the other one of a pair */

#define FWX_NAT64_LOGGING_TEMPLATE_ALL 0u     /**< every event */
#define FWX_NAT64_LOGGING_TEMPLATE_SESSION 6u /**< sessions; the number of the event of a new one, like the others */
#define FWX_NAT64_LOGGING_TEMPLATE_BIB 10u    /**< bindings */
#define FWX_NAT64_LOGGING_TEMPLATE_PORTS 16u  /**< blocks of ports */

/* Op codes: which configuration command a message carries. 10, 18 and 30 are none. */
#define FWX_NAT64_CFG_INTF_SET 1u           /**< interface */
#define FWX_NAT64_CFG_NVI_INTF_ENABLE 2u    /**< NVI interface */
#define FWX_NAT64_CFG_GLB_PREFIX 3u         /**< global prefix of kind 1, 3 or 4 */
#define FWX_NAT64_CFG_POOL_ADD 4u           /**< pool, also modified */
#define FWX_NAT64_CFG_POOL_DEL 5u           /**< pool */
#define FWX_NAT64_CFG_POOL_RANGE_ADD 6u     /**< pool range */
#define FWX_NAT64_CFG_POOL_RANGE_DEL 7u     /**< pool range */
#define FWX_NAT64_CFG_SMAPPING_ADD 8u       /**< static mapping */
#define FWX_NAT64_CFG_SMAPPING_DEL 9u       /**< static mapping */
#define FWX_NAT64_CFG_DMAPPING_ADD 11u      /**< dynamic mapping */
#define FWX_NAT64_CFG_DMAPPING_DEL 12u      /**< dynamic mapping */
#define FWX_NAT64_CFG_DMAPPING_MOD 13u      /**< dynamic mapping */
#define FWX_NAT64_CFG_TIMEOUT_SET 14u       /**< timeout */
#define FWX_NAT64_CFG_LIMIT_SET 15u         /**< limit, added or modified */
#define FWX_NAT64_CFG_LIMIT_DEL 16u         /**< limit */
#define FWX_NAT64_CFG_IPALIAS_UPLOAD 17u    /**< upload of the IP aliases */
#define FWX_NAT64_CFG_SESSION_CLEAR 19u     /**< sessions */
#define FWX_NAT64_CFG_SERVICE_SET 20u       /**< service, added or deleted */
#define FWX_NAT64_CFG_END_BATCH 21u         /**< end of a classifier batch */
#define FWX_NAT64_CFG_CLASSIFIER_UPDATE 22u /**< classifier update */
#define FWX_NAT64_CFG_LOGGING_ADD 23u       /**< logging destination */
#define FWX_NAT64_CFG_LOGGING_MOD 24u       /**< logging destination */
#define FWX_NAT64_CFG_LOGGING_DEL 25u       /**< logging destination */
#define FWX_NAT64_CFG_ADJ_SET 26u           /**< adjacency */
#define FWX_NAT64_CFG_GLB_PREFIX_KIND2 27u  /**< global prefix of kind 2 */
#define FWX_NAT64_CFG_GLOBAL_SETTINGS 28u   /**< global settings */
#define FWX_NAT64_CFG_REPLICATION_SET 29u   /**< replication */
#define FWX_NAT64_CFG_REPLICATION_UNSET 31u /**< replication, taken back */

/** An address. IPv4: a host-order 32-bit word in the first four bytes of `addr`, the others passed on as they are;
 * IPv6: its sixteen bytes in order. */
typedef struct {
    uint32_t family;  /**< FWX_NAT64_FAMILY_IPV4, anything else IPv6 */
    uint8_t addr[16]; /**< as `family` says */
} fwx_nat64_addr_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_addr_t, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_addr_t, family, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_addr_t, addr, 4);

/** Settings of the whole service; the server reads them, the library does not. */
typedef struct {
    uint8_t opaque[16]; /**< the server's */
} fwx_nat64_global_settings_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_global_settings_t, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_global_settings_t, opaque, 0);

/** An adjacency. */
typedef struct {
    uint32_t type;            /**< 1 to FWX_NAT64_ADJ_TYPE_MAX; to the server FWX_NAT64_ADJ_ */
    fwx_nat64_addr_t address; /**< of the neighbour, any */
} fwx_nat64_adj_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_adj_t, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_adj_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_adj_t, address, 4);

/** A limit. */
typedef struct {
    uint32_t type;  /**< FWX_NAT64_LIMIT_TYPE */
    uint32_t value; /**< most that is allowed; of what is the server's */
} fwx_nat64_limit_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_limit_t, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_limit_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_limit_t, value, 4);

/** A service. */
typedef struct {
    uint32_t type;  /**< FWX_NAT64_SERVICE_TYPE */
    uint32_t value; /**< the server's */
} fwx_nat64_service_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_service_t, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_service_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_service_t, value, 4);

/** A timeout. */
typedef struct {
    uint32_t type;  /**< 1 to FWX_NAT64_TIMEOUT_TYPE_MAX; to the server FWX_NAT64_TIMEOUT_ */
    uint32_t value; /**< the time; to the server seconds */
} fwx_nat64_timeout_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_timeout_t, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_timeout_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_timeout_t, value, 4);

/** The replication. */
typedef struct {
    uint32_t value;  /**< the server's */
    uint32_t set;    /**< 0 takes the replication back, anything else sets it */
    uint32_t value2; /**< the server's */
} fwx_nat64_replication_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_replication_t, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_replication_t, value, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_replication_t, set, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_replication_t, value2, 8);

/** Which sessions to clear. */
typedef struct {
    uint32_t value;       /**< the server's */
    fwx_nat64_addr_t src; /**< source address; what stands for any is the server's */
    fwx_nat64_addr_t dst; /**< destination address, likewise */
    uint8_t opaque[60];   /**< the server's */
} fwx_nat64_session_filter_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_session_filter_t, 104);
FWX_NAT64_WIRE_AT(fwx_nat64_session_filter_t, value, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_session_filter_t, src, 4);
FWX_NAT64_WIRE_AT(fwx_nat64_session_filter_t, dst, 24);
FWX_NAT64_WIRE_AT(fwx_nat64_session_filter_t, opaque, 44);

/** An IPv6 prefix of which twelve bytes are given. */
typedef struct {
    uint8_t prefix[12];  /**< its first bytes, in order */
    uint8_t reserved[3]; /**< not looked at, sent as given */
    uint8_t prefix_len;  /**< bits; which lengths can be is the server's */
    uint32_t kind;       /**< global prefixes: 1 to FWX_NAT64_PREFIX_KIND_MAX, to the server FWX_NAT64_PREFIX_; of
                            interfaces the server's */
} fwx_nat64_prefix_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_prefix_t, 20);
FWX_NAT64_WIRE_AT(fwx_nat64_prefix_t, prefix, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_prefix_t, prefix_len, 15);
FWX_NAT64_WIRE_AT(fwx_nat64_prefix_t, kind, 16);

/** What an interface translates with. A prefix and the MTU are sent only with their valid flag set, else zeros in their
 * place; the flags are sent as given. */
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
    uint16_t mtu;                         /**< bytes; its range is the server's */
} fwx_nat64_intf_info_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_intf_info_t, 88);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_info_t, sless_prefix, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_info_t, sful_prefix, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_info_t, sless_prefix_v6v4, 60);
FWX_NAT64_WIRE_AT(fwx_nat64_intf_info_t, mtu, 84);

/** A static mapping; a delete reads `id` alone. */
typedef struct {
    uint32_t id;            /**< of the mapping, any */
    uint8_t opaque4[4];     /**< the server's */
    fwx_nat64_addr_t addr1; /**< first address; which side it is on is the server's */
    uint8_t opaque28[16];   /**< the server's */
    fwx_nat64_addr_t addr2; /**< second address */
    uint8_t opaque64[20];   /**< the server's */
} fwx_nat64_smapping_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_smapping_t, 84);
FWX_NAT64_WIRE_AT(fwx_nat64_smapping_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_smapping_t, addr1, 8);
FWX_NAT64_WIRE_AT(fwx_nat64_smapping_t, addr2, 44);

/** A dynamic mapping; a delete checks `id` and `type` and sends `id` alone. */
typedef struct {
    uint32_t id;         /**< of the mapping, not 0 */
    uint8_t opaque4[8];  /**< the server's */
    uint32_t type;       /**< 0 to FWX_NAT64_DMAPPING_TYPE_MAX; to the server FWX_NAT64_DMAPPING_ */
    uint8_t ext[24];     /**< the server's: the second part, which an add alone sends a second time */
    uint32_t ext_arg;    /**< the server's; sent a second time by an add alone */
    uint8_t opaque44[8]; /**< the server's */
} fwx_nat64_dmapping_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_dmapping_t, 52);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_t, id, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_t, type, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_t, ext, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_dmapping_t, ext_arg, 40);

/** An address pool; a delete reads `id` alone. */
typedef struct {
    uint32_t id;                 /**< of the pool, not 0 */
    uint32_t family;             /**< FWX_NAT64_FAMILY_IPV4 */
    uint32_t param;              /**< not 0; else the server's */
    fwx_nat64_addr_t start_addr; /**< first address; its IPv4 word is sent whatever its `family` says */
    fwx_nat64_addr_t end_addr;   /**< last address, likewise */
    uint32_t hsl_id;             /**< the server's */
} fwx_nat64_pool_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_pool_t, 56);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_t, start_addr, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_pool_t, hsl_id, 52);

/** A range of addresses that is added to a pool, or deleted from it. */
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
    uint8_t param;         /**< to the server the IP protocol that logs travel by, 0 for its own choice */
    fwx_nat64_addr_t dest; /**< IPv4, not 0.0.0.0 */
    uint16_t dest_port;    /**< not 0, host order, also in the message */
    uint16_t param2;       /**< to the server FWX_NAT64_LOGGING_TEMPLATE_ */
} fwx_nat64_logging_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_logging_t, 36);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_t, dest, 12);
FWX_NAT64_WIRE_AT(fwx_nat64_logging_t, param2, 34);

/** Sets the global settings. FWX_NAT64_ERR_INVALID for null. */
uint32_t fwx_nat64_global_settings_set_a(const fwx_nat64_global_settings_t *settings, void *pal_ctx);
/** Sets an adjacency; `op` is not looked at. FWX_NAT64_ERR_INVALID for null or a type that is none. */
uint32_t fwx_nat64_adj_set_a(uint32_t op, const fwx_nat64_adj_t *adj, void *pal_ctx);
/** Adds, modifies (the message of the add) or deletes a limit; a delete sends `value` too. FWX_NAT64_ERR_INVALID for
 * null, another type or operation. */
uint32_t fwx_nat64_limit_set_a(uint32_t op, const fwx_nat64_limit_t *limit, void *pal_ctx);
/** Adds or deletes a service. FWX_NAT64_ERR_INVALID for null, another type or operation. */
uint32_t fwx_nat64_service_set_a(uint32_t op, const fwx_nat64_service_t *service, void *pal_ctx);
/** Sets or takes back the replication, as `set` says; `op` is not looked at. FWX_NAT64_ERR_INVALID for null. */
uint32_t fwx_nat64_replication_set_a(uint32_t op, const fwx_nat64_replication_t *repl, void *pal_ctx);
/** Sets a timeout; `op` is not looked at. FWX_NAT64_ERR_INVALID for null or a type that is none. */
uint32_t fwx_nat64_timeout_set_a(uint32_t op, const fwx_nat64_timeout_t *timeout, void *pal_ctx);
/** Asks the server to upload its IP aliases. */
uint32_t fwx_nat64_ipalias_upload_a(void *pal_ctx);
/** Clears the sessions that the filter names. FWX_NAT64_ERR_INVALID for null. */
uint32_t fwx_nat64_session_clear_a(const fwx_nat64_session_filter_t *filter, void *pal_ctx);

/** Sets an interface's prefixes and MTU. FWX_NAT64_ERR_NOT_READY while unbound, and also for null. */
uint32_t fwx_nat64_interface_set_a(const fwx_nat64_intf_info_t *info, void *pal_ctx);
/** Enables an NVI interface by its handle, without prefixes and MTU. */
uint32_t fwx_nat64_nvi_interface_enable_a(uint32_t ifh, void *pal_ctx);
/**
 * Adds a global prefix. FWX_NAT64_ERR_NOT_READY while unbound comes before FWX_NAT64_ERR_INVALID for null or a kind
 * that is none.
 */
uint32_t fwx_nat64_glb_prefix_add_a(const fwx_nat64_prefix_t *prefix, void *pal_ctx);
/** Modifies a global prefix: the message of the add. Results as fwx_nat64_glb_prefix_add_a. */
uint32_t fwx_nat64_glb_prefix_mod_a(const fwx_nat64_prefix_t *prefix, void *pal_ctx);
/** Deletes a global prefix. Results as fwx_nat64_glb_prefix_add_a. */
uint32_t fwx_nat64_glb_prefix_del_a(const fwx_nat64_prefix_t *prefix, void *pal_ctx);
/** Adds or deletes (by `id`, any) a static mapping. FWX_NAT64_ERR_INVALID for null or another operation. */
uint32_t fwx_nat64_smapping_set_a(uint32_t op, const fwx_nat64_smapping_t *map, void *pal_ctx);
/** Adds, modifies or deletes (by `id`) a dynamic mapping; a modification says that it has no second part.
 * FWX_NAT64_ERR_INVALID for null, id 0 or a type that is none, also with a delete, and for another operation. */
uint32_t fwx_nat64_dmapping_set_a(uint32_t op, const fwx_nat64_dmapping_t *map, void *pal_ctx);
/**
 * Adds, modifies (the message of the add) or deletes (by `id`) an address pool. FWX_NAT64_ERR_INVALID for null, id 0 or
 * another operation, and unless it is a delete for a family other than IPv4 or `param` 0.
 */
uint32_t fwx_nat64_pool_set_a(uint32_t op, const fwx_nat64_pool_t *pool, void *pal_ctx);
/** Adds or deletes a range of a pool; both send the whole range. FWX_NAT64_ERR_INVALID for null, id 0 or another
 * operation. */
uint32_t fwx_nat64_pool_range_set_a(uint32_t op, const fwx_nat64_pool_range_t *range, void *pal_ctx);
/**
 * Adds, modifies or deletes a logging destination; all three check and send the whole record. FWX_NAT64_ERR_INVALID for
 * null, another type or mode, a destination that is not an IPv4 address or is 0.0.0.0, port 0, or another operation.
 */
uint32_t fwx_nat64_logging_set_a(uint32_t op, const fwx_nat64_logging_t *log, void *pal_ctx);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
