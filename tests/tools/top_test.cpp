/* From whom `natctl top` has what it shows, and how it behaves in a terminal. */
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "fwx_nat64/client.h"
#include "fwx_nat64/wire.h"
#include "model/model.h"
#include "natctl_fixture.h"
#include "server_process.h"
#include "tests/support/eventually.h"
#include "tests/support/runtime_directory.h"

namespace {

/** Gives each client the next answer. */
class page_server_t {
public:
    explicit page_server_t(std::string answer) : page_server_t(std::vector<std::string>{std::move(answer)}) {}
    explicit page_server_t(std::vector<std::string> answers) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd_, 1), 0);
        getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this, texts = std::move(answers)] {
            for (const std::string &text : texts) {
                const int client = accept(fd_, nullptr, nullptr);
                char room[4096];
                const ssize_t asked = read(client, room, sizeof room);
                request_.assign(room, asked > 0 ? static_cast<size_t>(asked) : 0);
                send(client, text.data(), text.size(), MSG_NOSIGNAL);
                close(client);
            }
        });
    }
    ~page_server_t() {
        request();
        close(fd_);
    }
    page_server_t(const page_server_t &) = delete;
    page_server_t &operator=(const page_server_t &) = delete;

    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    /** What the last client asked, once it has. */
    const std::string &request() {
        if (thread_.joinable()) thread_.join();
        return request_;
    }

private:
    int fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    uint16_t port_ = 0;
    std::thread thread_;
    std::string request_;
};

class top_test : public natctl_test {
protected:
    static run_t top(const std::string &words) { return run("--connect alpha top " + words); }

    const runtime_directory_t directory_;
};

TEST_F(top_test, a_page_of_metrics_is_shown_or_what_it_is_instead) {
    page_server_t good(
        "HTTP/1.0 200 OK\r\nX: y\r\n\r\nnat64_server_up 1\nnat64_document_in_step 0\nnat64_sessions 5\n"
        "nat64_mappings{kind=\"static\"} 2\nnat64_limit{type=\"1\"} 10\nnat64_limit_used{type=\"1\"} 5\n"
        "nat64_pool_addresses{pool=\"3\"} 4\nnat64_pool_sessions{pool=\"3\"} 129024\n"
        "nat64_mapping_sessions{kind=\"static\",mapping=\"6\"} 5\nnat64_series_left_out{of=\"mappings\"} 1\n"
        "nat64_commands_total{kind=\"pool_add\",result=\"ok\"} 3\n"
        "nat64_command_duration_seconds_bucket{le=\"0.001\"} 1\nnat64_command_duration_seconds_bucket{le=\"0.01\"} 3\n"
        "nat64_command_duration_seconds_bucket{le=\"+Inf\"} 3\nother 1\n");
    json_t data = json_t::parse(run("--json top --metrics " + good.address()).answers).at("data");
    EXPECT_EQ(good.request(), "GET /metrics HTTP/1.0\r\nHost: " + good.address() + "\r\n\r\n");
    EXPECT_EQ(data.at("source"), "metrics of " + good.address());
    data.erase("source");
    data.erase("time");
    EXPECT_EQ(data.dump(),
              R"({"problem":null,"in_step":false,"totals":{"sessions":5,"static_mappings":2},"limits":[{"type":)"
              R"("sessions","value":10,"in_use":5,"use":0.5}],"pools":[{"id":3,"addresses":4,"sessions":129024,"use":)"
              R"(0.5}],"mappings":[{"id":6,"kind":"static","sessions":5}],"has_more":{"pools":)"
              R"(false,"mappings":true},"commands":[{"kind":"pool_add","result":"ok","count":3}],"command_times":)"
              R"({"count":3,"half_within_s":0.01,"nearly_all_within_s":0.01}})");
    const std::pair<const char *, const char *> table[] = {
        {"", "no metrics: an empty answer"},
        {"HTTP/1.1 404 Not Found\r\n\r\n", "no metrics: HTTP/1.1 404 Not Found"},
        {"HTTP/1.1 200 OK\r\n", "no metrics: HTTP/1.1 200 OK"},
        {"HTTP/1.1 200 OK\r\n\r\n<html>", "line 1: <html>: no metric"},
        {"HTTP/1.1 200 OK\r\n\r\nup 1\n", "no metrics of a nat64d"},
    };
    for (const auto &[answer, problem] : table) {
        const page_server_t server(answer);
        const run_t got = run("top --metrics " + server.address());
        EXPECT_EQ(got.status, 4) << problem;
        EXPECT_EQ(got.notes, "natctl: top: metrics of " + server.address() + ": " + problem + "\n");
    }
}

TEST_F(top_test, each_look_is_at_a_page_of_its_own) {
    const page_server_t server(
        std::vector<std::string>{"HTTP/1.0 200 OK\r\n\r\nnat64_server_up 1\nnat64_sessions 5\n",
                                 "HTTP/1.0 200 OK\r\n\r\nnat64_server_up 1\nnat64_sessions 6\n"});
    interrupted_lines_t seen(2);
    std::istringstream nothing;
    std::ostream answers(&seen);
    std::ostringstream notes;
    EXPECT_EQ(
        run_natctl(words_of("--jsonl top --interval 100ms --metrics " + server.address()), nothing, answers, notes), 0);
    std::istringstream lines(seen.str());
    for (const int sessions : {5, 6}) {
        std::string line;
        std::getline(lines, line);
        EXPECT_EQ(json_t::parse(line).at("totals").dump(), "{\"sessions\":" + std::to_string(sessions) + "}") << line;
    }
}

