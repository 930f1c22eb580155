/* nat64d's control socket: its directory, competing daemons, misbehaving clients, and natctl's handling of forged
 * answers. */
#include <sys/stat.h>

#include <tuple>

#include "tests/nat64d/daemon_fixture.h"
#include "tests/tools/server_process.h"

namespace {

class control_test : public daemon_fixture_t {
protected:
    bool comes_up(const daemon_process_t &daemon) const {
        return eventually([&] { return daemon.port() != 0 && !daemon_process_t::status().is_null(); });
    }
    /** Listens in the place of nat64d, to one client at a time. */
    int listen_in_its_place() const {
        std::filesystem::create_directory(sockets());
        std::filesystem::permissions(sockets(), std::filesystem::perms::owner_all);
        const sockaddr_un address = unix_address(daemon_socket_path("alpha"));
        unlink(address.sun_path);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd, 0), 0);
        return fd;
    }
    /** Starts a process that gives all clients that answer, and ends a connection when the client does or after that
     * time. */
    void forge(child_t &forger, const std::string &answer, int waits_ms = 0) const {
        const int listener = listen_in_its_place();
        ASSERT_TRUE(forger.start([&](int ready) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            static_cast<void>(::write(ready, "", 1));
            while (true) {
                const int fd = accept(listener, nullptr, nullptr);
                send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
                pollfd closed = {fd, POLLRDHUP, 0};
                poll(&closed, 1, waits_ms);
                shutdown(fd, SHUT_WR);
            }
        }));
        close(listener);
    }
};

TEST_F(control_test, a_directory_that_is_a_link_is_neither_listened_in_nor_believed_and_nothing_in_it_is_touched) {
    const std::string elsewhere = folder() + "/elsewhere";
    std::filesystem::create_directory(elsewhere);
    std::filesystem::permissions(elsewhere, std::filesystem::perms::owner_all);
    std::ofstream(elsewhere + "/.nat64d.alpha") << "precious";
    std::filesystem::create_symlink(elsewhere, sockets());
    daemon_process_t daemon(folder());
    EXPECT_EQ(daemon.end(0), 2);
    EXPECT_NE(daemon.log().find("socket directory is not this user's alone"), std::string::npos) << daemon.log();
    EXPECT_EQ(text_of(elsewhere + "/.nat64d.alpha"), "precious");
    EXPECT_TRUE(ends(run("--connect alpha daemon status"), 4, "socket directory is not this user's alone"));
}

TEST_F(control_test, of_two_that_start_together_one_has_the_socket_and_keeps_it) {
    for (int i = 0; i < 5; ++i) {
        /* The socket of a dead nat64d remains, and both try to replace it. */
        daemon_process_t dead(folder());
        ASSERT_TRUE(comes_up(dead)) << dead.log();
        dead.end(SIGKILL);
        const auto start = [&](const std::string &name) {
            return std::vector<std::string>{"alpha", "--config", folder() + "/document", "--state", folder() + name};
        };
        const std::string log = folder() + "/log" + std::to_string(i);
        daemon_process_t one(start("/one"), log + "of_one");
        daemon_process_t other(start("/other"), log + "of_other");
        const auto is_refused = [](const daemon_process_t &daemon) {
            return daemon.log().find("another nat64d of this server listens there") != std::string::npos;
        };
        ASSERT_TRUE(eventually([&] { return is_refused(one) || is_refused(other); })) << one.log() << other.log();
        ASSERT_NE(is_refused(one), is_refused(other));
        ASSERT_TRUE(comes_up(is_refused(one) ? other : one)) << one.log() << other.log();
    }
}

