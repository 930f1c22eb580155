/* natctl with a server in another process: connecting, notifications, hostile answers, and early ends of a batch. */
#include <sys/stat.h>

#include <optional>

#include "natctl_fixture.h"
#include "server_process.h"
#include "tests/nat64d/program.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/eventually.h"
#include "tests/support/other_client.h"
#include "tests/support/runtime_directory.h"
#include "tests/support/zero_server.h"

namespace {

class server_process_test : public natctl_test {
protected:
    const runtime_directory_t scratch_;
};

TEST_F(server_process_test, what_only_the_embedded_server_can_do_is_refused_and_sends_nothing) {
    for (const std::string command : {"dev mapt lookup 192.0.2.1", "dev server drop", "dev server fail-next --code 5",
                                      "dev server sessions generate 3", "dev server notify event"}) {
        SCOPED_TRACE(command);
        const run_t connected = run("--trace --connect alpha " + command);
        EXPECT_TRUE(ends(connected, 2, "only the embedded server can do that"));
        EXPECT_EQ(connected.notes.find("->"), std::string::npos) << connected.notes;
        EXPECT_EQ(connected.answers, "");
        EXPECT_NE(run("--dry-run " + command).answers.find(": nothing to send\n"), std::string::npos);
    }
}

TEST_F(server_process_test, a_change_of_the_embedded_model_is_told_where_servers_run) {
    const std::string set = "timeout set --type udp --value 300";
    EXPECT_EQ(run(set).notes, "") << "no server is there that could be meant";
    const server_process_t server;
    ASSERT_TRUE(server.is_ready());
    const std::string file = scratch_.file("lines", set + '\n'); /* a document and a batch */
    for (const std::string &command : {set, "config apply " + file, std::string("sessions clear --all")}) {
        const std::string name = command.substr(0, command.find(' ', command.find(' ') + 1));
        const std::string notes = "natctl: " + name + ": done by natctl's own server model, which has ended; " +
                                  "running servers: alpha; choose one with --connect or NATCTL_CONNECT\n";
        const run_t got = run(command);
        EXPECT_EQ(got, (run_t{0, got.answers, notes}));
    }
    for (const std::string &command : {"--quiet " + set, "--dry-run " + set, "batch " + file, "config check " + file,
                                       std::string("stats system"), "--connect alpha " + set}) {
        EXPECT_EQ(run(command).notes, "") << command;
    }
}

TEST_F(server_process_test, the_environment_names_the_server_where_no_option_does) {
    const server_process_t alpha;
    const server_process_t beta({}, RLIM_INFINITY, "beta");
    ASSERT_TRUE(alpha.is_ready() && beta.is_ready());
    setenv("NATCTL_CONNECT", "alpha", 1);
    EXPECT_EQ(run("timeout set --type udp --value 300").notes, "");
    EXPECT_EQ(run("--connect beta timeout set --type udp --value 300").status, 0);
    EXPECT_EQ(run("--connect beta timeout set --type icmp --value 30").status, 0);
    EXPECT_EQ(changes_of("alpha"), 1U);
    EXPECT_EQ(changes_of("beta"), 2U);
    EXPECT_EQ(run("top --once").status, 0);
    setenv("NATCTL_CONNECT", "", 1);
    EXPECT_EQ(run("top --once").status, 2) << "an empty name is none";
}

TEST_F(server_process_test, a_client_whose_commands_are_refused_does_not_hide_anothers_from_the_log) {
    const std::string log = scratch_.path() + "/log";
    child_t server;
    ASSERT_TRUE(server.start([&](int ready) {
        dup2(ready, STDOUT_FILENO);
        dup2(creat(log.c_str(), 0600), STDERR_FILENO);
        fwx_host_clock_turn(1); /* the limits are for a second, which now does not end */
        run_natctl({"serve", "alpha"}, std::cin, std::cout, std::cerr);
    }));
    EXPECT_FALSE(as_other_client([](fwx::nat64::client &client) -> fwx::nat64::task<fwx::nat64::result> {
        for (int i = 0; i < 60; ++i) {
            co_await client.pool_del(fwx::nat64::pool{.id = 9});
        }
        EXPECT_NE(std::system(NATCTL_PATH " --connect alpha pool del --id 8"), 0);
        co_return co_await client.pool_del(fwx::nat64::pool{.id = 9});
    }));
    server.end(SIGTERM);
    const std::string refused = "natctl: refused pool_del of 48 bytes: the server has no such entry\n";
    std::string expected;
    for (int i = 0; i < 50; ++i) {
        expected += refused;
    }
    EXPECT_EQ(text_of(log), expected + "natctl: 10 lines left out\n" + refused + "natctl: 1 line left out\n");
}

TEST_F(server_process_test, what_a_server_has_counted_can_be_asked_from_outside) {
    const server_process_t server;
    const json_t counts = data_of("--connect alpha dev server counts");
    EXPECT_EQ(counts.at("clients"), 1);
    EXPECT_EQ(counts.at("commands"), 3) << "init, notifications, and the query itself";
    EXPECT_EQ(counts.at("queued_bytes"), 0);
    EXPECT_EQ(run("--connect alpha timeout set --type 1 --value 300").status, 0);
    EXPECT_EQ(data_of("--connect alpha dev server counts").at("commands"), 3 + 3 + 3);
    EXPECT_EQ(data_of("--connect alpha stats system --sel 1").at("malformed"), 0);
    EXPECT_EQ(data_of("--connect alpha stats system --sel 2"), data_of("--connect alpha dev server boot"));
}

/* A server `liar`. It answers each query with a reply that claims 4096 entries and has none, and sends notifications of
 * an event and a mapping to each client. */
void lie(void *, fwx_host_peer_t *peer, const void *msg, size_t size) {
    const int number = *static_cast<const uint8_t *>(msg) & 0x0f;
    const uint32_t event[] = {0x60c001, 0, 0, 0, 1};
    const uint32_t mapping[16] = {0x60c001, 0, 0, 0, 3, 77};
    if (number == 1) fwx_host_peer_send(peer, event, sizeof event);
    if (number == 1) fwx_host_peer_send(peer, mapping, sizeof mapping);
    if (number < 4) return; /* not a query */
    uint32_t reply[17];
    std::fill(std::begin(reply), std::end(reply), 0x1000);
    std::memcpy(reply, msg, std::min(size, size_t{32}));
    reply[8] = 0; /* result */
    fwx_host_peer_send(peer, reply, sizeof reply);
}
/** A server of its own in another process. */
class other_server_t : public child_t {
public:
    other_server_t(const char *name, decltype(zero_server_ops.received) received,
                   decltype(zero_server_ops.asked) asked = zero_server_ops.asked) {
        const bool is_ready = start([&](int ready) {
            alarm(60); /* so that a client that would wait for ever fails */
            fwx_host_server_ops_t ops = {nullptr, nullptr, received, asked};
            fwx_host_server_t *server = nullptr;
            fwx_host_loop_t *loop = fwx_host_loop_create();
            const bool listens = fwx_host_server_register("fwx_cp", loop, &ops, nullptr, &server) == 0 &&
                                 fwx_host_server_listen(server, name) == 0;
            if (!listens || write(ready, "", 1) != 1) return;
            for (;;) {
                fwx_host_loop_run_once(loop, -1);
            }
        });
        EXPECT_TRUE(is_ready);
    }
};

TEST_F(server_process_test, a_look_at_a_server_that_answers_no_query_ends_in_time) {
    const other_server_t mute("mute", zero_server_ops.received);
    EXPECT_EQ(run("--timeout 50 --connect mute top --once"), (run_t{4, "", "natctl: top: server mute: no answer\n"}));
}

TEST_F(server_process_test, a_server_that_claims_more_entries_than_it_sent_is_not_believed) {
    const other_server_t liar("liar", lie);
    for (const std::string query : {"stats system", "stats interfaces", "stats pools", "stats mappings", "stats limits",
                                    "sessions walk", "dev server counts"}) {
        const run_t result = run("--connect liar --timeout 2000 " + query);
        EXPECT_TRUE(ends(result, 1, "the server claims more entries than it sent")) << query;
        EXPECT_EQ(result.answers, "") << query;
    }
}

TEST_F(server_process_test, what_a_server_sends_unasked_is_watched_as_lines_until_an_interrupt_or_its_end) {
    const other_server_t liar("liar", lie);
    for (const std::string format : {"", "--jsonl "}) {
        const run_t watched = run_until(2, format + "--connect liar watch");
        EXPECT_EQ(watched.status, 0);
        EXPECT_EQ(watched.notes, "");
        const std::vector<std::string> lines = lines_of(watched.answers);
        ASSERT_GE(lines.size(), 2U);
        if (format.empty()) {
            EXPECT_EQ(lines[0].substr(24), " event") << lines[0];
            EXPECT_EQ(lines[1].substr(24), " mapping id=77 value=0 inactive=false") << lines[1];
        } else {
            EXPECT_EQ(json_t::parse(lines[0]).at("notification"), "event");
            EXPECT_EQ(json_t::parse(lines[1]).at("id"), 77);
        }
    }
    std::istringstream nothing;
    std::ostream full(nullptr);
    std::ostringstream notes;
    EXPECT_EQ(run_natctl(words_of("--connect liar watch"), nothing, full, notes), 2);
    EXPECT_EQ(run("watch").status, 2);
    EXPECT_EQ(run("--csv --connect liar watch").status, 2);
}

TEST_F(server_process_test, a_server_says_that_it_serves_in_the_format_that_is_asked_for) {
    const run_t server = run_until(1, "--jsonl serve alpha");
    EXPECT_EQ(server.status, 0) << server.notes;
    EXPECT_EQ(server.answers.substr(0, server.answers.find('\n')), R"({"command":"serve","serving":"alpha"})");
}

TEST_F(server_process_test, a_rule_that_another_client_has_installed_is_refused_and_not_kept_here) {
    const server_process_t server;
    const std::string rule = "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24";
    EXPECT_EQ(run("--connect alpha " + rule).status, 0);
    const json_t outcomes = outcomes_of(rule + "\nmapt show\n", "--connect alpha");
    EXPECT_EQ(outcomes.at(0).at("error"), "refused by the server: the server has this entry already (0x6004)");
    EXPECT_EQ(outcomes.at(1).at("data").at("installed"), 0);
    EXPECT_EQ(outcomes.at(1).at("data").at("leaves"), 0);
}

TEST_F(server_process_test, a_binding_that_fails_says_where_it_looked_and_what_to_do) {
    const server_process_t server;
    const run_t result = run("--connect beta status");
    for (const char *part : {"no server beta for channel fwx_cp", "/fwx_host/beta as ", "no such socket",
                             "natctl serve beta", "running servers: alpha\n"}) {
        EXPECT_TRUE(ends(result, 4, part));
    }
    EXPECT_NE(run("--connect .beta status").notes.find("no server can have the name"), std::string::npos);
}

#ifndef ADDRESS_SANITIZER
TEST_F(server_process_test, a_binding_without_descriptors_fails) {
    std::optional<descriptor_limit_t> limit(0);
    const run_t result = run("status");
    limit.reset();
    EXPECT_EQ(result, (run_t{1, "", "natctl: bind: refused by the system: Too many open files (0x18)\n"}));
}
#endif

TEST_F(server_process_test, a_process_that_takes_no_client_is_a_running_server) {
    mkdir(scratch_.sockets().c_str(), 0700);
    const sockaddr_un address = unix_address(scratch_.sockets() + "/full");
    const int server = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(server, 0), 0);
    const int client = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0); /* fills the queue */
    ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const run_t other = run("--connect other status");
    EXPECT_NE(other.notes.find("; running servers: full\n"), std::string::npos) << other.notes;
    close(client);
    close(server);
}

