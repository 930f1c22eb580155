/* Plans carried out over a binding to a server model, with refusals, stops, lost servers and rollbacks. */
#include "reconcile/applier.h"

#include <algorithm>
#include <functional>
#include <random>
#include <set>

#include "config/notation.h"
#include "reconcile/scrape.h"
#include "records/families.h"
#include "tests/cxx/cxx_fixture.h"
#include "tests/reconcile/two_documents.h"

namespace {

std::string text_of(const plan_command_t &command) {
    return command_line(*command.family, command.op, command.record.bytes);
}
class applier_test : public cxx_fixture_t {
protected:
    void SetUp() override {
        cxx_fixture_t::SetUp();
        ASSERT_TRUE(apply(plan_t(none_, from_)));
    }
    apply_result_t apply(const plan_t &plan) {
        applier_t applier(*client, rules_, plan);
        run(applier.apply());
        return applier.result();
    }
    /** Carries a plan out on a server that holds its answers, and calls `meanwhile` before it releases them. */
    void apply_held(applier_t &applier, fwx_nat64_model_order_t order, const std::function<void()> &meanwhile = {}) {
        model->hold();
        auto task = begin(applier.apply());
        pump();
        if (meanwhile) meanwhile();
        EXPECT_FALSE(task.done());
        model->release(order);
        pump();
        ASSERT_TRUE(task.done());
    }
    uint32_t rule_found() const { return rule_found_by(*model); }

