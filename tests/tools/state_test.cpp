/* The state file of `natctl serve`: what it holds, crashes, full disks, older formats, damaged files. */
#include <cstring>

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
        std::string digits;
        for (const std::string &line : natctl_test::lines_of(content())) {
            if (line.find_first_of("0123456789") == 0) digits += line + "\n";
        }
        return digits;
    }

    const runtime_directory_t directory_;
    const std::string path_ = directory_.path() + "/alpha.state";
    const std::string not_saved_ = "the server has done it, and could not save that it has (0x600b)";
};

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

/* Commands for before and after the document of every family, which has no other verbs than `add`, `set` and `enable`.
 * The command line of a delete has only the key: a delete with other values in it would be kept as digits. */
constexpr const char *before_document =
    R"(limit add --type sessions --value 1
limit del --type sessions
service add --type alg --value 21
service del --type alg
replication set --value 7 --value2 9
replication unset
prefix add --prefix 2001:db8:1::/48 --kind stateless
prefix del --prefix 2001:db8:1::/48 --kind stateless
prefix add --prefix 2001:db8:2::/48 --kind stateful
prefix del --prefix 2001:db8:2::/48 --kind stateful
smapping add --id 8 --addr1 2001:db8::c0:3 --addr2 198.51.100.10
smapping del --id 8
dmapping add --id 9 --type 1
dmapping del --id 9
logging add --dest 203.0.113.201 --port 4739 --transport udp
logging del --dest 203.0.113.201 --port 4739
pool add --id 3 --param 1 --start 192.0.2.1 --end 192.0.2.9
range add --id 3 --start 192.0.2.100 --end 192.0.2.101
range del --id 3 --start 192.0.2.100 --end 192.0.2.101
pool del --id 3
mapt dmr add --id 2 --prefix 2001:db8:fffe::/64
mapt dmr del --id 2
mapt bmr add --rule 9 --domain 1 --v6 2001:db8:1::/48 --v4 192.0.2.0/28
)";
constexpr const char *after_document =
    R"(limit mod --type sessions --value 2048
prefix mod --prefix 64:ff9b::/96 --kind dns64
logging mod --dest 192.0.2.9 --port 65535 --transport udp
pool mod --id 10 --param 1 --start 10.0.0.0 --end 10.0.0.0
dmapping mod --id 4 --type 2
mapt bmr del --rule 9 --domain 1 --v6 2001:db8:1::/48 --v4 192.0.2.0/28
)";
/** The state then. */
constexpr const char *kept =
    R"(natctl server state 3
timeout set --type tcp-est --value 7440
limit add --type sessions --value 2048
service add --type alg --value 10
adj set --type 13 --address 2001:db8::1
replication set --value 1 --value2 4294967295
settings set --bytes 000102030405060708090a0b0c0d0e0f
interface set --ifh 6 --enable 0 --mtu 1300
interface set --ifh 7 --sless 64:ff9b::/96 --sful 2001:db8::/32 --sless-v6v4 2001:db8:100::/40 --mtu 1400
nvi enable --ifh 7
interface set --ifh 8
nvi enable --ifh 8
prefix add --prefix 64:ff9b::/96 --kind dns64
pool add --id 1 --param 2 --start 198.51.100.1 --end 198.51.100.9
pool add --id 2 --param 2 --start 192.0.2.1 --end 192.0.2.100 --hsl 6
pool add --id 10 --param 1 --start 10.0.0.0 --end 10.0.0.0
range add --id 2 --start 9.0.0.0 --end 9.0.0.9
range add --id 2 --start 203.0.113.7 --end 203.0.113.9
smapping add --id 3 --addr1 2001:db8::1 --addr2 192.0.2.1
dmapping add --id 4 --type address-and-port-dependent --ext 000102030405060708090a0b0c0d0e0f1011121314151617 --ext-arg 5
logging add --dest 192.0.2.9 --port 65535 --transport udp
@index 2 mapt bmr add --rule 1 --domain 2 --v6 2001:db8:ff01::/48 --v4 192.0.2.18/32 --psid-offset 6 --psid-len 8 --psid 52
@index 3 mapt bmr add --rule 2 --domain 1 --v6 2001:db8:ff00::/40 --v4 192.0.2.128/25 --ea-len 16 --psid-offset 6 --psid-len 9
mapt dmr add --id 7 --prefix ::/96
mapt dmr add --id 8 --prefix 2001:db8:ffff::/64
mapt dmr add --id 9 --data 20010db8ffff000000000000000000004000000000000001
= 25 )";

TEST_F(state_test, the_state_stands_as_the_lines_of_its_commands_and_rules_keep_their_indices) {
    const std::string commands = before_document + text_of(EVERY_FAMILY_PATH) + after_document;
    for (const record_family_t &family : all_families()) {
        for (const record_verb_t &verb : verbs_of(family)) {
            const std::string command = "\n" + record_command_text(family, &verb);
            EXPECT_NE(("\n" + commands).find(command), std::string::npos) << "not tried:" << command;
        }
    }
    std::string shown;
    {
        const server_process_t server(path_);
        EXPECT_EQ(run("--connect alpha batch -", commands).status, 0);
        shown = run("--connect alpha config show").answers;
    }
    EXPECT_EQ(lines_of_digits(), "") << "nothing is left that no command says";
    const server_process_t server(path_);
    EXPECT_EQ(content().substr(0, std::strlen(kept)), kept);
    EXPECT_EQ(times_in(shown, "\n"), 25U) << shown;
    EXPECT_EQ(run("--connect alpha config show").answers, shown) << "the server holds what it has written";
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
