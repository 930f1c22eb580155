/* Five gateways, each a server and its nat64d, that follow one store. */
#ifndef TESTS_FLEET_GATEWAYS_FIXTURE_H
#define TESTS_FLEET_GATEWAYS_FIXTURE_H

#include <memory>

#include "tests/nat64d/process.h"
#include "tests/support/runtime_directory.h"
#include "tests/tools/natctl_fixture.h"
#include "tests/tools/server_process.h"

/** A document with that many pools, numbered from 1. */
inline std::string pools(int count) {
    std::string text;
    for (int id = 1; id <= count; ++id) {
        const std::string address = "10.0." + std::to_string(id / 256) + '.' + std::to_string(id % 256);
        text.append("pool add --id ").append(std::to_string(id)).append(" --param 1");
        text.append(" --start ").append(address).append(" --end ").append(address).append("\n");
    }
    return text;
}

class gateways_test : public natctl_test {
protected:
    static constexpr size_t count = 5;

    gateways_test() { setenv("XDG_STATE_HOME", (folder() + "/state").c_str(), 1); }
    ~gateways_test() override {
        unsetenv("XDG_STATE_HOME");
        unsetenv("NATCTL_STORE");
    }
    /** Starts all at a store, which is natctl's too. */
    void start_gateways(const std::string &store) {
        store_ = store;
        setenv("NATCTL_STORE", store.c_str(), 1);
        for (size_t i = 0; i < count; ++i) {
            servers_[i] = std::make_unique<server_process_t>("", RLIM_INFINITY, name(i));
            start_daemon(i);
        }
    }

    const std::string &folder() const { return directory_.path(); }
    static std::string name(size_t i) { return std::string("g").append(std::to_string(i + 1)); }
    void start_daemon(size_t i) {
        daemons_[i] = std::make_unique<daemon_process_t>(
            std::vector<std::string>{name(i), "--config", store_, "--gateway", name(i)}, folder() + "/log" + name(i));
    }
    static json_t status(size_t i) { return daemon_process_t::ask("status", name(i)); }
    /** True if that version is in force, and the server is in sync with it and has that many pools. */
    bool holds(size_t i, int version, int pool_count) const {
        return eventually([&] {
            const json_t got = status(i);
            return got.is_object() && got.value("in_step", false) && got.at("store").at("version") == version &&
                   got.at("items") == pool_count;
        });
    }
    /** Expects the same of all gateways, and of `natctl fleet status`. */
    void expect_all_hold(int version, int pool_count) const {
        for (size_t i = 0; i < count; ++i) {
            EXPECT_TRUE(holds(i, version, pool_count)) << status(i) << daemons_[i]->log();
            EXPECT_EQ(pools_of(i), static_cast<size_t>(pool_count)) << name(i);
        }
    }
    static size_t pools_of(size_t i) {
        return json_t::parse(run("--json --connect " + name(i) + " stats pools").answers).at("data").size();
    }
    run_t push(const std::string &text, const std::string &more = {}, const char *timeout_ms = "20000") const {
        replace_file(folder() + "/document", text);
        return run(std::string("--timeout ") + timeout_ms + " fleet push " + folder() + "/document " + more);
    }

    const runtime_directory_t directory_;
    std::string store_;
    std::unique_ptr<server_process_t> servers_[count];
    std::unique_ptr<daemon_process_t> daemons_[count];
};

#endif