    const document_t none_{};
    const document_t from_ = loaded(before);
    const document_t to_ = loaded(after);
    const document_t more_ =
        loaded(before + "mapt bmr add --rule 7 --domain 6 --v6 2001:db8:100::/40 --v4 198.51.100.0/24\n");
    const plan_t plan_{from_, to_};
    rule_book_t rules_;
};

TEST_F(applier_test, a_plan_that_was_sent_whole_is_not_stopped_any_more) {
    const plan_t plan(from_, more_);
    applier_t applier(*client, rules_, plan);
    apply_held(applier, fwx_nat64_model_order_t::in_order, [&] { applier.stop(); });
    EXPECT_TRUE(applier.result());
    EXPECT_EQ(applier.result().done, 1U);
}

TEST_F(applier_test, an_applier_sends_nothing_more_once_it_or_its_task_is_destroyed) {
    for (const bool is_task : {true, false}) {
        SCOPED_TRACE(is_task);
        const uint64_t changes = model->boot().changes;
        model->hold();
        std::optional<applier_t> applier(std::in_place, *client, rules_, plan_);
        std::optional task(begin(applier->apply()));
        pump();
        is_task ? task.reset() : applier.reset();
        model->release(fwx_nat64_model_order_t::in_order);
        pump();
        EXPECT_EQ(model->boot().changes, changes + 2) << "the deletes";
        task.reset();
        applier.reset();
        EXPECT_TRUE(apply(plan_t(none_, from_)));
    }
}

TEST_F(applier_test, of_several_refusals_the_one_of_the_first_command_is_reported) {
    for (const auto order : {fwx_nat64_model_order_t::in_order, fwx_nat64_model_order_t::reverse}) {
        model->fail_next(FWX_NAT64_MODEL_ERR_VALUE, 2);
        applier_t applier(*client, rules_, plan_);
        apply_held(applier, order);
        ASSERT_TRUE(applier.result().refusal);
        EXPECT_EQ(text_of(applier.result().refusal->command), steps[0]);
        EXPECT_EQ(applier.result().done, 0U);
    }
}

TEST_F(applier_test, a_rule_table_out_of_sync_with_the_server_is_reported) {
    model->fail_next(FWX_NAT64_MODEL_ERR_VALUE, 1);
    fwx_host_fault_arm(FWX_HOST_OP_TBM_LEAF_INSERT, 1, 0);
    const apply_result_t result = apply(plan_);
    ASSERT_TRUE(result.refusal) << "of the rule that is to go and stays";
    EXPECT_EQ(text_of(result.refusal->command), steps[0]);
    EXPECT_EQ(result.table_code, FWX_NAT64_ERR_PLU_FAILED);
    EXPECT_EQ(rules_.installed(), 0U);
}

TEST_F(applier_test, commands_that_the_server_failed_to_save_can_be_undone_too) {
    model->journal_set({[](void *, uint32_t, const void *, size_t) {},
                        [](void *) -> uint32_t { return FWX_NAT64_MODEL_ERR_NOT_SAVED; }, nullptr});
    applier_t applier(*client, rules_, plan_);
    const auto finish = [&](fwx::nat64::task<> task) {
        task.start();
        for (int turn = 0; turn < 10 && !task.done(); ++turn) {
            pump();
            model->commit();
        }
        ASSERT_TRUE(task.done());
    };
    finish(applier.apply());
    ASSERT_TRUE(applier.result().refusal);
    EXPECT_EQ(applier.result().refusal->error, fwx::nat64::nat64_error(FWX_NAT64_MODEL_ERR_NOT_SAVED));
    EXPECT_EQ(applier.standing().size(), 2U);
    finish(applier.roll_back());
    EXPECT_TRUE(applier.result().is_rolled_back);
    EXPECT_EQ(model->timeout(1), 10U);
    EXPECT_EQ(model->totals().pools, 1U);
    EXPECT_EQ(model->totals().dynamic_mappings, 0U);
    EXPECT_EQ(rules_.rules().front().rule.v4_prefix[2], 2);
    model->journal_set({});
}

TEST_F(applier_test, after_commands_without_an_answer_nothing_more_is_sent) {
    for (const bool is_cut : {true, false}) {
        SCOPED_TRACE(is_cut);
        client->deadline_set(std::chrono::milliseconds(100));
        model->silent_set(true);
        applier_t applier(*client, rules_, plan_);
        auto task = begin(applier.apply());
        pump();
        is_cut ? model->drop_clients() : fwx_host_clock_turn(100);
        pump();
        ASSERT_TRUE(task.done());
        const apply_result_t &result = applier.result();
        EXPECT_FALSE(result);
        EXPECT_FALSE(result.refusal);
        EXPECT_EQ(result.unanswered, 2U);
        EXPECT_EQ(result.lost == std::errc::timed_out, !is_cut);
        model->silent_set(false);
    }
}

TEST_F(applier_test, a_command_that_the_server_never_got_means_a_lost_server_and_no_refusal) {
    fwx_host_fault_arm(FWX_HOST_OP_SEND_DONE, 1, 0);
    const apply_result_t result = apply(plan_);
    EXPECT_TRUE(result.lost);
    EXPECT_FALSE(result.refusal);
    EXPECT_EQ(result.unanswered, 0U);
    EXPECT_EQ(rule_found(), 5U);
}

TEST_F(applier_test, a_change_of_a_rule_that_is_not_made_leaves_the_table_as_it_was) {
    for (const document_t *to : {&more_, &none_}) {
        fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, 0);
        EXPECT_TRUE(apply(plan_t(from_, *to)).refusal);
        EXPECT_EQ(rules_.pending(), 0U);
        EXPECT_EQ(rule_found(), 5U);
    }
    EXPECT_TRUE(apply(plan_t(none_, from_)).refusal) << "the server has it all already";
    EXPECT_EQ(rules_.installed(), 1U);
    EXPECT_EQ(rule_found(), 5U);
}

