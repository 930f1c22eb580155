/* `natctl fleet` with a real store. The test plays the gateways by writing their status. */
#include <tuple>

#include "config/load.h"
#include "config/notation.h"
#include "fleet/gateway_state.h"
#include "state/time_text.h"
#include "tests/fleet/store_fixture.h"
#include "tests/support/runtime_directory.h"
#include "tests/tools/natctl_fixture.h"

namespace {

const std::string one_pool = "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.254\n";
const std::string pool_and_timeout = one_pool + "timeout set --type udp --value 300\n";

class natctl_fleet_test : public natctl_test {
protected:
    natctl_fleet_test() { setenv("NATCTL_STORE", process_.url("p").c_str(), 1); }
    void SetUp() override { ASSERT_TRUE(process_.is_up()) << process_.log(); }

    std::string file(const std::string &name, const std::string &text) const { return directory_.file(name, text); }
    static json_t json(const std::string &command) { return json_of("fleet " + command); }
    static std::string hash_of(const std::string &text) {
        problems_t problems;
        return sha256(write_lines(load_document(text, problems)));
    }
    /** Writes the status of a gateway. */
    void say(const gateway_state_t &state, bool is_alive = true) const {
        const std::string key = "p/gateways/" + state.gateway;
        ASSERT_TRUE(process_.put(key + "/seen", write_gateway_state(state)));
        ASSERT_TRUE(!is_alive || process_.put(key + "/state", write_gateway_state(state)));
    }
    static gateway_state_t holding(const std::string &name, uint64_t version, const std::string &text) {
        return {name, "alpha", version, hash_of(text), 1, true, "", time_text(), 0, "", "", time_text()};
    }

