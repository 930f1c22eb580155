/** @file
 * Codes with which the server of this project refuses a command. Another server may use other codes; the library passes
 * them all on. On the host platform xerr_strerror knows their texts in a process that runs such a server or that
 * registers the texts.
 */
#ifndef FWX_NAT64_SERVER_RESULT_H
#define FWX_NAT64_SERVER_RESULT_H

#define FWX_NAT64_MODEL_ERR_MALFORMED 0x6001u    /**< length, domain or type does not match the op code */
#define FWX_NAT64_MODEL_ERR_UNKNOWN 0x6002u      /**< unknown message number or op code */
#define FWX_NAT64_MODEL_ERR_NO_ENTRY 0x6003u     /**< the entry to delete or modify does not exist */
#define FWX_NAT64_MODEL_ERR_EXISTS 0x6004u       /**< the entry to add exists already */
#define FWX_NAT64_MODEL_ERR_NO_POOL 0x6005u      /**< the pool of the range does not exist */
#define FWX_NAT64_MODEL_ERR_VALUE 0x6006u        /**< a field has a value that the server does not accept */
#define FWX_NAT64_MODEL_ERR_OVERLAP 0x6007u      /**< the pool or range overlaps another pool */
#define FWX_NAT64_MODEL_ERR_HAS_RANGES 0x6008u   /**< the pool to delete still has ranges */
#define FWX_NAT64_MODEL_ERR_PREFIX_LEN 0x6009u   /**< no IPv4 address can be embedded after a prefix of this length */
#define FWX_NAT64_MODEL_ERR_TOO_MANY 0x600au     /**< the client has too many walks and long lists in progress */
#define FWX_NAT64_MODEL_ERR_NOT_SAVED 0x600bu    /**< carried out, but not written to the journal */
#define FWX_NAT64_MODEL_ERR_NOT_HERE 0x600cu     /**< this kind of server does not support it */
#define FWX_NAT64_MODEL_ERR_NOT_IN_FORCE 0x600du /**< the gateway's kernel rejected it */
#define FWX_NAT64_MODEL_ERR_IN_USE 0x600eu       /**< a mapping uses the pool to delete */

/** How many walks and long lists of a client the server answers at once; those beyond are refused with TOO_MANY. */
#define FWX_NAT64_MODEL_LISTS_MAX 64

/** X-macro of every code above: X(code, its counter in fwx_nat64_stats_system_t, text). */
#define FWX_NAT64_MODEL_RESULTS(X)                                                                               \
    X(FWX_NAT64_MODEL_ERR_MALFORMED, malformed, "the server got a malformed message")                            \
    X(FWX_NAT64_MODEL_ERR_UNKNOWN, unknown, "the server does not know this command")                             \
    X(FWX_NAT64_MODEL_ERR_NO_ENTRY, no_entry, "the server has no such entry")                                    \
    X(FWX_NAT64_MODEL_ERR_EXISTS, exists, "the server has this entry already")                                   \
    X(FWX_NAT64_MODEL_ERR_NO_POOL, no_pool, "the server has no such pool")                                       \
    X(FWX_NAT64_MODEL_ERR_VALUE, value, "the server does not take this value")                                   \
    X(FWX_NAT64_MODEL_ERR_OVERLAP, overlap, "the server has some of these addresses in another pool")            \
    X(FWX_NAT64_MODEL_ERR_HAS_RANGES, has_ranges, "the server has ranges of this pool, which must go first")     \
    X(FWX_NAT64_MODEL_ERR_PREFIX_LEN, prefix_len, "the server takes prefixes of 32, 40, 48, 56, 64 or 96 bits")  \
    X(FWX_NAT64_MODEL_ERR_TOO_MANY, too_many, "the server answers too many walks and long lists of this client") \
    X(FWX_NAT64_MODEL_ERR_NOT_SAVED, not_saved, "the server has done it, and could not save that it has")        \
    X(FWX_NAT64_MODEL_ERR_NOT_HERE, not_here, "not on this gateway")                                             \
    X(FWX_NAT64_MODEL_ERR_NOT_IN_FORCE, not_in_force, "the kernel of this gateway does not take it")             \
    X(FWX_NAT64_MODEL_ERR_IN_USE, in_use, "the server has mappings that use this pool, which must go first")

#endif
