/*
 * The server's public members, and the commit of changes. With a journal, or an engine that needs a commit, the answers
 * to changes are held until the end of the loop's turn. Commit first lets the engine put the changes into effect, then
 * makes them durable in the journal, and then releases the answers.
 */
#include "server/server.h"

#include <sys/random.h>

#include <algorithm>
#include <utility>

#include "fwx_host/errors.h"
#include "server/state.h"

namespace {

/** Refused changes after which the others of a turn are refused untried, because each refusal costs the engine time. */
constexpr size_t most_refused = 16;

uint64_t random_id() {
    uint64_t id = 0;
    while (getrandom(&id, sizeof id, 0) != sizeof id || id == 0) {
    }
    return id;
}

}  // namespace

void changes_t::note(uint32_t op_code, const void *payload, size_t size) noexcept {
    ++count_;
    if (engine_.needs_commit()) {
        const auto *bytes = static_cast<const uint8_t *>(payload);
        pending_.push_back({op_code, {bytes, bytes + size}});
    } else if (journal_.changed != nullptr) {
        journal_.changed(journal_.arg, op_code, payload, size);
    } else {
        return;
    }
    codes_.push_back(0);
    outbox_.hold_unsaved(codes_.size());
}

void changes_t::commit(server_state_t &server) {
    if (codes_.empty()) return;
    std::vector<uint32_t> codes = std::exchange(codes_, {});
    const std::vector<change_t> changes = std::exchange(pending_, {});
    const uint32_t refusal = changes.empty() ? 0 : engine_.commit();
    size_t refused = 0;
    for (size_t i = 0; refusal != 0 && i < changes.size(); ++i) {
        const bool is_tried = changes.size() > 1 && refused < most_refused;
        codes[i] = is_tried ? carry_out(server, changes[i].op_code, changes[i].payload.data()) : refusal;
        if (codes[i] == 0) codes[i] = engine_.commit();
        refused += codes[i] != 0 ? 1U : 0U;
    }
    count_ -= refused;
    if (journal_.changed != nullptr && refused < codes.size()) {
        for (size_t i = 0; i < changes.size(); ++i) {
            const change_t &change = changes[i];
            if (codes[i] == 0) {
                journal_.changed(journal_.arg, change.op_code, change.payload.data(), change.payload.size());
            }
        }
        std::replace(codes.begin(), codes.end(), 0U, journal_.commit(journal_.arg));
    }
    outbox_.release_unsaved(codes, [&server](uint32_t code) {
        ++server.refused;
        ++refusals_for(server.causes, code);
    });
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
    state_->changes.commit(*state_);
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
