/* The state file of `natctl serve`: what it holds, crashes, full disks, older formats, damaged files. */
#include <cstring>
#include <filesystem>
#include <fstream>

#include "fwx_nat64/server_result.h"
#include "natctl_fixture.h"
#include "server_process.h"
#include "tests/records/all_families.h"
#include "tests/support/eventually.h"
#include "tests/support/runtime_directory.h"

namespace {

class state_test : public natctl_test {
protected:
    static std::string mapping(size_t id) { return "dmapping add --type 1 --id " + std::to_string(id); }
    static int held_mappings() { return data_of("--connect alpha stats system").at("dynamic_mappings").get<int>(); }
    std::string content() const { return text_of(path_); }
    /** The lines of the state file that consist of an op code and a payload. */
    std::string lines_of_digits() const {
        std::ifstream file(path_);
        std::string digits;
        for (std::string line; std::getline(file, line);) {
            if (line.find_first_of("0123456789") == 0) digits += line + "\n";
        }
        return digits;
    }

    const runtime_directory_t directory_;
    const std::string path_ = directory_.path() + "/alpha.state";
    const std::string not_saved_ = "the server has done it, and could not save that it has (0x600b)";
};

TEST_F(state_test, a_server_that_is_killed_at_any_moment_has_what_it_answered) {
    std::vector<std::string> lines;
    for (size_t id = 1; id <= 60; ++id) {
        lines.push_back(mapping(id));
    }
    for (const int kill_before : {2, 17, 34, 60}) {
        for (const int pipeline : {1, 8}) {
            SCOPED_TRACE(std::to_string(kill_before) + " of " + std::to_string(pipeline));
            std::filesystem::remove(path_);
            server_process_t server(path_);
            const std::string batch = "--connect alpha --pipeline " + std::to_string(pipeline) + " batch -";
            const auto kill = [&server] { server.end(SIGKILL); };
            EXPECT_EQ(run(batch, lines_t(lines, static_cast<size_t>(kill_before), kill)).status, 4);
            const server_process_t again(path_);
            EXPECT_LE(held_mappings(), kill_before - 1);
            EXPECT_GE(held_mappings(), kill_before - pipeline);
        }
    }
}

TEST_F(state_test, a_command_that_cannot_be_saved_is_told_as_failed_and_saved_as_soon_as_it_can_be) {
    int held = 0;
    testing::internal::CaptureStderr(); /* of the server */
    {
        const server_process_t server(path_, 100);
        size_t id = 1;
        std::string saved;
        do {
            ASSERT_LT(id, 20U);
            saved = content();
        } while (run("--connect alpha " + mapping(id++)).status == 0);
        EXPECT_TRUE(ends(run("--connect alpha " + mapping(id)), 1, not_saved_));
        EXPECT_EQ(held_mappings(), static_cast<int>(id)) << "a query is answered as ever";
        EXPECT_EQ(data_of("--connect alpha config log").size(), id) << "it lists what was done";
        EXPECT_EQ(content().substr(0, saved.size()), saved);
        server.let_files_grow();
        EXPECT_EQ(run("--connect alpha " + mapping(50)).status, 0);
        held = held_mappings();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "natctl: changes cannot be saved: " + path_ + ": File too large\nnatctl: the state is saved again\n");
    const server_process_t server(path_);
    EXPECT_EQ(held_mappings(), held);
    const std::string saved = content();
    EXPECT_EQ(run("--connect alpha stats mappings").status, 0);
    EXPECT_EQ(content(), saved) << "a query writes nothing";
    EXPECT_EQ(run("--connect alpha " + mapping(51)).status, 0);
    EXPECT_EQ(content().substr(0, saved.size()), saved) << "a change is appended";
    EXPECT_GT(content().size(), saved.size());
}

TEST_F(state_test, a_server_whose_file_was_torn_starts_on_a_full_disk_and_saves_as_soon_as_there_is_room) {
    const std::string torn =
        "natctl server state 3\ntimeout set --type udp --value 300\n= 1 9ecc00a9\ndmapping add --ty";
    std::ofstream(path_) << torn;
    const server_process_t server(path_, 10);
    EXPECT_EQ(content(), torn);
    EXPECT_EQ(text_of(path_ + ".damaged"), torn);
    EXPECT_TRUE(ends(run("--connect alpha " + mapping(1)), 1, not_saved_));
    EXPECT_EQ(held_mappings(), 1) << "a query is answered as ever";
    const auto last_try = [this] { return std::filesystem::last_write_time(directory_.path()); };
    EXPECT_TRUE(eventually([&, before = last_try()] { return last_try() != before; })) << "it tries again";
    server.let_files_grow();
    EXPECT_TRUE(eventually([this] {
        return content().find("natctl server state 3\ntimeout set --type udp --value 300\ndmapping add ") == 0;
    })) << content();
}

TEST_F(state_test, a_rule_that_could_not_be_saved_is_in_the_table_of_the_library_as_it_is_in_the_server) {
    const server_process_t server(path_, 50);
    const std::string rules =
        "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24\n"
        "mapt bmr add --rule 7 --domain 6 --v6 2001:db9::/40 --v4 198.51.100.0/24\n"
        "mapt show\n"
        "mapt bmr del --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24\n"
        "mapt show\nstats system\ndev server counts\n";
    const json_t outcomes = outcomes_of(rules, "--connect alpha");
    EXPECT_EQ(outcomes.at(0).at("error"), not_saved_);
    EXPECT_EQ(outcomes.at(2).at("data").at("installed"), 2);
    EXPECT_EQ(outcomes.at(2).at("data").at("leaves"), 4);
    EXPECT_EQ(outcomes.at(3).at("code"), 0x600b);
    EXPECT_EQ(outcomes.at(4).at("data").at("installed"), 1);
    EXPECT_EQ(outcomes.at(4).at("data").at("leaves"), 2);
    EXPECT_EQ(outcomes.at(5).at("data").at("rules"), 1);
    EXPECT_EQ(outcomes.at(6).at("data").at("refused"), 3);
}

/* Every command, so first some whose items are deleted again. The command line of a delete has only the key: a delete
 * with other values in it would be kept as digits. */
constexpr const char *every_command =
    R"(limit add --type sessions --value 1
limit mod --type sessions --value 2048
limit del --type sessions
service add --type alg --value 21
service del --type alg
replication set --value 7 --value2 9
replication unset
prefix add --prefix 2001:db8:1::/48 --kind stateless
prefix mod --prefix 2001:db8:1::/48 --kind stateless
prefix del --prefix 2001:db8:1::/48 --kind stateless
prefix add --prefix 2001:db8:2::/48 --kind stateful
prefix del --prefix 2001:db8:2::/48 --kind stateful
prefix add --prefix 2001:db8:3::/48 --kind dns64
prefix del --prefix 2001:db8:3::/48 --kind dns64
smapping add --id 8 --addr1 2001:db8::c0:3 --addr2 198.51.100.10
smapping del --id 8
logging add --dest 203.0.113.201 --port 4739 --transport udp
logging mod --dest 203.0.113.201 --port 4739 --transport tcp
logging del --dest 203.0.113.201 --port 4739
pool add --id 2 --param 1 --start 192.0.2.1 --end 192.0.2.9
range add --id 2 --start 192.0.2.100 --end 192.0.2.101
pool mod --id 2 --param 2 --start 192.0.2.1 --end 192.0.2.9
range del --id 2 --start 192.0.2.100 --end 192.0.2.101
pool del --id 2
mapt dmr add --id 2 --prefix 2001:db8:fffe::/64
mapt dmr del --id 2
settings set --bytes 01020304000000000000000000000005
timeout set --type udp --value 5m
limit add --type sessions --value 1024
service add --type alg --value 21
adj set --type 13 --address 10.0.0.1
replication set --value 7 --value2 9
logging add --dest 203.0.113.200 --port 4739 --transport udp
pool add --id 1 --param 1 --start 198.51.100.1 --end 198.51.100.254 --hsl 3
range add --id 1 --start 203.0.113.0 --end 203.0.113.127
prefix add --prefix 64:ff9b::/96 --kind stateful
prefix add --prefix 2001:db8::/32 --kind dns64
prefix mod --prefix 64:ff9b::/96 --kind stateful
prefix mod --prefix 2001:db8::/32 --kind dns64
smapping add --id 7 --addr1 2001:db8::c0:2 --addr2 198.51.100.9
dmapping add --id 9 --type 1 --ext 010203040506070809101112131415161718192021222324 --ext-arg 5
dmapping add --id 10 --type 0
dmapping mod --id 9 --type 2
interface set --ifh 5 --sful 64:ff9b::/96 --mtu 1500
nvi enable --ifh 5
dmapping del --id 10
mapt dmr add --id 1 --prefix 2001:db8:ffff::/64
mapt bmr add --rule 1 --domain 1 --v6 2001:db8:1::/48 --v4 192.0.2.0/28
mapt bmr add --rule 2 --domain 1 --v6 2001:db8:2::/48 --v4 192.0.2.16/28 --ea-len 16
mapt bmr del --rule 1 --domain 1 --v6 2001:db8:1::/48 --v4 192.0.2.0/28
)";
/** The state after some of these items were deleted. */
constexpr const char *what_is_kept =
    R"(natctl server state 3
