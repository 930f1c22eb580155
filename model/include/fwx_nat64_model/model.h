/** @file
 * The server model, for tests of a PAL: a server under a channel name that answers every command, stores the configured
 * state and can be made to misbehave. It needs the host platform but not the client library. A process can have one
 * model for each channel name.
 *
 * A model runs on the loop that it was created with. Nothing is thread-safe. Only fwx_nat64_model_destroy accepts a
 * null model. Where a function returns a code, 12 (ENOMEM) means that memory is exhausted.
 *
 * A client in the same process reaches the model by binding while the model exists. For clients in other processes,
 * pass the server that fwx_host_server_find returns for the channel name to fwx_host_server_listen.
 */
#ifndef FWX_NAT64_MODEL_MODEL_H
#define FWX_NAT64_MODEL_MODEL_H

#include <stddef.h>
#include <stdint.h>

#include "fwx_host/loop.h"
#include "fwx_nat64/server_result.h"
#include "fwx_nat64/wire.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A server model. */
typedef struct fwx_nat64_model_t fwx_nat64_model_t;

/* Op codes of parts of a saved configuration that are MAP-T rules. The payload of a basic rule is its 32-bit index and
 * its record, that of a default rule is its record. Deleting a rule ignores the index and the prefixes. */
#define FWX_NAT64_MODEL_SAVED_BASIC_RULE 0x10000u       /**< a basic rule */
#define FWX_NAT64_MODEL_SAVED_DEFAULT_RULE 0x10001u     /**< a default rule */
#define FWX_NAT64_MODEL_SAVED_BASIC_RULE_DEL 0x10002u   /**< a basic rule, deleted */
#define FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_MOD 0x10003u /**< a default rule, modified */
#define FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_DEL 0x10004u /**< a default rule, deleted */

/* The order in which held replies are sent. */
#define FWX_NAT64_MODEL_IN_ORDER 0u /**< as they were held */
#define FWX_NAT64_MODEL_REVERSE 1u  /**< the last one first */
#define FWX_NAT64_MODEL_SHUFFLED 2u /**< shuffled with a fixed seed */

/** Maximum number of generated sessions. */
#define FWX_NAT64_MODEL_MAX_SESSIONS 1000000u

/** Receives one part of the configuration: an op code and the payload that sets it, which is valid during the call. */
typedef void (*fwx_nat64_model_part_fn_t)(void *arg, uint32_t op_code, const void *payload, size_t size);

/** The rule found by a lookup of an address. */
typedef struct {
    uint32_t bmr_index;  /**< the model's index of the rule */
    uint32_t rule_id;    /**< Rule ID */
    uint32_t domain_id;  /**< Domain ID */
    uint32_t prefix_len; /**< bits of the address that matched */
} fwx_nat64_model_match_t;

/**
 * Creates a model and registers it under a channel name.
 * @param loop  must outlive the model.
 * @param name  the channel name, FWX_NAT64_CHANNEL_NAME for the library's channel. Copied.
 * @param model receives the model; destroy it with fwx_nat64_model_destroy. Null after a failure.
 * @return 0, FWX_HOST_ERR_NAME_TAKEN, FWX_HOST_ERR_BAD_ARG for a null argument, 12.
 */
uint32_t fwx_nat64_model_create(fwx_host_loop_t *loop, const char *name, fwx_nat64_model_t **model);
/** Ends a model; its clients get a channel error. Null is ignored. */
void fwx_nat64_model_destroy(fwx_nat64_model_t *model);
/** Adds the texts of the model's codes to xerr_strerror. Creating a model does this too, so only clients of a model in
 * another process need it. */
void fwx_nat64_model_add_error_texts(void);

/* --- Misbehaviour. --- */

/** Answers the next `count` commands (init included) with `code` instead of executing them. */
void fwx_nat64_model_fail_next(fwx_nat64_model_t *model, uint32_t code, uint32_t count);
/** Sends each reply `delay_ms` after its command, by the platform's clock; 0 sends it at once. */
void fwx_nat64_model_delay_set(fwx_nat64_model_t *model, uint64_t delay_ms);
/** Holds all replies until fwx_nat64_model_release is called. */
void fwx_nat64_model_hold(fwx_nat64_model_t *model);
/** Sends the held replies and stops holding. `order` is FWX_NAT64_MODEL_IN_ORDER, _REVERSE or _SHUFFLED.
 * @return 0, 12 when some replies are lost, or FWX_HOST_ERR_BAD_ARG for another order, which changes nothing. */
uint32_t fwx_nat64_model_release(fwx_nat64_model_t *model, uint32_t order);
/** Sends every asynchronous reply `copies` times; the default is 1. */
void fwx_nat64_model_duplicate_set(fwx_nat64_model_t *model, uint32_t copies);
/** While `silent` is not 0, the model executes commands but answers none, synchronous ones included. */
void fwx_nat64_model_silent_set(fwx_nat64_model_t *model, uint32_t silent);
/** While `paused` is not 0, the model takes no messages, so that the channel fills. */
void fwx_nat64_model_pause_set(fwx_nat64_model_t *model, uint32_t paused);
/** Drops the channels of all clients, and the replies pending for them. @return 0, or 12 when some channels may still
 * be open. */