TEST_F(server_process_test, the_timeout_covers_the_binding) {
    const auto wait = [](void *, fwx_host_peer_t *, const void *, size_t, void *, size_t) -> size_t {
        return static_cast<size_t>(pause());
    };
    const other_server_t busy("busy", zero_server_ops.received, wait);
    fwx_host_sync_timeout_set_ms(3600000); /* which natctl replaces */
    EXPECT_TRUE(ends(run("--timeout 20 --connect busy status"), 3, "bind: no answer within 20 ms\n"));
}

const std::vector<std::string> nine_lines(9, "timeout set --type 1 --value 300");

TEST_F(server_process_test, a_server_that_dies_ends_a_batch_with_one_message) {
    for (const std::string pipeline : {"1", "4"}) {
        SCOPED_TRACE(pipeline);
        server_process_t server;
        const run_t result = run("--keep-going --connect alpha --pipeline " + pipeline + " batch -",
                                 lines_t(nine_lines, 6, [&server] { server.end(SIGKILL); }));
        EXPECT_TRUE(ends(result, 4, ": timeout set: "));
        EXPECT_TRUE(ends(result, 4, " commands done, 1 failed, "));
        EXPECT_EQ(result.notes.find(": timeout set: "), result.notes.rfind(": timeout set: ")) << result.notes;
        EXPECT_EQ(result.notes.find("0 not run"), std::string::npos) << result.notes;
    }
}

