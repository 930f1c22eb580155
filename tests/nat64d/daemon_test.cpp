/* nat64d with servers in other processes: edits, refusals, restarts of either, changes by others, systemd, metrics. */
#include <sys/stat.h>

#include <set>

#include "config/load.h"
#include "tests/nat64d/daemon_fixture.h"
#include "tests/support/other_client.h"
#include "tests/tools/server_process.h"
#include "tools/nat64d/supervisor.h"

namespace {

class daemon_test : public daemon_fixture_t {
protected:
    static constexpr uint32_t count = 7; /* of pools, of mappings, and of rules */
    static constexpr uint64_t items = 3 * count + 1;

    daemon_test() : daemon_fixture_t(count) {}

    /** Starts a server and nat64d, and waits until they are in sync. */
    void start() {
        server_.emplace();
        start_daemon();
        expect_status({{"in_step", true}});
    }
    void start_daemon() { daemon_.emplace(folder()); }
    void start_daemon(const std::vector<std::string> &options) {
        std::vector<std::string> words = {"alpha", "--config"};
        words.insert(words.end(), options.begin(), options.end());
        daemon_.emplace(words, folder() + "/log");
    }
    /** Expects that the status comes to have these values. */
    void expect_status(const json_t &expected) const {
        json_t status;
        EXPECT_TRUE(eventually([&] {
            status = daemon_process_t::status();
            bool is_so = true;
            for (const auto &[member, value] : expected.items()) {
                is_so = is_so && status.at(member) == value;
            }
            return is_so;
        })) << expected
            << status << daemon_->log();
    }
    void expect_logged(const std::string &text) const {
        EXPECT_TRUE(eventually([&] { return has(daemon_->log(), text); })) << text << "\n" << daemon_->log();
    }
    static bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }
    static std::string refused_reason() { return daemon_process_t::status().value("refused_reason", ""); }
    static run_t command(const std::string &words) { return run("--connect alpha " + words); }
    static json_t data_of(const std::string &words) { return natctl_test::data_of("--connect alpha " + words); }
    static uint64_t changes() { return changes_of("alpha"); }
    /** Writes a document, and returns when the server has some of it. */
    void write_and_meet(const std::string &text) const {
        const uint64_t before = changes();
        write(text);
        EXPECT_TRUE(eventually([&] { return changes() > before; })) << daemon_->log();
    }
    std::optional<server_process_t> server_;
    std::optional<daemon_process_t> daemon_;
};

TEST_F(daemon_test, a_server_gets_the_document_and_its_edits_and_no_faulty_ones) {
    start();
    EXPECT_EQ(changes(), items);
    write(document_text(count + 1, 100));
    expect_status({{"items", items + 3}});
    EXPECT_EQ(changes(), items + 3) << "what was there already is not sent again";
    write(document_text(count, 100) + "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.2\n");
    expect_status({{"refusals", 1}, {"in_step", true}, {"items", items + 3}});
    EXPECT_TRUE(has(refused_reason(), "line 23: pool add: --id 1")) << refused_reason();
    const auto number_of = [](const json_t &digits) { return std::stoull(digits.get<std::string>(), nullptr, 16); };
    EXPECT_EQ(number_of(daemon_process_t::status().at("boot_id")), number_of(data_of("dev server boot").at("boot_id")));
    EXPECT_EQ(command("daemon reload").status, 1);
    daemon_->signal(SIGHUP);
    expect_status({{"refusals", 3}});
    std::filesystem::remove(folder() + "/document");
    expect_status({{"refusals", 4}});
    write(document_text(count + 1, 200) +
          "mapt bmr add --rule 900 --domain 1 --v4 192.0.2.9/32 --v6 2001:db8:0:1::/64\n");
    expect_status({{"edits", 2}});
    expect_logged("level=warning event=problem "); /* rules share a prefix */
    EXPECT_EQ(changes(), items + 5);
    EXPECT_EQ(command("daemon reload").status, 0);
}