TEST_F(applier_test, rules_that_the_server_has_no_longer_leave_the_table) {
    const auto others_delete = [this](uint32_t rule_id) {
        const fwx_nat64_mapt_bmr_t rule = rules_.rule({rule_id, 6})->rule;
        EXPECT_TRUE(run(client->mapt_bmr_del(rule)));
    };
    ASSERT_TRUE(apply(plan_t(from_, more_)));
    others_delete(7);
    model->order_cleanup(true);
    EXPECT_TRUE(apply(plan_t(from_, none_)));
    EXPECT_EQ(rules_.installed(), 0U) << "the server has ordered a clean-up";
    model->order_cleanup(false);
    ASSERT_TRUE(apply(plan_t(none_, from_)));
    others_delete(5);
    EXPECT_TRUE(apply(plan_t(from_, none_)).refusal);
    EXPECT_EQ(rules_.installed(), 0U) << "the server says that it has no such rule";
    EXPECT_EQ(rule_found(), 0U);
}

TEST_F(applier_test, rules_that_were_pending_when_the_table_was_emptied_are_installed_when_they_are_answered) {
    const document_t documents[] = {
        loaded("mapt bmr add --rule 7 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24\n"),
        loaded("mapt bmr add --rule 8 --domain 6 --v6 2001:db8:100::/40 --v4 198.51.100.0/24\n")};
    const plan_t plans[] = {{none_, documents[0]}, {none_, documents[1]}};
    model->hold();
    applier_t appliers[] = {{*client, rules_, plans[0]}, {*client, rules_, plans[1]}};
    const auto first = begin(appliers[0].apply());
    pump();
    fwx_mapt_plu_cleanup();
    rules_.emptied();
    const auto second = begin(appliers[1].apply());
    pump();
    model->release(fwx_nat64_model_order_t::in_order);
    pump();
    EXPECT_TRUE(first.done() && second.done());
    EXPECT_EQ(rules_.installed(), 2U);
    EXPECT_EQ(rule_found(), 7U);
}

TEST_F(applier_test, a_prefix_that_rules_share_is_found_until_the_last_of_them_is_gone) {
    fwx_mapt_rule_hash_elem_t rule = rules_.rules().front();
    for (uint8_t id = 6; id <= 7; ++id) {
        rule.rule.rule_id = id;
        rule.rule.v4_prefix[3] = rule.rule.v6_prefix[7] = id; /* behind the prefix, so it is not looked up */
        EXPECT_EQ(rules_.found(rule), 0U);
    }
    for (uint32_t id = 5; id <= 7; ++id) {
        EXPECT_EQ(rule_found(), 5U) << "they have its index";
        EXPECT_EQ(rules_.missed(rules_.rule({id, 6})->rule), 0U);
    }
    EXPECT_EQ(rule_found(), 0U);
}

TEST_F(applier_test, many_rules_that_share_prefixes_come_and_go) {
    constexpr uint32_t names = 3000;
    constexpr uint32_t prefixes = 1000;
    std::mt19937_64 random(1);
    document_t held = from_;
    for (const uint32_t percent : {50U, 80U, 20U, 60U, 0U}) {
        std::string text = before.substr(0, before.find("mapt"));
        std::vector<std::set<uint32_t>> having(prefixes); /* the rules with each prefix */
        for (uint32_t rule = 1; rule <= names; ++rule) {
            if (random() % 100 >= percent) continue;
            const uint32_t prefix = rule % prefixes;
            having[prefix].insert(rule);
            const std::string high = std::to_string(prefix / 100);
            const std::string low = std::to_string(prefix % 100);
            text += "mapt bmr add --rule " + std::to_string(rule) + " --domain 6 --v6 2001:" + high + ":" + low +
                    "::/48 --v4 10." + high + "." + low + ".0/24\n";
        }
        document_t to = loaded(text);
        ASSERT_TRUE(apply(plan_t(held, to)));
        held = to;

        std::set<uint32_t> installed;
        for (const auto &[rule, index] : rules_.rules()) {
            installed.insert(installed.end(), rule.rule_id);
            EXPECT_EQ(rules_.rule(name_of(rule))->mapt_bmr, index);
        }
        for (uint32_t prefix = 0; prefix < prefixes; ++prefix) {
            const auto high = static_cast<uint8_t>(prefix / 100);
            const auto low = static_cast<uint8_t>(prefix % 100);
            const fwx_nat64_addr_t address{FWX_NAT64_FAMILY_IPV4, {10, high, low}};
            fwx_nat64_model_match_t match{};
            const uint32_t found = model->lookup(&address, &match) ? match.rule_id : 0;
            EXPECT_EQ(having[prefix].count(found), having[prefix].empty() ? 0U : 1U) << prefix << " finds " << found;
            for (const uint32_t rule : having[prefix]) {
                EXPECT_EQ(installed.erase(rule), 1U) << rule;
            }
        }
        EXPECT_TRUE(installed.empty());
    }
}

