/* The help lists all commands, each help fits a screen, and the manual page lists the same commands. */
#include <cctype>
#include <regex>

#include "natctl_fixture.h"
#include "tests/support/eventually.h"

namespace {

class help_test : public natctl_test {
protected:
    /** All commands without subcommands. Checks on the way that each help fits a screen. `help_before` is the help
     * without the last word of the path, which is shown again when that word is an argument and no command. */
    static std::vector<std::string> leaves_of(const std::string &path, const std::string &help_before = {}) {
        constexpr size_t screen = 50;
        const run_t help = run(path + " --help");
        EXPECT_EQ(help.status, 0) << path;
        if (help.answers == help_before) return {};
        EXPECT_LE(lines_of(help.answers).size(), screen) << path;
        std::vector<std::string> leaves;
        for (const std::string &word : lines_of(run("complete " + path + " ''").answers)) {
            if (std::isalpha(static_cast<unsigned char>(word.front())) == 0) continue;
            const std::vector<std::string> more = leaves_of(path.empty() ? word : path + " " + word, help.answers);
            leaves.insert(leaves.end(), more.begin(), more.end());
        }
        if (leaves.empty()) leaves.push_back(path);
        return leaves;
    }
};

TEST_F(help_test, help_is_what_the_option_shows) {
    for (const std::string command : {"", "timeout", "timeout set", "dev server notify"}) {
        const run_t got = run("help " + command);
        EXPECT_EQ(got, run(command + " --help")) << command;
        EXPECT_EQ(got, (run_t{0, got.answers, ""})) << command;
    }
    EXPECT_NE(run("adj set --help").answers.find("--type 1 to 13"), std::string::npos);
    EXPECT_EQ(run("--json batch --help"), run("batch --help"));
    EXPECT_EQ(run("--version").answers.rfind("natctl 1.", 0), 0U);
}

TEST_F(help_test, the_manual_page_lists_the_commands_that_there_are) {
    const std::vector<std::string> leaves = leaves_of("");
    EXPECT_GT(leaves.size(), 60U);
    const std::string manual = text_of(MANUAL_PATH "/natctl.1");
    std::vector<std::string> listed; /* `natctl limit add|mod|del` */
    for (const std::string &line : lines_of(std::regex_replace(manual, std::regex(R"(\\(f.|(.)))"), "$2"))) {
        const size_t at = line.find("natctl ");
        if (line.rfind(".B", 0) == 0 && at != std::string::npos) listed.push_back(line.substr(at));
    }
    for (const std::string &leaf : leaves) {
        const std::string with_other_verbs = std::regex_replace(leaf, std::regex(" ([^ ]+)$"), " (.*[^A-Za-z-])?$1");
        const std::regex pattern("natctl " + with_other_verbs + "([^A-Za-z-].*)?");
        const auto is_it = [&pattern](const std::string &line) { return std::regex_match(line, pattern); };
        EXPECT_TRUE(std::any_of(listed.begin(), listed.end(), is_it)) << leaf;
    }
    const std::vector<std::string> words = lines_of(run("complete ''").answers);
    for (const std::string &line : listed) {
        const std::string word = line.substr(7, line.find_first_of(" |\"", 7) - 7);
        if (std::isalpha(static_cast<unsigned char>(word.front())) == 0) continue;
        EXPECT_EQ(std::count(words.begin(), words.end(), word), 1) << line;
    }
}

}  // namespace
