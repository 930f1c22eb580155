/* Implements gateway_heartbeat.h: gets a lease, keeps it alive, and writes the state when it has changed. */
#include "tools/nat64d/gateway_heartbeat.h"

#include "fwx_host/loop.h"
#include "net/jitter.h"
#include "state/time_text.h"
#include "tools/nat64d/log.h"

gateway_heartbeat_t::gateway_heartbeat_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string gateway, state_fn_t state,
                                         asked_fn_t asked)
    : etcd_(etcd),
      keys_(etcd.store().prefix),
      gateway_(std::move(gateway)),
      state_(std::move(state)),
      asked_(std::move(asked)),
      bell_(loop) {}

void gateway_heartbeat_t::start() {
    run_.emplace(run());
    run_->start();
}

nat64::task<> gateway_heartbeat_t::run() {
    std::string last_error;
    backoff_t backoff(keep_lease_ms / 3);
    for (;;) {
        tried_ = write_gateway_state(state_());
        const bool must_ask = is_due();
        etcd_error_t error;
        if (must_ask) error = co_await report();
        if (error && error.text != last_error) log_event(log_level_t::warning, "unheard", {{"reason", error.text}});
        last_error = error.text;
        if (must_ask) asked_(error);
        const uint64_t now_ms = fwx_host_clock_ms();
        const uint64_t until_due_ms = keep_at_ms_ > now_ms ? keep_at_ms_ - now_ms : 0;
        if (!error) backoff.reset();
        const bool is_of_rights = error.kind == etcd_error_t::kind_t::rights;
        co_await bell_.wait(error ? backoff.next(is_of_rights ? rights_pause_ms : keep_lease_ms) : until_due_ms);
    }
}

bool gateway_heartbeat_t::is_due() const {
    return lease_ == 0 || fwx_host_clock_ms() >= keep_at_ms_ || tried_ != reported_;
}

/** Sends a keep-alive if one is due, and the state if it has changed. */
nat64::task<etcd_error_t> gateway_heartbeat_t::report() {
    const uint64_t now_ms = fwx_host_clock_ms();
    if (lease_ != 0 && now_ms >= keep_at_ms_) {
        const etcd_result_t<uint32_t> left = co_await etcd_.keep_lease(lease_);
        if (left.error) co_return left.error;
        keep_at_ms_ = now_ms + jitter(keep_lease_ms);
        if (left.value == 0) lease_ = 0;
    }
    if (lease_ == 0) {
        const etcd_result_t<int64_t> lease = co_await etcd_.grant_lease(gateway_lease_s);
        if (lease.error) co_return lease.error;
        lease_ = lease.value;
        keep_at_ms_ = now_ms + jitter(keep_lease_ms);
        reported_.clear();
    }
    gateway_state_t state = state_();
    std::string reported = write_gateway_state(state);
    if (reported == reported_) co_return {};
    state.time = time_text();
    const std::string text = write_gateway_state(state);
    etcd_txn_t txn;
    txn.puts = {{keys_.gateway_state(gateway_), text, lease_}, {keys_.gateway_seen(gateway_), text, 0}};
    txn.is_repeatable = true;
    const etcd_result_t<etcd_txn_result_t> put = co_await etcd_.txn(std::move(txn));
    const bool may_be_lease = put.error.kind == etcd_error_t::kind_t::other;
    if (may_be_lease) lease_ = 0; /* for errors of a known kind a new lease would not help */
    if (put.error) co_return put.error;
    reported_ = std::move(reported);
    co_return {};
}
