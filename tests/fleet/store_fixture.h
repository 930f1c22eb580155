/* Fixtures with a loop and, for real_etcd_test, a running etcd. */
#ifndef TESTS_FLEET_STORE_FIXTURE_H
#define TESTS_FLEET_STORE_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fleet/etcd.h"
#include "fwx_host/adapter.hpp"
#include "tests/fleet/etcd_process.h"

inline store_t store_at(const std::vector<std::string> &places) {
    store_t store;
    for (const std::string &place : places) {
        store.endpoints.push_back("http://" + place);
    }
    store.prefix = "p";
    return store;
}

inline etcd_txn_t put(const std::string &key, const std::string &value, int64_t lease = 0) {
    etcd_txn_t txn;
    txn.puts = {{key, value, lease}};
    return txn;
}

class etcd_test : public testing::Test {
protected:
    /** The entries of a result, each as `key=value`. */
    static std::string text_of(const etcd_result_t<etcd_range_t> &range) {
        if (range.error) return range.error.text;
        std::string text;
        for (const etcd_entry_t &entry : range.value.entries) {
            text += entry.key + '=' + entry.value + ' ';
        }
        return text;
    }
    template <class value_type>
    value_type run(nat64::task<value_type> task) {
        return loop_.run(std::move(task));
    }
    /** Runs the loop until a condition is true. */
    template <class condition_t>
    bool turn_until(condition_t condition) {
        return eventually([&] {
            fwx_host_loop_run_once(loop_, 5);
            return condition();
        });
    }

    fwx::host::loop loop_;
};

class real_etcd_test : public etcd_test {
protected:
    void SetUp() override { ASSERT_TRUE(process_.is_up()) << process_.log(); }
    /** The value of a metric of etcd; `name` includes the labels. */
    std::string metric(const std::string &name) const {
        const std::string metrics = process_.get("/metrics");
        const size_t at = metrics.find('\n' + name + ' ');
        const size_t value = at + name.size() + 2;
        return at == std::string::npos ? "none" : metrics.substr(value, metrics.find('\n', value) - value);
    }
    /** The metric that counts the reads of keys. */
    static constexpr const char *key_reads =
        R"(grpc_server_handled_total{grpc_code="OK",grpc_method="Range",grpc_service="etcdserverpb.KV",)"
        R"(grpc_type="unary"})";

    etcd_process_t process_;
    etcd_t etcd_{loop_, store_at({process_.place()})};
};

#endif
