/* Reconciling a server with documents while other clients change it too. */
#include "reconcile/reconciler.h"

#include <pthread.h>

#include "config/notation.h"
#include "tests/cxx/cxx_fixture.h"
#include "tests/reconcile/two_documents.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/eventually.h"
#include "tests/support/runtime_directory.h"

namespace nat64 = fwx::nat64;

namespace {

class reconciler_test : public cxx_fixture_t {
protected:
    void SetUp() override {
        cxx_fixture_t::SetUp();
        reconciler.emplace(loop, *client, rules);
        ASSERT_FALSE(run_slow(reconciler->read()));
        EXPECT_TRUE(reconcile(from).is_in_sync);
    }
    void TearDown() override {
        reconciler.reset();
        cxx_fixture_t::TearDown();
    }
    /** Runs a task that may wait for a background thread. Calls `meanwhile` when it waits for the first time. */
    template <typename value_t>
    value_t run_slow(nat64::task<value_t> task, const std::function<void()> &meanwhile = {}) {
        task.start();
        if (meanwhile) meanwhile();
        while (!task.done()) {
            fwx_host_loop_run_once(loop, -1);
        }
        return task.get();
    }
    /** Calls `meanwhile` when the first commands are outstanding. */
    reconcile_result_t reconcile(const document_t &wanted, const std::function<void()> &meanwhile = {},
                                 bool rolls_back = true) {
        const document_t held = reconciler->held();
        const plan_t plan(held, wanted);
        return run_slow(reconciler->reconcile(plan, wanted, rolls_back), meanwhile);
    }
    /** Changes the server without the reconciler, as another client does. */
    void others_set_timeout(uint32_t seconds) {
        const nat64::timeout timeout{nat64::timeout_kind::icmp, nat64::seconds(seconds)};
        EXPECT_TRUE(client->timeout_set(timeout, ignored));
    }
    void others_add_mapping(uint32_t id) {
        EXPECT_TRUE(client->dmapping_add(nat64::dynamic_mapping{.id = id}, ignored));
    }
    /** Expects that held() is the server's actual state. */
    void expect_held() {
        const std::string held = write_lines(reconciler->held());
        EXPECT_FALSE(run_slow(reconciler->read()));
        EXPECT_EQ(held, write_lines(reconciler->held()));
    }
    /** Expects what has come of a plan, its commands in effect, and the changes by others. Calls expect_held(). */
    void expect_outcome(const reconcile_result_t &got, const std::string &expected) {
        std::string text = got.applied.refusal ? "refused, " : got.applied.is_stopped ? "stopped, " : "";
        if (got.applied.is_rolled_back) text += "rolled back, ";
        if (got.is_in_sync) text += "in sync, ";
        text += std::to_string(got.standing.size()) + " in effect, " + std::to_string(got.others) + " by others";
        EXPECT_EQ(text, expected);
        expect_held();
    }

    rule_book_t rules;
    std::optional<reconciler_t> reconciler;
    const document_t from = loaded(before);
    const document_t to = loaded(after);
};

}  // namespace

TEST_F(reconciler_test, everything_that_a_document_says_is_read_back_as_it_was_brought) {
    const document_t all = loaded(text_of(TEST_DIR "/../config/every_family.natctl"));
    EXPECT_TRUE(reconcile(all).is_in_sync);
    EXPECT_FALSE(run_slow(reconciler->read()));
    EXPECT_EQ(write_lines(reconciler->held()), write_lines(all));
    EXPECT_TRUE(reconciler->is_as_known(model->boot()));
}

TEST_F(reconciler_test, a_refused_plan_is_rolled_back) {
    others_add_mapping(3);
    pump();
    expect_outcome(reconcile(to), "refused, 5 in effect, 1 by others"); /* mapping 3 came after the server was read */
    EXPECT_TRUE(reconcile(from).is_in_sync) << "what others have added goes too";
    model->fail_next(FWX_NAT64_MODEL_ERR_VALUE, 1);
    expect_outcome(reconcile(to), "refused, rolled back, 0 in effect, 0 by others");
    EXPECT_EQ(write_lines(reconciler->held()), write_lines(from));
}

