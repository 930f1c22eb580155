/* `natctl top` with a server, and in a terminal. */
#include <unistd.h>

#include <set>

#include "natctl_fixture.h"
#include "server_process.h"
#include "tests/support/eventually.h"
#include "tests/support/runtime_directory.h"

namespace {

class top_test : public natctl_test {
protected:
    const runtime_directory_t directory_;
};

TEST_F(top_test, each_look_is_told_in_a_line_of_its_own) {
    const server_process_t server;
    const run_t looks = run_until(2, "--connect alpha --jsonl top --interval 100ms");
    EXPECT_EQ(looks.status, 0);
    std::istringstream lines(looks.answers);
    std::set<std::string> times;
    std::string line;
    for (int look = 0; look < 2 && std::getline(lines, line); ++look) {
        EXPECT_EQ(json_t::parse(line).at("totals").at("pools"), 0) << line;
        times.insert(json_t::parse(line).at("time").get<std::string>());
    }
    EXPECT_EQ(times.size(), 2U);
}

TEST_F(top_test, a_server_is_looked_at_once_where_nobody_watches) {
    const server_process_t server;
    run("--connect alpha pool add --id 7 --param 1 --start 192.0.2.1 --end 192.0.2.4");
    run("--connect alpha pool del --id 8");
    const std::string page = run("--connect alpha top").answers;
    EXPECT_EQ(page.find("server alpha  2"), 0U) << page;
    EXPECT_EQ(page.substr(page.find('\n')),
              "\nsessions 0  static_mappings 0  dynamic_mappings 0  pools 1  pool_ranges 0  rules 0  prefixes 0  "
              "interfaces 0  loggings 0\n"
              "\nPOOL       ADDRESSES  SESSIONS       USE\n7                  4         0      0.0%\n"
              "\nCOMMANDS   RESULT               COUNT\nall        refused_no_entry         1\n");
    EXPECT_EQ(data_of("--connect alpha top --once").at("pools").at(0).at("id"), 7);
    EXPECT_EQ(run("--connect beta top").status, 4);
    for (const char *wrong : {"top", "--csv --connect alpha top", "--dry-run --connect alpha top"}) {
        EXPECT_EQ(run(wrong).status, 2) << wrong;
    }
}

TEST_F(top_test, a_list_that_is_not_taken_whole_is_said_to_be_cut) {
    const server_process_t server;
    EXPECT_EQ(run("--quiet --connect alpha --pipeline 64 batch -", mappings(65537)).status, 0);
    const json_t data = data_of("--connect alpha top --once");
    EXPECT_EQ(data.at("mappings").size(), 65536U);
    EXPECT_EQ(data.at("has_more").dump(), R"({"pools":false,"mappings":true})");
}

#ifdef TMUX_PATH
/** A terminal with a window of a given size, by tmux. */
class tmux_t {
public:
    tmux_t(const std::string &folder, const std::string &command) : socket_(folder + "/tmux") {
        tell("-f /dev/null new-session -d -x 60 -y 12 '" + command + "; echo status $?; read line'");
    }
    ~tmux_t() { tell("kill-server"); }
    tmux_t(const tmux_t &) = delete;
    tmux_t &operator=(const tmux_t &) = delete;

    std::string tell(const std::string &words) const {
        std::string answer;
        FILE *pipe = popen((TMUX_PATH " -S " + socket_ + " " + words + " 2>&1").c_str(), "r");
        char room[4096];
        for (size_t size = 0; (size = fread(room, 1, sizeof room, pipe)) != 0;) {
            answer.append(room, size);
        }
        pclose(pipe);
        return answer;
    }
    testing::AssertionResult shows(const std::string &text) const {
        if (eventually([&] { return tell("capture-pane -p").find(text) != std::string::npos; })) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure() << text << " is not in\n" << tell("capture-pane -p");
    }

private:
    std::string socket_;
};

TEST_F(top_test, a_terminal_shows_it_live_through_new_sizes_and_a_new_server_and_is_then_as_it_was) {
    unsetenv("TMUX");
    const tmux_t terminal(directory_.path(), NATCTL_PATH " --connect alpha top --interval 100ms");
    EXPECT_TRUE(terminal.shows("trying again: no server alpha"));
    auto server = std::make_unique<server_process_t>();
    ASSERT_TRUE(server->is_ready());
    ASSERT_TRUE(terminal.shows("server alpha  2"));
    EXPECT_TRUE(terminal.shows("pools 0"));
    for (const char *id : {"1", "2", "3", "4", "5", "6", "7", "8"}) {
        run(std::string("--connect alpha pool add --param 1 --id ") + id + " --start 10.0.0." + id + " --end 10.0.0." +
            id);
    }
    EXPECT_TRUE(terminal.shows("pools 8"));
    EXPECT_TRUE(terminal.shows("... 2 more"));
    terminal.tell("resize-window -x 40 -y 9");
    EXPECT_TRUE(terminal.shows("... 7 more"));
    server.reset();
    EXPECT_TRUE(terminal.shows("trying again: "));
    EXPECT_TRUE(terminal.shows("pools 8")) << "what was seen last stays";
    server = std::make_unique<server_process_t>();
    EXPECT_TRUE(terminal.shows("pools 0"));
    terminal.tell("send-keys q");
    EXPECT_TRUE(terminal.shows("status 0"));
    EXPECT_EQ(terminal.tell("capture-pane -p").find("server alpha"), std::string::npos);
    EXPECT_EQ(terminal.tell("display-message -p '#{alternate_on} #{cursor_flag}'"), "0 1\n");
}
#endif

}  // namespace
