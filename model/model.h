/*
 * The server model: a server behind a channel name that answers every command, keeps the configured state and can be
 * told to misbehave. Everything happens on the loop it was made with; nothing is thread-safe.
 */
#ifndef MODEL_MODEL_H
#define MODEL_MODEL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "fwx_host/loop.h"
#include "fwx_nat64/server_result.h"
#include "fwx_nat64/wire.h"

/* What stands for commands of MAP-T rules among the op codes: {index, Rule ID, Domain ID}, and a default rule's record.
 * The index under which a rule is deleted does not matter. */
#define FWX_NAT64_MODEL_SAVED_BASIC_RULE 0x10000u
#define FWX_NAT64_MODEL_SAVED_DEFAULT_RULE 0x10001u
#define FWX_NAT64_MODEL_SAVED_BASIC_RULE_DEL 0x10002u
#define FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_MOD 0x10003u
#define FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_DEL 0x10004u

/** Gets one part of the configuration: an op code and the payload that sets it. `payload` lives during the call. */
using fwx_nat64_model_part_fn_t = void (*)(void *arg, uint32_t op_code, const void *payload, size_t size);
/** Where the changes of the configuration are kept. Both are called from the loop; null `changed`: nowhere. */
struct fwx_nat64_model_journal_t {
    fwx_nat64_model_part_fn_t changed; /* gets what, restored behind all that came before, makes the change again */
    uint32_t (*commit)(void *arg);     /* brings all that to where it is kept; 0 or FWX_NAT64_MODEL_ERR_NOT_SAVED */
    void *arg;
};
/** Hears of each message that was answered with a code other than 0, but for FWX_NAT64_MODEL_ERR_NOT_SAVED. `msg` lives
 * during the call. */
using fwx_nat64_model_refusal_fn_t = void (*)(void *arg, const void *msg, size_t size, uint32_t code);

enum class fwx_nat64_model_order_t : uint8_t { in_order, reverse, shuffled };

/** What the classifier commands left behind, in both forms. */
struct fwx_nat64_model_classifier_t {
    uint64_t updates;
    uint64_t batches;  /* ended ones */
    uint32_t batch_id; /* of the latest command */
    uint8_t data[24];  /* of the latest update */
};

struct fwx_nat64_model_match_t {
    uint32_t bmr_index;
    uint32_t rule_id;
    uint32_t domain_id;
    uint32_t prefix_len; /* bits of the address that matched */
};

constexpr uint64_t fwx_nat64_model_max_sessions = 1000000;

struct model_state_t;

class fwx_nat64_model_t {
public:
    /** Makes a model and registers it under a channel name; null when the name is taken. `loop` must outlive it. */
    static std::unique_ptr<fwx_nat64_model_t> create(fwx_host_loop_t *loop, const char *name);
    /** Gives xerr_strerror the texts of the codes above, for whoever talks to a model in another process; making a
     * model does it too. */
    static void add_error_texts();
    /** Clients see a channel error. */
    ~fwx_nat64_model_t();
    fwx_nat64_model_t(const fwx_nat64_model_t &) = delete;
    fwx_nat64_model_t &operator=(const fwx_nat64_model_t &) = delete;

    /* --- Misbehaviour. --- */

    /** Answers the next `count` commands (init included) with `code` instead of carrying them out. */
    void fail_next(uint32_t code, uint32_t count);
    /** Sends each reply `delay_ms` after its command, by the loop's clock; 0 at once. */
    void delay_set(uint64_t delay_ms);
    /** Holds all replies back until release. */
    void hold();
    /** Sends the held replies in that order (shuffled: by a fixed seed) and holds no more. */
    void release(fwx_nat64_model_order_t order);
    /** Sends every asynchronous reply this many times, 1 at the start. */
    void duplicate_set(uint32_t copies);
    /** While silent, commands are carried out and not answered, synchronous ones included. */
    void silent_set(bool silent);
    /** Stops taking messages, so that the channel fills. */
    void pause_set(bool paused);
    /** Drops the channels of all clients; what was to be sent to them is gone. */
    void drop_clients();
    /** Largest number of bytes of entries in one statistics or walk reply, 65536 at the start; at least one entry
     * goes. */
    void reply_limit_set(uint32_t bytes);
    /** Whether the delete of the last basic rule orders the client to empty its rule table; not at the start, since a
     * rule whose add is under way would go too. */
    void order_cleanup(bool on);

