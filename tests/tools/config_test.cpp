/* `natctl config` and `convert` with a server in another process: apply, undo, versions, confirmation, the lock. */

#include <memory>

#include "natctl_fixture.h"
#include "server_process.h"
#include "state/directory.h"
#include "state/lock.h"
#include "state/read_file.h"
#include "tests/support/eventually.h"
#include "tests/support/other_client.h"
#include "tests/support/runtime_directory.h"

namespace {

const std::string first =
    "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.254\n"
    "timeout set --type udp --value 300\n"
    "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24\n";
const std::string second =
    "timeout set --type udp --value 200\n"
    "pool add --id 2 --param 1 --start 192.0.2.1 --end 192.0.2.254\n";
const std::string head = "# nat64 configuration version 1\n";
const std::string first_shown = head + "timeout set --type udp --value 300\n" + first.substr(0, first.find('\n') + 1) +
                                first.substr(first.find("mapt"));

class config_test : public natctl_test {
protected:
    void SetUp() override {
        natctl_test::SetUp();
        ASSERT_TRUE(server_->is_ready());
    }
    void restart_server(const std::string &state_file, rlim_t file_bytes = RLIM_INFINITY) {
        server_.reset();
        server_ = std::make_unique<server_process_t>(state_file, file_bytes);
    }
    std::string file(const std::string &name, const std::string &text) const { return directory_.file(name, text); }
    static run_t alpha(const std::string &command) { return run("--connect alpha " + command); }
    static json_t alpha_json(const std::string &command) { return json_of("--connect alpha " + command); }
    static std::string shown() { return alpha("config show").answers; }
    /** The number of items of each kind that the server reports. */
    static json_t held() { return alpha_json("stats system").at("data"); }
    /** Reads once from a descriptor. Empty at its end. */
    static std::string told(int descriptor) {
        std::string text(size_t{1} << 16, '\0');
        text.resize(static_cast<size_t>(std::max<ssize_t>(read(descriptor, text.data(), text.size()), 0)));
        return text;
    }
    /** Starts natctl with its output in a descriptor. Without one, returns when natctl has begun to say something. */
    static bool start(child_t &natctl, const std::string &command, int output = -1) {
        return natctl.start([&](int ready) {
            dup2(output < 0 ? ready : output, STDERR_FILENO);
            if (output >= 0) dup2(output, STDOUT_FILENO);
            if (output >= 0 && write(ready, "", 1) != 1) return;
            std::signal(SIGPIPE, SIG_IGN); /* nobody reads its later output */
            execl("/bin/sh", "sh", "-c", ("exec " NATCTL_PATH " --connect alpha " + command).c_str(), nullptr);
        });
    }

    /** An apply in another process that waits for a reader of its trace, once it has sent some of its commands. */
    class held_up_apply_t {
    public:
        explicit held_up_apply_t(const std::string &document) {
            int ends[2];
            EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
            fcntl(ends[1], F_SETPIPE_SZ, 4096); /* too small for the trace */
            EXPECT_TRUE(start(natctl, "--trace --quiet --timeout=1h config apply " + document, ends[1]));
            close(ends[1]);
            trace_ = ends[0];
        }
        ~held_up_apply_t() { close(trace_); }

        bool has_begun() const {
            std::string text, more;
            while (text.find("<- result", text.find("dmapping_add")) == std::string::npos) {
                if ((more = told(trace_)).empty()) return false;
                text += more;
            }
            return true;
        }
        /** Reads the rest of its trace, and so lets it end. */
        std::string rest() const {
            std::string text, more;
            while (!(more = told(trace_)).empty()) {
                text += more;
            }
            return text;
        }

        child_t natctl;

    private:
        int trace_ = -1;
    };

