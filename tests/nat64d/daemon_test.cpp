/* nat64d with servers in other processes: edits, refusals, restarts of either, changes by others, systemd, metrics. */
#include <sys/stat.h>
#include <sys/un.h>

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

    static json_t data_of(const std::string &command) {
        return json_t::parse(run("--json --connect alpha " + command).answers).at("data");
    }
    static uint64_t changes() { return data_of("dev server boot").at("changes").get<uint64_t>(); }
    static bool is_in_step() {
        return eventually([] { return daemon_process_t::is("in_step", true); });
    }
    /** The value of a metric; `name` is without labels or with all of them. */
    static std::string value_of(const std::string &metrics, const std::string &name) {
        const size_t at = metrics.find('\n' + name + ' ');
        if (at == std::string::npos) return "none";
        const size_t begin = at + name.size() + 2;
        return metrics.substr(begin, metrics.find('\n', begin) - begin);
    }
};

TEST_F(daemon_test, a_server_gets_the_document_and_its_edits_and_no_faulty_ones) {
    const server_process_t server;
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
    EXPECT_EQ(changes(), items);
    write(document_text(count + 1, 100));
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("items", items + 3); })) << daemon.log();
    EXPECT_EQ(changes(), items + 3) << "what was there already is not sent again";
    write(document_text(count, 100) + "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.2\n");
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("refusals", 1); })) << daemon.log();
    const json_t status = daemon_process_t::ask("status");
    EXPECT_NE(status.at("refused_reason").get<std::string>().find("line 23: pool add: --id 1"), std::string::npos);
    EXPECT_EQ(status.at("in_step"), true);
    EXPECT_EQ(status.at("items"), items + 3);
    const auto number_of = [](const json_t &digits) { return std::stoull(digits.get<std::string>(), nullptr, 16); };
    EXPECT_EQ(number_of(status.at("boot_id")), number_of(data_of("dev server boot").at("boot_id")));
    EXPECT_EQ(run("--connect alpha daemon reload").status, 1);
    daemon.signal(SIGHUP);
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("refusals", 3); })) << daemon.log();
    std::filesystem::remove(folder() + "/document");
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("refusals", 4); })) << daemon.log();
    write(document_text(count + 1, 200) +
          "mapt bmr add --rule 900 --domain 1 --v4 192.0.2.9/32 --v6 2001:db8:0:1::/64\n");
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("edits", 2); })) << daemon.log();
    EXPECT_NE(daemon.log().find("level=warning event=problem "), std::string::npos) << "rules share a prefix";
    EXPECT_EQ(changes(), items + 5);
    EXPECT_EQ(run("--connect alpha daemon reload").status, 0);
}

TEST_F(daemon_test, an_edit_that_the_server_refuses_is_taken_back) {
    const server_process_t server;
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
    /* Another client adds a pool with an address that the next edit needs, and touches no item of nat64d's. */
    ASSERT_TRUE(others_add_pool(900, "192.0.2.1"));
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("foreign_items", 1); })) << daemon.log();
    EXPECT_EQ(daemon_process_t::ask("status").at("in_step"), true);
    EXPECT_EQ(daemon_process_t::ask("status").at("foreign").at(0),
              "pool add --id 900 --param 1 --start 192.0.2.1 --end 192.0.2.1");
    ASSERT_TRUE(others_delete_pool(count));
    const auto says_drift = [] {
        constexpr auto said =
            "another client has changed the server; natctl daemon replay repairs that with 1 command: pool add --id 7";
        return run("--connect alpha daemon status").answers.find(said) != std::string::npos;
    };
    ASSERT_TRUE(eventually(says_drift)) << daemon.log();
    server.signal(SIGSTOP);
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("server_up", false); })) << daemon.log();
    server.signal(SIGCONT);
    EXPECT_TRUE(eventually(says_drift)) << "again, when the server is back: " << daemon.log();
    EXPECT_EQ(run("--connect alpha daemon replay").status, 0);
    EXPECT_EQ(data_of("stats pools").size(), count + 1) << "what is not in the document is left alone";
    write(document_text(count, 100) + "pool add --id 800 --param 1 --start 198.51.100.1 --end 198.51.100.1\n" +
          "pool add --id 901 --param 1 --start 192.0.2.1 --end 192.0.2.1\n");
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("refusals", 1); })) << daemon.log();
    EXPECT_EQ(data_of("stats pools").size(), count + 1);
    const json_t status = daemon_process_t::ask("status");
    EXPECT_EQ(status.at("in_step"), true) << status;
    EXPECT_EQ(status.at("items"), items);
    EXPECT_NE(status.at("refused_reason").get<std::string>().find("pool add --id 901"), std::string::npos);
    ASSERT_TRUE(others_add_pool(800, "198.51.100.1"));
    EXPECT_TRUE(eventually([] { return daemon_process_t::is("foreign_items", 2); })) << "nat64d no longer claims it";
    EXPECT_TRUE(daemon_process_t::is("in_step", true)) << daemon.log();
}