    const runtime_directory_t directory_;
    const std::string first_ = file("first", one_pool);
    const std::string second_ = file("second", pool_and_timeout);
    etcd_process_t process_;
};

TEST_F(natctl_fleet_test, answers_and_exit_statuses_are_those_that_programs_rely_on) {
    const std::tuple<std::string, int, std::string, std::string> cases[] = {
        {"status", 0, "none\n", "natctl: nothing has been pushed yet\n"},
        {"history", 0, "none\n", ""},
        {"rollback", 1, "", "natctl: fleet rollback: there is no version before the one in force\n"},
        {"push --check " + first_, 0, "fleet push: ok, 1 of 1 chunk to put\n", ""},
        {"history", 0, "none\n", ""},
        {"push --to fra1 " + first_, 1, "",
         "natctl: fleet push: nothing has been pushed yet: the first document is for all gateways\n"},
        {"push " + first_, 0, "fleet push: ok, version 1, 1 of 1 chunk put\n", ""},
        {"push " + first_, 0, "fleet push: ok, nothing to change, version 1 says it\n", ""},
        {"push --check " + first_, 0, "fleet push: ok, nothing to change\n", ""},
        {"push --to fra2 --to fra1 " + second_, 0,
         "fleet push: ok, version 2 for gateways fra1, fra2, 2 of 2 chunks put\n",
         "natctl: no gateway fra2 has been seen\nnatctl: no gateway fra1 has been seen\n"},
        {"push --percent 10 " + second_, 0, "fleet push: ok, version 3 for 10 % of the gateways, 0 of 2 chunks put\n",
         ""},
        {"rollback", 0, "fleet rollback: ok, version 4, 0 of 1 chunk put, back to version 1, the one before\n", ""},
        {"rollback 9", 1, "", "natctl: fleet rollback: version 9 is not in the history, see fleet history\n"},
        {"rollback", 1, "",
         "natctl: fleet rollback: there is no version before the one in force (version 3 is for 10 % of the gateways, "
         "version 2 is for gateways fra1, fra2, version 1 has the same document)\n"},
        {"push " + second_, 0, "fleet push: ok, version 5, 0 of 2 chunks put\n", ""},
        {"rollback 1", 0, "fleet rollback: ok, version 6, 0 of 1 chunk put\n", ""},
    };
    for (const auto &[command, status, answer, notes] : cases) {
        EXPECT_EQ(run("fleet " + command), (run_t{status, answer, notes})) << command;
    }
    const json_t rows = json("history").at("data");
    ASSERT_EQ(rows.size(), 6U);
    EXPECT_EQ(rows[2].at("stage"), "10 % of the gateways");
    EXPECT_EQ(rows[3].at("note"), "rollback to 1");
    EXPECT_TRUE(rows[5].at("in_force") == true && rows[1].at("in_force") == false);
    EXPECT_EQ(json("push " + second_).at("data").at("document"), hash_of(pool_and_timeout));
    ASSERT_TRUE(process_.put("p/history/0000000006", "{"));
    const json_t back = json("rollback").at("data");
    EXPECT_EQ(back.at("back_to"), 4);
    EXPECT_EQ(back.at("skipped").dump(), R"(["version 6 cannot be read","version 5 has the same document"])");

    ASSERT_TRUE(process_.put("p/chunks/" + hash_of(one_pool), "damaged"));
    EXPECT_EQ(run("fleet push --check " + first_).answers, "fleet push: ok, 1 of 1 chunk to put\n");
    EXPECT_EQ(run("fleet push " + first_).answers,
              "fleet push: ok, nothing to change, version 8 says it, 1 of 1 chunk put anew\n");
    EXPECT_EQ(run("fleet push " + first_).answers, "fleet push: ok, nothing to change, version 8 says it\n");
    ASSERT_TRUE(process_.put("p/manifest", "not JSON"));
    EXPECT_EQ(json("history").at("data").size(), 8U) << "and a version to go back to can be found";
    EXPECT_EQ(run("fleet push --to fra1 " + second_).notes,
              "natctl: fleet push: the manifest in force cannot be read: the next document is for all gateways\n");
    EXPECT_EQ(run("fleet push " + first_).answers, "fleet push: ok, version 9, 0 of 1 chunk put\n");
    ASSERT_TRUE(process_.put("p/manifest", "{\"format\":1}"));
    EXPECT_EQ(run("fleet rollback 8").answers, "fleet rollback: ok, version 10, 0 of 1 chunk put\n");
}

TEST_F(natctl_fleet_test, errors_are_reported_before_anything_is_written) {
    const std::string wrong = file("wrong", "pool add --id 1 --param 1 --start x --end 192.0.2.1\n");
    const std::string lost = " --store etcd://" + nowhere() + "/p ";
    const std::tuple<std::string, int, std::string> cases[] = {
        {"push " + wrong, 2, "fleet push: " + wrong + ": 1 error\n"},
        {"push " + first_ + "x", 2, first_ + "x: No such file or directory\n"},
        {"push --to a/b " + first_, 2, "--to a/b: must be 1 to 64 letters, digits, '.', '_' and '-'\n"},
        {"push --to a --percent 5 " + first_, 2, "--to excludes --percent\n"},
        {"push --percent 0 " + first_, 2, "--percent 0: must be 1 to 100\n"},
        {"push --store http://x " + first_, 2, "http://x: must begin with etcd://\n"},
        {"push --user ann " + first_, 2, "--user and --password-file: one needs the other\n"},
        {"push" + lost + first_, 4, ""},
        {"status" + lost, 4, ""},
        {"status --wait 5s", 2, "not expected here, see --help\n"},
    };
    for (const auto &[command, status, end] : cases) {
        const run_t got = run("fleet " + command);
        EXPECT_EQ(got, (run_t{status, "", got.notes})) << command;
        EXPECT_TRUE(got.notes.ends_with(end)) << command << got.notes;
    }
    const std::pair<const char *, const char *> variables[] = {
        {"NATCTL_STORE_CA", "--ca: none: No such file or directory"},
        {"NATCTL_STORE_CERT", "--cert: none: No such file or directory"},
        {"NATCTL_STORE_KEY", "--key: none: No such file or directory"},
        {"NATCTL_STORE_USER", "--user and --password-file: one needs the other"},
        {"NATCTL_STORE_PASSWORD_FILE", "--user and --password-file: one needs the other"},
    };
    for (const auto &[name, fault] : variables) {
        setenv(name, "none", 1);
        EXPECT_EQ(run("fleet status").notes, std::string("natctl: fleet status: ") + fault + "\n") << name;
        unsetenv(name);
    }
    unsetenv("NATCTL_STORE");
    EXPECT_EQ(run("fleet status").notes, "natctl: fleet status: needs --store\n");
    setenv("NATCTL_STORE", process_.url("p").c_str(), 1);
    EXPECT_EQ(run("fleet history").answers, "none\n");
    process_.signal(SIGSTOP);
    EXPECT_EQ(run("--timeout 200 fleet status").status, 3);
    process_.signal(SIGCONT);
}

TEST_F(natctl_fleet_test, a_push_waits_for_the_gateways_that_are_meant) {
    ASSERT_EQ(run("fleet push " + first_).status, 0);
    EXPECT_EQ(run("fleet push --wait 1s " + first_).answers,
              "fleet push: ok, nothing to change, version 1 says it, 0 gateways in step\n");
    say(holding("fra1", 2, pool_and_timeout));
    EXPECT_EQ(run("fleet push --wait 60s " + second_).answers,
              "fleet push: ok, version 2, 2 of 2 chunks put, 1 gateway in step\n");

    say(holding("ber1", 2, pool_and_timeout), false); /* as after the end of its lease */
    say(holding("ham1", 1, one_pool));
    EXPECT_EQ(run("fleet push --wait 1s " + second_),
              (run_t{3, "", "natctl: fleet push: not in step after 1 s: ber1: gone; ham1: holds version 1\n"}));
    EXPECT_EQ(run("fleet push --wait 60s --to fra1 " + second_).status, 0) << "the other is not meant";
    const json_t staged = json("status").at("data");
    EXPECT_EQ(staged.at(1).at("wanted"), 3);
    EXPECT_EQ(staged.at(2).at("wanted"), 2) << "one that is not meant is to hold the last document for all";
    EXPECT_EQ(run("fleet push --wait 1s --to fra1 --to fra9 " + second_),
              (run_t{3, "",
                     "natctl: no gateway fra9 has been seen\n"
                     "natctl: fleet push: not in step after 1 s: fra9: has never been seen\n"}));

    gateway_state_t refusing = holding("ham1", 1, one_pool);
    refusing.refused_version = 3;
    refusing.refused_document = hash_of(pool_and_timeout);
    refusing.refused_reason = "pool 7 is there";
    say(refusing);
    const json_t refused = json("push --wait 1s " + second_);
    EXPECT_EQ(refused.at("status"), "refused");
    EXPECT_EQ(refused.at("error"), "refused by ham1: refused version 3: pool 7 is there");
    EXPECT_EQ(refused.at("data").at("gateways").at("in_step"), 1);

    gateway_state_t lost = holding("lon1", 2, pool_and_timeout);
    lost.is_in_step = false;
    lost.reason = "no server";
    say(lost);
    say({"par1", "alpha", 0, "", 0, false, "", time_text(), 0, "", "", time_text()});
    ASSERT_TRUE(process_.put("p/gateways/rom1/state", "{}"));
    ASSERT_TRUE(process_.put("\"p/gateways/a b/state\"", "{}"));
    const json_t rows = json("status").at("data");
    std::string shown;
    for (const json_t &row : rows) {
        EXPECT_EQ(row.at("age_s").is_number(), row.at("gateway") != "rom1");
        for (const char *member : {"gateway", "alive", "version", "in_step", "reason"}) {
            shown += row.at(member).dump() + ' ';
        }
    }
    EXPECT_EQ(shown, R"("ber1" false 2 false "gone" "fra1" true 2 true "" )"
                     R"("ham1" true 1 false "refused version 3: pool 7 is there" "lon1" true 2 false "no server" )"
                     R"("par1" true 0 false "holds nothing" )"
                     R"("rom1" true 0 false "its status cannot be read: gateway: must be a text of 0 to 320 bytes" )");
}

TEST_F(natctl_fleet_test, a_push_is_told_as_done_when_its_gateways_cannot_be_looked_at) {
    for (const char *words : {"user add root:r", "user grant-role root root", "role add p", "user add ann:secret",
                              "user grant-role ann p", "role grant-permission p readwrite p/ p/gateways/",
                              "role grant-permission p readwrite p/gateways0 p0", "auth enable"}) {
        ASSERT_TRUE(process_.control(words)) << process_.log();
    }
    const std::string push = "fleet push --insecure-plaintext --user ann --password-file " +
                             file("password", "secret") + " --wait 1s " + first_;
    const run_t got = run(push);
    EXPECT_EQ(got.status, 1);
    EXPECT_TRUE(got.notes.ends_with(
        "natctl: fleet push: version 1 is in the store, but the gateways could not be looked at: http://" +
        process_.place() + ": etcdserver: permission denied\n"))
        << got.notes;
}

}  // namespace
