#include "tools/nat64d/gateway_herald.h"

#include "fwx_host/loop.h"
#include "tools/nat64d/log.h"
#include "tools/pal/time_text.h"

gateway_herald_t::gateway_herald_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string gateway, state_fn_t state,
                                   asked_fn_t asked)
    : etcd_(etcd),
      keys_(etcd.store().prefix),
      gateway_(std::move(gateway)),
      state_(std::move(state)),
      asked_(std::move(asked)),
      bell_(loop) {}

void gateway_herald_t::start() {
    run_.emplace(run());
    run_->start();
}

nat64::task<> gateway_herald_t::run() {
    std::string trouble;
    for (;;) {
        const etcd_error_t error = co_await speak();
        if (error && error.text != trouble) log_event(log_level_t::warning, "unheard", {{"reason", error.text}});
        trouble = error.text;
        asked_(error);
        co_await bell_.wait(error ? keep_lease_ms / 3 : keep_lease_ms);
    }
}

/** Keeps the lease alive when that is due, and says what is new. */
nat64::task<etcd_error_t> gateway_herald_t::speak() {
    const uint64_t now_ms = fwx_host_clock_ms();
    if (lease_ != 0 && now_ms - kept_at_ms_ >= keep_lease_ms) {
        const etcd_result_t<uint32_t> left = co_await etcd_.keep_lease(lease_);
        if (left.error) co_return left.error;
        kept_at_ms_ = now_ms;
        if (left.value == 0) lease_ = 0;
    }
    if (lease_ == 0) {
        const etcd_result_t<int64_t> lease = co_await etcd_.grant_lease(gateway_lease_s);
        if (lease.error) co_return lease.error;
        lease_ = lease.value;
        kept_at_ms_ = now_ms;
        said_.clear();
    }
    gateway_state_t state = state_();
    std::string saying = write_gateway_state(state);
    if (saying == said_) co_return {};
    state.time = time_text();
    const std::string text = write_gateway_state(state);
    etcd_txn_t txn;
    txn.puts = {{keys_.gateway_state(gateway_), text, lease_}, {keys_.gateway_seen(gateway_), text, 0}};
    txn.is_repeatable = true;
    const etcd_result_t<etcd_txn_result_t> put = co_await etcd_.txn(std::move(txn));
    if (put.error) lease_ = 0; /* it may be what is wrong */
    if (put.error) co_return put.error;
    said_ = std::move(saying);
    co_return {};
}
