/* MAP-T rules: natctl reports the server's result, and the library's table agrees with it. */
#include "natctl_fixture.h"

namespace {

class rule_test : public natctl_test {};

/* Commands that add and delete two rules, and `no`, with which the server refuses the next command. */
const std::string a1 = "mapt bmr add --rule 1 --domain 6 --v6 2001:db8:100::/40 --v4 192.0.2.0/24\n";
const std::string a3 = "mapt bmr add --rule 3 --domain 6 --v6 2001:db8:300::/40 --v4 198.51.100.0/24\n";
const std::string d1 = "mapt bmr del --rule 1 --domain 6\n";
const std::string d3 = "mapt bmr del --rule 3 --domain 6\n";
const std::string no = "dev server fail-next --code 0x6006\n";

TEST_F(rule_test, the_verdict_is_the_servers_and_the_table_follows_it) {
    const std::string done = "status\nstatus\nstatus\nstatus\n"; /* as many as a pipeline holds */
    const struct {
        const char *what;
        std::string lines;
        const char *verdicts; /* for each rule command: o for ok, r for refused by the server */
        int installed;        /* each has two leaves */
        int found;            /* the rule that a lookup of 192.0.2.9 finds; 0: none */
        const char *pipeline = "1";
    } stories[] = {
        {"deleted", a1 + d1, "oo", 0, 0},
        {"refused", no + a1, "r", 0, 0},
        {"refused, then accepted", no + a1 + a1, "ro", 1, 1},
        {"added twice", a1 + a1, "or", 1, 1},
        {"delete refused, then accepted", a1 + no + d1 + d1, "oro", 0, 0},
        {"unknown to the server", d1, "r", 0, 0},
        {"a default rule that is refused", no + "mapt dmr add --id 4\n", "r", 0, 0},
        {"two in flight together", a1 + a3, "oo", 2, 1, "4"},
        {"one rule added, deleted and added at once", a1 + d1 + a1, "ooo", 1, 1, "4"},
        {"added while the table is emptied", "dev server cleanup on\n" + a3 + done + d3 + a1, "ooo", 1, 1, "4"},
    };
    for (const auto &story : stories) {
        SCOPED_TRACE(story.what);
        const json_t outcomes = outcomes_of(story.lines + done + "mapt show\ndev mapt lookup 192.0.2.9\n",
                                            std::string("--pipeline ") + story.pipeline);
        std::string verdicts;
        for (const json_t &outcome : outcomes) {
            const auto command = outcome.at("command").get<std::string>();
            const bool is_rule = command.rfind("mapt bmr", 0) == 0 || command.rfind("mapt dmr", 0) == 0;
            if (is_rule) verdicts += outcome.at("status").get<std::string>().at(0);
        }
        EXPECT_EQ(verdicts, story.verdicts);
        const json_t &table = outcomes.at(outcomes.size() - 2).at("data");
        EXPECT_EQ(table.at("installed"), story.installed);
        EXPECT_EQ(table.at("pending"), 0);
        EXPECT_EQ(table.at("leaves"), 2 * story.installed);
        const json_t &match = outcomes.back();
        EXPECT_EQ(match.contains("data") ? match.at("data").at("rule_id") : json_t(0), story.found);
    }
}

TEST_F(rule_test, a_command_of_a_rule_waits_for_the_one_before_it_and_for_no_other) {
    const run_t result = run("--trace --pipeline 9 batch -", a1 + d1 + "status\n");
    EXPECT_LT(result.notes.find("<- mapt"), result.notes.find("op=del")) << result.notes;
    EXPECT_NE(result.answers.find("outstanding       1\n"), std::string::npos) << result.answers;
}

TEST_F(rule_test, rules_are_listed_as_installed_or_pending_until_their_answer_and_a_late_one_still_counts) {
    const std::string lines =
        "mapt bmr add --rule 2 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24 --ea-len 16\n"
        "dev mapt lookup 192.0.2.1\ndev mapt lookup 2001:db8::1\ndev server hold\n"
        "mapt bmr add --rule 1 --domain 1 --v6 2001:db8:100::/40 --v4 198.51.100.0/24\nmapt rules\nmapt show\n"
        "dev server release\ndev ipalias upload\nmapt show\ndev mapt lookup 2001:db8:100::1\n";
    const json_t outcomes = outcomes_of(lines, "--timeout 20");
    EXPECT_EQ(outcomes.at(4).at("status"), "no_answer");
    const json_t &rows = outcomes.at(5).at("data");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].dump(), R"({"rule_id":2,"domain_id":1,"state":"installed","v6_prefix":"2001:db8::/40",)"
                              R"("v4_prefix":"192.0.2.0/24","ea_len":16,"psid_offset":0,"psid_len":0,"psid":0,)"
                              R"("bmr_index":1,"lookups":2})");
    EXPECT_EQ(rows[1].at("state"), "pending");
    EXPECT_EQ(rows[1].at("rule_id"), 1);
    EXPECT_EQ(outcomes.at(6).at("data").at("pending"), 1);
    EXPECT_EQ(outcomes.at(9).at("data").at("installed"), 2);
    EXPECT_EQ(outcomes.at(10).at("data").at("prefix_len"), 40);
}

}  // namespace