/* The disk is full for nat64d, so it can store nothing. */
TEST_F(daemon_test, an_edit_that_cannot_be_noted_waits_and_then_still_deletes_what_is_not_in_it) {
    const server_process_t server;
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
    const auto let_files_grow_to = [&](rlim_t bytes) {
        const rlimit limit = {bytes, RLIM_INFINITY};
        ASSERT_EQ(prlimit(daemon.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
    };
    let_files_grow_to(0);
    write(document_text(count - 1, 100));
    ASSERT_TRUE(eventually([] {
        return run("--connect alpha daemon status").answers.find("/coming.new: ") != std::string::npos;
    })) << daemon_process_t::ask("status");
    EXPECT_EQ(changes(), items);
    let_files_grow_to(RLIM_INFINITY);
    EXPECT_TRUE(eventually([] { return daemon_process_t::is("edits", 1); })) << daemon.log();
    EXPECT_EQ(data_of("stats pools").size(), count - 1);
}

TEST_F(daemon_test, after_a_restart_a_document_that_is_refused_does_not_take_the_place_of_the_one_in_force) {
    const std::string wanted_by_others = "pool add --id 901 --param 1 --start 192.0.2.1 --end 192.0.2.1\n";
    {
        const server_process_t server(folder() + "/state");
        const daemon_process_t daemon(folder());
        ASSERT_TRUE(is_in_step()) << daemon.log();
        ASSERT_TRUE(others_add_pool(900, "192.0.2.1"));
    }
    write(document_text(count, 200) + wanted_by_others);
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("server_up", false); })) << daemon.log();
    {
        const server_process_t server(folder() + "/state");
        ASSERT_TRUE(eventually([] { return daemon_process_t::is("refusals", 1); })) << daemon.log();
        EXPECT_EQ(daemon_process_t::ask("status").at("in_step"), true) << daemon.log();
        EXPECT_EQ(daemon_process_t::ask("status").at("items"), items);
    }
    /* Now the server refuses the document in force as well, and a new document solves that. */
    daemon.signal(SIGSTOP);
    const server_process_t server;
    ASSERT_TRUE(others_add_pool(900, "10.0.0.1"));
    daemon.signal(SIGCONT);
    ASSERT_TRUE(eventually([&] { return daemon.log().find("10.0.0.1: the server has some") != std::string::npos; }))
        << daemon.log();
    write("timeout set --type udp --value 300\n");
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("items", 1) && daemon_process_t::is("in_step", true); }))
        << daemon.log();
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
    fwx_host_clock_run();
}

TEST_F(daemon_test, a_server_that_restarts_unseen_is_not_in_step_before_it_has_been_read) {
    auto server = std::make_unique<server_process_t>();
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
    daemon.signal(SIGSTOP);
    server.reset();
    server = std::make_unique<server_process_t>();
    daemon.signal(SIGCONT);
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("server_restarts", 1); })) << daemon.log();
    ASSERT_TRUE(is_in_step()) << daemon.log();
    const std::string log = daemon.log();
    EXPECT_NE(log.find("event=in_step", log.find("event=server_restarted")), std::string::npos) << log;
}

