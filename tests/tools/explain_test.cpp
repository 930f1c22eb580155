/* `mapt explain` and `nat64 explain`, with the rules of a file and with installed rules. */
#include "natctl_fixture.h"
#include "tests/support/runtime_directory.h"

namespace {

/* Rule 1 takes two lines, rule 2 is deleted, and the prefixes of rule 3 lie within those of rule 1. */
constexpr char rules[] =
    "# no rule\npool add --id\nmapt show\n"
    "mapt bmr add --rule 1 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24 \\\n --ea-len 16 --psid-offset 6\n"
    "mapt bmr add --rule 2 --domain 6 --v6 2001:db8:12:3400::/56 --v4 192.0.2.18/32\n"
    "mapt bmr del --rule 2 --domain 6\n"
    "mapt bmr add --rule 3 --domain 6 --v6 2001:db8:77:7700::/56 --v4 192.0.2.77/32\n"
    "mapt bmr add --rule 4 --domain 6 --v6 2001:db8:100::/40 --v4 198.51.100.0/24 --ea-len 4\n"
    "mapt dmr add --id 1\nmapt dmr add --id 2 --prefix 2001:db8:fffe::/64\n"
    "mapt dmr del --id 2\nmapt dmr add --id 2 --prefix 2001:db8:ff:ff00::/64\n";

/* Expected columns: rule, PSID, ports, IPv4 address, IPv6 address, IPv6 address by the default rule. */
constexpr char first_rule[] =
    "1 52 1232-1235, 2256-2259, 3280-3283, 4304-4307, ... 192.0.2.18 2001:db8:12:3400:0:c000:212:34 "
    "2001:db8:ff:ff00:c0:2:1200:0 ";
constexpr char third[] = "3 0 all 192.0.2.77 2001:db8:77:7700:0:c000:24d:0 2001:db8:ff:ff00:c0:2:4d00:0 ";
constexpr char by_default[] = "null null null 10.2.3.4 null 2001:db8:ff:ff00:a:203:400:0 ";
constexpr std::pair<const char *, const char *> explained[] = {
    {"192.0.2.18:1232", first_rule},
    {"2001:db8:12:3400::1", first_rule},
    {"192.0.2.77", third},
    {"2001:db8:77:7700::", third},
    {"2001:db8:1a0::", "4 0 all 198.51.100.160/28 2001:db8:1a0::c633:64a0:0 null "},
    {"10.2.3.4", by_default},
    {"2001:db8:ff:ff00:a:203:400:0", by_default},
};

class explain_test : public natctl_test {
protected:
    /** Writes a batch file and returns the option that names it. */
    std::string file_with(const std::string &text) const { return " --file " + directory_.file("rules", text); }