TEST_F(applier_test, the_table_follows_the_index_that_the_server_gives_a_rule) {
    ASSERT_TRUE(apply(plan_t(from_, more_)));
    fwx_mapt_rule_hash_elem_t rule = rules_.rules().front();
    rule.mapt_bmr = rules_.rules().back().mapt_bmr;
    EXPECT_EQ(rules_.found(rule), 0U);
    EXPECT_EQ(rule_found(), 7U);
}

TEST_F(applier_test, default_rules_are_known_until_they_are_deleted) {
    const document_t more = loaded(before + "mapt dmr add --id 4 --prefix 2001:db8:ffff::/64\n");
    EXPECT_TRUE(apply(plan_t(from_, more)));
    EXPECT_EQ(rules_.defaults().count(4), 1U);
    EXPECT_TRUE(apply(plan_t(more, from_)));
    EXPECT_TRUE(rules_.defaults().empty());
}

TEST_F(applier_test, a_scrape_takes_as_many_pools_as_are_asked_for_and_tells_of_more) {
    const document_t three = loaded(before +
                                    "pool add --id 2 --param 1 --start 10.0.0.1 --end 10.0.0.2\n"
                                    "pool add --id 3 --param 1 --start 10.0.0.3 --end 10.0.0.4\n");
    ASSERT_TRUE(apply(plan_t(from_, three)));
    for (const uint32_t most : {1U, 2U, 3U, 4U}) {
        const scrape_t got = run(scrape(*client, most));
        EXPECT_EQ(got.pools.entries.size(), std::min(most, 3U));
        EXPECT_EQ(got.pools.has_more, most < 3);
    }
    model->reply_limit_set(2 * sizeof(fwx_nat64_stats_pool_entry_t));
    model->duplicate_set(2);
    EXPECT_EQ(run(scrape(*client, 3)).pools.entries.size(), 0U) << "the server sends the first two twice";
}

TEST_F(applier_test, a_query_that_cannot_be_sent_leaves_its_part_of_a_scrape_empty) {
    for (const uint32_t nth : {1U, 2U, 3U, 4U}) {
        fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, nth, 0);
        const scrape_t got = run(scrape(*client, 9));
        EXPECT_EQ(got.totals.has_value(), nth != 1);
        EXPECT_EQ(got.pools.entries.size(), nth == 2 ? 0U : 1U);
    }
}

TEST_F(applier_test, a_scrape_that_loses_the_server_takes_no_part_of_a_list) {
    constexpr uint32_t pools = 2000; /* so many that the server sends a part of them at a time */
    for (uint32_t id = 10; id < 10 + pools; ++id) {
        ASSERT_TRUE(client->pool_add(a_pool(id), ignored));
    }
    pump();
    ASSERT_EQ(model->totals().pools, 1 + pools);
    model->reply_limit_set(100 * sizeof(fwx_nat64_stats_pool_entry_t));
    model->delay_set(1);
    auto task = begin(scrape(*client, pools));
    for (int replies = 0; replies < 2; ++replies) { /* the totals and the first pools */
        pump();
        turn(1);
    }
    model->delay_set(0);
    model->drop_clients();
    pump();
    ASSERT_TRUE(task.done());
    const scrape_t got = task.get();
    EXPECT_TRUE(got.totals);
    EXPECT_TRUE(got.pools.entries.empty());
    EXPECT_FALSE(got.pools.has_more);
}

}  // namespace
