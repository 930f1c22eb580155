/* No fault of the store may cost a gateway its configuration. */
#include <climits>

#include "fleet/fleet_keys.h"
#include "fleet/manifest.h"
#include "tests/fleet/gateways_fixture.h"
#include "tests/fleet/store_fixture.h"
#include "tests/support/other_client.h"

namespace {

class gateway_test : public gateways_test {
protected:
    explicit gateway_test(std::vector<std::string> more = {}) : etcd_(std::move(more)) {}
    void SetUp() override {
        ASSERT_TRUE(etcd_.is_up()) << etcd_.log();
        start_gateways(etcd_.url("p"));
    }

    /** Runs etcdctl. */
    int etcdctl(const std::string &words) const {
        const std::string command =
            "ETCDCTL_API=3 " ETCDCTL_PATH " --endpoints " + etcd_.place() + ' ' + words + " >/dev/null 2>&1";
        return std::system(command.c_str());
    }
    /** Makes etcd compact its history. */
    bool compact() const {
        const fwx::host::loop loop;
        etcd_t etcd(loop, store_at({etcd_.place()}));
        return etcdctl("compaction --physical " + std::to_string(loop.run(etcd.get("p")).value.revision)) == 0;
    }
    void put_key(const std::string &key, const std::string &value) const {
        const fwx::host::loop loop;
        etcd_t etcd(loop, store_at({etcd_.place()}));
        ASSERT_FALSE(loop.run(etcd.txn(put(key, value))).error);
    }
    std::string key(const std::string &key) const {
        const fwx::host::loop loop;
        etcd_t etcd(loop, store_at({etcd_.place()}));
        const auto got = loop.run(etcd.get(key));
        return got.value.entries.empty() ? "" : got.value.entries.front().value;
    }

