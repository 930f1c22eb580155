/* Fixtures with a loop and, for real_etcd_test, a running etcd. */
#ifndef TESTS_FLEET_STORE_FIXTURE_H
#define TESTS_FLEET_STORE_FIXTURE_H

#include <gtest/gtest.h>

#include "fleet/chunks.h"
#include "fleet/etcd.h"
#include "fleet/manifest.h"
#include "fwx_host/adapter.hpp"
#include "tests/fleet/etcd_process.h"

using kind_t = etcd_error_t::kind_t;

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

inline etcd_txn_t deletion(const std::string &key) {
    etcd_txn_t txn;
    txn.deletes = {key};
    return txn;
}

inline fleet_document_t document_of(const std::string &text, uint64_t version) {
    fleet_document_t document{version, sha256(text), text.size(), 1, "ann@ops1", "2026-01-31T23:59:59.123Z", "", {}};
    for (const std::string_view piece : cut_chunks(text)) {
        document.chunks.push_back(name_chunk(piece));
    }
    return document;
}

/** The text of a manifest that has the document in force for all. */
inline std::string manifest_text(const std::string &text, uint64_t version) {
    return write_manifest({document_of(text, version), {}, {}}, manifest_place_t::current);
}

/** Lets the clock run again that a test has stopped. */
class etcd_test : public testing::Test {
protected:
    ~etcd_test() override { fwx_host_clock_run(); }

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

    /** Runs the loop until a started task is over. */
    template <class value_type>
    bool ends(const nat64::task<value_type> &task) {
        return turn_until([&] { return task.done(); });
    }

    fwx::host::loop loop_;
};

class real_etcd_test : public etcd_test {
protected:
    void SetUp() override { ASSERT_TRUE(process_.is_up()) << process_.log(); }
    /** The value of a metric of etcd; `name` includes the labels. */
    std::string metric(const std::string &name) const { return value_of(process_.get("/metrics"), name); }
    /** The metric that counts the reads of keys. */
    static constexpr const char *key_reads =
        R"(grpc_server_handled_total{grpc_code="OK",grpc_method="Range",grpc_service="etcdserverpb.KV",)"
        R"(grpc_type="unary"})";

    etcd_process_t process_;
    etcd_t etcd_{loop_, store_at({process_.place()})};
};

#endif
