/** @file
 * The server model: a server behind a channel name that answers every command, keeps the configured state and can be
 * told to misbehave, for tests of a PAL. It needs the host platform and not the client library, and a process can have
 * one for each channel name.
 *
 * Everything happens on the loop that a model was made with, and nothing is thread-safe. No function takes a null
 * model but fwx_nat64_model_destroy. Wherever a code is returned, 12 says that memory is out.
 *
 * A client in the same process reaches the model by binding while it stands. For clients in other processes give
 * fwx_host_server_find of its channel name to fwx_host_server_listen.
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

/* What stands for commands of MAP-T rules among the op codes: an index of 32 bits and a basic rule's record, and a
 * default rule's record. The index under which a rule is deleted does not matter, nor do its prefixes. */
#define FWX_NAT64_MODEL_SAVED_BASIC_RULE 0x10000u       /**< a basic rule */
#define FWX_NAT64_MODEL_SAVED_DEFAULT_RULE 0x10001u     /**< a default rule */
#define FWX_NAT64_MODEL_SAVED_BASIC_RULE_DEL 0x10002u   /**< a basic rule, deleted */
#define FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_MOD 0x10003u /**< a default rule, modified */
#define FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_DEL 0x10004u /**< a default rule, deleted */

/* In which order held replies are sent. */
#define FWX_NAT64_MODEL_IN_ORDER 0u /**< as they were held */
#define FWX_NAT64_MODEL_REVERSE 1u  /**< the last one first */
#define FWX_NAT64_MODEL_SHUFFLED 2u /**< by a fixed seed */

/** Most sessions that a model makes up. */
#define FWX_NAT64_MODEL_MAX_SESSIONS 1000000u

/** Gets one part of the configuration: an op code and the payload that sets it, which lives during the call. */
typedef void (*fwx_nat64_model_part_fn_t)(void *arg, uint32_t op_code, const void *payload, size_t size);

/** A rule that an address is looked up to. */
typedef struct {
    uint32_t bmr_index;  /**< the model's index of the rule */
    uint32_t rule_id;    /**< Rule ID */
    uint32_t domain_id;  /**< Domain ID */
    uint32_t prefix_len; /**< bits of the address that matched */
} fwx_nat64_model_match_t;

/**
 * Makes a model and registers it under a channel name.
 * @param loop  must outlive it.
 * @param name  the channel's, FWX_NAT64_CHANNEL_NAME for the library's. Copied.
 * @param model receives it; destroy it with fwx_nat64_model_destroy. Null after a failure.
 * @return 0, FWX_HOST_ERR_NAME_TAKEN, FWX_HOST_ERR_BAD_ARG for a null argument, 12.
 */
uint32_t fwx_nat64_model_create(fwx_host_loop_t *loop, const char *name, fwx_nat64_model_t **model);
/** Ends a model; its clients see a channel error. Null is ignored. */
void fwx_nat64_model_destroy(fwx_nat64_model_t *model);
/** Gives xerr_strerror the texts of the model's codes, for whoever talks to a model in another process; making a model
 * does it too. */
void fwx_nat64_model_add_error_texts(void);

/* --- Misbehaviour. --- */

/** Answers the next `count` commands (init included) with `code` instead of carrying them out. */
void fwx_nat64_model_fail_next(fwx_nat64_model_t *model, uint32_t code, uint32_t count);
/** Sends each reply `delay_ms` after its command, by the loop's clock; 0 at once. */
void fwx_nat64_model_delay_set(fwx_nat64_model_t *model, uint64_t delay_ms);
/** Holds all replies back until fwx_nat64_model_release. */
void fwx_nat64_model_hold(fwx_nat64_model_t *model);
/** Sends the held replies, FWX_NAT64_MODEL_IN_ORDER, _REVERSE or _SHUFFLED, and holds no more. @return 0, 12: some are
 * lost, or FWX_HOST_ERR_BAD_ARG for another order: they are held on. */
uint32_t fwx_nat64_model_release(fwx_nat64_model_t *model, uint32_t order);
/** Sends every asynchronous reply this many times, 1 at the start. */
void fwx_nat64_model_duplicate_set(fwx_nat64_model_t *model, uint32_t copies);
/** While `silent` is not 0, commands are carried out and not answered, synchronous ones included. */
void fwx_nat64_model_silent_set(fwx_nat64_model_t *model, uint32_t silent);
/** While `paused` is not 0, takes no messages, so that the channel fills. */
void fwx_nat64_model_pause_set(fwx_nat64_model_t *model, uint32_t paused);
/** Drops the channels of all clients; what was to be sent to them is gone. @return 0 or 12: some may still be open. */
uint32_t fwx_nat64_model_drop_clients(fwx_nat64_model_t *model);
/** Largest number of bytes of entries in one statistics or walk reply, 65536 at the start; at least one entry goes. */
void fwx_nat64_model_reply_limit_set(fwx_nat64_model_t *model, uint32_t bytes);
/** Whether the delete of the last basic rule orders the client to empty its rule table; not at the start, since a rule
 * whose add is under way would go too. */
