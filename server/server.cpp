/*
 * The server's public members, and the commit of changes. With a journal, or an engine that needs a commit, the answers
 * to changes are held until the end of the loop's turn. Commit first lets the engine put the changes into effect, then
 * makes them durable in the journal, and then releases the answers.
 */
#include "server/server.h"

#include <sys/random.h>

#include <utility>

#include "fwx_host/errors.h"
#include "server/state.h"

namespace {

uint64_t random_id() {
    uint64_t id = 0;
    while (getrandom(&id, sizeof id, 0) != sizeof id || id == 0) {
    }
    return id;
}

}  // namespace

void changes_t::note(uint32_t op_code, const void *payload, size_t size) {
    ++count_;
    if (engine_.needs_commit()) {
        const auto *bytes = static_cast<const uint8_t *>(payload);
        pending_.push_back({op_code, {bytes, bytes + size}});
    } else if (journal_.changed != nullptr) {
        journal_.changed(journal_.arg, op_code, payload, size);
    } else {
        return;
    }
    is_uncommitted_ = true;
    outbox_.hold_unsaved();
}

uint64_t changes_t::commit(uint32_t &code) {
    if (!std::exchange(is_uncommitted_, false)) return 0;
    const std::vector<change_t> changes = std::exchange(pending_, {});
    code = changes.empty() ? 0 : engine_.commit();
    if (code != 0) {
        count_ -= changes.size();
    } else if (journal_.changed != nullptr) {
        for (const change_t &change : changes) {
            journal_.changed(journal_.arg, change.op_code, change.payload.data(), change.payload.size());
        }
        code = journal_.commit(journal_.arg);
    }
    return outbox_.release_unsaved(code);
}

server_state_t::server_state_t(fwx_host_loop_t *host_loop, std::unique_ptr<engine_t> carries_out)
    : loop(host_loop),
      outbox(host_loop, clients),
      engine(std::move(carries_out)),
      config(engine->config),
      pager(host_loop, outbox),
      changes(*engine, outbox),
      boot_id(random_id()) {}

nat64_server_t::nat64_server_t(fwx_host_loop_t *loop, std::unique_ptr<engine_t> engine)
    : state_(std::make_unique<server_state_t>(loop, std::move(engine))) {}

nat64_server_t::~nat64_server_t() = default;

bool nat64_server_t::serve(const char *name) {
    if (fwx_host_server_register(name, state_->loop, &server_ops, state_.get(), &state_->server) != 0) return false;
    add_error_texts();
    return true;
}

void nat64_server_t::add_error_texts() {
#define ADD_TEXT(code, cause, text) fwx_host_error_text_add(code, text);
    FWX_NAT64_MODEL_RESULTS(ADD_TEXT)
#undef ADD_TEXT
}

void nat64_server_t::fail_next(uint32_t code, uint32_t count) {
    state_->armed_code = code;
    state_->armed_failures = count;
}

void nat64_server_t::delay_set(uint64_t delay_ms) {
    state_->outbox.delay_ms = delay_ms;
}

void nat64_server_t::hold() {
    state_->outbox.hold();
}

void nat64_server_t::release(reply_order_t order) {
    state_->outbox.release(order);
}

void nat64_server_t::duplicate_set(uint32_t copies) {
    state_->outbox.copies = copies;
}

void nat64_server_t::silent_set(bool silent) {
    state_->outbox.silent = silent;
}

void nat64_server_t::pause_set(bool paused) {
    fwx_host_server_pause(state_->server, paused ? 1 : 0);
}

void nat64_server_t::drop_clients() {
    /* A copy, because each drop removes its client from the list. */
    const std::vector<client_t> clients = state_->clients.open;
    for (const client_t &client : clients) {
        fwx_host_peer_drop(client.peer);
    }
}

void nat64_server_t::reply_limit_set(uint32_t bytes) {
    state_->outbox.reply_limit = bytes;
}

void nat64_server_t::save(server_part_fn_t part, void *arg) const {
    state_->config.save(part, arg);
}

uint32_t nat64_server_t::restore(uint32_t op_code, const void *payload, size_t size) {
    if (size == 0 || size != configuration_t::payload_size(op_code)) return FWX_NAT64_MODEL_ERR_MALFORMED;
    return carry_out(*state_, op_code, payload);
}

void nat64_server_t::journal_set(const server_journal_t &journal) {
    commit();
    state_->changes.journal_set(journal);
}

void nat64_server_t::commit() {
    uint32_t code = 0;
    const uint64_t count = state_->changes.commit(code);
    state_->refused += count;
    refusals_for(state_->causes, code) += count;
}

void nat64_server_t::observe_refusals(server_refusal_fn_t fn, void *arg) {
    state_->refusal_fn = fn;
    state_->refusal_arg = arg;
}

fwx_nat64_stats_counts_t nat64_server_t::counts() const {
    return counts_of(*state_);
}

fwx_nat64_stats_boot_t nat64_server_t::boot() const {
    return boot_of(*state_);
}

fwx_nat64_stats_sys_entry_t nat64_server_t::totals() const {
    return totals_of(*state_);
}

const configuration_t &nat64_server_t::config() const {
    return state_->config;
}

engine_t &nat64_server_t::engine() {
    return *state_->engine;
}
