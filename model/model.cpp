#include "model/model.h"

#include <arpa/inet.h>
#include <sys/random.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "fwx_host/errors.h"
#include "model/server.h"
#include "model/state.h"
#include "model/statistics.h"

namespace {

template <typename value_t>
std::vector<uint32_t> identifiers(const std::map<uint32_t, value_t> &entries) {
    std::vector<uint32_t> ids;
    ids.reserve(entries.size());
    for (const auto &[id, value] : entries) {
        ids.push_back(id);
    }
    return ids;
}

uint64_t random_id() {
    uint64_t id = 0;
    while (getrandom(&id, sizeof id, 0) != sizeof id || id == 0) {
    }
    return id;
}

template <typename record_t, typename member_t>
std::optional<member_t> member_of(const std::optional<record_t> &record, member_t record_t::*member) {
    return record ? std::optional<member_t>((*record).*member) : std::nullopt;
}

}  // namespace

model_state_t::model_state_t(fwx_host_loop_t *loop)
    : outbox(loop, clients), pager(loop, outbox), boot_id(random_id()) {}

std::unique_ptr<fwx_nat64_model_t> fwx_nat64_model_t::create(fwx_host_loop_t *loop, const char *name) {
    auto state = std::make_unique<model_state_t>(loop);
    if (fwx_host_server_register(name, loop, &model_server_ops, state.get(), &state->server) != 0) return nullptr;
    add_error_texts();
    return std::unique_ptr<fwx_nat64_model_t>(new fwx_nat64_model_t(std::move(state)));
}

void fwx_nat64_model_t::add_error_texts() {
#define ADD_TEXT(code, cause, text) fwx_host_error_text_add(code, text);
    FWX_NAT64_MODEL_RESULTS(ADD_TEXT)
#undef ADD_TEXT
}

fwx_nat64_model_t::fwx_nat64_model_t(std::unique_ptr<model_state_t> state) : state_(std::move(state)) {}

fwx_nat64_model_t::~fwx_nat64_model_t() = default;

void fwx_nat64_model_t::fail_next(uint32_t code, uint32_t count) {
    state_->armed_code = code;
    state_->armed_failures = count;
}

void fwx_nat64_model_t::delay_set(uint64_t delay_ms) {
    state_->outbox.delay_ms = delay_ms;
}

void fwx_nat64_model_t::observe_refusals(fwx_nat64_model_refusal_fn_t fn, void *arg) {
    state_->refusal_fn = fn;
    state_->refusal_arg = arg;
}

void fwx_nat64_model_t::journal_set(const fwx_nat64_model_journal_t &journal) {
    state_->note_unsaved(state_->changes.journal_set(journal));
}

void fwx_nat64_model_t::commit() {
    state_->note_unsaved(state_->changes.commit());
}

void fwx_nat64_model_t::hold() {
    state_->outbox.hold();
}

void fwx_nat64_model_t::release(fwx_nat64_model_order_t order) {
    state_->outbox.release(order);
}

void fwx_nat64_model_t::duplicate_set(uint32_t copies) {
    state_->outbox.copies = copies;
}

void fwx_nat64_model_t::silent_set(bool silent) {
    state_->outbox.silent = silent;
}

void fwx_nat64_model_t::pause_set(bool paused) {
    fwx_host_server_pause(state_->server, paused ? 1 : 0);
}

void fwx_nat64_model_t::drop_clients() {
    /* Each drop takes its client off the list. */
    const std::vector<client_t> clients = state_->clients.open;
    for (const client_t &client : clients) {
        fwx_host_peer_drop(client.peer);
    }
}

void fwx_nat64_model_t::reply_limit_set(uint32_t bytes) {
    state_->outbox.reply_limit = bytes;
}

void fwx_nat64_model_t::order_cleanup(bool on) {
    state_->config.rules.orders_cleanup = on;
}

fwx_nat64_stats_counts_t fwx_nat64_model_t::counts() const {
    return counts_of(*state_);
}

fwx_nat64_stats_boot_t fwx_nat64_model_t::boot() const {
    return boot_of(*state_);
}

fwx_nat64_stats_sys_entry_t fwx_nat64_model_t::totals() const {
    return totals_of(*state_);
}

void fwx_nat64_model_t::save(fwx_nat64_model_part_fn_t part, void *arg) const {
    state_->config.save(part, arg);
}

uint32_t fwx_nat64_model_t::restore(uint32_t op_code, const void *payload, size_t size) {
    return state_->config.restore(op_code, payload, size);
}

std::optional<uint32_t> fwx_nat64_model_t::timeout(uint32_t type) const {
    return member_of(state_->config.settings.timeouts.get(type), &fwx_nat64_timeout_t::value);
}

std::optional<uint32_t> fwx_nat64_model_t::limit(uint32_t type) const {
    return member_of(state_->config.settings.limits.get(type), &fwx_nat64_limit_t::value);
}

std::optional<uint32_t> fwx_nat64_model_t::service(uint32_t type) const {
    return member_of(member_of(state_->config.settings.services.get(type), &fwx_nat64_service_payload_t::service),
                     &fwx_nat64_service_t::value);
}

std::optional<fwx_nat64_addr_t> fwx_nat64_model_t::adj(uint32_t type) const {
    return member_of(state_->config.settings.adjacencies.get(type), &fwx_nat64_adj_t::address);
}

std::optional<fwx_nat64_replication_t> fwx_nat64_model_t::replication() const {
    return state_->config.settings.replication;
}

fwx_nat64_global_settings_t fwx_nat64_model_t::global_settings() const {
    return state_->config.settings.global.value_or(fwx_nat64_global_settings_t{});
}

fwx_nat64_model_classifier_t fwx_nat64_model_t::classifier() const {
    return state_->config.classifier.latest;
}

void fwx_nat64_model_t::sessions_generate(uint64_t count) {
    configuration_t &config = state_->config;
    std::vector<session_pool_t> pools;
    for (const auto &[id, pool] : config.pools.pools.entries) {
        const uint32_t first = ntohl(pool.start_addr);
        const uint32_t last = ntohl(pool.end_addr);
        pools.push_back({id, first, std::max(1U, last - first + 1)});
    }
    config.sessions.generate(std::min<uint64_t>(count, FWX_NAT64_MODEL_MAX_SESSIONS),
                             identifiers(config.mappings.dynamic.entries), std::move(pools));
}