TEST_F(daemon_test, a_server_that_restarts_gets_everything_once) {
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("server_up", false); })) << daemon.log();
    EXPECT_NE(daemon.get("/healthz").find("HTTP/1.1 503"), std::string::npos);
    EXPECT_EQ(daemon.log().find("event=library"), std::string::npos) << daemon.log();
    for (uint64_t restarts = 0; restarts < 3; ++restarts) {
        server_process_t server;
        ASSERT_TRUE(eventually([&] {
            return daemon_process_t::is("in_step", true) && daemon_process_t::is("server_restarts", restarts);
        })) << daemon.log();
        EXPECT_EQ(changes(), items);
        EXPECT_EQ(data_of("dev server counts").at("refused"), 0) << "nothing is deleted of what a server has none of";
        EXPECT_EQ(value_of(daemon.get("/metrics"), "nat64_lookup_rules"), std::to_string(count));
        EXPECT_NE(daemon.get("/healthz").find("HTTP/1.1 200"), std::string::npos);
        server.end(SIGKILL);
        ASSERT_TRUE(eventually([] { return daemon_process_t::is("in_step", false); })) << daemon.log();
    }
    {
        const server_process_t server(folder() + "/state"); /* it keeps its state */
        ASSERT_TRUE(is_in_step()) << daemon.log();
    }
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("in_step", false); })) << daemon.log();
    const server_process_t server(folder() + "/state");
    ASSERT_TRUE(is_in_step()) << daemon.log();
    EXPECT_EQ(changes(), 0) << "it has everything";
    EXPECT_EQ(data_of("stats pools").size(), count);
    EXPECT_EQ(data_of("stats system").at("rules"), count);
}

TEST_F(daemon_test, a_server_that_others_have_used_before_gets_the_document_too) {
    const server_process_t server;
    constexpr uint32_t foreign = 11; /* one more than the status lists */
    for (uint32_t i = 0; i < foreign; ++i) {
        ASSERT_TRUE(others_add_pool(900 + i, fwx::nat64::ipv4_address(0xc0000200U + i)));
    }
    {
        daemon_process_t daemon(folder());
        ASSERT_TRUE(is_in_step()) << daemon.log();
        EXPECT_EQ(data_of("stats pools").size(), count + foreign);
        EXPECT_TRUE(daemon_process_t::is("foreign_items", foreign)) << daemon_process_t::ask("status");
        EXPECT_EQ(daemon_process_t::ask("status").at("foreign").size(), 10U);
        EXPECT_NE(run("--connect alpha config log").answers.find("as it was found"), std::string::npos);
        daemon.end(SIGKILL);
    }
    /* As if nat64d had been killed while it added the first of them. */
    replace_file(folder() + "/natctl/alpha/coming",
                 "# nat64 configuration version 1\npool add --id 900 --param 1 --start 192.0.2.0 --end 192.0.2.0\n");
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
    EXPECT_EQ(data_of("stats pools").size(), count + foreign - 1);
    EXPECT_FALSE(std::filesystem::exists(folder() + "/natctl/alpha/coming"));
}

TEST_F(daemon_test, what_the_library_says_is_logged_when_it_is_asked_for) {
    const daemon_process_t daemon({"alpha", "--config", folder() + "/document", "--debug-level", "4"},
                                  folder() + "/log");
    for (const char *said : {R"(level=info event=library text="NAT64: fwx_nat64_client_connect_to_server attempting)",
                             R"(level=error event=library text="NAT64: fwx_nat64_client_connect_to_server open)"}) {
        EXPECT_TRUE(eventually([&] { return daemon.log().find(said) != std::string::npos; })) << daemon.log();
    }
    EXPECT_EQ(daemon.log().find(R"(text="fwx_nat64_)"), std::string::npos) << "each is said once";
}

TEST_F(daemon_test, visitors_that_go_without_a_question_leave_no_descriptor) {
    const server_process_t server;
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
    const auto before = daemon.descriptors();
    close(daemon_process_t::visit("alpha"));
    EXPECT_TRUE(daemon_process_t::is("in_step", true)) << "it has seen who came earlier";
    EXPECT_TRUE(eventually([&] { return daemon.descriptors() == before; }));
}

TEST_F(daemon_test, a_daemon_that_restarts_beside_its_server_learns_its_rules_and_changes_nothing) {
    const server_process_t server;
    const auto restart_by = [&](int number) {
        daemon_process_t daemon(folder());
        EXPECT_TRUE(is_in_step()) << daemon.log();
        EXPECT_EQ(changes(), items);
        EXPECT_EQ(value_of(daemon.get("/metrics"), "nat64_lookup_rules"), std::to_string(count));
        EXPECT_EQ(value_of(daemon.get("/metrics"), "nat64_rules"), std::to_string(count));
        const int status = daemon.end(number);
        EXPECT_EQ(status, number == SIGTERM ? 0 : -1);
        EXPECT_EQ(std::filesystem::exists(daemon_socket_path("alpha")), number != SIGTERM);
    };
    restart_by(SIGTERM);
    restart_by(SIGKILL);
    const std::string learnt =
        "event=server_read items=" + std::to_string(items) + " rules=" + std::to_string(count) + " failed=0\n";
    EXPECT_NE(text_of(folder() + "/log").find(learnt), std::string::npos);
    restart_by(SIGTERM);
    write("timeout set --type udp\n");
    daemon_process_t daemon(folder());
    EXPECT_TRUE(is_in_step()) << "the document in force stays: " << daemon.log();
    EXPECT_EQ(changes(), items);
    daemon_process_t second(folder());
    EXPECT_EQ(second.end(0), 2) << "one for each server";
}

