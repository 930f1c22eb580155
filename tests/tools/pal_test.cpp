/* Plans carried out over a binding, and the running document that is kept of them. */
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <set>

#include "config/journal.h"
#include "config/load.h"
#include "config/notation.h"
#include "records/families.h"
#include "tests/cxx/cxx_fixture.h"
#include "tests/support/runtime_directory.h"
#include "tools/pal/applier.h"
#include "tools/pal/running.h"
#include "tools/pal/scrape.h"

namespace {

document_t read_document(const std::string &text) {
    problems_t problems;
    document_t document = load_document(text, problems);
    EXPECT_TRUE(problems.empty()) << problems.front().text();
    return document;
}
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

const std::string before =
    "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.10\n"
    "timeout set --type 1 --value 10\n"
    "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24\n";
const std::string after =
    "timeout set --type 1 --value 20\n"
    "pool add --id 2 --param 1 --start 192.0.2.1 --end 192.0.2.10\n"
    "dmapping add --id 3 --type 1\n"
    "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.3.0/24\n";
/* What leads from one to the other. */
const std::vector<std::string> steps = {
    "mapt bmr del --rule 5 --domain 6",
    "pool del --id 1",
    "timeout set --type udp --value 20",
    "pool add --id 2 --param 1 --start 192.0.2.1 --end 192.0.2.10",
    "dmapping add --id 3 --type address-dependent",
    "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.3.0/24",
};

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

class running_test : public testing::Test {
protected:
    /** Does something with the running document in a process that is then killed. */
    template <typename use_t>
    void killed(use_t use) const {
        const pid_t child = fork();
        if (child == 0) {
            running_t running(directory_, "natctl");
            if (running.open({}).empty()) use(running);
            raise(SIGKILL);
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));
    }
    void carry_out(running_t &running, const plan_t &plan, size_t count) const {
        for (size_t i = 0; i < count; ++i) {
            running.carried_out(plan.command(i));
        }
    }
    void hold(const document_t &document) const {
        running_t running(directory_, "natctl");
        ASSERT_EQ(running.open({}), "");
        const plan_t plan(running.document(), document);
        running.begin("test");
        ASSERT_EQ(running.enter_plan(plan), "");
        carry_out(running, plan, plan.size());
        ASSERT_EQ(running.end(), "");
    }

    const runtime_directory_t runtime_;
    const std::string directory_ = runtime_.path() + "/state/natctl/alpha";
    const document_t from_ = read_document(before);
    const document_t to_ = read_document(after);
};

TEST_F(running_test, a_change_that_a_crash_ends_leaves_what_was_not_answered_in_doubt) {
    for (size_t count = 0; count <= steps.size(); ++count) {
        SCOPED_TRACE(count);
        std::filesystem::remove_all(directory_);
        hold(from_);
        killed([&](running_t &running) {
            const plan_t plan(running.document(), to_);
            running.begin("config apply file");
            running.enter_plan(plan);
            carry_out(running, plan, count);
            running.commit();
        });
        running_t running(directory_, "natctl");
        ASSERT_EQ(running.open({}), "");
        ASSERT_EQ(running.notes().size(), 1U);
        EXPECT_EQ(running.versions().back().what, "config apply file (interrupted)");
        EXPECT_EQ(running.versions().back().commands, count);
        /* The rule that is deleted and added again is one item. */
        EXPECT_EQ(running.doubtful(), count == 0 ? 5U : steps.size() - count);
        document_t older;
        ASSERT_EQ(running.older(1, older), "");
        EXPECT_EQ(write_lines(older), write_lines(from_));
    }
}

TEST_F(running_test, all_of_a_plan_is_in_doubt_that_was_being_taken_back) {
    hold(from_);
    killed([&](running_t &running) {
        const plan_t plan(running.document(), to_);
        running.begin("config apply file");
        running.enter_plan(plan);
        carry_out(running, plan, 4);
        running.undo_begins();
        running.commit();
    });
    running_t running(directory_, "natctl");
    ASSERT_EQ(running.open({}), "");
    EXPECT_EQ(running.doubtful(), 5U);
}