    const runtime_directory_t directory_;
    const std::string many_ = file("many", mappings(1000));
    const std::string first_ = file("first", first);
    const std::string second_ = file("second", second);
    const std::string state_ = directory_.path() + "/state/natctl/alpha";
    std::unique_ptr<server_process_t> server_ = std::make_unique<server_process_t>();
};

TEST_F(config_test, a_document_goes_to_the_standard_form_and_comes_back) {
    const std::string lines =
        head + "timeout set --type udp --value 300\npool add --id 1 --param 1 --start 192.0.2.0 --end 192.0.2.255\n";
    const run_t written = run("convert --to ietf-nat " + file("lines", lines));
    EXPECT_EQ(written.status, 0) << written.notes;
    const std::string standard = file("standard", written.answers);
    EXPECT_EQ(run("convert --from ietf-nat " + standard).answers, lines);
    const std::string document = R"({"version":1,"items":{"timeout":[{"type":"udp","value":300}],"pool":[{"id":1,)"
                                 R"("param":1,"start":"192.0.2.0","end":"192.0.2.255"}]}})";
    EXPECT_EQ(run("--json convert --from ietf-nat " + standard).answers,
              R"({"command":"convert","status":"ok","code":0,"data":)" + document + "}\n");
    EXPECT_EQ(json_t::parse(run("convert --as-json --from ietf-nat " + standard).answers).dump(), document);

    const run_t refused = run("--json convert --to ietf-nat " + first_);
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.answers,
              R"({"command":"convert","status":"usage","code":null,"error":")" + first_ +
                  R"(: 1 error","data":{"problems":[{"kind":"error","line":1,"command":"pool add","field":"",)"
                  R"("reason":"--start 192.0.2.1: has no place: a pool of ietf-nat is one prefix"}]}})" +
                  "\n");
    const run_t lossy = run("convert --lossy --to ietf-nat " + first_);
    EXPECT_TRUE(ends(lossy, 0, "natctl: " + first_ + ": line 1: warning: pool add: --id 1: "));
    EXPECT_NE(lossy.answers.find(R"("external-ip-pool": "192.0.2.254/32")"), std::string::npos) << lossy.answers;
    EXPECT_EQ(run("convert " + first_).notes, "natctl: convert: needs --from ietf-nat or --to ietf-nat\n");
    EXPECT_EQ(run("convert --from ietf-nat " + first_).status, 2);
    EXPECT_EQ(run("convert --from ietf-nat /nowhere").notes, "natctl: convert: /nowhere: No such file or directory\n");
}

TEST_F(config_test, answers_and_exit_statuses_are_those_that_programs_rely_on) {
    const std::string wrong = file("wrong", "pool add --id 1 --param 1 --start x --end 192.0.2.1\n");
    const std::string commands =
        R"("commands":["timeout set --type udp --value 300","pool add --id 1 --param 1 --start 192.0.2.1 --end )"
        R"(192.0.2.254","mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24"])";
    const std::tuple<std::string, int, std::string> table[] = {
        /* command, status, and the members of the answer after the command's name */
        {"check " + first_, 0, R"("status":"ok","code":0,"note":"3 items","data":{"items":3,"problems":[]}})"},
        {"check " + wrong, 2,
         R"("status":"usage","code":null,"error":")" + wrong +
             R"(: 1 error","data":{"items":0,"problems":[{"kind":"error",)" +
             R"("line":1,"command":"pool add","field":"--start","reason":"--start x: must be an IPv4 address such as )" +
             R"(192.0.2.1"}]}})"},
        {"diff " + first_, 1, R"("status":"ok","code":0,"data":{"changed":true,)" + commands + "}}"},
        {"apply --check " + first_, 0,
         R"("status":"ok","code":0,"note":"3 commands to send","data":{"changed":true,)" + commands + "}}"},
        {"apply " + first_, 0,
         R"("status":"ok","code":0,"note":"3 commands","data":{"changed":true,)" + commands +
             R"(,"undone":false,"version":1}})"},
        {"apply " + first_, 0,
         R"("status":"ok","code":0,"note":"nothing to change","data":{"changed":false,"commands":[],"undone":false,)"
         R"("version":1}})"},
        {"diff " + first_, 0,
         R"("status":"ok","code":0,"note":"no difference","data":{"changed":false,"commands":[]}})"},
        {"confirm", 1, R"("status":"refused","code":null,"error":"no version waits for it"})"},
        {"rollback 7", 2, R"("status":"usage","code":null,"error":"version 7: must be 0 to 1"})"},
    };
    for (const auto &[command, status, answer] : table) {
        const run_t got = alpha("--json config " + command);
        const std::string name = command.substr(0, command.find(' '));
        EXPECT_EQ(got, (run_t{status, R"({"command":"config )" + name + "\"," + answer + "\n", got.notes})) << command;
    }
    EXPECT_EQ(shown(), first_shown);
    EXPECT_EQ(run("--json config apply --confirm 5s " + first_).status, 2) << "an embedded server cannot wait";
}