TEST_F(reconciler_test, a_refused_plan_is_not_rolled_back_if_nobody_can_say_that_it_is_alone) {
    model->fail_next(FWX_NAT64_MODEL_ERR_VALUE, 1);
    fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 3, 0); /* of the query behind the two deletes */
    expect_outcome(reconcile(to), "refused, 1 in effect, 0 by others");
}

TEST_F(reconciler_test, items_that_others_add_while_a_plan_is_refused_are_not_deleted) {
    const reconcile_result_t refused = reconcile(to, [this] {
        others_add_mapping(3); /* the plan adds the same one later */
        others_set_timeout(7);
    });
    expect_outcome(refused, "refused, 5 in effect, 2 by others");
    EXPECT_EQ(model->totals().dynamic_mappings, 1U);
}

TEST_F(reconciler_test, changes_of_others_are_noticed_even_if_they_do_not_matter) {
    expect_outcome(reconcile(to, [this] { others_set_timeout(0); }), "in sync, 0 in effect, 1 by others");
    expect_outcome(reconcile(from, [this] { others_set_timeout(9); }), "0 in effect, 1 by others");
}

TEST_F(reconciler_test, a_stopped_plan_is_rolled_back_or_kept_and_its_commands_in_effect_are_reported) {
    for (const bool rolls_back : {true, false}) {
        SCOPED_TRACE(rolls_back);
        const reconcile_result_t stopped = reconcile(
            to, [this] { reconciler->stop(); }, rolls_back);
        expect_outcome(stopped, rolls_back ? "stopped, rolled back, 0 in effect, 0 by others"
                                           : "stopped, 2 in effect, 0 by others");
    }
    EXPECT_TRUE(reconcile(to).is_in_sync);
}

TEST_F(reconciler_test, after_a_lost_server_it_is_read_again) {
    const reconcile_result_t lost = reconcile(to, [this] {
        model->silent_set(true);
        pump();
        model->drop_clients();
        model->silent_set(false);
    });
    EXPECT_TRUE(lost.unknown);
    EXPECT_EQ(lost.applied.unanswered, 2U);
    EXPECT_FALSE(reconciler->is_known());
    EXPECT_FALSE(run_slow(reconciler->read()));
    EXPECT_TRUE(reconcile(to).is_in_sync);
    expect_held();
}

TEST_F(reconciler_test, a_server_that_was_restarted_since_it_was_read_is_read_again) {
    restart_model();
    pump();
    const reconcile_result_t got = reconcile(loaded(before + "limit add --type sessions --value 9\n"));
    EXPECT_TRUE(got.applied);
    EXPECT_FALSE(got.is_in_sync);
    EXPECT_EQ(write_lines(reconciler->held()),
              "# nat64 configuration version 1\nlimit add --type sessions --value 9\n");
}

TEST_F(reconciler_test, a_server_is_read_even_if_there_is_no_descriptor_or_no_thread_for_it) {
    const auto expect_read = [this](uint32_t seconds) {
        others_set_timeout(seconds);
        pump();
        EXPECT_FALSE(run(reconciler->read()));
        EXPECT_NE(write_lines(reconciler->held()).find("--type icmp --value " + std::to_string(seconds) + "\n"),
                  std::string::npos);
    };
    {
        const descriptor_limit_t none(3);
        expect_read(7);
    }
    pthread_attr_t usual;
    pthread_attr_t too_large;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    ASSERT_EQ(pthread_attr_init(&too_large), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&too_large, size_t{1} << 47), 0); /* all addresses of the process */
    ASSERT_EQ(pthread_setattr_default_np(&too_large), 0);
    expect_read(8);
    ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
}