void fwx_nat64_model_order_cleanup(fwx_nat64_model_t *model, uint32_t on);

/* --- Notifications; each returns 0, the messaging service's code, or FWX_HOST_ERR_CHANNEL_DOWN without a client that
 * has asked for them. --- */

/** Sends a message, which is copied, as it is. */
uint32_t fwx_nat64_model_notify(fwx_nat64_model_t *model, const void *msg, size_t size);
/** Wakes the command queue of the clients up: unsolicited command 2. */
uint32_t fwx_nat64_model_wakeup(fwx_nat64_model_t *model);
/** Unsolicited command 0; `add` 0 says that the record was deleted. */
uint32_t fwx_nat64_model_notify_record(fwx_nat64_model_t *model, uint32_t add, uint32_t word1, uint32_t word2,
                                       uint32_t word3);
/** Unsolicited command 1. */
uint32_t fwx_nat64_model_notify_event(fwx_nat64_model_t *model);
/** Unsolicited command 3; `active` 0 says that the mapping is inactive. */
uint32_t fwx_nat64_model_notify_mapping(fwx_nat64_model_t *model, uint32_t id, uint32_t active, uint32_t value);
/** Unsolicited command 4: FWX_NAT64_UNSOL_DEBUG_INFO to _ALL, and 0 for off. */
uint32_t fwx_nat64_model_notify_debug(fwx_nat64_model_t *model, uint32_t selector, uint32_t on);
/** Classifier end of batch to the library's classifier client; returns what its handler returns. */
uint32_t fwx_nat64_model_cgm_end_batch(uint32_t batch_id, uint32_t async, void *ctx);
/** Classifier update to the same. */
uint32_t fwx_nat64_model_cgm_update(uint32_t batch_id, const uint8_t data[24], uint32_t async, void *ctx);

/* --- Keeping the configuration. --- */

/** Hands the whole configuration over, part by part, in an order in which it can be restored. @return 0 or 12: not all
 * of it was handed over. */
uint32_t fwx_nat64_model_save(const fwx_nat64_model_t *model, fwx_nat64_model_part_fn_t part, void *arg);
/** Sets one part again. @return 0, FWX_NAT64_MODEL_ERR_MALFORMED for a size that is not the op code's, else as a
 * command. */
uint32_t fwx_nat64_model_restore(fwx_nat64_model_t *model, uint32_t op_code, const void *payload, size_t size);

/* --- Looking inside. --- */

/** What the model has counted. */
void fwx_nat64_model_counts(const fwx_nat64_model_t *model, fwx_nat64_stats_counts_t *counts);
/** Which run it is, and how often its configuration has changed. */
void fwx_nat64_model_boot(const fwx_nat64_model_t *model, fwx_nat64_stats_boot_t *boot);
/** How many it holds of each kind; the record that answers a system statistics query. */
void fwx_nat64_model_totals(const fwx_nat64_model_t *model, fwx_nat64_stats_sys_entry_t *totals);

/**
 * Replaces the made-up sessions by `count` new ones, at most FWX_NAT64_MODEL_MAX_SESSIONS; those of static mappings
 * stay. The n-th is always the same: source 2001:db8:64:: plus n, destination 198.18.0.0 + n % 131072, source port 1024
 * + n % 64512, destination port 443, protocol 6 for even n and 17 for odd. They are spread over the dynamic mappings
 * and over the pools of this moment, and end with them.
 * @return 0 or 12.
 */
uint32_t fwx_nat64_model_sessions_generate(fwx_nat64_model_t *model, uint64_t count);

/**
 * Looks an address (IPv4 in network order; IPv6 by its first 64 bits) up as the data plane does: by longest match in
 * the lookup tree of complex 0, which the library of this process fills.
 * @return 0, 12, or FWX_NAT64_MODEL_ERR_NO_ENTRY when no prefix matches or the model holds no rule of that index.
 */
uint32_t fwx_nat64_model_lookup(const fwx_nat64_model_t *model, const fwx_nat64_addr_t *address,
                                fwx_nat64_model_match_t *match);
/** How many lookups have found the rule of that index since it was added. @return 0, or FWX_NAT64_MODEL_ERR_NO_ENTRY
 * when there is none; the count is left as it is. */
uint32_t fwx_nat64_model_lookups(const fwx_nat64_model_t *model, uint32_t bmr_index, uint64_t *count);

#ifdef __cplusplus
}
#endif

#endif