TEST_F(daemon_test, all_errors_of_a_document_are_counted_the_first_are_named_and_their_end_is_logged) {
    const server_process_t server;
    setenv("JOURNAL_STREAM", "8:1", 1);
    const daemon_process_t daemon(folder());
    unsetenv("JOURNAL_STREAM");
    ASSERT_TRUE(is_in_step()) << daemon.log();
    std::string wrong;
    for (int i = 0; i < 25; ++i) {
        wrong += "frob " + std::to_string(i) + '\n';
    }
    write(document_text(count, 100) + wrong);
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("refusals", 1); })) << daemon.log();
    const json_t status = daemon_process_t::ask("status");
    const auto reason = status.at("refused_reason").get<std::string>();
    EXPECT_EQ(reason.rfind("25 errors: line ", 0), 0u) << reason;
    const std::string end = "; and 22 more";
    ASSERT_GT(reason.size(), end.size());
    EXPECT_EQ(reason.substr(reason.size() - end.size()), end);
    EXPECT_NE(reason.find("line 25: "), std::string::npos) << reason;
    EXPECT_EQ(reason.find("line 26: "), std::string::npos) << reason;
    EXPECT_NE(daemon.log().find(" event=problems_left_out file=" + folder() + "/document problems=5\n"),
              std::string::npos)
        << daemon.log();
    write(document_text(count, 100));
    ASSERT_TRUE(eventually([&] {
        return daemon.log().find("\n<6>time=") != std::string::npos &&
               daemon.log().find(" level=info event=refusal_over document=") != std::string::npos;
    })) << daemon.log();
    EXPECT_NE(daemon.log().find("\n<3>time="), std::string::npos) << "an error in systemd's journal: " << daemon.log();
    EXPECT_FALSE(daemon_process_t::ask("status").contains("refused_reason"));
}

TEST_F(daemon_test, an_edit_outlives_a_server_that_dies_in_the_middle_of_it_and_can_be_replaced_there) {
    constexpr uint32_t many = 3000;
    auto server = std::make_unique<server_process_t>();
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
    write(document_text(many, 100));
    ASSERT_TRUE(eventually([] { return changes() > items; })) << daemon.log();
    server->signal(SIGKILL);
    server.reset();
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("server_up", false); })) << daemon.log();
    EXPECT_EQ(value_of(daemon.get("/metrics"), "nat64_commands_outstanding"), "0") << "they were lost with the server";
    server = std::make_unique<server_process_t>();
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("items", 3 * many + 1) && changes() >= 3 * many + 1; }))
        << daemon.log();
    write(document_text(2 * many, 100));
    ASSERT_TRUE(eventually([] { return changes() > 3 * many + 1; })) << daemon.log();
    write(document_text(many, 100));
    EXPECT_EQ(daemon_process_t::ask("reload").at("items"), 3 * many + 1)
        << "it answers when this document is in force, although another one was being applied: " << daemon.log();
    EXPECT_EQ(data_of("stats system").at("pools"), many);
}

TEST_F(daemon_test, a_document_that_is_refused_after_the_next_one_was_offered_is_not_the_latest) {
    constexpr uint32_t many = 3000;
    const server_process_t server;
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
    ASSERT_TRUE(others_add_pool(9000, "192.0.2.1"));
    const auto write_during_a_refused_edit = [&](const std::string &text) {
        const uint64_t before = changes();
        write(document_text(many, 100) + "pool add --id 9001 --param 1 --start 192.0.2.1 --end 192.0.2.1\n");
        EXPECT_TRUE(eventually([&] { return changes() > before; })) << daemon.log();
        write(text);
    };
    write_during_a_refused_edit(document_text(count, 200));
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("edits", 1); })) << daemon.log();
    json_t status = daemon_process_t::ask("status");
    EXPECT_EQ(status.at("refusals"), 1) << "the pool was refused";
    EXPECT_FALSE(status.contains("refused_reason")) << status.at("refused_reason");
    write_during_a_refused_edit("frob\n");
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("refusals", 3); })) << daemon.log();
    status = daemon_process_t::ask("status");
    EXPECT_NE(status.at("refused_reason").get<std::string>().find("line 1: "), std::string::npos) << status;
}