TEST_F(reconciler_test, an_entry_that_no_command_makes_is_an_error) {
    for (const uint32_t number : {FWX_NAT64_MSG_CONFIG, FWX_NAT64_MSG_MAPT_RULE, 0x7fffU}) {
        const fwx_nat64_config_entry_t entry{static_cast<uint16_t>(number), 0x7fff, 0};
        nat64::running_configuration strange;
        const auto *bytes = reinterpret_cast<const uint8_t *>(&entry);
        strange.bytes.assign(bytes, bytes + sizeof entry);
        EXPECT_EQ(server_document_of(strange).error, nat64::client_errc::unreadable);
    }
}

TEST_F(reconciler_test, the_rule_table_follows_the_rules_that_the_server_has) {
    reconciler.reset();
    fwx_mapt_plu_cleanup();
    rules.emptied();
    reconciler.emplace(loop, *client, rules);
    EXPECT_EQ(rule_found_by(*model), 0U);
    EXPECT_FALSE(run_slow(reconciler->read()));
    EXPECT_EQ(run_slow(reconciler->follow_rules()), 0U);
    EXPECT_EQ(rule_found_by(*model), 5U);
    EXPECT_EQ(rules.installed(), 1U);
    /* A server that was restarted has none of them. */
    restart_model();
    pump();
    EXPECT_FALSE(run_slow(reconciler->read()));
    EXPECT_EQ(run_slow(reconciler->follow_rules()), 0U);
    EXPECT_EQ(rule_found_by(*model), 0U);
    EXPECT_EQ(rules.installed(), 0U);
}

TEST_F(reconciler_test, the_rule_table_follows_the_rules_that_others_add_while_a_plan_runs) {
    nat64::basic_rule others = a_rule(9);
    others.v4 = "198.51.100.0/24";
    reconcile(to, [&] { EXPECT_TRUE(client->mapt_bmr_add(others, ignored)); });
    EXPECT_EQ(run_slow(reconciler->follow_rules()), 0U);
    EXPECT_EQ(rules.installed(), 2U);
    EXPECT_EQ(run_slow(reconciler->follow_rules()), 0U);
    EXPECT_EQ(rules.installed(), 2U) << "they were followed already";
}

TEST_F(reconciler_test, a_rule_that_a_server_reports_with_an_impossible_prefix_is_not_taken) {
    constexpr size_t v6_length = 24; /* in the payload, behind the words up to the domain and the prefix */
    constexpr size_t v4_length = 32;
    for (const auto &[at, longest] : {std::pair<size_t, uint8_t>{v6_length, 64}, {v4_length, 32}}) {
        for (const uint8_t length : {longest, static_cast<uint8_t>(longest + 1)}) {
            nat64::running_configuration got = run_slow(client->configuration());
            ASSERT_TRUE(got);
            got.for_each([&, at = at](const nat64::running_item &item) {
                const size_t begin = static_cast<size_t>(item.payload.data() - got.bytes.data());
                if (item.number == FWX_NAT64_MSG_MAPT_RULE) got.bytes[begin + at] = length;
            });
            EXPECT_EQ(static_cast<bool>(server_document_of(got).error), length > longest);
        }
    }
}

TEST_F(reconciler_test, a_server_that_does_not_report_its_configuration_is_assumed_to_hold_a_known_version) {
    const runtime_directory_t directory;
    versions_t versions(directory.path());
    ASSERT_EQ(versions.open(), "");
    EXPECT_FALSE(run_slow(reconciler->assume_known(versions))) << "it holds something, and nobody knows what";
    const auto add = [&](uint64_t changes, const document_t &document) {
        version_t version;
        version.boot_id = model->boot().boot_id;
        version.changes = changes;
        EXPECT_EQ(versions.add(version, write_lines(document)), "");
    };
    add(model->boot().changes, from);
    EXPECT_TRUE(run_slow(reconciler->assume_known(versions)));
    EXPECT_EQ(write_lines(reconciler->held()), write_lines(from));
    add(model->boot().changes - 1, to);
    EXPECT_FALSE(run_slow(reconciler->assume_known(versions))) << "it has been changed since";
    EXPECT_TRUE(reconcile({}).is_in_sync);
    EXPECT_TRUE(run_slow(reconciler->assume_known(versions))) << "it says that it holds nothing";
    EXPECT_EQ(reconciler->held().size(), 0U);
}
