/** @file
 * Codes with which the server of this project refuses a command. Another server may have others; the library passes
 * them on. On the host platform xerr_strerror knows their texts in a process that has such a server, or that is told
 * them.
 */
#ifndef FWX_NAT64_SERVER_RESULT_H
#define FWX_NAT64_SERVER_RESULT_H

#define FWX_NAT64_MODEL_ERR_MALFORMED 0x6001u    /**< wrong length, domain or type for its op code */
#define FWX_NAT64_MODEL_ERR_UNKNOWN 0x6002u      /**< no such message number or op code */
#define FWX_NAT64_MODEL_ERR_NO_ENTRY 0x6003u     /**< delete or modify of something that is not there */
#define FWX_NAT64_MODEL_ERR_EXISTS 0x6004u       /**< add of something that is there */
#define FWX_NAT64_MODEL_ERR_NO_POOL 0x6005u      /**< a range of a pool that is not there */
#define FWX_NAT64_MODEL_ERR_VALUE 0x6006u        /**< a field's value that a server would not take */
#define FWX_NAT64_MODEL_ERR_OVERLAP 0x6007u      /**< a pool or range with addresses of another pool */
#define FWX_NAT64_MODEL_ERR_HAS_RANGES 0x6008u   /**< delete of a pool that has ranges */
#define FWX_NAT64_MODEL_ERR_PREFIX_LEN 0x6009u   /**< a length behind which no IPv4 address can be embedded */
#define FWX_NAT64_MODEL_ERR_TOO_MANY 0x600au     /**< a walk or long list beside too many of the same client */
#define FWX_NAT64_MODEL_ERR_NOT_SAVED 0x600bu    /**< carried out, and not in the journal */
#define FWX_NAT64_MODEL_ERR_NOT_HERE 0x600cu     /**< something that this kind of server does not do */
#define FWX_NAT64_MODEL_ERR_NOT_IN_FORCE 0x600du /**< the kernel of a gateway does not take it */
#define FWX_NAT64_MODEL_ERR_IN_USE 0x600eu       /**< delete of a pool that a mapping uses */

/** How many walks and long lists of a client the server answers at once; those beyond are refused with TOO_MANY. */
#define FWX_NAT64_MODEL_LISTS_MAX 64

/** Every code above, for whoever counts or shows them: X(code, its count in fwx_nat64_stats_system_t, text). */
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