    const runtime_directory_t directory_;
};

TEST_F(explain_test, a_file_and_what_is_installed_explain_addresses_alike) {
    const std::string file = file_with(rules);
    for (const auto &[address, texts] : explained) {
        const std::string command = std::string("mapt explain ") + address;
        EXPECT_EQ(run(command + file).status, 0) << command;
        const json_t row = data_of(command + file);
        std::string text;
        for (const char *name : {"rule_id", "psid", "port_sets_name", "ipv4", "ipv6", "dmr_ipv6"}) {
            text += (row.at(name).is_string() ? row.at(name).get<std::string>() : row.at(name).dump()) + " ";
        }
        EXPECT_EQ(text, texts) << command;
        EXPECT_EQ(outcomes_of(rules + command + "\n").back().at("data"), row);
    }
    const json_t ports = data_of("mapt explain 192.0.2.18:1232" + file).at("port_sets");
    EXPECT_EQ(ports.size(), 63U);
    EXPECT_EQ(ports.back(), json_t({64720, 64723}));
}

TEST_F(explain_test, of_rules_that_share_an_address_the_one_whose_ports_have_it_is_taken) {
    const std::string shared = "--domain 1 --v4 192.0.2.18/32 --psid-offset 6 --psid-len 8 --psid ";
    const std::string file = file_with("mapt bmr add --rule 1 --v6 2001:db8:1::/56 " + shared +
                                       "1\nmapt bmr add --rule 2 --v6 2001:db8:2::/56 " + shared + "52\n");
    EXPECT_EQ(data_of("mapt explain 192.0.2.18:1232" + file).at("rule_id"), 2);
    EXPECT_EQ(data_of("mapt explain 192.0.2.18:1028" + file).at("rule_id"), 1);
    EXPECT_TRUE(ends(run("mapt explain 192.0.2.18:1032" + file), 2, "port 1032: must be of PSID 1"));
    EXPECT_TRUE(ends(run("mapt explain 192.0.2.18" + file), 2, "a port is needed, as 2 rules share the address"));
    EXPECT_TRUE(json_of("mapt explain 192.0.2.18" + file).at("code").is_null());
    EXPECT_TRUE(json_of("mapt explain 192.0.2.18:1032" + file).at("code").is_null());
}

TEST_F(explain_test, prefixes_hold_addresses) {
    const std::pair<const char *, const char *> lines[] = {
        {"192.0.2.33", "64:ff9b::/96,192.0.2.33,64:ff9b::c000:221\n"},
        {"192.0.2.33 --prefix 2001:db8:100::/40", "2001:db8:100::/40,192.0.2.33,2001:db8:1c0:2:21::\n"},
        {"2001:db8:1c0:2:21:: --prefix 2001:db8:100::/40", "2001:db8:100::/40,192.0.2.33,2001:db8:1c0:2:21::\n"},
        {"2001:db8:122:c000:2:2100::",
         "2001:db8:122::/48,192.0.2.33,2001:db8:122:c000:2:2100::\n"
         "2001:db8:122:c000::/56,0.2.33.0,2001:db8:122:c000:2:2100::\n"
         "2001:db8:122:c000::/64,2.33.0.0,2001:db8:122:c000:2:2100::\n"
         "2001:db8:122:c000:2:2100::/96,0.0.0.0,2001:db8:122:c000:2:2100::\n"},
    };
    for (const auto &[address, rows] : lines) {
        EXPECT_EQ(run(std::string("--csv nat64 explain ") + address).answers, std::string("prefix,ipv4,ipv6\n") + rows);
    }
}

TEST_F(explain_test, what_cannot_be_explained_is_said) {
    const std::string file = file_with(rules);
    const std::tuple<std::string, int, const char *> failures[] = {
        {"mapt explain 192.0.2.1", 1, "no rule that this natctl has installed has 192.0.2.1: over a connection"},
        {"mapt explain 2001:db9::" + file, 1, " has 2001:db9::: over a connection natctl knows only "},
        {"mapt explain 192.0.2.1" + file, 2, "mapt explain: a port is needed"},
        {"mapt explain 192.0.2.1:65536" + file, 2, "address 192.0.2.1:65536: must be as 192.0.2.18, "},
        {"mapt explain 192.0.2.1 --file /nonexistent", 2, "/nonexistent: No such file or directory"},
        {"mapt explain 192.0.2.1 --file /", 2, "/: is a directory, not a regular file"},
        {"nat64 explain 192.0.2.1 --prefix ::/72", 2, "--prefix ::/72: must be of 32, 40, 48, 56, 64 or 96 bits"},
        {"nat64 explain ::1:0:0:0", 0, ""},
        {"nat64 explain ::100:0:0:0", 1, "holds no IPv4 address: bits 64 to 71 are not zero"},
        {"nat64 explain 2001:db8:: --prefix 64:ff9b::/96", 1, "holds no IPv4 address behind that prefix"},
    };
    for (const auto &[command, status, error] : failures) {
        EXPECT_TRUE(ends(run(command), status, error)) << command;
    }
    EXPECT_TRUE(ends(run("mapt explain 192.0.2.1" + file_with("\nmapt bmr add --rule 0 --domain 1\n")), 2,
                     "rules: line 2: mapt bmr add: --rule 0: must be 1"));
    const std::string refused =
        "dev server fail-next --code 0x6006\nmapt dmr add --id 1 --prefix 64:ff9b::/96\nmapt explain 10.2.3.4\n";
    EXPECT_TRUE(ends(run("--keep-going batch -", refused), 1, "installed has 10.2.3.4"));
}

}  // namespace
