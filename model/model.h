/*
 * The server model as the tools and tests of this tree use it. The members are documented at the functions of the same
 * name in fwx_nat64_model/model.h or server/server.h. Members may throw std::bad_alloc.
 */
#ifndef MODEL_MODEL_H
#define MODEL_MODEL_H

#include <optional>
#include <utility>

#include "fwx_nat64_model/model.h"
#include "model/state.h"

using fwx_nat64_model_order_t = reply_order_t;

struct fwx_nat64_model_t {
    /** Null when the name is taken. */
    static std::unique_ptr<fwx_nat64_model_t> create(fwx_host_loop_t *loop, const char *name);

    nat64_server_t &server() { return *state_; }
    static void add_error_texts() { nat64_server_t::add_error_texts(); }
    void fail_next(uint32_t code, uint32_t count) { state_->fail_next(code, count); }
    void delay_set(uint64_t delay_ms) { state_->delay_set(delay_ms); }
    void hold() { state_->hold(); }
    void release(reply_order_t order) { state_->release(order); }
    void duplicate_set(uint32_t copies) { state_->duplicate_set(copies); }
    void silent_set(bool silent) { state_->silent_set(silent); }
    void pause_set(bool paused) { state_->pause_set(paused); }
    void drop_clients() { state_->drop_clients(); }
    void reply_limit_set(uint32_t bytes) { state_->reply_limit_set(bytes); }
    void order_cleanup(bool on);

    uint32_t notify(const void *msg, size_t size) { return state_->notify(msg, size); }
    uint32_t wakeup() { return state_->wakeup(); }
    uint32_t notify_record(bool add, uint32_t word1, uint32_t word2, uint32_t word3) {
        return state_->notify_record(add, word1, word2, word3);
    }
    uint32_t notify_event() { return state_->notify_event(); }
    uint32_t notify_mapping(uint32_t id, bool active, uint32_t value) {
        return state_->notify_mapping(id, active, value);
    }
    uint32_t notify_debug(uint32_t selector, uint32_t on) { return state_->notify_debug(selector, on); }

    void save(server_part_fn_t part, void *arg) const { state_->save(part, arg); }
    uint32_t restore(uint32_t op_code, const void *payload, size_t size) {
        return state_->restore(op_code, payload, size);
    }
    void journal_set(const server_journal_t &journal) { state_->journal_set(journal); }
    void commit() { state_->commit(); }
    void observe_refusals(server_refusal_fn_t fn, void *arg) { state_->observe_refusals(fn, arg); }
    fwx_nat64_stats_counts_t counts() const { return state_->counts(); }
    fwx_nat64_stats_boot_t boot() const { return state_->boot(); }
    fwx_nat64_stats_sys_entry_t totals() const { return state_->totals(); }
    const configuration_t &config() const { return state_->config(); }
    static uint32_t cgm_end_batch(uint32_t batch_id, bool async, void *ctx);
    static uint32_t cgm_update(uint32_t batch_id, const uint8_t data[24], bool async, void *ctx);

    /** Value of a timeout (type 1 to 7), if it is set. */
    std::optional<uint32_t> timeout(uint32_t type) const;
    void sessions_generate(uint64_t count);
    /** False when no prefix matches, or when the model has no rule with the index found. */
    bool lookup(const fwx_nat64_addr_t *address, fwx_nat64_model_match_t *match) const;
    /** Number of lookups that found the rule with this index; nullopt when there is no such rule. */
    std::optional<uint64_t> lookups(uint32_t bmr_index) const;

private:
    explicit fwx_nat64_model_t(std::unique_ptr<model_state_t> state) : state_(std::move(state)) {}

    std::unique_ptr<model_state_t> state_;
};

#endif