TEST_F(config_test, a_refusal_in_the_middle_undoes_what_was_done) {
    restart_server(directory_.path() + "/alpha.state", 20000); /* it cannot grow beyond this */
    ASSERT_EQ(alpha("config apply " + first_).status, 0);
    const json_t got = alpha_json("config apply " + file("many", mappings(2000)));
    EXPECT_EQ(got.at("status"), "refused");
    EXPECT_EQ(got.at("data").at("undone"), true);
    EXPECT_EQ(got.at("data").at("changed"), false);
    EXPECT_EQ(shown(), first_shown);
}

TEST_F(config_test, versions_come_back_and_the_log_names_them) {
    const std::string trace = alpha("--trace config apply " + first_).notes;
    EXPECT_EQ(trace.find("stats"), std::string::npos) << "natctl's own questions are not told: " << trace;
    EXPECT_NE(trace.find("timeout"), std::string::npos) << trace;
    alpha("config apply " + second_);
    alpha("timeout set --type udp --value 7");
    const std::string latest = shown();
    EXPECT_EQ(alpha("config rollback").status, 0);
    EXPECT_EQ(alpha("config rollback 1").status, 0);
    EXPECT_EQ(shown(), first_shown);
    EXPECT_EQ(alpha("config rollback 4").status, 0);
    EXPECT_EQ(shown(), latest);
    EXPECT_EQ(alpha("config show 4").answers, latest);
    EXPECT_EQ(alpha("config show 3").notes,
              "natctl: config show: version 3: timeout set was a single command, and left no document\n");
    EXPECT_EQ(held().at("rules"), 0);
    std::string log;
    const json_t rows = alpha_json("config log").at("data");
    for (const json_t &row : rows) {
        log +=
            row.at("version").dump() + " " + row.at("what").get<std::string>() + " " + row.at("commands").dump() + "\n";
    }
    EXPECT_EQ(log, "1 config apply " + first_ + " 3\n2 config apply " + second_ +
                       " 4\n3 timeout set 1\n4 as it was found 0\n5 config rollback 2 1\n6 config rollback 1 4\n"
                       "7 config rollback 4 4\n");
    /* A rollback restores items that the server has accepted, even if `config check` refuses them in a document. */
    EXPECT_EQ(alpha("pool add --id 9 --param 1 --start 0.0.0.1 --end 0.0.0.2").status, 0);
    const std::string taken = shown();
    EXPECT_EQ(alpha("config apply " + first_).status, 0);
    EXPECT_EQ(alpha("config rollback").status, 0);
    EXPECT_EQ(shown(), taken);
    std::filesystem::resize_file(state_ + "/documents/10", most_file_bytes + 1);
    EXPECT_EQ(alpha("config rollback").status, 0) << "the newest other version cannot be read";
    EXPECT_EQ(shown(), latest);
}

TEST_F(config_test, what_single_commands_have_changed_is_shown_and_logged) {
    const std::string lines =
        first + "range add --id 44 --start 203.0.113.1 --end 203.0.113.9\n" + "dmapping add --id 3 --type 1\n";
    EXPECT_EQ(run("--keep-going --pipeline 8 --connect alpha batch -", lines).status, 1);
    std::string expected = first_shown;
    expected.insert(expected.find("mapt"), "dmapping add --id 3 --type address-dependent\n");
    EXPECT_EQ(shown(), expected);
    EXPECT_EQ(alpha_json("config log").at("data").at(0).at("what"), "batch -");
    EXPECT_EQ(alpha("config diff " + first_).answers, "dmapping del --id 3  # ends its sessions\n");
}

