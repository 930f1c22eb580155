/* Five gateways, each a server and its nat64d, that follow one store. */
#ifndef TESTS_FLEET_GATEWAYS_FIXTURE_H
#define TESTS_FLEET_GATEWAYS_FIXTURE_H

#include <memory>

#include "tests/nat64d/documents.h"
#include "tests/nat64d/process.h"
#include "tests/support/runtime_directory.h"
#include "tests/tools/natctl_fixture.h"
#include "tests/tools/server_process.h"

class gateways_test : public natctl_test {
protected:
    static constexpr size_t count = 5;

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
    static json_t status(size_t i) { return daemon_process_t::status(name(i)); }
    /** True if that version is in force, and the server is in sync with it and has that many pools. */
    bool holds(size_t i, int version, uint32_t pool_count) const {
        return eventually([&] {
            const json_t got = status(i);
            return got.is_object() && got.value("in_step", false) && got.at("store").at("version") == version &&
                   got.at("items") == 3 * pool_count + 1;
        });
    }
    /** Expects the same of all gateways, and of `natctl fleet status`. */
    void expect_all_hold(int version, uint32_t pool_count) const {
        for (size_t i = 0; i < count; ++i) {
            EXPECT_TRUE(holds(i, version, pool_count)) << status(i) << daemons_[i]->log();
            EXPECT_EQ(pools_of(i), pool_count) << name(i);
        }
    }
    void push_to_all(int version, uint32_t pool_count) const {
        EXPECT_TRUE(ends(push(pool_count, "--wait 60s"), 0, ""));
        expect_all_hold(version, pool_count);
    }
    bool logs(size_t i, const std::string &text) const {
        return eventually([&] { return daemons_[i]->log().find(text) != std::string::npos; });
    }
    static size_t pools_of(size_t i) { return data_of("--connect " + name(i) + " stats pools").size(); }
    /** Pushes a document with that many pools. */
    run_t push(uint32_t pool_count, const std::string &more = {}, const char *timeout_ms = "20000") const {
        replace_file(folder() + "/document", document_text(pool_count, 100));
        return run(std::string("--timeout ") + timeout_ms + " fleet push " + folder() + "/document " + more);
    }

    const runtime_directory_t directory_;
    std::string store_;
    std::unique_ptr<server_process_t> servers_[count];
    std::unique_ptr<daemon_process_t> daemons_[count];
};

#endif