TEST_F(server_process_test, a_command_of_a_pipeline_is_sent_while_the_next_line_is_awaited) {
    const server_process_t server;
    FILE *batch = popen(NATCTL_PATH " --connect alpha --quiet --pipeline 8 batch - 2>&1", "w");
    ASSERT_NE(batch, nullptr);
    fputs("timeout set --type 1 --value 300\n", batch);
    fflush(batch);
    EXPECT_TRUE(eventually([] { return changes_of("alpha") == 1; }));
    EXPECT_EQ(pclose(batch), 0);
}

TEST_F(server_process_test, an_interrupt_stops_what_is_not_started_and_leaves_a_whole_document) {
    const run_t result = run("--json --keep-going batch -", lines_t(nine_lines, 4, [] { raise(SIGINT); }));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.notes, "natctl: interrupted: 3 commands done, 0 failed, 6 not run\n");
    EXPECT_EQ(json_t::parse(result.answers).size(), 3U);
}

TEST_F(server_process_test, an_interrupt_ends_a_batch_that_waits_for_a_line_of_a_named_pipe) {
    const std::string path = scratch_.path() + "/pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int lines = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(write(lines, "status\n", 7), 7);
    child_t natctl;
    ASSERT_TRUE(natctl.start([&](int ready) {
        dup2(ready, STDOUT_FILENO);
        execl(NATCTL_PATH, NATCTL_PATH, "--jsonl", "batch", path.c_str(), nullptr);
    }));
    natctl.signal(SIGINT);
    EXPECT_TRUE(eventually([&] { return natctl.has_ended(); }));
    close(lines);
}

TEST_F(server_process_test, of_a_silent_server_no_rules_are_told) {
    const server_process_t server;
    for (const std::string command : {"mapt show", "mapt rules", "mapt explain 192.0.2.1"}) {
        const run_t result =
            run("--timeout 20 --connect alpha batch -", lines_t({command}, 1, [&server] { server.stop(); }));
        server.signal(SIGCONT);
        EXPECT_EQ(result, (run_t{3, "", result.notes}));
    }
}

TEST_F(server_process_test, an_interface_without_prefixes_says_that_it_has_none) {
    EXPECT_EQ(run("interface set --ifh 1").answers, "interface set: ok, the interface has no prefixes now\n");
    const std::string set = "interface set --ifh 1 --sful 64:ff9b::/96";
    EXPECT_EQ(run(set).answers, "interface set: ok\n");
    EXPECT_EQ(run("--csv batch -", set + "\nnvi enable --ifh 1\nstats interfaces\n").answers,
              "ifh,enabled,nvi,mtu,prefixes\n1,true,true,0,1\n");
}

}  // namespace