TEST_F(config_test, a_server_that_has_started_anew_gets_what_it_lacks) {
    alpha("config apply " + first_);
    const std::string state = directory_.path() + "/alpha.state";
    const std::pair<std::string, std::string> rows[] = {
        {"", "3 commands"}, {state, "3 commands"}, {state, "nothing to change"}};
    for (const auto &[state_file, answer] : rows) {
        restart_server(state_file);
        EXPECT_EQ(alpha("config apply " + first_).answers, "config apply: ok, " + answer + "\n");
        EXPECT_EQ(held().at("pools"), 1);
        EXPECT_EQ(held().at("rules"), 1);
        EXPECT_EQ(alpha("config diff " + first_).answers, "config diff: ok, no difference\n");
    }
}

TEST_F(config_test, an_apply_that_is_killed_or_interrupted_is_put_right_by_the_next) {
    for (const int signal : {SIGKILL, SIGINT}) {
        SCOPED_TRACE(signal);
        ASSERT_EQ(alpha("config apply " + first_).status, 0);
        held_up_apply_t apply(many_);
        ASSERT_TRUE(apply.has_begun());
        EXPECT_NE(held().at("dynamic_mappings"), 0);
        apply.natctl.signal(signal);
        apply.rest();
        EXPECT_EQ(apply.natctl.end(0), signal == SIGINT ? 2 : -1);
        if (signal == SIGINT) {
            EXPECT_EQ(shown(), first_shown) << "what was done is undone";
        }
        EXPECT_EQ(alpha("config apply " + many_).status, 0);
        EXPECT_EQ(held().at("dynamic_mappings"), 1000);
        EXPECT_EQ(held().at("pools"), 0);
    }
}

TEST_F(config_test, an_interrupt_before_the_first_command_says_so_and_one_after_the_last_ends_nothing) {
    int answers[2];
    ASSERT_EQ(pipe2(answers, O_CLOEXEC), 0);
    const std::string full(static_cast<size_t>(fcntl(answers[1], F_SETPIPE_SZ, 4096)), ' ');
    const std::string apply = "--timeout=1h config apply " + first_;
    child_t natctl;
    {
        lock_t other(lock_path_of("alpha"), "natctl");
        ASSERT_EQ(take_server_lock(other, "alpha", {}), "");
        ASSERT_TRUE(start(natctl, apply, answers[1]));
        EXPECT_NE(told(answers[0]).find("waiting for up to"), std::string::npos);
        EXPECT_EQ(natctl.end(SIGINT), 2);
        EXPECT_EQ(told(answers[0]), "natctl: interrupted: nothing was sent\n");
    }
    ASSERT_EQ(write(answers[1], full.data(), full.size()), static_cast<ssize_t>(full.size()));
    ASSERT_TRUE(start(natctl, apply, answers[1]));
    ASSERT_TRUE(eventually([&] { return alpha("config log").answers.find("config apply") != std::string::npos; }));
    natctl.signal(SIGINT);
    EXPECT_EQ(told(answers[0]), full) << "until now natctl could not say how it ended";
    EXPECT_EQ(natctl.end(0), 0);
    EXPECT_EQ(told(answers[0]), "config apply: ok, 3 commands\n");
    close(answers[0]);
    close(answers[1]);
}

TEST_F(config_test, each_family_shows_what_the_server_holds_of_it) {
    alpha("config apply " +
          file("document",
               first + "pool add --id 2 --param 1 --start 10.0.0.1 --end 10.0.0.9 --hsl 4\nnvi enable --ifh 8\n"));
    EXPECT_EQ(alpha("pool show").answers,
              "id  param  start      end          hsl\n"
              "1   1      192.0.2.1  192.0.2.254  null\n"
              "2   1      10.0.0.1   10.0.0.9     4\n");
    EXPECT_EQ(alpha_json("mapt bmr show").at("data").dump(),
              R"([{"rule":5,"domain":6,"v6":"2001:db8::/40","v4":"192.0.2.0/24"}])");
    EXPECT_EQ(alpha("smapping show").answers, "none\n");
    EXPECT_EQ(alpha("nvi show").answers, "ifh\n8\n");
    EXPECT_NE(run("pool --help").answers.find("Shows what the server holds"), std::string::npos);
}