TEST_F(daemon_test, an_edit_that_the_server_refuses_is_taken_back) {
    start();
    /* Another client adds a pool with an address that the next edit needs, and touches no item of nat64d's. */
    ASSERT_TRUE(others_add_pool(900, "192.0.2.1"));
    const std::string foreign = "pool add --id 900 --param 1 --start 192.0.2.1 --end 192.0.2.1";
    expect_status({{"foreign_items", 1}, {"in_step", true}, {"foreign", json_t::array({foreign})}});
    ASSERT_TRUE(others_delete_pool(count));
    const auto says_drift = [] {
        return has(
            command("daemon status").answers,
            "another client has changed the server; natctl daemon replay repairs that with 1 command: pool add --id 7");
    };
    ASSERT_TRUE(eventually(says_drift)) << daemon_->log();
    server_->signal(SIGSTOP);
    expect_status({{"server_up", false}});
    server_->signal(SIGCONT);
    EXPECT_TRUE(eventually(says_drift)) << "again, when the server is back: " << daemon_->log();
    EXPECT_EQ(command("daemon replay").status, 0);
    EXPECT_EQ(data_of("stats pools").size(), count + 1) << "what is not in the document is left alone";
    write(document_text(count, 100) + "pool add --id 800 --param 1 --start 198.51.100.1 --end 198.51.100.1\n" +
          "pool add --id 901 --param 1 --start 192.0.2.1 --end 192.0.2.1\n");
    expect_status({{"refusals", 1}, {"in_step", true}, {"items", items}});
    EXPECT_EQ(data_of("stats pools").size(), count + 1);
    EXPECT_TRUE(has(refused_reason(), "pool add --id 901")) << refused_reason();
    ASSERT_TRUE(others_add_pool(800, "198.51.100.1"));
    expect_status({{"foreign_items", 2}, {"in_step", true}}); /* nat64d no longer claims it */
}