timeout set --type udp --value 300
limit add --type sessions --value 1024
service add --type alg --value 21
adj set --type 13 --address 10.0.0.1
replication set --value 7 --value2 9
settings set --bytes 01020304000000000000000000000005
interface set --ifh 5 --sful 64:ff9b::/96 --mtu 1500
nvi enable --ifh 5
prefix add --prefix 64:ff9b::/96 --kind stateful
prefix add --prefix 2001:db8::/32 --kind dns64
pool add --id 1 --param 1 --start 198.51.100.1 --end 198.51.100.254 --hsl 3
range add --id 1 --start 203.0.113.0 --end 203.0.113.127
smapping add --id 7 --addr1 2001:db8::c0:2 --addr2 198.51.100.9
dmapping add --id 9 --type address-and-port-dependent --ext 010203040506070809101112131415161718192021222324 --ext-arg 5
logging add --dest 203.0.113.200 --port 4739 --transport udp
@index 2 mapt bmr add --rule 2 --domain 1 --v6 2001:db8:2::/48 --v4 192.0.2.16/28 --ea-len 16
mapt dmr add --id 1 --prefix 2001:db8:ffff::/64
= 17 )";

TEST_F(state_test, the_state_stands_as_the_lines_of_its_commands_and_rules_keep_their_indices) {
    for (const record_family_t &family : all_families()) {
        for (const record_verb_t &verb : verbs_of(family)) {
            const std::string command = "\n" + record_command_text(family, &verb);
            EXPECT_NE(("\n" + std::string(every_command)).find(command), std::string::npos) << "not tried:" << command;
        }
    }
    {
        const server_process_t server(path_);
        EXPECT_EQ(run("--connect alpha batch -", every_command).status, 0);
    }
    EXPECT_EQ(lines_of_digits(), "") << "nothing is left that no command says";
    const server_process_t server(path_);
    EXPECT_EQ(content().substr(0, std::strlen(what_is_kept)), what_is_kept);
    const json_t again = outcomes_of(every_command, "--connect alpha");
    EXPECT_EQ(again.at(again.size() - 2).at("code"), FWX_NAT64_MODEL_ERR_EXISTS)
        << "the server holds what it has written";
}

