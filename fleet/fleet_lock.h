/*
 * The lock of pushers: a key in the store with a lease, which is kept alive as long as this object exists. Every
 * transaction under the lock compares the revision of this key. A process that has lost the lock without noticing
 * therefore cannot change anything.
 */
#ifndef FLEET_FLEET_LOCK_H
#define FLEET_FLEET_LOCK_H

#include <optional>
#include <string>

#include "fleet/etcd.h"
#include "fleet/fleet_keys.h"

class fleet_lock_t {
public:
    /** `etcd` and `loop` must outlive this object. If destroyed without `release`, the lock ends with its lease. */
    fleet_lock_t(fwx_host_loop_t *loop, etcd_t &etcd, const fleet_keys_t &keys);
    fleet_lock_t(const fleet_lock_t &) = delete;
    fleet_lock_t &operator=(const fleet_lock_t &) = delete;

    /** Tries to take the lock for `who`. If another process has it, there is no error, but `is_held` is false and
     * `holder` names that process. */
    nat64::task<etcd_error_t> take(std::string who);
    nat64::task<etcd_error_t> release();

    bool is_held() const { return revision_ != 0; }
    /** The holder found by `take`: `ann@ops1 (process 4711) since 2026-01-31T23:59:59.123Z`. */
    const std::string &holder() const { return holder_; }
    /** A comparison for transactions, true as long as this process has the lock. */
    etcd_txn_t::compare_t held() const { return {etcd_txn_t::compare_t::what_t::create_revision, key_, "", revision_}; }

private:
    nat64::task<etcd_error_t> look(std::string ours);
    nat64::task<> keep();

    fwx_host_loop_t *loop_;
    etcd_t &etcd_;
    std::string key_;
    int64_t lease_ = 0;    /* 0: none */
    int64_t revision_ = 0; /* create revision of the key; 0: this process does not have the lock */
    std::string holder_;
    std::optional<nat64::task<>> keeper_;
};

#endif
