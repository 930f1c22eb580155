/* What a server process keeps in its state file. */
#include <filesystem>
#include <fstream>
#include <iterator>

#include "natctl_fixture.h"
#include "server_process.h"
#include "tests/support/runtime_directory.h"

namespace {

class state_test : public natctl_test {
protected:
    static std::string mapping(size_t id) { return "dmapping add --type 1 --id " + std::to_string(id); }
    static int mappings() {
        return json_t::parse(run("--json --connect alpha stats system").answers).at("data").at("dynamic_mappings");
    }
    std::string content() const {
        std::ifstream file(path_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const runtime_directory_t directory_;
    const std::string path_ = directory_.path() + "/alpha.state";
};

TEST_F(state_test, a_server_that_is_killed_at_any_moment_has_what_it_answered) {
    constexpr size_t count = 60;
    std::vector<std::string> lines;
    for (size_t id = 1; id <= count; ++id) {
        lines.push_back(mapping(id));
    }
    for (const size_t kill_before : {2U, 17U, 34U, 60U}) {
        for (const size_t pipeline : {1U, 8U}) {
            SCOPED_TRACE(std::to_string(kill_before) + " of " + std::to_string(pipeline));
            std::filesystem::remove(path_);
            {
                server_process_t server(path_);
                ASSERT_TRUE(server.is_ready());
                lines_t source(lines, kill_before, [&server] { server.end(SIGKILL); });
                std::istream input(&source);
                EXPECT_EQ(run("--connect alpha --pipeline " + std::to_string(pipeline) + " batch -", input).status, 4);
            }
            const server_process_t again(path_);
            ASSERT_TRUE(again.is_ready());
            EXPECT_LE(mappings(), static_cast<int>(kill_before) - 1);
            EXPECT_GE(mappings(), static_cast<int>(kill_before) - static_cast<int>(pipeline));
        }
    }
}

TEST_F(state_test, a_command_that_cannot_be_saved_is_told_as_failed_and_saved_as_soon_as_it_can_be) {
    int held = 0;
    {
        const server_process_t server(path_, 700);
        ASSERT_TRUE(server.is_ready());
        size_t id = 1;
        std::string saved;
        do {
            ASSERT_LT(id, 20U);
            saved = content();
        } while (run("--connect alpha " + mapping(id++)).status == 0);
        const run_t refused = run("--connect alpha " + mapping(id));
        EXPECT_EQ(refused.status, 1);
        EXPECT_NE(refused.notes.find("the server has done it, and could not save that it has (0x600b)"),
                  std::string::npos)
            << refused.notes;
        EXPECT_EQ(mappings(), static_cast<int>(id)) << "a query is answered as ever";
        EXPECT_EQ(content().substr(0, saved.size()), saved);
        server.let_files_grow();
        EXPECT_EQ(run("--connect alpha " + mapping(50)).status, 0);
        held = mappings();
    }
    const server_process_t server(path_);
    EXPECT_EQ(mappings(), held);
    const std::string saved = content();
    EXPECT_EQ(run("--connect alpha stats mappings").status, 0);
    EXPECT_EQ(content(), saved) << "a query writes nothing";
    EXPECT_EQ(run("--connect alpha " + mapping(51)).status, 0);
    EXPECT_EQ(content().substr(0, saved.size()), saved) << "a change is appended";
    EXPECT_GT(content().size(), saved.size());
}

TEST_F(state_test, a_rule_that_could_not_be_saved_is_in_the_table_of_the_library_as_it_is_in_the_server) {
    const server_process_t server(path_, 50);
    ASSERT_TRUE(server.is_ready());
    const std::string rules =
        "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24\n"
        "mapt bmr add --rule 7 --domain 6 --v6 2001:db9::/40 --v4 198.51.100.0/24\n"
        "mapt show\n"
        "mapt bmr del --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24\n"
        "mapt show\nstats system\nserver counts\n";
    const json_t outcomes = json_t::parse(run("--json --keep-going --connect alpha batch -", rules).answers);
    EXPECT_EQ(outcomes.at(0).at("error"), "the server has done it, and could not save that it has (0x600b)");
    EXPECT_EQ(outcomes.at(2).at("data").at("installed"), 2);
    EXPECT_EQ(outcomes.at(2).at("data").at("leaves"), 4);
    EXPECT_EQ(outcomes.at(3).at("code"), 0x600b);
    EXPECT_EQ(outcomes.at(4).at("data").at("installed"), 1);
    EXPECT_EQ(outcomes.at(4).at("data").at("leaves"), 2);
    EXPECT_EQ(outcomes.at(5).at("data").at("rules"), 1);
    EXPECT_EQ(outcomes.at(6).at("data").at("refused"), 3);
}

TEST_F(state_test, a_file_that_is_no_state_is_refused_with_its_line_and_left_as_it_is) {
    const char *const wrong[][2] = {
        {"4294967311 010000002c010000\n= 1 ceaf73d3", "must be an op code and its payload"},
        {"x 01\n= 1 ad51f811", "must be an op code and its payload"},
        {"14 010000002c01000\n= 1 32f6fa71", "must be an op code and its payload"},
        {"14 0100\n= 1 858b15c2", "malformed message"},
        {"14\n= 1 81174c5c", "malformed message"},
        {"6 0200000000000000cb00710000000000000000000000000000000000cb00717f000000000000000000000000\n= 1 0cc6e7de",
         "no such pool"},
    };
    for (const auto &[lines, error] : wrong) {
        const std::string text = std::string("natctl server state 2\n") + lines + "\n";
        std::ofstream(path_) << text;
        const run_t result = run("serve alpha --state " + path_);
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.notes.find("alpha.state: line 2: "), std::string::npos) << result.notes;
        EXPECT_NE(result.notes.find(error), std::string::npos) << result.notes;
        EXPECT_EQ(content(), text);
    }
    EXPECT_NE(run("serve alpha --state " + directory_.path()).notes.find("not a regular file"), std::string::npos);
}

}  // namespace