    /* --- Notifications; each returns 0 or the messaging service's code, or FWX_HOST_ERR_CHANNEL_DOWN without a client
     * that has asked for them. --- */

    uint32_t notify(const void *msg, size_t size);
    uint32_t wakeup();
    /** Unsolicited command 0. */
    uint32_t notify_record(bool add, uint32_t word1, uint32_t word2, uint32_t word3);
    /** Unsolicited command 1. */
    uint32_t notify_event();
    /** Unsolicited command 3. */
    uint32_t notify_mapping(uint32_t id, bool active, uint32_t value);
    /** Unsolicited command 4. */
    uint32_t notify_debug(uint32_t selector, uint32_t on);
    /** Classifier end of batch and update to the library's classifier client; return what its handler returns. */
    static uint32_t cgm_end_batch(uint32_t batch_id, bool async, void *ctx);
    static uint32_t cgm_update(uint32_t batch_id, const uint8_t data[24], bool async, void *ctx);

    /* --- Keeping the configuration. --- */

    /** Hands the whole configuration over, part by part, in an order in which it can be restored. */
    void save(fwx_nat64_model_part_fn_t part, void *arg) const;
    /** Sets one part again; FWX_NAT64_MODEL_ERR_MALFORMED for a size that is not the op code's, else as a command. */
    uint32_t restore(uint32_t op_code, const void *payload, size_t size);
    /** Keeps every change from now on in a journal. No asynchronous answer to a change, nor any behind
     * it, goes out before commit has returned; if that fails, the answers to changes say so. */
    void journal_set(const fwx_nat64_model_journal_t &journal);
    /** To be called after each turn of the loop while there is a journal: commits what the turn has changed, and lets
     * its answers out. What synchronous commands change is not kept. */
    void commit();
    void observe_refusals(fwx_nat64_model_refusal_fn_t fn, void *arg);

    /* --- Looking inside. --- */

    fwx_nat64_stats_counts_t counts() const;
    fwx_nat64_stats_boot_t boot() const;
    /** How many the model holds of each kind; the record that answers a system statistics query. */
    fwx_nat64_stats_sys_entry_t totals() const;
    /** Value of a timeout (type 1 to 7), limit or service (type 1), when it is set. */
    std::optional<uint32_t> timeout(uint32_t type) const;
    std::optional<uint32_t> limit(uint32_t type) const;
    std::optional<uint32_t> service(uint32_t type) const;
    /** An adjacency (type 1 to 13), its IPv4 address in network order; the replication. When they are set. */
    std::optional<fwx_nat64_addr_t> adj(uint32_t type) const;
    std::optional<fwx_nat64_replication_t> replication() const;
    /** The global settings, zeros until they are set. */
    fwx_nat64_global_settings_t global_settings() const;
    fwx_nat64_model_classifier_t classifier() const;

    /* --- Sessions: one for each static mapping, and those that are made here. --- */

    /**
     * Replaces the made sessions by `count` new ones, at most fwx_nat64_model_max_sessions. The n-th is always the
     * same: source 2001:db8:64::n, destination 198.18.0.0 + n % 131072, source port 1024 + n % 64512, destination port
     * 443, protocol 6 for even n and 17 for odd. They are spread over the dynamic mappings and over the pools of this
     * moment, and end with them.
     */
    void sessions_generate(uint64_t count);

    /* --- The data plane's view of the MAP-T rules. --- */

    /**
     * Looks an address (IPv4 in network order; IPv6 by its first 64 bits) up in the lookup tree of complex 0, which the
     * library fills, by longest match. False when no prefix matches, or when the model holds no rule of that index.
     */
    bool lookup(const fwx_nat64_addr_t *address, fwx_nat64_model_match_t *match) const;

private:
    explicit fwx_nat64_model_t(std::unique_ptr<model_state_t> state);

    std::unique_ptr<model_state_t> state_;
};

#endif