uint32_t fwx_nat64_model_drop_clients(fwx_nat64_model_t *model);
/** Sets the limit, in bytes, of the entries in one statistics or walk reply. The default is 65536. A reply has at least
 * one entry. */
void fwx_nat64_model_reply_limit_set(fwx_nat64_model_t *model, uint32_t bytes);
/** Sets whether deleting the last basic rule orders the client to empty its rule table. The default is 0, because the
 * client would also delete a rule whose add is in flight. */
void fwx_nat64_model_order_cleanup(fwx_nat64_model_t *model, uint32_t on);

/* --- Notifications. They go to all clients that have asked for them. Each function returns 0, the messaging service's
 * code, or FWX_HOST_ERR_CHANNEL_DOWN when there is no such client. --- */

/** Sends a copy of a message unchanged. */
uint32_t fwx_nat64_model_notify(fwx_nat64_model_t *model, const void *msg, size_t size);
/** Wakes up the command queue of the clients: unsolicited command 2. */
uint32_t fwx_nat64_model_wakeup(fwx_nat64_model_t *model);
/** Unsolicited command 0; `add` 0 means that the record was deleted. */
uint32_t fwx_nat64_model_notify_record(fwx_nat64_model_t *model, uint32_t add, uint32_t word1, uint32_t word2,
                                       uint32_t word3);
/** Unsolicited command 1. */
uint32_t fwx_nat64_model_notify_event(fwx_nat64_model_t *model);
/** Unsolicited command 3; `active` 0 means that the mapping is inactive. */
uint32_t fwx_nat64_model_notify_mapping(fwx_nat64_model_t *model, uint32_t id, uint32_t active, uint32_t value);
/** Unsolicited command 4. `selector` is FWX_NAT64_UNSOL_DEBUG_INFO to _ALL; `on` 0 means off. */
uint32_t fwx_nat64_model_notify_debug(fwx_nat64_model_t *model, uint32_t selector, uint32_t on);
/** Sends a classifier end of batch to the library's classifier client; returns the result of its handler. */
uint32_t fwx_nat64_model_cgm_end_batch(uint32_t batch_id, uint32_t async, void *ctx);
/** Sends a classifier update to the library's classifier client; returns the result of its handler. */
uint32_t fwx_nat64_model_cgm_update(uint32_t batch_id, const uint8_t data[24], uint32_t async, void *ctx);

/* --- Saving and restoring the configuration. --- */

/** Calls `part` with each part of the configuration, in an order in which the parts can be restored.
 * @return 0, or 12 when not all parts were passed. */
uint32_t fwx_nat64_model_save(const fwx_nat64_model_t *model, fwx_nat64_model_part_fn_t part, void *arg);
/** Restores one part.
 * @return 0, FWX_NAT64_MODEL_ERR_MALFORMED when the size does not match the op code, or the code with which a command
 * would be refused. */
uint32_t fwx_nat64_model_restore(fwx_nat64_model_t *model, uint32_t op_code, const void *payload, size_t size);

/* --- Inspection. --- */

/** Gets the model's counters. */
void fwx_nat64_model_counts(const fwx_nat64_model_t *model, fwx_nat64_stats_counts_t *counts);
/** Gets the identifier of this run and the number of configuration changes. */
void fwx_nat64_model_boot(const fwx_nat64_model_t *model, fwx_nat64_stats_boot_t *boot);
/** Gets the number of objects of each kind, as the answer to a system statistics query has them. */
void fwx_nat64_model_totals(const fwx_nat64_model_t *model, fwx_nat64_stats_sys_entry_t *totals);

/**
 * Replaces the generated sessions by `count` new ones, at most FWX_NAT64_MODEL_MAX_SESSIONS. Sessions of static
 * mappings stay. Session n is always the same: source 2001:db8:64:: plus n, destination 198.18.0.0 + n % 131072, source
 * port 1024
 * + n % 64512, destination port 443, protocol 6 for even n and 17 for odd n. The sessions are distributed over the
 * current dynamic mappings and pools, and end when these are deleted.
 * @return 0 or 12.
 */
uint32_t fwx_nat64_model_sessions_generate(fwx_nat64_model_t *model, uint64_t count);

/**
 * Looks up an address as the data plane does: by longest match in the lookup tree of complex 0, which the library in
 * this process fills. An IPv4 address is in network order; of an IPv6 address only the first 64 bits are used.
 * @return 0, 12, or FWX_NAT64_MODEL_ERR_NO_ENTRY when no prefix matches or the model has no rule with the index found.
 */
uint32_t fwx_nat64_model_lookup(const fwx_nat64_model_t *model, const fwx_nat64_addr_t *address,
                                fwx_nat64_model_match_t *match);
/** Gets the number of lookups that found the rule with this index since the rule was added.
 * @return 0, or FWX_NAT64_MODEL_ERR_NO_ENTRY when there is no such rule, which leaves `count` unchanged. */
uint32_t fwx_nat64_model_lookups(const fwx_nat64_model_t *model, uint32_t bmr_index, uint64_t *count);

#ifdef __cplusplus
}
#endif

#endif
