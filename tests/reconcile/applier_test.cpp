/* Plans carried out over a binding. */
#include "reconcile/applier.h"

#include <algorithm>
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
std::set<std::string> texts_of(const std::vector<plan_command_t> &commands) {
    std::set<std::string> texts;
    for (const plan_command_t &command : commands) {
        texts.insert(text_of(command));
    }
    return texts;
}

class applier_test : public cxx_fixture_t {
protected:
    void SetUp() override {
        cxx_fixture_t::SetUp();
        ASSERT_TRUE(apply(plan_t(none_, from_)));
        done_.clear();
    }
    apply_result_t apply(const plan_t &plan) {
        return run(applier_t(*client, rules_).apply(plan, [this](const plan_command_t &command) {
            done_.push_back(text_of(command));
            if (done_.size() == refuse_behind_) model->fail_next(code_, 1);
        }));
    }
    /** Has the server answer with a code behind so many commands, if they are not under way by then. */
    void refuse_behind(size_t count, uint32_t code) {
        refuse_behind_ = count;
        code_ = code;
    }

    void expect_from() const {
        EXPECT_EQ(model->timeout(1), 10U);
        EXPECT_EQ(model->totals().pools, 1U);
        EXPECT_EQ(model->totals().dynamic_mappings, 0U);
        EXPECT_EQ(rules_.rules().begin()->second.rule.v4_prefix[2], 2);
    }

    const document_t none_{};
    const document_t from_ = read_document(before);
    const document_t to_ = read_document(after);
    const plan_t plan_{from_, to_};
    rule_book_t rules_;
    std::vector<std::string> done_;

private:
    size_t refuse_behind_ = SIZE_MAX;
    uint32_t code_ = 0;
};

TEST_F(applier_test, a_plan_is_carried_out_and_told_command_by_command) {
    const apply_result_t result = apply(plan_);
    EXPECT_TRUE(result);
    EXPECT_EQ(result.done, steps.size());
    EXPECT_EQ(done_, steps);
    EXPECT_EQ(model->timeout(1), 20U);
    EXPECT_EQ(rules_.installed(), 1U);
    EXPECT_EQ(result.table_code, 0U);
}

TEST_F(applier_test, a_refusal_takes_all_back) {
    refuse_behind(2, FWX_NAT64_MODEL_ERR_VALUE);
    const apply_result_t result = apply(plan_);
    ASSERT_TRUE(result.refusal);
    EXPECT_EQ(text_of(result.refusal->command), steps[2]);
    EXPECT_EQ(result.refusal->error, fwx::nat64::nat64_error(FWX_NAT64_MODEL_ERR_VALUE));
    EXPECT_TRUE(result.is_taken_back);
    EXPECT_EQ(result.done, 5U);
    EXPECT_EQ(done_.size(), 10U);
    expect_from();
}

TEST_F(applier_test, a_table_that_could_not_follow_the_server_is_told) {
    model->fail_next(FWX_NAT64_MODEL_ERR_VALUE, 1);
    fwx_host_fault_arm(FWX_HOST_OP_TBM_LEAF_INSERT, 1, 0);
    const apply_result_t result = apply(plan_);
    ASSERT_TRUE(result.refusal) << "of the rule that is to go and stays";
    EXPECT_EQ(text_of(result.refusal->command), steps[0]);
    EXPECT_EQ(result.table_code, FWX_NAT64_ERR_PLU_FAILED);
    EXPECT_EQ(rules_.installed(), 0U);
}

TEST_F(applier_test, what_is_carried_out_and_not_saved_is_taken_back_too) {
    model->journal_set({[](void *, uint32_t, const void *, size_t) {},
                        [](void *) -> uint32_t { return FWX_NAT64_MODEL_ERR_NOT_SAVED; }, nullptr});
    bool has_undo = false;
    applier_t applier(*client, rules_);
    auto task = applier.apply(
        plan_, [](const plan_command_t &) {}, [&] { has_undo = true; });
    task.start();
    for (int turn = 0; turn < 10 && !task.done(); ++turn) {
        pump();
        model->commit();
    }
    ASSERT_TRUE(task.done());
    const apply_result_t result = task.get();
    ASSERT_TRUE(result.refusal);
    EXPECT_EQ(result.refusal->error, fwx::nat64::nat64_error(FWX_NAT64_MODEL_ERR_NOT_SAVED));
    EXPECT_TRUE(result.is_taken_back);
    EXPECT_TRUE(has_undo);
    expect_from();
    model->journal_set({});
}

TEST_F(applier_test, commands_without_an_answer_are_in_doubt_and_nothing_more_is_sent) {
    for (const bool is_cut : {true, false}) {
        SCOPED_TRACE(is_cut);
        client->deadline_set(std::chrono::milliseconds(100));
        model->silent_set(true);
        applier_t applier(*client, rules_);
        auto task = applier.apply(plan_, [](const plan_command_t &) { ADD_FAILURE(); });
        task.start();
        pump();
        is_cut ? model->drop_clients() : fwx_host_clock_turn(100);
        pump();
        ASSERT_TRUE(task.done());
        const apply_result_t result = task.get();
        EXPECT_FALSE(result);
        EXPECT_FALSE(result.refusal);
        EXPECT_FALSE(result.is_taken_back);
        EXPECT_EQ(texts_of(result.in_doubt), (std::set<std::string>{steps[0], steps[1]}));
        EXPECT_EQ(result.lost == std::errc::timed_out, !is_cut);
        model->silent_set(false);
    }
}

TEST_F(applier_test, items_in_doubt_may_be_gone) {
    document_t doubtful = from_;
    const document_t more = read_document(before + "dmapping add --id 3 --type 1\n" +
                                          "range add --id 1 --start 198.51.100.1 --end 198.51.100.2\n");
    for (size_t i = 0; i < more.size(); ++i) {
        doubtful.doubt(*more.item(i).family, more.item(i).record);
    }
    doubtful.settle();
    EXPECT_TRUE(apply(plan_t(doubtful, to_)));
    EXPECT_EQ(model->totals().pools, 1U);
    EXPECT_EQ(model->totals().dynamic_mappings, 1U);
    EXPECT_EQ(rules_.installed(), 1U);
}

TEST_F(applier_test, default_rules_are_known_until_they_are_deleted) {
    const document_t more = read_document(before + "mapt dmr add --id 4 --prefix 2001:db8:ffff::/64\n");
    EXPECT_TRUE(apply(plan_t(from_, more)));
    EXPECT_EQ(rules_.defaults().count(4), 1U);
    EXPECT_TRUE(apply(plan_t(more, from_)));
    EXPECT_TRUE(rules_.defaults().empty());
}

TEST_F(applier_test, a_scrape_takes_as_many_pools_as_are_asked_for_and_tells_of_more) {
    const document_t two = read_document(before + "pool add --id 2 --param 1 --start 10.0.0.1 --end 10.0.0.2\n");
    ASSERT_TRUE(apply(plan_t(from_, two)));
    for (const uint32_t most : {1U, 2U, 3U}) {
        const scrape_t got = run(scrape(*client, most));
        EXPECT_EQ(got.pools.entries.size(), std::min(most, 2U));
        EXPECT_EQ(got.pools.has_more, most == 1);
    }
}

}  // namespace