TEST_F(config_test, versions_that_cannot_be_kept_refuse_before_the_first_command) {
    ASSERT_TRUE(others_add_pool(3, "192.0.2.9"));
    const std::string in_the_way = file("state", "");
    const std::string single = "timeout set --type udp --value 3";
    EXPECT_TRUE(ends(alpha(single), 2, in_the_way));
    EXPECT_TRUE(ends(alpha("config apply " + first_), 2, in_the_way));
    std::filesystem::remove(in_the_way);
    std::filesystem::create_directories(state_ + "/documents/1.new");
    EXPECT_TRUE(ends(alpha("config apply " + first_), 2, state_));
    EXPECT_EQ(changes_of("alpha"), 1U);
    const std::string why = "the server has done it, but the version could not be saved: " + state_ + "/documents/1";
    EXPECT_TRUE(ends(alpha(single), 2, "natctl: timeout set: " + why));
    EXPECT_EQ(changes_of("alpha"), 2U);
}

TEST_F(config_test, while_a_daemon_has_the_server_configuring_is_refused_and_looking_is_not) {
    alpha("config apply " + first_);
    lock_t daemon(lock_path_of("alpha"), "nat64d");
    ASSERT_EQ(take_server_lock(daemon, "alpha", {}), "");
    setenv("XDG_STATE_HOME", (directory_.path() + "/other").c_str(), 1); /* the lock does not depend on it */
    const std::string batch = file("batch", "pool del --id 1\npool del --id 1\n");
    for (const std::string &command :
         {"config apply " + second_, std::string("pool del --id 1"), "--keep-going batch " + batch}) {
        const run_t got = alpha(command);
        EXPECT_TRUE(ends(got, 5, "nat64d (process ")) << "a status of its own, so that a script can try again";
        EXPECT_EQ(got.notes.find("waiting"), std::string::npos) << "a daemon is not waited for: " << got.notes;
    }
    EXPECT_EQ(shown(), first_shown);
    EXPECT_EQ(alpha("config diff " + first_).status, 0);
}

TEST_F(config_test, a_natctl_that_waits_for_another_says_for_whom_and_how_long) {
    lock_t other(lock_path_of("alpha"), "natctl");
    ASSERT_EQ(take_server_lock(other, "alpha", {}), "");
    const run_t got = run("--json --timeout 400 --connect alpha timeout set --type udp --value 3");
    EXPECT_EQ(got.status, 5);
    const std::string holder = "natctl (process " + std::to_string(getpid()) + ")";
    EXPECT_EQ(got.notes, "natctl: server alpha: " + holder + " is changing it; waiting for up to 400 ms\n" +
                             "natctl: timeout set: server alpha: " + holder + " is changing it\n");
    EXPECT_EQ(json_t::parse(got.answers).at("status"), "locked");
    EXPECT_TRUE(json_t::parse(got.answers).at("code").is_null());
}

TEST_F(config_test, a_change_goes_unless_it_is_confirmed) {
    alpha("config apply " + first_);
    EXPECT_TRUE(
        ends(alpha("config apply --confirm 1s " + second_), 1, "version 2 was not confirmed in time, and is undone"));
    EXPECT_EQ(shown(), first_shown);
    child_t natctl;
    ASSERT_TRUE(start(natctl, "config apply --confirm 1h " + second_)) << "it says that it waits";
    natctl.signal(SIGHUP); /* as if the change had cut off its terminal */
    EXPECT_TRUE(eventually([] { return alpha("config confirm").answers == "config confirm: ok, version 4 stays\n"; }));
    EXPECT_EQ(natctl.end(0), 0);
    EXPECT_EQ(alpha("config diff " + second_).status, 0);
}

TEST_F(config_test, a_change_that_cannot_wait_for_its_confirmation_is_undone_at_once) {
    alpha("config apply " + first_);
    const std::vector<std::string> in_the_way[] = {{"/documents/2.new", "/documents/3.new"}, {"/unconfirmed.new"}};
    for (const std::vector<std::string> &paths : in_the_way) {
        for (const std::string &path : paths) {
            std::filesystem::create_directories(state_ + path);
        }
        const run_t undone = alpha("--json config apply --confirm 1h " + second_);
        EXPECT_TRUE(ends(undone, 2, "; it cannot wait for a confirmation, and is undone\n"));
        const json_t outcome = json_t::parse(undone.answers);
        const std::string why = "the server has done it, but the version could not be saved: " + state_ + paths.front();
        EXPECT_EQ(outcome.at("error").get<std::string>().find(why), 0U) << outcome;
        EXPECT_EQ(outcome.at("data").at("undone"), true);
        EXPECT_EQ(shown(), first_shown);
        EXPECT_EQ(alpha("config confirm").status, 1) << "none waits";
        for (const std::string &path : paths) {
            std::filesystem::remove(state_ + path);
        }
    }
}