TEST_F(daemon_test, the_lookup_table_gets_the_rules_that_others_add_during_an_edit) {
    constexpr uint32_t many = 3000;
    const server_process_t server;
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
    write(document_text(many, 100));
    ASSERT_TRUE(eventually([] { return changes() > items; })) << daemon.log();
    ASSERT_TRUE(as_other_client([](fwx::nat64::client &client) {
        return client.mapt_bmr_add(
            fwx::nat64::basic_rule{.rule_id = 9000, .v6 = "2001:db9::/40", .v4 = "192.0.2.0/24", .ea_len = 16});
    }));
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("edits", 1) && daemon_process_t::is("in_step", true); }))
        << daemon.log();
    EXPECT_EQ(value_of(daemon.get("/metrics"), "nat64_lookup_rules"), std::to_string(many + 1));
}

TEST_F(daemon_test, a_document_behind_a_symbolic_link_is_watched_where_it_stands) {
    const server_process_t server;
    std::filesystem::create_directory(folder() + "/real");
    std::filesystem::create_symlink(folder() + "/real/document", folder() + "/link");
    replace_file(folder() + "/real/document", document_text(count, 100));
    const daemon_process_t daemon({"alpha", "--config", "link"}, folder() + "/log");
    ASSERT_TRUE(is_in_step()) << daemon.log();
    replace_file(folder() + "/real/document", document_text(count, 100) + "limit add --type sessions --value 9\n");
    EXPECT_TRUE(eventually([] { return daemon_process_t::is("items", items + 1); })) << daemon.log();
}

TEST_F(daemon_test, what_it_was_about_to_add_before_it_died_is_its_own_after_a_restart) {
    const server_process_t server;
    const std::string kept = folder() + "/kept";
    const std::vector<std::string> words = {"alpha", "--config", folder() + "/document", "--state", kept};
    std::filesystem::create_directories(kept + "/in-force"); /* a folder, so that it can never be noted as in force */
    std::filesystem::permissions(kept, std::filesystem::perms::owner_all);
    {
        const daemon_process_t daemon(words, folder() + "/log");
        ASSERT_TRUE(eventually([] { return changes() == items; })) << daemon.log();
        EXPECT_TRUE(eventually([&] { return daemon.log().find("/in-force: is a directory") != std::string::npos; }));
    }
    write(document_text(count - 1, 100));
    const daemon_process_t daemon(words, folder() + "/log");
    EXPECT_TRUE(eventually([] { return data_of("stats pools").size() == count - 1; })) << daemon.log();
}

TEST_F(daemon_test, a_kept_document_that_is_damaged_or_that_others_can_change_is_not_taken) {
    const std::string kept = folder() + "/kept";
    const std::vector<std::string> words = {"alpha", "--config", folder() + "/document", "--state", kept};
    {
        const server_process_t server;
        const daemon_process_t daemon(words, folder() + "/log");
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(kept + "/in-force"); })) << daemon.log();
    }
    std::ofstream(kept + "/in-force", std::ios::app) << "pool add --id\n";
    write("no document\n");
    daemon_process_t daemon(words, folder() + "/log");
    EXPECT_EQ(daemon.end(0), 2);
    EXPECT_NE(daemon.log().find("/in-force: line "), std::string::npos) << daemon.log();
    ASSERT_EQ(chmod((kept + "/in-force").c_str(), 0622), 0);
    daemon_process_t other(words, folder() + "/log");
    EXPECT_EQ(other.end(0), 2);
    EXPECT_NE(other.log().find("/in-force: other users may write to it (mode 0622)"), std::string::npos) << other.log();
}

TEST_F(daemon_test, without_any_document_it_does_not_start) {
    const server_process_t server;
    replace_file(folder() + "/a\nname", "pool add --id 1\n");
    daemon_process_t daemon({"alpha", "--config", "a\nname"}, folder() + "/log");
    EXPECT_EQ(daemon.end(0), 2);
    EXPECT_NE(daemon.log().find("event=problem file=\"a\\nname\" text=\"line 1: pool add: --"), std::string::npos)
        << daemon.log();
    EXPECT_NE(daemon.log().find("event=cannot_start reason=\"3 errors: line 1: pool add: --"), std::string::npos)
        << daemon.log();
    const std::string pipe = folder() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string &no_file : {pipe, std::string("/dev/zero")}) {
        daemon_process_t other({"alpha", "--config", no_file}, folder() + "/log");
        EXPECT_EQ(other.end(0), 2);
        EXPECT_NE(other.log().find("not a regular file"), std::string::npos) << other.log();
    }
}

