/* The lock's key has a value that no other process writes, so that a lost answer to `take` can be resolved by reading
 * it. */
#include "fleet/fleet_lock.h"

#include <sys/random.h>
#include <unistd.h>

#include <cstdio>

#include "fwx_host/adapter.hpp"
#include "net/json.h"
#include "state/time_text.h"

namespace {

/** A random text, or the time if there is no randomness. */
std::string unique_text() {
    uint64_t number = 0;
    const bool is_random = getrandom(&number, sizeof number, 0) == sizeof number;
    char text[17];
    snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(number));
    return is_random ? text : time_text();
}

std::string holder_text(const std::string &value) {
    constexpr size_t most_word_bytes = 320;
    const json_t json = json_t::parse(value);
    json_members_t members(json);
    const std::string who = members.line("holder", most_word_bytes);
    const uint64_t process = members.number("process", 1, UINT32_MAX);
    const std::string since = members.line("since", most_word_bytes);
    if (!members.is_good()) return "somebody unknown";
    return who + " (process " + std::to_string(process) + ") since " + since;
}

}  // namespace

fleet_lock_t::fleet_lock_t(fwx_host_loop_t *loop, etcd_t &etcd, const fleet_keys_t &keys)
    : loop_(loop), etcd_(etcd), key_(keys.lock()) {}

nat64::task<etcd_error_t> fleet_lock_t::take(std::string who) {
    const etcd_result_t<int64_t> lease = co_await etcd_.grant_lease(pusher_lease_s);
    if (lease.error) co_return lease.error;
    lease_ = lease.value;
    const json_t value = {{"holder", who}, {"process", getpid()}, {"since", time_text()}, {"id", unique_text()}};
    const std::string ours = value.dump();
    etcd_txn_t txn;
    txn.compares = {{etcd_txn_t::compare_t::what_t::create_revision, key_, "", 0}};
    txn.puts = {{key_, ours, lease_}};
    txn.is_repeatable = true; /* the value is unique, so `look` recognises it */
    const etcd_result_t<etcd_txn_result_t> put = co_await etcd_.txn(std::move(txn));
    etcd_error_t error = put.error;
    const bool may_be_done = !error || error.kind == etcd_error_t::kind_t::no_answer;
    if (may_be_done) {
        const etcd_error_t unknown = co_await look(ours);
        const bool is_resolved = !unknown && !holder_.empty();
        if (!error || is_resolved) error = unknown;
        if (holder_.empty()) holder_ = "somebody else";
    }
    if (is_held()) {
        keeper_.emplace(keep());
        keeper_->start();
    } else {
        static_cast<void>(co_await etcd_.revoke_lease(std::exchange(lease_, 0)));
    }
    co_return error;
}

/** Reads the key and finds out which process has the lock. */
nat64::task<etcd_error_t> fleet_lock_t::look(std::string ours) {
    const etcd_result_t<etcd_range_t> now = co_await etcd_.get(key_);
    if (now.error) co_return now.error;
    const bool is_there = !now.value.entries.empty();
    const bool is_ours = is_there && now.value.entries.front().value == ours;
    if (is_ours) revision_ = now.value.entries.front().create_revision;
    holder_ = is_there ? holder_text(now.value.entries.front().value) : "";
    co_return etcd_error_t{};
}

nat64::task<etcd_error_t> fleet_lock_t::release() {
    keeper_.reset();
    revision_ = 0;
    const int64_t lease = std::exchange(lease_, 0);
    if (lease == 0) co_return etcd_error_t{};
    const etcd_result_t<bool> ended = co_await etcd_.revoke_lease(lease);
    co_return ended.error;
}

/** Sends the keep-alives. Goes on after an error, because it may be temporary. Ends with the lease; the next
 * transaction then fails, because the lock's key is deleted with the lease. */
nat64::task<> fleet_lock_t::keep() {
    for (bool is_there = true; is_there;) {
        fwx::host::sleep pause(loop_, std::chrono::milliseconds(keep_lease_ms));
        co_await pause;
        const etcd_result_t<uint32_t> left = co_await etcd_.keep_lease(lease_);
        is_there = left.error || left.value != 0;
    }
}