TEST_F(top_test, a_server_is_looked_at_once_where_nobody_watches) {
    const server_process_t server;
    ASSERT_TRUE(server.is_ready());
    setenv("XDG_STATE_HOME", directory_.path().c_str(), 1);
    run("--connect alpha pool add --id 7 --param 1 --start 192.0.2.1 --end 192.0.2.4");
    run("--connect alpha pool del --id 8");
    unsetenv("XDG_STATE_HOME");
    const run_t page = top("");
    EXPECT_EQ(page.status, 0) << page.notes;
    const size_t line = page.answers.find('\n');
    EXPECT_EQ(page.answers.find("server alpha  2"), 0U);
    EXPECT_EQ(page.answers.substr(line),
              "\nsessions 0  static_mappings 0  dynamic_mappings 0  pools 1  pool_ranges 0  rules 0  prefixes 0  "
              "interfaces 0  loggings 0\n"
              "\nPOOL       ADDRESSES  SESSIONS       USE\n7                  4         0      0.0%\n"
              "\nCOMMANDS   RESULT               COUNT\nall        refused_no_entry         1\n");
    EXPECT_EQ(json_t::parse(run("--connect alpha --jsonl top --once").answers).at("data").at("pools").at(0).at("id"),
              7);
    EXPECT_EQ(run("--connect beta top").status, 4);
    for (const char *wrong : {"top", "--csv --connect alpha top", "--dry-run --connect alpha top",
                              "--connect alpha top --metrics 127.0.0.1:1", "top --metrics 127.0.0.1"}) {
        EXPECT_EQ(run(wrong).status, 2) << wrong;
    }
}

/** A server `alpha` with one dynamic mapping more than a look takes. */
void serve_many(int ready) {
    fwx_host_loop_t *loop = fwx_host_loop_create();
    const auto model = fwx_nat64_model_t::create(loop, FWX_NAT64_CHANNEL_NAME);
    fwx_nat64_dmapping_payload_t payload{};
    for (payload.map.id = 1; payload.map.id <= 65537; ++payload.map.id) {
        model->restore(FWX_NAT64_CFG_DMAPPING_ADD, &payload, sizeof payload);
    }
    const bool listens = fwx_host_server_listen(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME), "alpha") == 0;
    if (!listens || write(ready, "", 1) != 1) return;
    for (;;) {
        fwx_host_loop_run_once(loop, -1);
    }
}

TEST_F(top_test, a_list_that_is_not_taken_whole_is_said_to_be_cut) {
    child_t server;
    ASSERT_TRUE(server.start(serve_many));
    const json_t data = json_t::parse(run("--json --connect alpha top --once").answers).at("data");
    EXPECT_EQ(data.at("mappings").size(), 65536U);
    EXPECT_EQ(data.at("has_more").dump(), R"({"pools":false,"mappings":true})");
}

#ifdef TMUX_PATH
/** A terminal of its own, whose window has a size. */
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
    bool shows(const std::string &text) const {
        return eventually([&] { return tell("capture-pane -p").find(text) != std::string::npos; });
    }

private:
    std::string socket_;
};

TEST_F(top_test, a_terminal_shows_it_live_through_new_sizes_and_a_new_server_and_is_then_as_it_was) {
    unsetenv("TMUX");
    const tmux_t terminal(directory_.path(), NATCTL_PATH " --connect alpha top --interval 100ms");
    EXPECT_TRUE(terminal.shows("trying again: no server alpha")) << terminal.tell("capture-pane -p");
    auto server = std::make_unique<server_process_t>();
    ASSERT_TRUE(server->is_ready());
    ASSERT_TRUE(terminal.shows("server alpha  2")) << terminal.tell("capture-pane -p");
    EXPECT_TRUE(terminal.shows("pools 0"));
    setenv("XDG_STATE_HOME", directory_.path().c_str(), 1);
    for (const char *id : {"1", "2", "3", "4", "5", "6", "7", "8"}) {
        run(std::string("--connect alpha pool add --param 1 --id ") + id + " --start 10.0.0." + id + " --end 10.0.0." +
            id);
    }
    unsetenv("XDG_STATE_HOME");
    EXPECT_TRUE(terminal.shows("pools 8"));
    EXPECT_TRUE(terminal.shows("... 2 more")) << terminal.tell("capture-pane -p");
    terminal.tell("resize-window -x 40 -y 9");
    EXPECT_TRUE(terminal.shows("... 7 more")) << terminal.tell("capture-pane -p");
    server.reset();
    EXPECT_TRUE(terminal.shows("trying again: "));
    EXPECT_TRUE(terminal.shows("pools 8")) << "what was seen last stays";
    server = std::make_unique<server_process_t>();
    EXPECT_TRUE(terminal.shows("pools 0")) << terminal.tell("capture-pane -p");
    terminal.tell("send-keys q");
    EXPECT_TRUE(terminal.shows("status 0")) << terminal.tell("capture-pane -p");
    EXPECT_EQ(terminal.tell("capture-pane -p").find("server alpha"), std::string::npos);
    EXPECT_EQ(terminal.tell("display-message -p '#{alternate_on} #{cursor_flag}'"), "0 1\n");
}
#endif

}  // namespace