TEST_F(daemon_test, systemd_hears_that_it_is_ready_how_it_does_and_that_it_ends) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder() + "/notify";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    daemon_process_t daemon(folder());
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
    const server_process_t server;
    EXPECT_TRUE(comes("STATUS=in step with document "));
    const auto before = daemon.descriptors();
    EXPECT_TRUE(comes("WATCHDOG=1"));
    ASSERT_TRUE(eventually([&] { return daemon.descriptors() <= before; })) << "no word costs a descriptor";
    daemon.signal(SIGTERM);
    EXPECT_TRUE(comes("STOPPING=1"));
    EXPECT_EQ(daemon.end(0), 0);
    close(fd);
}

/* Dashboards and alerts rely on the names, so the documentation must list exactly the metrics that are served. */
TEST_F(daemon_test, the_metrics_are_those_that_are_documented_and_the_dashboard_and_alerts_use_no_others) {
    const server_process_t server;
    write(document_text(count, 100) + "limit add --type 1 --value 1000\n");
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(is_in_step()) << daemon.log();
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
    const std::string metrics = daemon.get("/metrics");
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
    EXPECT_EQ(value_of(metrics, "nat64_commands_total{kind=\"pool_add\",result=\"ok\"}"), std::to_string(count))
        << metrics;
    for (const char *kind : {"pool_add", "smapping_del", "mapt_bmr"}) {
        const std::string name = std::string("nat64_commands_total{kind=\"") + kind + "\",result=\"refused\"}";
        EXPECT_EQ(value_of(metrics, name), "0")
            << "there before the first, so that the first is an increase: " << metrics;
    }
    uint64_t before = 0;
    const std::string bucket = "nat64_command_duration_seconds_bucket{";
    for (size_t at = metrics.find(bucket); at != std::string::npos; at = metrics.find(bucket, at + 1)) {
        const uint64_t in_it = std::stoul(metrics.substr(metrics.find(' ', at)));
        EXPECT_GE(in_it, before) << "it includes those before it: " << metrics.substr(at, 70);
        before = in_it;
    }
    EXPECT_GT(before, 0U);
    for (const char *whole : {"sessions", "mappings{kind=\"static\"}", "pools", "rules"}) {
        EXPECT_EQ(value_of(metrics, std::string("nat64_") + whole), std::to_string(count)) << whole;
    }
    EXPECT_EQ(value_of(metrics, "nat64_document_in_step"), "1");
    EXPECT_EQ(value_of(metrics, "nat64_foreign_items"), "0");
    EXPECT_NE(metrics.find("\nnat64_build_info{version=\"" NAT64D_VERSION "\"} 1\n"), std::string::npos) << metrics;
    for (const char *name : {"process_cpu_seconds_total", "process_resident_memory_bytes", "process_open_fds"}) {
        EXPECT_GT(std::stod(value_of(metrics, name)), 0) << name;
    }
    EXPECT_LT(std::stod(value_of(metrics, "process_open_fds")), std::stod(value_of(metrics, "process_max_fds")));
    EXPECT_EQ(value_of(metrics, "nat64_pool_addresses{pool=\"7\"}"), "1");
    EXPECT_EQ(value_of(metrics, "nat64_limit{type=\"sessions\"}"), "1000");
#ifdef PROMTOOL_PATH
    std::ofstream(folder() + "/metrics") << metrics.substr(metrics.find("\r\n\r\n") + 4);
    EXPECT_EQ(std::system((PROMTOOL_PATH " check metrics <" + folder() + "/metrics").c_str()), 0);
#endif
    const uint64_t commands = data_of("dev server counts").at("commands").get<uint64_t>();
    EXPECT_EQ(value_of(daemon.get("/metrics"), "process_start_time_seconds"),
              value_of(metrics, "process_start_time_seconds"));
    EXPECT_LE(data_of("dev server counts").at("commands").get<uint64_t>() - commands, 4u + 3u + 2u)
        << "four of the scrape, three of natctl, and looks";
    EXPECT_NE(daemon.get("/other").find("HTTP/1.1 404"), std::string::npos);
}

}  // namespace
