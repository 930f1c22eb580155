/* `natctl top`: its page and JSON made without a server, then with one, and in a terminal. */

#include "tools/natctl/top.h"
#include "natctl_fixture.h"
#include "server_process.h"
#include "tests/support/eventually.h"
#include "tests/support/other_client.h"
#include "tests/support/runtime_directory.h"

namespace {

top_look_t full_look() {
    top_look_t look;
    look.source = "server alpha";
    look.time = "2026-01-31T23:59:59.123Z";
    look.totals = {{"sessions", 129030}, {"pools", 4}, {"rules", 2}};
    look.limits = {{"sessions", 200000, 129030}};
    look.pools = {{1, 254, 5}, {2, 1, 129024}, {3, 0, 0}, {4, 2, 1}};
    look.mappings = {{7, "static", 1}, {8, "dynamic", 3}};
    look.commands = {{"pool_add", "ok", 4}, {"all", "refused_no_entry", 12}};
    sort_by_use(look);
    return look;
}

constexpr const char *full_page =
    "server alpha  2026-01-31T23:59:59.123Z\n"
    "sessions 129030  pools 4  rules 2\n"
    "\n"
    "LIMIT        IN USE   ALLOWED       USE\n"
    "sessions     129030    200000     64.5%\n"
    "\n"
    "POOL       ADDRESSES  SESSIONS       USE\n"
    "2                  1    129024    200.0%\n"
    "4                  2         1      0.0%\n"
    "1                254         5      0.0%\n"
    "3                  0         0      0.0%\n"
    "\n"
    "MAPPING    KIND      SESSIONS\n"
    "8          dynamic          3\n"
    "7          static           1\n"
    "\n"
    "COMMANDS   RESULT               COUNT\n"
    "all        refused_no_entry        12\n"
    "pool_add   ok                       4\n";

TEST(top_page_test, all_is_shown_where_there_is_room_with_what_is_used_most_first) {
    EXPECT_EQ(top_page(full_look(), 80, 19), full_page);
    EXPECT_EQ(top_page(full_look(), SIZE_MAX, top_any_height), full_page);
    EXPECT_EQ(top_page({}, 80, 24), "\n");
}

TEST(top_page_test, a_small_window_cuts_long_tables_first_and_wide_lines) {
    EXPECT_EQ(top_page(full_look(), 26, 18),
              "server alpha  2026-01-31T2\n"
              "sessions 129030  pools 4\n"
              "rules 2\n"
              "\n"
              "LIMIT        IN USE   ALLO\n"
              "sessions     129030    200\n"
              "\n"
              "POOL       ADDRESSES  SESS\n"
              "2                  1    12\n"
              "... 3 more\n"
              "\n"
              "MAPPING    KIND      SESSI\n"
              "8          dynamic        \n"
              "7          static         \n"
              "\n"
              "COMMANDS   RESULT         \n"
              "all        refused_no_entr\n"
              "pool_add   ok             \n");
    for (size_t height = 0; height < 19; ++height) {
        const std::string page = top_page(full_look(), 80, height);
        EXPECT_EQ(static_cast<size_t>(std::count(page.begin(), page.end(), '\n')), height);
    }
}

TEST(top_page_test, what_is_not_known_is_said_and_no_text_reaches_the_terminal_as_more) {
    top_look_t look;
    look.source = "server \x1b[2Jx";
    look.problem = "trying again: no server";
    look.pools = {{9, 1, 0}};
    look.has_more_pools = true;
    EXPECT_EQ(top_page(look, 80, 24),
              "server ?[2Jx\n"
              "trying again: no server\n"
              "\n"
              "POOL       ADDRESSES  SESSIONS       USE\n"
              "9                  1         0      0.0%\n"
              "... more, not all of which are listed\n");
    EXPECT_EQ(top_json(look).dump(),
              R"({"source":"server \u001b[2Jx","time":null,"problem":"trying again: no server","in_step":null,)"
              R"("totals":{},"limits":[],"pools":[{"id":9,"addresses":1,"sessions":0,"use":0.0}],"mappings":[],)"
              R"("has_more":{"pools":true,"mappings":false},"commands":[],"command_times":null})");
}

class top_test : public natctl_test {
protected:
    const runtime_directory_t directory_;
};

TEST_F(top_test, each_look_is_told_in_a_line_of_its_own) {
    const server_process_t server;
    const run_t looks = run_until(2, "--connect alpha --jsonl top --interval 100ms");
    EXPECT_EQ(looks.status, 0);
    const std::vector<std::string> lines = lines_of(looks.answers);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(json_t::parse(lines[0]).at("totals").at("pools"), 0) << lines[0];
    EXPECT_EQ(json_t::parse(lines[1]).at("totals").at("pools"), 0) << lines[1];
    EXPECT_NE(json_t::parse(lines[1]).at("time"), json_t::parse(lines[0]).at("time"));
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
    EXPECT_TRUE(as_other_client([](fwx::nat64::client &client) {
        for (uint32_t id = 1; id <= 65536; ++id) {
            EXPECT_TRUE(client.dmapping_add(fwx::nat64::dynamic_mapping{.id = id}, [](const auto &) {}));
        }
        return client.dmapping_add(fwx::nat64::dynamic_mapping{.id = 65537});
    }));
    const std::string look = run("--json --connect alpha top --once").answers;
    EXPECT_EQ(times_in(look, R"("kind":"dynamic")"), 65536U);
    EXPECT_EQ(times_in(look, R"("has_more":{"pools":false,"mappings":true})"), 1U) << look.substr(look.size() - 300);
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