/* The disk is full for nat64d, so it can store nothing. */
TEST_F(daemon_test, an_edit_that_cannot_be_noted_waits_and_then_still_deletes_what_is_not_in_it) {
    start();
    const auto let_files_grow_to = [&](rlim_t bytes) {
        const rlimit limit = {bytes, RLIM_INFINITY};
        ASSERT_EQ(prlimit(daemon_->pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
    };
    let_files_grow_to(0);
    write(document_text(count - 1, 100));
    ASSERT_TRUE(eventually([] { return has(command("daemon status").answers, "/coming.new: "); }))
        << daemon_process_t::status();
    EXPECT_EQ(changes(), items);
    let_files_grow_to(RLIM_INFINITY);
    expect_status({{"edits", 1}});
    EXPECT_EQ(data_of("stats pools").size(), count - 1);
}

TEST_F(daemon_test, after_a_restart_a_document_that_is_refused_does_not_take_the_place_of_the_one_in_force) {
    server_.emplace(folder() + "/state");
    start_daemon();
    expect_status({{"in_step", true}});
    ASSERT_TRUE(others_add_pool(900, "192.0.2.1"));
    daemon_.reset();
    server_.reset();
    write(document_text(count, 200) + "pool add --id 901 --param 1 --start 192.0.2.1 --end 192.0.2.1\n");
    start_daemon();
    expect_status({{"server_up", false}});
    server_.emplace(folder() + "/state");
    expect_status({{"refusals", 1}, {"in_step", true}, {"items", items}});
    /* Now the server refuses the document in force as well, and a new document solves that. */
    daemon_->signal(SIGSTOP);
    server_.reset();
    server_.emplace();
    ASSERT_TRUE(others_add_pool(900, "10.0.0.1"));
    daemon_->signal(SIGCONT);
    expect_logged("10.0.0.1: the server has some of these addresses in another pool");
    write("timeout set --type udp --value 300\n");
    expect_status({{"items", 1}, {"in_step", true}});
}

/* The clock stands still, so the pause after the refusal does not end. */
TEST_F(daemon_test, a_new_document_does_not_wait_for_the_pause_after_a_refusal) {
    const server_process_t server;
    ASSERT_TRUE(others_add_pool(900, "10.0.0.1"));
    const fwx::host::loop loop;
    fwx_host_clock_turn(0);
    {
        supervisor_t supervisor(loop.get(), "alpha", folder() + "/kept", [] {});
        ASSERT_EQ(supervisor.open(), "");
        const auto offer_until = [&](const std::string &text, auto condition) {
            problems_t problems;
            supervisor.offer(make_offer(load_document(text, problems)));
            return eventually([&] {
                fwx_host_loop_run_once(loop.get(), 5);
                return condition(supervisor.status());
            });
        };
        supervisor.start();
        ASSERT_TRUE(offer_until(document_text(1, 100), [](const daemon_status_t &status) {
            return status.reason.find("pool add --id 1 ") != std::string::npos;
        })) << supervisor.status().reason;
        EXPECT_TRUE(offer_until("timeout set --type udp --value 300\n", [](const daemon_status_t &status) {
            return status.is_in_step;
        })) << supervisor.status().reason;
    }
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
}

TEST_F(daemon_test, a_server_that_restarts_gets_everything_once_and_is_not_in_step_before_it_has_been_read) {
    start_daemon();
    expect_status({{"server_up", false}});
    EXPECT_TRUE(has(daemon_->get("/healthz"), "HTTP/1.1 503"));
    EXPECT_FALSE(has(daemon_->log(), "event=library")) << daemon_->log();
    for (uint64_t restarts = 0; restarts < 3; ++restarts) {
        server_.emplace();
        expect_status({{"in_step", true}, {"server_restarts", restarts}});
        EXPECT_EQ(changes(), items);
        EXPECT_EQ(data_of("dev server counts").at("refused"), 0) << "nothing is deleted of what a server has none of";
        EXPECT_EQ(value_of(daemon_->get("/metrics"), "nat64_lookup_rules"), std::to_string(count));
        EXPECT_TRUE(has(daemon_->get("/healthz"), "HTTP/1.1 200"));
        server_->end(SIGKILL);
        expect_status({{"in_step", false}});
    }
    for (const uint64_t missing : {items, uint64_t{0}}) {
        server_.emplace(folder() + "/state"); /* it keeps its state */
        expect_status({{"in_step", true}});
        EXPECT_EQ(changes(), missing);
        EXPECT_EQ(data_of("stats pools").size(), count);
        server_.reset();
        expect_status({{"in_step", false}});
    }
    server_.emplace();
    expect_status({{"in_step", true}, {"server_restarts", 5}});
    daemon_->signal(SIGSTOP); /* so that it does not see the next restart */
    server_.reset();
    server_.emplace();
    daemon_->signal(SIGCONT);
    expect_status({{"in_step", true}, {"server_restarts", 6}});
    const std::string log = daemon_->log();
    EXPECT_TRUE(has(log.substr(log.rfind("event=server_restarted")), "event=in_step")) << log;
}

TEST_F(daemon_test, a_server_that_others_have_used_before_gets_the_document_too) {
    server_.emplace();
    constexpr uint32_t foreign = 11; /* one more than the status lists */
    for (uint32_t i = 0; i < foreign; ++i) {
        ASSERT_TRUE(others_add_pool(900 + i, fwx::nat64::ipv4_address(0xc0000200U + i)));
    }
    start_daemon();
    expect_status({{"in_step", true}, {"foreign_items", foreign}});
    EXPECT_EQ(data_of("stats pools").size(), count + foreign);
    EXPECT_EQ(daemon_process_t::status().at("foreign").size(), 10U);
    EXPECT_TRUE(has(command("config log").answers, "as it was found"));
    daemon_->end(SIGKILL);
    /* As if nat64d had been killed while it added the first of them. */
    replace_file(folder() + "/natctl/alpha/coming",
                 "# nat64 configuration version 1\npool add --id 900 --param 1 --start 192.0.2.0 --end 192.0.2.0\n");
    start_daemon();
    expect_status({{"in_step", true}});
    EXPECT_EQ(data_of("stats pools").size(), count + foreign - 1);
    EXPECT_FALSE(std::filesystem::exists(folder() + "/natctl/alpha/coming"));
}

TEST_F(daemon_test, what_the_library_says_is_logged_when_it_is_asked_for) {
    start_daemon({"document", "--debug-level", "4"});
    const std::string said = R"( event=library text="NAT64: fwx_nat64_client_connect_to_server )";
    expect_logged("level=info" + said + "attempting");
    expect_logged("level=error" + said + "open");
    EXPECT_FALSE(has(daemon_->log(), R"(text="fwx_nat64_)")) << "each is said once";
}

TEST_F(daemon_test, a_daemon_that_restarts_beside_its_server_learns_its_rules_and_changes_nothing) {
    start();
    for (const int number : {SIGTERM, SIGKILL, SIGTERM}) {
        expect_status({{"in_step", true}});
        EXPECT_EQ(changes(), items);
        const std::string metrics = daemon_->get("/metrics");
        for (const char *name : {"nat64_lookup_rules", "nat64_rules"}) {
            EXPECT_EQ(value_of(metrics, name), std::to_string(count)) << name;
        }
        EXPECT_EQ(daemon_->end(number), number == SIGTERM ? 0 : -1);
        EXPECT_EQ(std::filesystem::exists(daemon_socket_path("alpha")), number != SIGTERM);
        start_daemon();
    }
    expect_logged("event=server_read items=" + std::to_string(items) + " rules=" + std::to_string(count) +
                  " failed=0\n");
    write("timeout set --type udp\n");
    start_daemon();
    expect_status({{"in_step", true}}); /* the document in force stays */
    EXPECT_EQ(changes(), items);
}

TEST_F(daemon_test, all_errors_of_a_document_are_counted_the_first_are_named_and_their_end_is_logged) {
    setenv("JOURNAL_STREAM", "8:1", 1);
    start();
    unsetenv("JOURNAL_STREAM");
    std::string wrong;
    for (int i = 0; i < 25; ++i) {
        wrong += "frob " + std::to_string(i) + '\n';
    }
    write(document_text(count, 100) + wrong);
    expect_status({{"refusals", 1}});
    const std::string said = ": frob: no family of configuration commands; ";
    EXPECT_EQ(refused_reason(), "25 errors: line 23" + said + "line 24" + said + "line 25" + said + "and 22 more");
    expect_logged(" event=problems_left_out file=" + folder() + "/document problems=5\n");
    write(document_text(count, 100));
    expect_logged("\n<6>time=");
    expect_logged(" level=info event=refusal_over document=");
    expect_logged("\n<3>time="); /* an error in systemd's journal */
    EXPECT_FALSE(daemon_process_t::status().contains("refused_reason"));
}

TEST_F(daemon_test, an_edit_outlives_a_server_that_dies_in_the_middle_of_it_and_can_be_replaced_there) {
    constexpr uint32_t many = 3000;
    start();
    write_and_meet(document_text(many, 100));
    ASSERT_TRUE(as_other_client([](fwx::nat64::client &client) {
        return client.mapt_bmr_add(
            fwx::nat64::basic_rule{.rule_id = 9000, .v6 = "2001:db9::/40", .v4 = "192.0.2.0/24", .ea_len = 16});
    }));
    expect_status({{"edits", 1}, {"in_step", true}});
    EXPECT_EQ(value_of(daemon_->get("/metrics"), "nat64_lookup_rules"), std::to_string(many + 1));
    write_and_meet(document_text(2 * many, 100));
    server_->end(SIGKILL);
    expect_status({{"server_up", false}, {"edits", 1}});
    EXPECT_EQ(value_of(daemon_->get("/metrics"), "nat64_commands_outstanding"), "0")
        << "they were lost with the server";
    server_.emplace();
    expect_status({{"items", 6 * many + 1}, {"in_step", true}});
    EXPECT_EQ(changes(), 6 * many + 1);
    write_and_meet(document_text(many, 100));
    write(document_text(count, 100));
    EXPECT_EQ(daemon_process_t::ask("reload").at("items"), items)
        << "it answers when this document is in force, although another one was being applied: " << daemon_->log();
    EXPECT_EQ(data_of("stats system").at("pools"), count);
}

TEST_F(daemon_test, a_document_that_is_refused_after_the_next_one_was_offered_is_not_the_latest) {
    start();
    ASSERT_TRUE(others_add_pool(9000, "192.0.2.1"));
    const std::string refused =
        document_text(3000, 100) + "pool add --id 9001 --param 1 --start 192.0.2.1 --end 192.0.2.1\n";
    write_and_meet(refused);
    write(document_text(count, 200));
    expect_status({{"edits", 1}, {"refusals", 1}});
    EXPECT_EQ(refused_reason(), "");
    write_and_meet(refused);
    write("frob\n");
    expect_status({{"refusals", 3}});
    EXPECT_TRUE(has(refused_reason(), "line 1: ")) << refused_reason();
}

TEST_F(daemon_test, a_document_behind_a_symbolic_link_is_watched_where_it_stands_and_may_have_no_item) {
    server_.emplace();
    std::filesystem::create_directory(folder() + "/real");
    std::filesystem::create_symlink(folder() + "/real/document", folder() + "/link");
    replace_file(folder() + "/real/document", "# nat64 configuration version 1\n");
    start_daemon({"link"});
    expect_status({{"in_step", true}, {"items", 0}});
    replace_file(folder() + "/real/document", document_text(count, 100) + "limit add --type sessions --value 9\n");
    expect_status({{"items", items + 1}});
    replace_file(folder() + "/real/document", ""); /* as a writer that has failed leaves it */
    expect_status({{"refusals", 1}, {"items", items + 1}});
    EXPECT_EQ(daemon_->end(SIGTERM), 0);
}

TEST_F(daemon_test, what_it_was_about_to_add_before_it_died_is_its_own_after_a_restart) {
    server_.emplace();
    const std::string kept = folder() + "/kept";
    std::filesystem::create_directories(kept + "/in-force"); /* a folder, so that it can never be noted as in force */
    std::filesystem::permissions(kept, std::filesystem::perms::owner_all);
    start_daemon({"document", "--state", kept});
    ASSERT_TRUE(eventually([] { return changes() == items; })) << daemon_->log();
    expect_logged("/in-force: is a directory");
    write(document_text(count - 1, 100));
    start_daemon({"document", "--state", kept});
    EXPECT_TRUE(eventually([] { return data_of("stats pools").size() == count - 1; })) << daemon_->log();
}

TEST_F(daemon_test, a_kept_document_that_is_damaged_or_that_others_can_change_is_not_taken) {
    start();
    daemon_->end(SIGTERM);
    const std::string kept = folder() + "/natctl/alpha/in-force";
    replace_file(kept, document_text(count, 100) + "pool add --id\n");
    write("no document\n");
    start_daemon();
    EXPECT_EQ(daemon_->end(0), 2);
    expect_logged("/in-force: line ");
    ASSERT_EQ(chmod(kept.c_str(), 0622), 0);
    start_daemon();
    EXPECT_EQ(daemon_->end(0), 2);
    expect_logged("/in-force: other users may write to it (mode 0622)");
}

TEST_F(daemon_test, without_any_document_it_does_not_start) {
    replace_file(folder() + "/a\nname", "pool add --id 1\n");
    ASSERT_EQ(mkfifo((folder() + "/pipe").c_str(), 0600), 0);
    const std::string fault = "line 1: pool add: --";
    const std::pair<const char *, std::string> cases[] = {
        {"a\nname", "event=problem file=\"a\\nname\" text=\"" + fault},
        {"a\nname", "event=cannot_start reason=\"3 errors: " + fault},
        {"pipe", "not a regular file"},
        {"/dev/zero", "not a regular file"},
    };
    for (const auto &[document, said] : cases) {
        start_daemon({document});
        EXPECT_EQ(daemon_->end(0), 2);
        expect_logged(said);
    }
}

TEST_F(daemon_test, systemd_hears_that_it_is_ready_how_it_does_and_that_it_ends) {
    const std::string path = folder() + "/notify";
    const sockaddr_un address = unix_address(path);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    start_daemon();
    unsetenv("NOTIFY_SOCKET");
    const auto comes = [fd](const std::string &begin) {
        char room[512];
        std::string text;
        for (int words = 0; words < 12 && text.rfind(begin, 0) != 0; ++words) {
            const ssize_t size = read(fd, room, sizeof room);
            if (size <= 0) return false;
            text.assign(room, static_cast<size_t>(size));
        }
        return text.rfind(begin, 0) == 0;
    };
    const timeval patience = {60, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ASSERT_TRUE(comes("READY=1\nSTATUS=the server alpha does not answer: ")) << "it is ready to wait for the server";
    server_.emplace();
    EXPECT_TRUE(comes("STATUS=in step with document "));
    const auto before = daemon_->descriptors();
    EXPECT_TRUE(comes("WATCHDOG=1"));
    ASSERT_TRUE(eventually([&] { return daemon_->descriptors() <= before; })) << "no word costs a descriptor";
    daemon_->signal(SIGTERM);
    EXPECT_TRUE(comes("STOPPING=1"));
    EXPECT_EQ(daemon_->end(0), 0);
    close(fd);
}

/* Dashboards and alerts rely on the names, so the documentation must list exactly the metrics that are served. */
TEST_F(daemon_test, the_metrics_are_those_that_are_documented_and_the_dashboard_and_alerts_use_no_others) {
    write(document_text(count, 100) + "limit add --type 1 --value 1000\n");
    start();
    const auto names_in = [](const std::string &text, const std::string &before) {
        std::set<std::string> names;
        for (size_t at = text.find(before); at != std::string::npos; at = text.find(before, at + 1)) {
            const size_t begin = at + before.size();
            const size_t end = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_", begin);
            const bool is_name = text.compare(begin, 6, "nat64_") == 0 || text.compare(begin, 8, "process_") == 0;
            if (is_name) names.insert(text.substr(begin, end - begin));
        }
        return names;
    };
    const std::string metrics = daemon_->get("/metrics");
    const std::set<std::string> served = names_in(metrics, "# TYPE ");
    std::set<std::string> documented = names_in(text_of(SOURCE_PATH "/docs/nat64d.md"), "| `");
    const std::set<std::string> of_a_store = {"nat64_store_up", "nat64_store_version",
                                              "nat64_store_confirmed_timestamp_seconds"};
    for (const std::string &name : of_a_store) {
        EXPECT_EQ(documented.erase(name), 1U) << name;
    }
    EXPECT_EQ(served, documented);
    for (const std::string file : {"alerts.yml", "dashboard.json"}) {
        std::set<std::string> used = names_in(text_of(SOURCE_PATH "/packaging/prometheus/" + file), "");
        EXPECT_GT(used.size(), 4u) << file;
        for (std::string name : used) {
            const size_t bucket = name.find("_bucket");
            if (bucket != std::string::npos) name.resize(bucket);
            EXPECT_EQ(served.count(name) + of_a_store.count(name), 1u) << file << ": " << name;
        }
    }
    uint64_t before = 0;
    const std::string bucket = "nat64_command_duration_seconds_bucket{";
    for (size_t at = metrics.find(bucket); at != std::string::npos; at = metrics.find(bucket, at + 1)) {
        const uint64_t in_it = std::stoul(metrics.substr(metrics.find(' ', at)));
        EXPECT_GE(in_it, before) << "it includes those before it: " << metrics.substr(at, 70);
        before = in_it;
    }
    EXPECT_GT(before, 0U);
    const std::string all = std::to_string(count);
    const std::pair<std::string, std::string> values[] = {
        {"sessions", all},
        {"mappings{kind=\"static\"}", all},
        {"pools", all},
        {"rules", all},
        {"commands_total{kind=\"pool_add\",result=\"ok\"}", all},
        /* These are there before the first refusal, so that the first one is an increase. */
        {"commands_total{kind=\"pool_add\",result=\"refused\"}", "0"},
        {"commands_total{kind=\"smapping_del\",result=\"refused\"}", "0"},
        {"commands_total{kind=\"mapt_bmr\",result=\"refused\"}", "0"},
        {"document_in_step", "1"},
        {"foreign_items", "0"},
        {"build_info{version=\"" NAT64D_VERSION "\"}", "1"},
        {"pool_addresses{pool=\"7\"}", "1"},
        {"limit{type=\"sessions\"}", "1000"},
    };
    for (const auto &[name, value] : values) {
        EXPECT_EQ(value_of(metrics, "nat64_" + name), value) << name << metrics;
    }
    for (const char *name : {"process_cpu_seconds_total", "process_resident_memory_bytes", "process_open_fds"}) {
        EXPECT_GT(std::stod(value_of(metrics, name)), 0) << name;
    }
    EXPECT_LT(std::stod(value_of(metrics, "process_open_fds")), std::stod(value_of(metrics, "process_max_fds")));
#ifdef PROMTOOL_PATH
    std::ofstream(folder() + "/metrics") << metrics.substr(metrics.find("\r\n\r\n") + 4);
    EXPECT_EQ(std::system((PROMTOOL_PATH " check metrics <" + folder() + "/metrics").c_str()), 0);
#endif
    const uint64_t commands = data_of("dev server counts").at("commands").get<uint64_t>();
    EXPECT_EQ(value_of(daemon_->get("/metrics"), "process_start_time_seconds"),
              value_of(metrics, "process_start_time_seconds"));
    EXPECT_LE(data_of("dev server counts").at("commands").get<uint64_t>() - commands, 4u + 3u + 2u)
        << "four of the scrape, three of natctl, and looks";
    EXPECT_TRUE(has(daemon_->get("/other"), "HTTP/1.1 404"));
}

}  // namespace