    etcd_process_t etcd_;
    const fleet_keys_t keys_{"p"};
};

TEST_F(gateway_test, all_follow_a_push_and_a_stage_is_for_those_it_names) {
    EXPECT_EQ(push(pools(3), "--wait 60s").answers,
              "fleet push: ok, version 1, 1 of 1 chunk put, 5 gateways in step\n");
    expect_all_hold(1, 3);
    EXPECT_EQ(push(pools(4), "--to g2 --to g4 --wait 60s").status, 0);
    EXPECT_TRUE(holds(1, 2, 4) && holds(3, 2, 4));
    EXPECT_TRUE(holds(0, 1, 3) && holds(2, 1, 3) && holds(4, 1, 3));
    EXPECT_EQ(push(pools(5), "--wait 60s").status, 0);
    expect_all_hold(3, 5);
    EXPECT_EQ(run("fleet rollback 1 --wait 60s").status, 0);
    expect_all_hold(4, 3);

    const json_t row = json_t::parse(run("--json fleet status").answers).at("data").at(2);
    EXPECT_EQ(row.at("gateway"), "g3");
    EXPECT_GE(row.at("lease_s").get<int>(), 1) << row;
    EXPECT_LE(row.at("lease_s").get<int>(), 10) << row;

    const std::string metrics = daemons_[0]->get("/metrics");
    EXPECT_NE(metrics.find("\nnat64_store_up 1\n"), std::string::npos);
    EXPECT_NE(metrics.find("\nnat64_store_version 4\n"), std::string::npos);
    EXPECT_NE(metrics.find("\nnat64_store_confirmed_timestamp_seconds 1"), std::string::npos);
    daemons_[4]->end(SIGKILL);
    EXPECT_TRUE(eventually([] {
        const json_t rows = json_t::parse(run("--json fleet status").answers).at("data");
        return rows.size() == count && rows[4].at("alive") == false && rows[3].at("alive") == true;
    })) << "a gateway that is gone is seen";
    char host[HOST_NAME_MAX + 1] = "";
    ASSERT_EQ(gethostname(host, sizeof host), 0);
    const daemon_process_t nameless({name(4), "--config", store_}, folder() + "/log");
    EXPECT_TRUE(eventually([&] {
        const std::string rows = run("--json fleet status").answers;
        return rows.find("\"gateway\":\"" + std::string(host) + '"') != std::string::npos;
    })) << "it has the name of the machine: "
        << nameless.log();
}

TEST_F(gateway_test, a_store_that_dies_stands_still_or_forgets_is_followed_again) {
    ASSERT_EQ(push(pools(3), "--wait 60s").status, 0);
    etcd_.end(SIGKILL);
    EXPECT_EQ(push(pools(4)).status, 4);
    EXPECT_TRUE(eventually([] { return !status(0).at("store").value("up", true); })) << status(0).dump();
    EXPECT_NE(daemons_[0]->get("/healthz").find("in step; the store does not confirm the document: "),
              std::string::npos);
    EXPECT_NE(daemons_[0]->get("/metrics").find("\nnat64_store_up 0\n"), std::string::npos);
    const run_t reloaded = run("--connect " + name(0) + " daemon reload");
    EXPECT_EQ(reloaded.status, 1);
    EXPECT_NE(reloaded.notes.find("the store does not confirm the document: "), std::string::npos) << reloaded.notes;
    /* A gateway that starts now uses the last document that it has fetched. */
    daemons_[1]->end(SIGTERM);
    start_daemon(1);
    EXPECT_TRUE(holds(1, 1, 3)) << daemons_[1]->log();
    EXPECT_NE(daemons_[1]->log().find("event=store_unreachable document=\"version 1\""), std::string::npos);
    /* A server that starts now gets this document. */
    servers_[2].reset();
    servers_[2] = std::make_unique<server_process_t>("", RLIM_INFINITY, name(2));
    expect_all_hold(1, 3);
    /* A gateway whose stored document is damaged does not use it. */
    daemons_[4]->end(SIGTERM);
    std::ofstream(folder() + "/state/natctl/" + name(4) + "/store_document", std::ios::app)
        << "pool add --id 9 --param 1 --start 10.0.9.1 --end 10.0.9.1\n";
    start_daemon(4);
    EXPECT_TRUE(eventually([&] { return daemons_[4]->log().find("damaged, and ignored") != std::string::npos; }))
        << daemons_[4]->log();
    EXPECT_EQ(pools_of(4), 3U);
    ASSERT_TRUE(etcd_.start()) << etcd_.log();
    EXPECT_EQ(push(pools(4), "--wait 60s").status, 0);
    expect_all_hold(2, 4);

    /* A gateway that was stopped then asks for a revision that has been compacted. */
    daemons_[3]->signal(SIGSTOP);
    for (int pool_count = 5; pool_count <= 8; ++pool_count) {
        ASSERT_EQ(push(pools(pool_count)).status, 0);
    }
    ASSERT_TRUE(compact());
    etcd_.end(SIGKILL); /* ends the connection of its watch */
    ASSERT_TRUE(etcd_.start());
    daemons_[3]->signal(SIGCONT);
    expect_all_hold(6, 8);

    etcd_.signal(SIGSTOP);
    EXPECT_TRUE(eventually([] { return !status(4).at("store").value("up", true); })) << "it answers nothing";
    expect_all_hold(6, 8);
    etcd_.signal(SIGCONT);
    EXPECT_EQ(push(pools(9), "--wait 60s").status, 0);
    expect_all_hold(7, 9);
}

TEST_F(gateway_test, faulty_data_in_the_store_changes_nothing_and_is_reported) {
    ASSERT_EQ(push(pools(3), "--wait 60s").status, 0);
    const std::string good = key(keys_.manifest());
    const std::string chunk = "pool add --id 9 --param 1 --start 10.9.9.9 --end 10.9.9.9\n";
    const auto manifest_of = [&](const std::string &text, uint64_t version) {
        manifest_t manifest;
        manifest.document = {version, sha256(text), text.size(), 1, "eve@x", "2026-01-31T23:59:59.123Z", "", {}};
        manifest.document.chunks = {name_chunk(text)};
        return write_manifest(manifest, manifest_place_t::current);
    };
    struct case_t {
        std::string manifest;
        std::string chunk; /* value of the chunk's key; empty: there is no such key */
        std::string reason;
    };
    const case_t cases[] = {
        {"{\"format\":2}", "", "format"},
        {"not JSON", "", "JSON"},
        {manifest_of("pool add --id 9\n", 4), "pool add --id 9\n", "--param is required"},
        {manifest_of(chunk, 2), "", "chunk"},
        {manifest_of(chunk, 3), chunk + chunk, "chunk"},
    };
    for (const case_t &each : cases) {
        SCOPED_TRACE(each.manifest);
        if (!each.chunk.empty()) {
            const bool is_whole = each.manifest.find(sha256(each.chunk)) != std::string::npos;
            put_key(keys_.chunk(sha256(is_whole ? each.chunk : chunk)), each.chunk);
        }
        put_key(keys_.manifest(), each.manifest);
        for (size_t i = 0; i < count; ++i) {
            EXPECT_TRUE(eventually([&] {
                const json_t got = status(i);
                return got.is_object() && got.value("refused_reason", "").find(each.reason) != std::string::npos;
            })) << status(i);
            EXPECT_TRUE(holds(i, 1, 3));
            EXPECT_EQ(pools_of(i), 3U);
        }
        const bool is_manifest = each.manifest.find("version") != std::string::npos;
        EXPECT_TRUE(!is_manifest || eventually([&] {
            return run("fleet status").answers.find(each.reason) != std::string::npos;
        })) << run("fleet status").answers;
    }
    put_key(keys_.manifest(), good); /* the gateways would notice it only after a while */
    for (size_t i = 0; i < count; ++i) {
        const run_t reloaded = run("--connect " + name(i) + " daemon reload");
        EXPECT_EQ(reloaded.status, 0) << "it answers when that one is in force: " << reloaded.notes;
    }
    EXPECT_EQ(push(pools(4), "--wait 60s").status, 0);
    for (size_t i = 0; i < count; ++i) {
        EXPECT_TRUE(eventually([&] { return pools_of(i) == 4; })) << status(i);
    }
}

TEST_F(gateway_test, a_document_that_one_server_refuses_is_rolled_back_only_there) {
    ASSERT_EQ(push(pools(3), "--wait 60s").status, 0);
    /* Another client adds a pool to one server that conflicts with the next document. */
    ASSERT_TRUE(others_add_pool(900, "10.0.0.5", "g3"));
    const run_t pushed = push(pools(5), "--wait 60s");
    EXPECT_EQ(pushed.status, 1);
    EXPECT_NE(pushed.notes.find("refused by g3: refused version 2: pool add --id 5"), std::string::npos)
        << pushed.notes;
    for (const size_t i : {0U, 1U, 3U, 4U}) {
        EXPECT_TRUE(holds(i, 2, 5)) << status(i);
    }
    EXPECT_TRUE(holds(2, 1, 3)) << status(2);
    EXPECT_EQ(pools_of(2), 4U) << "its three, and somebody's";
    daemons_[2]->end(SIGTERM);
    start_daemon(2);
    EXPECT_TRUE(eventually([] { return status(2).value("refused_reason", "").find("pool add") != std::string::npos; }));
    EXPECT_TRUE(holds(2, 1, 3)) << "a restart forgets nothing: " << status(2);
    EXPECT_EQ(push(pools(4), "--wait 60s").status, 0) << "the next one is good again";
    EXPECT_TRUE(holds(2, 3, 4)) << status(2);
    EXPECT_FALSE(status(2).at("store").contains("refused_version")) << status(2);
}

class full_store_test : public gateway_test {
protected:
    full_store_test() : gateway_test({"--quota-backend-bytes", "1200000"}) {}
};

TEST_F(full_store_test, a_store_that_is_full_refuses_pushes_and_gateways_stay) {
    ASSERT_EQ(push(pools(3), "--wait 60s").status, 0);
    for (int i = 0;
         i < 20 && etcdctl("put filler/" + std::to_string(i) + " $(head -c 100000 /dev/zero | tr '\\0' x)") == 0; ++i) {
    }
    const run_t refused = push(pools(4));
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.notes.find("space"), std::string::npos) << refused.notes;
    expect_all_hold(1, 3);
    ASSERT_EQ(etcdctl("del --prefix filler/"), 0);
    ASSERT_TRUE(compact());
    ASSERT_EQ(etcdctl("defrag"), 0);
    ASSERT_EQ(etcdctl("alarm disarm"), 0);
    EXPECT_EQ(push(pools(4), "--wait 60s").status, 0);
    expect_all_hold(2, 4);
}

}  // namespace