TEST_F(state_test, lines_of_hexadecimal_digits_are_read_in_either_format_and_stay_where_no_command_says_all_of_them) {
    const std::string mapping =
        "11 010000000500000000000000010000" + std::string(130, '0') + "\n"; /* a reserved byte is 5 */
    for (const char *format : {"natctl server state 2", "natctl server state 3"}) {
        std::ofstream(path_) << format << "\n14 010000002c010000\n65536 070000000500000001000000\n"
                             << mapping << "= 3 c6cb2563\n";
        const server_process_t server(path_);
        ASSERT_TRUE(server.is_ready()) << format;
        EXPECT_EQ(data_of("--connect alpha stats system").at("rules"), 1) << format;
        EXPECT_EQ(lines_of_digits(), mapping);
        /* The rule was in the older form, with only its index and identifiers. */
        EXPECT_EQ(content().rfind("natctl server state 3\ntimeout set --type udp --value 300\n", 0), 0U) << content();
        EXPECT_NE(content().find("\n@index 7 mapt bmr add --rule 5 --domain 1 --v6 ::/0 --v4 0.0.0.0/0\n"),
                  std::string::npos)
            << content();
    }
}

TEST_F(state_test, a_file_that_is_no_state_is_refused_with_its_line_and_left_as_it_is) {
    const char *const wrong[][2] = {
        {"4294967311 010000002c010000\n= 1 ceaf73d3", "must be a command, or an op code and its payload"},
        {"x 01\n= 1 ad51f811", "must be a command, or an op code and its payload"},
        {"14 010000002c01000\n= 1 32f6fa71", "must be a command, or an op code and its payload"},
        {"timeout set --type 9 --value 1\n= 1 c8d23a16", "--type"},
        {"mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24\n= 1 3c17a33a", "must be a command"},
        {"@index 0 mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24\n= 1 b926a4ee", "value"},
        {"@index 4294967296 mapt bmr add --rule 1\n= 1 6fe404dc", "must have an index behind @index"},
        {"14 0100\n= 1 858b15c2", "malformed message"},
        {"14\n= 1 81174c5c", "malformed message"},
        {"6 0200000000000000cb00710000000000000000000000000000000000cb00717f000000000000000000000000\n= 1 0cc6e7de",
         "no such pool"},
    };
    for (const auto &[lines, error] : wrong) {
        const std::string text = std::string("natctl server state 3\n") + lines + "\n";
        std::ofstream(path_) << text;
        const run_t result = run("serve alpha --state " + path_);
        EXPECT_TRUE(ends(result, 2, "alpha.state: line 2: "));
        EXPECT_TRUE(ends(result, 2, error));
        EXPECT_EQ(content(), text);
    }
    std::filesystem::rename(path_, path_ + "2");
    std::filesystem::create_symlink(path_ + "2", path_);
    for (const std::string &path : {directory_.path(), directory_.path() + "/", path_, path_ + "/"}) {
        EXPECT_TRUE(ends(run("serve alpha --state " + path), 2, path + ": not a regular file"));
    }
}

}  // namespace
