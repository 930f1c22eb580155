/*
 * The lock of those who push: a key with a lease that is kept alive as long as this lives. What is written under it
 * compares its revision, so who has lost it without knowing changes nothing any more.
 */
#ifndef FLEET_FLEET_LOCK_H
#define FLEET_FLEET_LOCK_H

#include <optional>
#include <string>

#include "fleet/etcd.h"
#include "fleet/fleet_keys.h"

class fleet_lock_t {
public:
    /** `etcd` and `loop` must outlive it. Destroyed without being released, it is there until its lease ends. */
    fleet_lock_t(fwx_host_loop_t *loop, etcd_t &etcd, const fleet_keys_t &keys);
    fleet_lock_t(const fleet_lock_t &) = delete;
    fleet_lock_t &operator=(const fleet_lock_t &) = delete;

    /** Takes it for `who`, or does not: then `holder` says who has it. */
    nat64::task<etcd_error_t> take(std::string who);
    nat64::task<etcd_error_t> release();

    bool is_held() const { return revision_ != 0; }
    /** `ann@ops1 (process 4711) since 2026-01-31T23:59:59.123Z`. */
    const std::string &holder() const { return holder_; }
    /** Holds in a transaction as long as the lock does. */
    etcd_txn_t::compare_t held() const { return {etcd_txn_t::compare_t::what_t::create_revision, key_, "", revision_}; }

private:
    nat64::task<etcd_error_t> look(std::string ours);
    nat64::task<> keep();

    fwx_host_loop_t *loop_;
    etcd_t &etcd_;
    std::string key_;
    int64_t lease_ = 0;    /* 0: none */
    int64_t revision_ = 0; /* at which the key was made; 0: it is not ours */
    std::string holder_;
    std::optional<nat64::task<>> keeper_;
};

#endif