TEST_F(config_test, a_change_that_cannot_be_undone_is_said_to_stay) {
    alpha("config apply " + first_);
    const std::string notes = directory_.path() + "/notes";
    child_t natctl;
    ASSERT_TRUE(start(natctl, "config apply --confirm 1h " + second_ + " 2>" + notes, STDOUT_FILENO));
    ASSERT_TRUE(eventually([&] { return !text_of(notes).empty(); })) << "it says that it waits";
    ASSERT_TRUE(eventually([] { return others_delete_pool(2); }));
    ASSERT_TRUE(others_add_pool(3, "192.0.2.9")); /* in the way of the first document's pool */
    EXPECT_EQ(natctl.end(SIGINT), 1);
    EXPECT_NE(text_of(notes).find("interrupted: version 2 could not be undone: pool add --id 1 "), std::string::npos);
    EXPECT_NE(text_of(notes).find("; the server is as before\n"), std::string::npos) << text_of(notes);
    EXPECT_NE(shown().find("timeout set --type udp --value 200\n"), std::string::npos);
}

TEST_F(config_test, what_others_have_changed_stays_when_a_change_is_not_confirmed) {
    const auto with_timeout = [](std::string text, const char *value) {
        return text.replace(text.find("300"), 3, value);
    };
    for (const std::string &document : {second_, file("only_timeout", with_timeout(first, "200"))}) {
        SCOPED_TRACE(document); /* with the second one nothing is left to undo */
        alpha("config apply " + first_);
        child_t natctl;
        ASSERT_TRUE(start(natctl, "config apply --confirm 1h " + document)) << "it says that it waits";
        ASSERT_TRUE(eventually([] {
            return as_other_client([](fwx::nat64::client &client) {
                return client.timeout_set(fwx::nat64::timeout{fwx::nat64::timeout_kind::udp, fwx::nat64::seconds(77)});
            });
        }));
        EXPECT_EQ(natctl.end(SIGINT), 2) << "an interrupt undoes it at once";
        EXPECT_EQ(shown(), with_timeout(first_shown, "77"));
        EXPECT_EQ(alpha("config confirm").status, 1) << "none waits";
    }
}

TEST_F(config_test, what_others_have_changed_during_an_apply_is_told_as_what_is_missing) {
    held_up_apply_t apply(many_);
    ASSERT_TRUE(apply.has_begun());
    ASSERT_TRUE(others_add_pool(9, "192.0.2.9"));
    const std::string notes = apply.rest();
    const std::string missing =
        "others have changed the server meanwhile, and it does not hold the document; missing commands:\n"
        "  pool del --id 9\n";
    EXPECT_TRUE(
        ends({apply.natctl.end(0), "", notes.substr(notes.size() - std::min<size_t>(notes.size(), 500))}, 1, missing));
}

TEST_F(config_test, what_a_server_holds_is_assumed_only_where_it_does_not_tell) {
    EXPECT_EQ(alpha("config apply --assume-empty " + first_).notes,
              "natctl: config apply: --assume: this server reports what it holds itself\n");
    EXPECT_EQ(alpha("--dry-run config apply " + first_).notes,
              "natctl: config apply: a dry run asks no server what it holds; --check does, and changes nothing\n");
    EXPECT_EQ(shown(), head);
}

TEST_F(config_test, the_embedded_server_has_versions_as_long_as_natctl_runs) {
    const run_t got =
        run("shell", "config apply " + first_ + "\ntimeout set --type udp --value 9\nconfig rollback\nconfig show\n");
    EXPECT_EQ(got.status, 0) << got.notes;
    EXPECT_EQ(got.answers,
              "config apply: ok, 3 commands\ntimeout set: ok\nconfig rollback: ok, 1 command\n" + first_shown);
}

}  // namespace