TEST_F(control_test,
       a_client_that_waits_for_its_answer_gets_it_beside_silent_ones_and_one_that_talks_too_much_is_dropped) {
    const server_process_t server;
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("in_step", true); })) << daemon.log();
    EXPECT_TRUE(daemon_process_t::ask("nonsense").contains("error"));
    const size_t before = daemon.descriptors();
    server.signal(SIGSTOP);
    const int waiting = daemon_process_t::visit("alpha");
    ASSERT_EQ(send(waiting, "replay\n", 7, MSG_NOSIGNAL), 7);
    std::vector<int> silent;
    for (int i = 0; i < 40; ++i) {
        silent.push_back(daemon_process_t::visit("alpha"));
    }
    EXPECT_TRUE(json_t::parse(converse(waiting, "")).contains("in_step"));
    EXPECT_LT(daemon.descriptors(), before + 24);
    server.signal(SIGCONT);
    EXPECT_TRUE(eventually([] { return daemon_process_t::is("server_up", true); })) << daemon.log();
    EXPECT_TRUE(daemon_process_t::is("reconnections", 0)) << "the channel is the same";
    const std::string endless(1000, 'x');
    ASSERT_EQ(send(silent.back(), endless.data(), endless.size(), MSG_NOSIGNAL), 1000);
    EXPECT_TRUE(eventually([&] { return is_hung_up(silent.back()); }));
    for (const int fd : silent) {
        close(fd);
    }
    EXPECT_TRUE(eventually([&] { return daemon.descriptors() == before; }));
}

TEST_F(control_test, a_log_that_is_not_read_holds_nobody_up) {
    const std::string log = folder() + "/pipe";
    ASSERT_EQ(mkfifo(log.c_str(), 0600), 0);
    const int reader = open(log.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    fcntl(reader, F_SETPIPE_SZ, 4096);
    daemon_process_t daemon(folder(), log);
    ASSERT_TRUE(eventually([] { return !daemon_process_t::status().is_null(); }));
    for (int i = 0; i < 300; ++i) {
        ASSERT_FALSE(daemon_process_t::ask("reload").is_null()) << i;
    }
    EXPECT_FALSE(daemon_process_t::status().is_null());
    std::string seen(size_t{1} << 20, '\0');
    EXPECT_LE(read(reader, seen.data(), seen.size()), 4096);
    EXPECT_EQ(daemon.end(SIGTERM), 0);
    seen.resize(static_cast<size_t>(read(reader, seen.data(), seen.size())));
    EXPECT_NE(seen.find("event=lines_left_out lines="), std::string::npos) << seen;
    close(reader);
}

TEST_F(control_test, an_answer_that_no_nat64d_gives_is_an_error_that_says_so) {
    const std::tuple<std::string, int, const char *> cases[] = {
        {"{\"error\":1}\n", 3, "is not one of nat64d"},
        {"{\"error\":null}\n", 3, "is not one of nat64d"},
        {"{\"error\":\"in \\u001b[31mred\\nand more\"}\n", 1, "in  [31mred and more"},
        {"{}\n", 3, "in_step: must be true or false"},
        {"{\"in_step\":\"yes\",\"server\":\"alpha\"}\n", 3, "in_step: must be true or false"},
        {"{\"in_step\":true,\"server\":[1]}\n", 3, "server: must be a text"},
        {"[]\n", 3, "must be an object"},
        {"7\n", 3, "must be an object"},
        {"\"in_step\"\n", 3, "must be an object"},
        {"not even JSON\n", 3, "must be an object"},
        {"{\"in_step\":true", 3, "the connection was closed without a complete answer"},
        {"", 3, "the connection was closed without a complete answer"},
        {std::string((size_t{1} << 20) + 1, 'x'), 3, "the answer is longer than 1048576 bytes"},
    };
    for (const auto &[answer, status, said] : cases) {
        child_t forger;
        forge(forger, answer);
        for (const char *verb : {"status", "replay"}) {
            const run_t asked = run(std::string("--connect alpha daemon ") + verb);
            EXPECT_TRUE(ends(asked, status, said)) << answer.substr(0, 60) << verb;
        }
    }
    child_t slow;
    forge(slow, "{\"in_step\":true", 60000);
    EXPECT_TRUE(ends(run("--connect alpha --timeout 50 daemon status"), 3, "no answer within 50 ms"))
        << "the deadline is of the whole";
}

TEST_F(control_test, a_nat64d_that_takes_no_client_is_waited_for_as_long_as_the_user_wants) {
    EXPECT_TRUE(ends(run("--connect alpha daemon status"), 4, "no nat64d"));
    const int listener = listen_in_its_place();
    const int first = daemon_process_t::visit("alpha");
    EXPECT_TRUE(ends(run("--connect alpha --timeout 50 daemon status"), 3, "takes no client within 50 ms"));
    close(first);
    close(listener);
}

}  // namespace
