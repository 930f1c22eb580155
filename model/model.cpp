#include "model/model.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "fwx_host/errors.h"
#include "model/server.h"
#include "model/state.h"
#include "model/statistics.h"

namespace {

void add_error_texts() {
    fwx_host_error_text_add(FWX_NAT64_MODEL_ERR_MALFORMED, "the server got a malformed message");
    fwx_host_error_text_add(FWX_NAT64_MODEL_ERR_UNKNOWN, "the server does not know this command");
    fwx_host_error_text_add(FWX_NAT64_MODEL_ERR_NO_ENTRY, "the server has no such entry");
    fwx_host_error_text_add(FWX_NAT64_MODEL_ERR_EXISTS, "the server has this entry already");
    fwx_host_error_text_add(FWX_NAT64_MODEL_ERR_NO_POOL, "the server has no such pool");
    fwx_host_error_text_add(FWX_NAT64_MODEL_ERR_VALUE, "the server does not take this value");
}

template <typename value_t>
std::vector<uint32_t> identifiers(const std::map<uint32_t, value_t> &entries) {
    std::vector<uint32_t> ids;
    ids.reserve(entries.size());
    for (const auto &[id, value] : entries) {
        ids.push_back(id);
    }
    return ids;
}

}  // namespace

fwx_nat64_model_t *fwx_nat64_model_create(fwx_host_loop_t *loop, const char *name) {
    auto model = std::make_unique<fwx_nat64_model_t>(loop);
    if (fwx_host_server_register(name, loop, &model_server_ops, model.get(), &model->server) != 0) return nullptr;
    add_error_texts();
    return model.release();
}

void fwx_nat64_model_destroy(fwx_nat64_model_t *model) {
    if (model == nullptr) return;
    fwx_host_server_unregister(model->server);
    delete model;
}

void fwx_nat64_model_fail_next(fwx_nat64_model_t *model, uint32_t code, uint32_t count) {
    model->armed_code = code;
    model->armed_failures = count;
}

void fwx_nat64_model_delay_set(fwx_nat64_model_t *model, uint64_t delay_ms) {
    model->outbox.delay_ms = delay_ms;
}

void fwx_nat64_model_observe_refusals(fwx_nat64_model_t *model, fwx_nat64_model_refusal_fn_t fn, void *arg) {
    model->refusal_fn = fn;
    model->refusal_arg = arg;
}

void fwx_nat64_model_hold(fwx_nat64_model_t *model) {
    model->outbox.hold();
}

void fwx_nat64_model_release(fwx_nat64_model_t *model, fwx_nat64_model_order_t order) {
    model->outbox.release(order);
}

void fwx_nat64_model_duplicate_set(fwx_nat64_model_t *model, uint32_t copies) {
    model->outbox.copies = copies;
}

void fwx_nat64_model_silent_set(fwx_nat64_model_t *model, bool silent) {
    model->outbox.silent = silent;
}

void fwx_nat64_model_pause_set(fwx_nat64_model_t *model, bool paused) {
    fwx_host_server_pause(model->server, paused ? 1 : 0);
}

void fwx_nat64_model_drop_clients(fwx_nat64_model_t *model) {
    /* Each drop takes its client off the list. */
    const std::vector<client_t> clients = model->clients.open;
    for (const client_t &client : clients) {
        fwx_host_peer_drop(client.peer);
    }
}

void fwx_nat64_model_reply_limit_set(fwx_nat64_model_t *model, uint32_t bytes) {
    model->outbox.reply_limit = bytes;
}

fwx_nat64_model_counts_t fwx_nat64_model_counts(const fwx_nat64_model_t *model) {
    return {model->commands,    model->malformed,        model->refused,
            model->outbox.sent, model->outbox.waiting(), model->clients.open.size()};
}

fwx_nat64_stats_sys_entry_t fwx_nat64_model_totals(const fwx_nat64_model_t *model) {
    return totals_of(*model);
}

bool fwx_nat64_model_timeout(const fwx_nat64_model_t *model, uint32_t type, uint32_t *value) {
    return model->settings.timeouts.get(type, value);
}

bool fwx_nat64_model_limit(const fwx_nat64_model_t *model, uint32_t type, uint32_t *value) {
    return model->settings.limits.get(type, value);
}

bool fwx_nat64_model_service(const fwx_nat64_model_t *model, uint32_t type, uint32_t *value) {
    return model->settings.services.get(type, value);
}

bool fwx_nat64_model_adj(const fwx_nat64_model_t *model, uint32_t type, fwx_nat64_addr_t *address) {
    return model->settings.adjacencies.get(type, address);
}

bool fwx_nat64_model_replication(const fwx_nat64_model_t *model, fwx_nat64_replication_t *replication) {
    if (!model->settings.replication) return false;
    *replication = *model->settings.replication;
    return true;
}

fwx_nat64_global_settings_t fwx_nat64_model_global_settings(const fwx_nat64_model_t *model) {
    return model->settings.global;
}

fwx_nat64_model_classifier_t fwx_nat64_model_classifier(const fwx_nat64_model_t *model) {
    return model->classifier;
}

void fwx_nat64_model_sessions_generate(fwx_nat64_model_t *model, uint64_t count) {
    model->sessions.generate(std::min(count, fwx_nat64_model_max_sessions),
                             identifiers(model->mappings.dynamic.entries), identifiers(model->pools.pools.entries));
}