TEST_F(running_test, what_was_committed_is_there_however_often_the_journal_was_written_anew) {
    constexpr size_t count = 500;
    constexpr size_t rounds = 20; /* what they say is soon longer than what there is */
    killed([&](running_t &running) {
        running.begin("batch");
        for (uint32_t i = 0; i < rounds * count; ++i) {
            fwx_nat64_dmapping_t mapping{};
            mapping.id = i % count + 1;
            mapping.type = 1;
            running.carried_out(*record_find_family("dmapping"), FWX_NAT64_OP_ADD, &mapping);
            if (i % 100 == 0) running.commit();
        }
        running.commit();
    });
    running_t running(directory_, "natctl");
    ASSERT_EQ(running.open({}), "");
    EXPECT_EQ(running.document().size(), count);
    EXPECT_EQ(running.versions().back().commands, rounds * count);
}

TEST_F(running_test, a_virtual_interface_stays_one_however_often_it_is_opened) {
    const document_t held = read_document("interface set --ifh 1\nnvi enable --ifh 1\n");
    hold(held);
    for (int i = 0; i < 2; ++i) {
        running_t running(directory_, "natctl");
        ASSERT_EQ(running.open({}), "");
        EXPECT_EQ(write_lines(running.document()), write_lines(held));
    }
}

TEST_F(running_test, a_journal_with_a_line_that_says_nothing_is_refused) {
    const std::pair<const char *, const char *> lines[] = {
        {"@version 1 x", "no version, time and count of commands"},
        {"@frob 1 2", "not known here"},
        {"frob", "no command that configures"},
    };
    for (const auto &[line, reason] : lines) {
        std::filesystem::create_directories(directory_);
        {
            journal_t journal(directory_ + "/journal", {"nat64 running configuration 1"},
                              [text = line](const journal_t::write_fn_t &write) { write(text); });
            ASSERT_EQ(journal.open([](std::string_view) { return std::string(); }), "");
        }
        running_t running(directory_, "natctl");
        EXPECT_EQ(running.open({}), directory_ + "/journal: line 2: " + reason);
    }
}

TEST_F(running_test, one_process_has_it_at_a_time_and_is_named_and_others_may_look) {
    hold(from_);
    running_t first(directory_, "nat64d");
    ASSERT_EQ(first.open({}), "");
    running_t second(directory_, "natctl");
    EXPECT_EQ(second.open(std::chrono::seconds(10)),
              directory_ + ": nat64d (process " + std::to_string(getpid()) + ") has the running configuration");
    running_t third(directory_, "natctl");
    EXPECT_EQ(third.look(), "");
    EXPECT_EQ(write_lines(third.document()), write_lines(from_));
}

TEST_F(running_test, a_server_is_compared_with_the_one_that_the_document_is_of) {
    hold(from_);
    {
        running_t running(directory_, "natctl");
        ASSERT_EQ(running.open({}), "");
        EXPECT_EQ(running.compare({0, 0, {}}), step_t::unknown);
        EXPECT_EQ(running.compare({7, 3, {}}), step_t::in_step) << "all that it was told is in the document";
        EXPECT_EQ(running.compare({7, 4, {}}), step_t::restarted);
        running.in_step_with({7, 3, {}});
        running.begin("test");
        running.carried_out(*from_.item(0).family, FWX_NAT64_OP_ADD, from_.item(0).record);
        ASSERT_EQ(running.end(), "");
    }
    running_t running(directory_, "natctl");
    ASSERT_EQ(running.open({}), "");
    EXPECT_EQ(running.compare({7, 4, {}}), step_t::in_step);
    EXPECT_EQ(running.compare({7, 5, {}}), step_t::changed);
    EXPECT_EQ(running.compare({8, 4, {}}), step_t::restarted);
    running.begin("test");
    running.restarted(true);
    EXPECT_EQ(running.document().size(), 1U) << "a server does not count its timeouts";
    EXPECT_EQ(running.doubtful(), 1U);
    ASSERT_EQ(running.end(), "");
    document_t older;
    ASSERT_EQ(running.older(1, older), "");
    EXPECT_EQ(write_lines(older), write_lines(from_)) << "older versions are what they were";
}

}  // namespace
