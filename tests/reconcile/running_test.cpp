/* The running document that is kept of what a server was told. */
#include "reconcile/running.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "config/notation.h"
#include "records/families.h"
#include "tests/reconcile/two_documents.h"
#include "tests/support/runtime_directory.h"

namespace {

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
            running.carried_out(record_family_of(family_kind_t::dmapping), FWX_NAT64_OP_ADD, &mapping);
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

TEST_F(running_test, a_server_that_restarted_and_holds_nothing_leaves_in_doubt_only_what_it_does_not_count) {
    const std::string not_counted =
        "timeout set --type udp --value 10s\n"
        "limit add --type sessions --value 9\n"
        "service add --type alg --value 21\n"
        "adj set --type 13 --address 10.0.0.1\n"
        "replication set --value 7\n"
        "settings set --bytes 01020304000000000000000000000005\n";
    const std::string counted =
        "interface set --ifh 1 --mtu 1400\n"
        "nvi enable --ifh 2\n"
        "prefix add --prefix 64:ff9b::/96 --kind stateful\n"
        "smapping add --id 3 --addr1 2001:db8::1 --addr2 192.0.2.1\n"
        "dmapping add --id 3 --type 1\n"
        "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.10\n"
        "range add --id 1 --start 198.51.100.1 --end 198.51.100.2\n"
        "logging add --dest 192.0.2.9 --port 2055\n"
        "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.3.0/24\n"
        "mapt dmr add --id 1 --prefix 2001:db8:ffff::/64\n";
    hold(read_document(not_counted + counted));
    running_t running(directory_, "natctl");
    ASSERT_EQ(running.open({}), "");
    running.begin("test");
    running.restarted(true);
    EXPECT_EQ(write_lines(running.document()), write_lines(read_document(not_counted)));
    EXPECT_EQ(running.doubtful(), running.document().size());
    ASSERT_EQ(running.end(), "");
}

}  // namespace
