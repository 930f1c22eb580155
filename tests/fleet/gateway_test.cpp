/* No fault of the store may cost a gateway its configuration. */
#include <climits>

#include "fleet/fleet_keys.h"
#include "tests/fleet/gateways_fixture.h"
#include "tests/fleet/store_fixture.h"
#include "tests/support/other_client.h"

namespace {

class gateway_test : public gateways_test {
protected:
    void SetUp() override {
        ASSERT_TRUE(etcd_.is_up()) << etcd_.log();
        start_gateways(etcd_.url("p"));
    }

    etcd_process_t etcd_;
    const fleet_keys_t keys_{"p"};
};

TEST_F(gateway_test, all_follow_a_push_and_a_stage_is_for_those_it_names) {
    EXPECT_EQ(push(3, "--wait 60s").answers, "fleet push: ok, version 1, 4 of 4 chunks put, 5 gateways in step\n");
    expect_all_hold(1, 3);
    EXPECT_EQ(push(4, "--to g2 --to g4 --wait 60s").status, 0);
    EXPECT_TRUE(holds(1, 2, 4) && holds(3, 2, 4));
    EXPECT_TRUE(holds(0, 1, 3) && holds(2, 1, 3) && holds(4, 1, 3));
    push_to_all(3, 5);
    EXPECT_EQ(run("fleet rollback 1 --wait 60s").status, 0);
    expect_all_hold(4, 3);

    const json_t row = data_of("fleet status").at(2);
    EXPECT_EQ(row.at("gateway"), "g3");
    EXPECT_GE(row.at("lease_s").get<int>(), 1) << row;
    EXPECT_LE(row.at("lease_s").get<int>(), 10) << row;

    const std::string metrics = daemons_[0]->get("/metrics");
    EXPECT_NE(metrics.find("\nnat64_store_up 1\n"), std::string::npos);
    EXPECT_NE(metrics.find("\nnat64_store_version 4\n"), std::string::npos);
    EXPECT_NE(metrics.find("\nnat64_store_confirmed_timestamp_seconds 1"), std::string::npos);
    daemons_[4]->end(SIGKILL);
    const fwx::host::loop loop;
    etcd_t client(loop, store_at({etcd_.place()}));
    const auto state = loop.run(client.get(keys_.gateway_state(name(4))));
    ASSERT_TRUE(loop.run(client.revoke_lease(state.value.entries.at(0).lease)).value) << "as after its 10 s";
    const json_t rows = data_of("fleet status");
    ASSERT_EQ(rows.size(), count);
    EXPECT_TRUE(rows[4].at("alive") == false && rows[3].at("alive") == true) << rows;
    char host[HOST_NAME_MAX + 1] = "";
    ASSERT_EQ(gethostname(host, sizeof host), 0);
    const daemon_process_t nameless({name(4), "--config", store_}, folder() + "/log");
    EXPECT_TRUE(eventually([&] {
        const std::string shown = run("--json fleet status").answers;
        return shown.find("\"gateway\":\"" + std::string(host) + '"') != std::string::npos;
    })) << "it has the name of the machine: "
        << nameless.log();
}

TEST_F(gateway_test, a_store_that_dies_or_forgets_is_followed_again) {
    push_to_all(1, 3);
    etcd_.end(SIGKILL);
    EXPECT_TRUE(eventually([] { return !status(0).at("store").value("up", true); })) << status(0);
    const std::string doubt = "the store does not confirm the document: ";
    EXPECT_NE(daemons_[0]->get("/healthz").find("in step; " + doubt), std::string::npos);
    EXPECT_NE(daemons_[0]->get("/metrics").find("\nnat64_store_up 0\n"), std::string::npos);
    EXPECT_TRUE(ends(run("--connect g1 daemon reload"), 1, doubt));
    /* A gateway that starts now uses the last document that it has fetched, unless the stored one is damaged. */
    daemons_[1]->end(SIGTERM);
    start_daemon(1);
    daemons_[4]->end(SIGTERM);
    std::ofstream(folder() + "/state/natctl/g5/store_document", std::ios::app)
        << "pool add --id 9 --param 1 --start 10.0.9.1 --end 10.0.9.1\n";
    start_daemon(4);
    EXPECT_TRUE(logs(4, "damaged, and ignored"));
    EXPECT_EQ(pools_of(4), 3U);
    EXPECT_TRUE(holds(1, 1, 3)) << daemons_[1]->log();
    EXPECT_TRUE(logs(1, "event=store_unreachable document=\"version 1\""));
    ASSERT_TRUE(etcd_.start()) << etcd_.log();
    push_to_all(2, 4);

    /* A gateway that was stopped then asks for a revision that has been compacted. */
    daemons_[3]->signal(SIGSTOP);
    ASSERT_EQ(push(5).status, 0);
    ASSERT_TRUE(etcd_.compact()) << etcd_.log();
    etcd_.end(SIGKILL); /* ends the connection of its watch */
    ASSERT_TRUE(etcd_.start());
    daemons_[3]->signal(SIGCONT);
    expect_all_hold(3, 5);
}

TEST_F(gateway_test, faulty_data_in_the_store_changes_nothing_and_is_reported) {
    push_to_all(1, 3);
    const fwx::host::loop loop;
    etcd_t client(loop, store_at({etcd_.place()}));
    const std::string good = loop.run(client.get(keys_.manifest())).value.entries.at(0).value;
    const std::string wrong = "pool add --id 9\n";
    const std::string right = "pool add --id 9 --param 1 --start 10.9.9.9 --end 10.9.9.9\n";
    ASSERT_TRUE(etcd_.put(keys_.chunk(sha256(wrong)), wrong));
    ASSERT_TRUE(etcd_.put(keys_.chunk(sha256(right)), right + right));
    const std::pair<std::string, std::string> cases[] = {{"{\"format\":2}", "format"},
                                                         {manifest_text(wrong, 4), "--param is required"},
                                                         {manifest_text(right, 3), "chunk"}};
    for (const auto &[manifest, reason] : cases) {
        SCOPED_TRACE(manifest);
        ASSERT_TRUE(etcd_.put(keys_.manifest(), manifest));
        const auto is_told = [&reason = reason](const std::string &text) {
            return text.find(reason) != std::string::npos;
        };
        for (size_t i = 0; i < count; ++i) {
            EXPECT_TRUE(eventually([&] { return is_told(status(i).value("refused_reason", "")); })) << status(i);
        }
        expect_all_hold(1, 3);
        const bool is_shown = reason != "format"; /* by natctl, because the manifest can be read */
        EXPECT_TRUE(!is_shown || eventually([&] { return is_told(run("fleet status").answers); }))
            << run("fleet status").answers;
    }
    ASSERT_TRUE(etcd_.put(keys_.manifest(), good)); /* the gateways would notice it only after a while */
    for (size_t i = 0; i < count; ++i) {
        EXPECT_TRUE(ends(run("--connect " + name(i) + " daemon reload"), 0, ""))
            << "it answers when that one is in force";
    }
    push_to_all(2, 4);
}

TEST_F(gateway_test, a_document_that_one_server_refuses_is_rolled_back_only_there) {
    push_to_all(1, 3);
    /* Another client adds a pool to one server that conflicts with the next document. */
    ASSERT_TRUE(others_add_pool(900, "10.0.0.5", "g3"));
    EXPECT_TRUE(ends(push(5, "--wait 60s"), 1, "refused by g3: refused version 2: pool add --id 5"));
    for (const size_t i : {0U, 1U, 3U, 4U}) {
        EXPECT_TRUE(holds(i, 2, 5)) << status(i);
    }
    EXPECT_TRUE(holds(2, 1, 3)) << status(2);
    EXPECT_EQ(pools_of(2), 4U) << "its three, and somebody's";
    daemons_[2]->end(SIGTERM);
    start_daemon(2);
    EXPECT_TRUE(eventually([] { return status(2).value("refused_reason", "").find("pool add") != std::string::npos; }));
    EXPECT_TRUE(holds(2, 1, 3)) << "a restart forgets nothing: " << status(2);
    EXPECT_EQ(push(4, "--wait 60s").status, 0) << "the next one is good again";
    EXPECT_TRUE(holds(2, 3, 4)) << status(2);
    EXPECT_FALSE(status(2).at("store").contains("refused_version")) << status(2);
}

}  // namespace
