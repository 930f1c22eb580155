/* Lists over many replies: complete, cut by --limit, or an error. */
#include "natctl_fixture.h"

namespace {

const std::string add_pool = "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.9\n";

class list_test : public natctl_test {
protected:
    static json_t last_of(const std::string &lines) { return outcomes_of(lines).back(); }
};

TEST_F(list_test, a_list_that_its_limit_cuts_says_so_and_goes_on_from_its_cookie) {
    constexpr struct {
        const char *line;
        size_t rows;
        bool is_cut;
        int next_id; /* identifier of the first row after the cookie; 0: no cookie is known */
    } cuts[] = {
        {"stats mappings --count 7 --limit 10", 10, true, 11},
        {"stats mappings --count 7 --limit 25", 25, false, 0},
        {"stats mappings --limit 26", 25, false, 0},
        {"stats pools --limit 1", 1, false, 0},
        {"stats limits --limit 1", 1, false, 0},
        {"stats limits --count 1", 1, false, 0},
        {"sessions walk --count 7 --limit 20", 20, true, 20},
        {"sessions walk --count 7 --limit 30", 30, false, 0},
        {"sessions walk --count 7 --inside ::/0 --limit 10", 10, true, 0},
    };
    const std::string setup =
        add_pool + "limit add --type 1 --value 3\n" + mappings(25) + "dev server sessions generate 30\n";
    for (const auto &cut : cuts) {
        SCOPED_TRACE(cut.line);
        const std::string line = cut.line;
        const json_t outcome = last_of(setup + line + "\n");
        EXPECT_EQ(outcome.at("data").size(), cut.rows);
        EXPECT_EQ(outcome.contains("cut"), cut.is_cut);
        EXPECT_EQ(outcome.contains("cookie"), cut.next_id != 0);
        if (cut.next_id == 0) continue;
        const std::string cookie = " --cookie " + outcome.at("cookie").dump();
        const json_t first = last_of(setup + line.substr(0, line.find(" --count")) + cookie).at("data").at(0);
        const bool is_walk = line.rfind("sessions", 0) == 0;
        EXPECT_EQ(is_walk ? first.at("src_port") : first.at("id"), is_walk ? 1024 + cut.next_id : cut.next_id);
        EXPECT_TRUE(ends(run("--keep-going batch -", setup + line), 0, cookie));
    }
}

TEST_F(list_test, a_list_that_does_not_advance_ends_with_an_error) {
    const json_t walk =
        last_of("dev server sessions generate 50\ndev server duplicate --copies 2\nsessions walk --count 7\n");
    EXPECT_EQ(walk.at("status"), "refused");
    EXPECT_EQ(walk.at("error"), "the server's list does not advance; the list is not whole");
}

TEST_F(list_test, a_list_that_is_too_long_to_be_kept_ends_with_an_error_and_is_shown_where_it_streams) {
    const std::string made = add_pool + "dev server sessions generate 100001\n";
    const std::string walk = "sessions walk --count 1000";
    const json_t kept = outcomes_of(made + walk + "\n" + walk + " --limit 5\n");
    EXPECT_EQ(
        kept.at(2).at("error"),
        "more than 100000 rows; --jsonl shows sessions as they come, --limit and --cookie ask for a list in parts");
    EXPECT_EQ(kept.at(3).at("data").size(), 5U);
    const run_t streamed = run("--jsonl batch -", made + walk + "\n");
    EXPECT_EQ(streamed.status, 0);
    EXPECT_GE(times_in(streamed.answers, "\n"), 100001U);
}

TEST_F(list_test, sessions_are_those_of_a_prefix_in_a_table_for_a_terminal_or_a_wide_one) {
    const std::string made = add_pool + "dev server sessions generate 40\n";
    const auto shown = [&](const std::string &walk) { return run("batch -", made + walk + "\n").answers; };
    const std::string brief = shown("sessions walk --count 7 --inside 2001:db8:64::1f/125 --limit 3");
    EXPECT_EQ(brief.substr(brief.find("protocol")),
              "protocol  inside                  pool            destination      state        age_s  remaining_s\n"
              "tcp       [2001:db8:64::18]:1048  192.0.2.7:1026  198.18.0.24:443  established  0      7440\n"
              "udp       [2001:db8:64::19]:1049  192.0.2.8:1026  198.18.0.25:443  active       0      300\n"
              "tcp       [2001:db8:64::1a]:1050  192.0.2.9:1026  198.18.0.26:443  established  0      7440\n");
    const std::pair<std::string, size_t> counts[] = {{"2001:db8:64::1f/125 --count 7", 8},
                                                     {"2001:db8:64::1f/128", 1},
                                                     {"192.0.2.0/24", 0},
                                                     {"0.0.0.0/0", 0},
                                                     {"::/0", 40}};
    for (const auto &[prefix, count] : counts) {
        EXPECT_EQ(last_of(made + "sessions walk --inside " + prefix).at("data").size(), count) << prefix;
    }
    EXPECT_NE(shown("sessions walk --wide --limit 1").find("bytes_in"), std::string::npos);
    EXPECT_EQ(last_of(made + "sessions walk --inside 2001:db8::/129\n").at("error"),
              "--inside 2001:db8::/129: must be an address, or a prefix such as 2001:db8::/64");
}

TEST_F(list_test, a_query_that_is_refused_in_full_length_is_no_empty_list) {
    for (const std::string query :
         {"stats system", "stats interfaces", "stats pools", "stats mappings", "stats limits", "sessions walk"}) {
        const json_t outcome = last_of("dev server fail-next --code 0x6005\n" + query + "\n");
        EXPECT_EQ(outcome.at("status"), "refused") << query;
        EXPECT_EQ(outcome.at("code"), 0x6005) << query;
    }
}

/** A trace that advances the clock with each reply of a list. */
class slow_trace_t : public std::stringbuf {
    int sync() override { /* at the end of each line */
        if (str().rfind("<- stats_mapping", 0) == 0) fwx_host_clock_turn(3000);
        str("");
        return 0;
    }
};

TEST_F(list_test, the_timeout_is_the_longest_silence_and_not_the_time_of_a_whole_list) {
    std::istringstream lines(mappings(25) + "stats mappings --count 5\n");
    std::ostringstream answers;
    slow_trace_t trace;
    std::ostream notes(&trace);
    const uint64_t before = fwx_host_clock_ms();
    EXPECT_EQ(run_natctl(words_of("--trace --timeout 5000 batch -"), lines, answers, notes), 0);
    EXPECT_GE(fwx_host_clock_ms() - before, 15000U) << "five replies were slow";
}

TEST_F(list_test, clearing_sessions_says_how_many_matched_and_is_not_sent_when_they_cannot_be_counted) {
    const std::string made =
        "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.2\ndev server sessions generate 9\n";
    const run_t cleared =
        run("batch -", made + "sessions clear --pool-address 192.0.2.2 --protocol udp\nstats pools\n");
    EXPECT_NE(cleared.answers.find("line 3: sessions clear: ok, 4 matched\n"), std::string::npos) << cleared.answers;
    EXPECT_NE(cleared.answers.find("\n1   0       2          5\n"), std::string::npos) << cleared.answers;
    const json_t refused = outcomes_of(made + "dev server fail-next --code 9\nsessions clear --all\nstats system\n");
    EXPECT_EQ(refused.at(3).at("code"), 9);
    EXPECT_EQ(refused.at(4).at("data").at("sessions"), 9);
    const json_t late =
        outcomes_of(made + "dev server hold\nsessions clear --all\ndev server release\nstats system\n", "--timeout 20");
    EXPECT_EQ(late.at(3).at("status"), "no_answer");
    EXPECT_EQ(late.at(5).at("data").at("sessions"), 9) << "a clear that has failed ends no session later";
    const json_t messages = json_of("--dry-run sessions clear --dst 192.0.2.1 --pool-address 192.0.2.2").at("messages");
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages.at(0).at("fields").at("dst"), "192.0.2.1");
    EXPECT_EQ(messages.at(0).at("fields").at("opaque"), "c0000202" + std::string(112, '0'));
}

}  // namespace
