/*
 * The server model as the tools and tests of this tree use it. What a member of the class promises stands with the
 * function of the same name in fwx_nat64_model/model.h; comments here are on what C does not have. Members allocate,
 * and throw when memory is out.
 */
#ifndef MODEL_MODEL_H
#define MODEL_MODEL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "fwx_nat64_model/model.h"

/** Where the changes of the configuration are kept. Both are called from the loop; null `changed`: nowhere. */
struct fwx_nat64_model_journal_t {
    fwx_nat64_model_part_fn_t changed; /* gets what, restored behind all that came before, makes the change again */
    uint32_t (*commit)(void *arg);     /* brings all that to where it is kept; 0 or FWX_NAT64_MODEL_ERR_NOT_SAVED */
    void *arg;
};
/** Hears of each message that was answered with a code other than 0, but for FWX_NAT64_MODEL_ERR_NOT_SAVED. `msg` lives
 * during the call. */
using fwx_nat64_model_refusal_fn_t = void (*)(void *arg, const void *msg, size_t size, uint32_t code);

enum class fwx_nat64_model_order_t : uint8_t {
    in_order = FWX_NAT64_MODEL_IN_ORDER,
    reverse = FWX_NAT64_MODEL_REVERSE,
    shuffled = FWX_NAT64_MODEL_SHUFFLED,
};

/** What the classifier commands left behind, in both forms. */
struct fwx_nat64_model_classifier_t {
    uint64_t updates;
    uint64_t batches;  /* ended ones */
    uint32_t batch_id; /* of the latest command */
    uint8_t data[24];  /* of the latest update */
};

struct model_state_t;

struct fwx_nat64_model_t {
    /** Null when the name is taken. */
    static std::unique_ptr<fwx_nat64_model_t> create(fwx_host_loop_t *loop, const char *name);
    static void add_error_texts();
    ~fwx_nat64_model_t();
    fwx_nat64_model_t(const fwx_nat64_model_t &) = delete;
    fwx_nat64_model_t &operator=(const fwx_nat64_model_t &) = delete;

    void fail_next(uint32_t code, uint32_t count);
    void delay_set(uint64_t delay_ms);
    void hold();
    void release(fwx_nat64_model_order_t order);
    void duplicate_set(uint32_t copies);
    void silent_set(bool silent);
    void pause_set(bool paused);
    void drop_clients();
    void reply_limit_set(uint32_t bytes);
    void order_cleanup(bool on);

    uint32_t notify(const void *msg, size_t size);
    uint32_t wakeup();
    uint32_t notify_record(bool add, uint32_t word1, uint32_t word2, uint32_t word3);
    uint32_t notify_event();
    uint32_t notify_mapping(uint32_t id, bool active, uint32_t value);
    uint32_t notify_debug(uint32_t selector, uint32_t on);
    static uint32_t cgm_end_batch(uint32_t batch_id, bool async, void *ctx);
    static uint32_t cgm_update(uint32_t batch_id, const uint8_t data[24], bool async, void *ctx);

    void save(fwx_nat64_model_part_fn_t part, void *arg) const;
    uint32_t restore(uint32_t op_code, const void *payload, size_t size);
    /** Keeps every change from now on in a journal. No asynchronous answer to a change, nor any behind
     * it, goes out before commit has returned; if that fails, the answers to changes say so. */
    void journal_set(const fwx_nat64_model_journal_t &journal);
    /** To be called after each turn of the loop while there is a journal: commits what the turn has changed, and lets
     * its answers out. What synchronous commands change is not kept. */
    void commit();
    void observe_refusals(fwx_nat64_model_refusal_fn_t fn, void *arg);

    fwx_nat64_stats_counts_t counts() const;
    fwx_nat64_stats_boot_t boot() const;
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

    void sessions_generate(uint64_t count);
    /** False when no prefix matches, or when the model holds no rule of that index. */
    bool lookup(const fwx_nat64_addr_t *address, fwx_nat64_model_match_t *match) const;
    /** How many of them have found the rule of that index; nothing when there is none. */
    std::optional<uint64_t> lookups(uint32_t bmr_index) const;

private:
    explicit fwx_nat64_model_t(std::unique_ptr<model_state_t> state);

    std::unique_ptr<model_state_t> state_;
};

#endif
