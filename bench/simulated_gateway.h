/* A gateway without a server: the client, the watch, the lease and the state that nat64d has. Instead of a document it
 * holds the names of its chunks; each chunk that is fetched is checked by its hash, and the whole is not put together.
 */
#ifndef BENCH_SIMULATED_GATEWAY_H
#define BENCH_SIMULATED_GATEWAY_H

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fwx_host/adapter.hpp"
#include "tools/fleet/manifest_watch.h"
#include "tools/nat64d/gateway_herald.h"
#include "tools/pal/spread.h"

inline double seconds_now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/** The chunks of a document, which all gateways that hold it share. */
using names_t = std::shared_ptr<const std::set<std::string>>;

inline names_t names_of(const fleet_document_t &document) {
    static std::string hash;
    static names_t names;
    if (hash == document.hash) return names;
    std::set<std::string> made;
    for (const chunk_t &chunk : document.chunks) {
        made.insert(chunk.hash);
    }
    hash = document.hash;
    return names = std::make_shared<const std::set<std::string>>(std::move(made));
}

class simulated_gateway_t {
public:
    /** `held`: the names of what it has kept; null: nothing. */
    simulated_gateway_t(fwx_host_loop_t *loop, const store_t &store, size_t number, names_t held)
        : loop_(loop),
          etcd_(loop, store),
          name_("gateway" + std::to_string(number)),
          held_(std::move(held)),
          herald_(
              loop, etcd_, name_, [this] { return state(); }, [this](const etcd_error_t &error) { told(error); }) {}

    void start() {
        run_.emplace(run());
        run_->start();
        herald_.start();
    }
    uint64_t version() const { return version_; }
    /** When it had the chunks of that. */
    double arrived_s() const { return arrived_s_; }
    uint64_t told_version() const { return told_version_; }
    /** When the store had its word of that. */
    double told_s() const { return told_s_; }
    uint64_t failures() const { return failures_; }

private:
    gateway_state_t state() {
        telling_version_ = version_;
        gateway_state_t state;
        state.gateway = name_;
        state.server = "simulated";
        state.version = version_;
        state.document = document_;
        state.is_in_step = version_ != 0;
        return state;
    }

    void told(const etcd_error_t &error) {
        const bool is_news = !error && told_version_ != telling_version_;
        if (error) ++failures_;
        if (!is_news) return;
        told_version_ = telling_version_;
        told_s_ = seconds_now();
    }

    nat64::task<> run() {
        for (uint64_t pause_ms = 500;; pause_ms = std::min<uint64_t>(2 * pause_ms, 5000)) {
            co_await follow();
            ++failures_;
            co_await fwx::host::sleep(loop_, std::chrono::milliseconds(spread(pause_ms)));
        }
    }

    /** Until something goes wrong. */
    nat64::task<> follow() {
        manifest_watch_t watch(etcd_, keys_);
        for (;;) {
            const etcd_result_t<manifest_read_t> read = co_await watch.next();
            if (read.error) co_return;
            if (!read.value.manifest) continue;
            const fleet_document_t &document = read.value.manifest->document;
            std::vector<chunk_t> missing;
            for (const chunk_t &chunk : document.chunks) {
                const bool is_there = (held_ && held_->contains(chunk.hash)) || fetched_.contains(chunk.hash);
                if (!is_there) missing.push_back(chunk);
            }
            const etcd_error_t error = co_await fetch_chunks(
                etcd_, keys_, std::move(missing),
                [this](const chunk_t &chunk, const std::string &) { fetched_.insert(chunk.hash); });
            if (error) co_return;
            arrived_s_ = seconds_now();
            held_ = names_of(document);
            fetched_.clear();
            version_ = document.version;
            document_ = document.hash;
            herald_.changed();
        }
    }

    fwx_host_loop_t *loop_;
    etcd_t etcd_;
    const std::string name_;
    const fleet_keys_t keys_{etcd_.store().prefix};
    names_t held_;
    std::set<std::string> fetched_; /* of a document that is not whole yet */
    uint64_t version_ = 0;
    std::string document_;
    double arrived_s_ = 0;
    uint64_t telling_version_ = 0; /* that it says now, or said last */
    uint64_t told_version_ = 0;
    double told_s_ = 0;
    uint64_t failures_ = 0;
    gateway_herald_t herald_;
    std::optional<nat64::task<>> run_;
};

#endif
