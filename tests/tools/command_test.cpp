/* Single commands: results, exit statuses, formats, dry runs, completion. */
#include "natctl_fixture.h"
#include "server_process.h"
#include "tests/support/runtime_directory.h"

namespace {

class command_test : public natctl_test {};

TEST_F(command_test, statistics_come_as_rows_in_every_format) {
    const json_t system = outcomes_of("pool del --id 1\nstats system\n");
    EXPECT_EQ(system.at(1).at("data").at("pools"), 0);
    EXPECT_EQ(system.at(1).at("data").at("refused_no_entry"), 1);
    EXPECT_EQ(run("--csv stats system --sel 0").answers,
              "interfaces,prefixes,static_mappings,dynamic_mappings,pools,pool_ranges,loggings,rules,sessions\n"
              "0,0,0,0,0,0,0,0,0\n");
}

TEST_F(command_test, a_dry_run_checks_and_leaves_the_server_alone) {
    EXPECT_EQ(run("--dry-run logging add --dest 0.0.0.0 --port 1").status, 1);
    const run_t result =
        run("--dry-run batch -", "timeout set --type 1 --value 300\ndev server fail-next --code 5\ndev server hold\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.notes, "");
    const std::string shown = "line 1: timeout set:\ntimeout_set 48 bytes: op_code=14 type=1 (udp) value=300\n03c06000";
    EXPECT_EQ(result.answers.substr(0, shown.size()), shown);
    EXPECT_NE(result.answers.find("line 3: dev server hold: nothing to send\n"), std::string::npos) << result.answers;
}

TEST_F(command_test, one_format_is_taken_before_the_command_or_behind_it) {
    EXPECT_EQ(json_t::parse(run("status --json").answers).at("data").at("connected"), true);
    for (const std::string two : {"--json --csv", "--csv --jsonl", "--jsonl --json"}) {
        EXPECT_EQ(run(two + " status").status, 2) << two;
        EXPECT_EQ(run("status " + two).status, 2) << two;
    }
}

TEST_F(command_test, quiet_leaves_out_what_only_says_that_all_is_well) {
    EXPECT_EQ(run("--quiet timeout set --type 1 --value 300").answers, "");
    EXPECT_EQ(run("--quiet stats interfaces").answers, "none\n");
    EXPECT_NE(run("--quiet timeout set --type 9 --value 300").notes, "");
    EXPECT_EQ(json_of("--quiet timeout set --type 1 --value 300").at("status"), "ok");
}

TEST_F(command_test, what_could_steer_a_terminal_is_never_shown_as_it_came) {
    for (const std::string command : {"frob\xc2\x9b[2J", "--connect a\x1b[2Jb status", "batch /no\xc2\x9b[file",
                                      "config check /no\x1b]0;file", "help \xc2\x85", "timeout set --type \x7f"}) {
        for (const std::string format : {"", "--json ", "--csv "}) {
            const run_t got = run(format + command);
            EXPECT_NE(got.status, 0) << command;
            for (const std::string &text : {got.answers, got.notes}) {
                for (const char *raw : {"\x1b", "\x7f", "\xc2\x9b", "\xc2\x85"}) {
                    EXPECT_EQ(text.find(raw), std::string::npos) << text;
                }
            }
        }
    }
}

/** Output that accepts nothing, as a full disk. */
class full_output_t : public std::streambuf {};

TEST_F(command_test, an_answer_that_cannot_be_written_is_an_error_of_one_line) {
    const std::vector<std::string> commands[] = {
        {"status"}, {"batch", "-"}, {"--help"}, {"completion", "bash"}, {"complete", "stats"}, {"serve", "full"}};
    alarm(60); /* kills a server that runs on although its caller cannot know of it */
    for (const std::string format : {"--quiet", "--json", "--jsonl", "--csv"}) {
        for (std::vector<std::string> words : commands) {
            const bool has_options = words[0] != "complete";
            if (has_options) words.insert(words.begin(), format);
            full_output_t nothing;
            std::ostream full(&nothing);
            std::istringstream in("status\nstatus\n");
            std::ostringstream notes;
            EXPECT_EQ(run_natctl(words, in, full, notes), 2) << format << ' ' << words.back();
            EXPECT_EQ(notes.str().rfind("natctl: standard output: ", 0), 0U) << notes.str();
            const bool stops =
                notes.str().find("\nnatctl: 0 commands done, 1 failed, 1 not run\n") != std::string::npos;
            EXPECT_EQ(stops, words.back() == "-") << format << notes.str();
        }
    }
    alarm(0);
}

TEST_F(command_test, completion_offers_what_may_come_next) {
    const runtime_directory_t directory;
    const server_process_t server("", RLIM_INFINITY, "gateway-1");
    ASSERT_TRUE(server.is_ready());
    directory.file("fwx_host/gateway-1.txt", "no server");
    constexpr std::pair<const char *, const char *> completed[] = {
        {"limit ''", "add\nmod\ndel\nshow\n--help\n"},
        {"dev server not", "notify\n"},
        {"timeout set --v", "--value\n"},
        {"timeout set --value 1 --type=2 --", "--help\n"},
        {"timeout set --value ''", ""},
        {"--jsonl --",
         "--help\n--version\n--trace\n--capture\n--dry-run\n--keep-going\n--pipeline\n--timeout\n"
         "--connect\n--debug-level\n--quiet\n"},
        {"dev server release --order re", "reverse\n"},
        {"timeout set --type tcp-e", "tcp-est\n"},
        {"dev server silent o", "on\noff\n"},
        {"dev server silent on o", ""},
        {"dev server notify record --op ''", "add\ndel\n"},
        {"--connect ''", "gateway-1\n"},
        {"status --connect gate", "gateway-1\n"},
        {"--capture x", ":\n"},
        {"batch exa", ":\n"},
        {"serve --state ''", ":\n"},
        {"completion ''", "bash\nzsh\nfish\n--help\n"},
    };
    for (const auto &[line, words] : completed) {
        EXPECT_EQ(run(std::string("complete ") + line).answers, words) << line;
    }
    EXPECT_NE(run("completion bash").answers.find("complete -F _natctl natctl"), std::string::npos);
}

}  // namespace
