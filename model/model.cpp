#include "model/model.h"

#include <algorithm>

#include "fwx_host/cgm.h"
#include "fwx_nat64/client.h"
#include "model/engine.h"

static_assert(FWX_NAT64_MODEL_SAVED_BASIC_RULE == record_kept_basic_rule);
static_assert(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE == record_kept_default_rule);
static_assert(FWX_NAT64_MODEL_SAVED_BASIC_RULE_DEL == record_kept_basic_rule_del);
static_assert(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_MOD == record_kept_default_rule_mod);
static_assert(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_DEL == record_kept_default_rule_del);
static_assert(FWX_NAT64_MODEL_IN_ORDER == static_cast<uint32_t>(reply_order_t::in_order));
static_assert(FWX_NAT64_MODEL_REVERSE == static_cast<uint32_t>(reply_order_t::reverse));
static_assert(FWX_NAT64_MODEL_SHUFFLED == static_cast<uint32_t>(reply_order_t::shuffled));

model_state_t::model_state_t(fwx_host_loop_t *loop, std::unique_ptr<model_engine_t> of)
    : nat64_server_t(loop, std::move(of)), engine(static_cast<model_engine_t &>(nat64_server_t::engine())) {}

std::unique_ptr<fwx_nat64_model_t> fwx_nat64_model_t::create(fwx_host_loop_t *loop, const char *name) {
    auto state = std::make_unique<model_state_t>(loop, std::make_unique<model_engine_t>());
    if (!state->serve(name)) return nullptr;
    return std::unique_ptr<fwx_nat64_model_t>(new fwx_nat64_model_t(std::move(state)));
}

void fwx_nat64_model_t::order_cleanup(bool on) {
    state_->engine.config.rules.orders_cleanup = on;
}

uint32_t fwx_nat64_model_t::cgm_end_batch(uint32_t batch_id, bool async, void *ctx) {
    return fwx_host_cgm_notify(FWX_NAT64_CGM_CLIENT_ID, FWX_NAT64_CGM_OP_END_BATCH, nullptr, batch_id, async ? 1 : 0,
                               ctx);
}

uint32_t fwx_nat64_model_t::cgm_update(uint32_t batch_id, const uint8_t data[24], bool async, void *ctx) {
    /* The client copies the data and never writes into it. */
    void *cell = const_cast<uint8_t *>(data);
    return fwx_host_cgm_notify(FWX_NAT64_CGM_CLIENT_ID, FWX_NAT64_CGM_OP_CLASSIFIER_UPDATE, &cell, batch_id,
                               async ? 1 : 0, ctx);
}

std::optional<uint32_t> fwx_nat64_model_t::timeout(uint32_t type) const {
    const auto timeout = config().settings.timeouts.get(type);
    return timeout ? std::optional<uint32_t>(timeout->value) : std::nullopt;
}

void fwx_nat64_model_t::sessions_generate(uint64_t count) {
    state_->engine.generate(std::min<uint64_t>(count, FWX_NAT64_MODEL_MAX_SESSIONS));
}
