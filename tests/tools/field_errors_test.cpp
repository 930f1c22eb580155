/* Wrong values: each error names the command, the field, the value and what is allowed. */
#include "natctl_fixture.h"

namespace {

constexpr std::pair<const char *, const char *> field_errors[] = {
    {"timeout set --type 8 --value 1", "timeout set: --type 8: must be 1 to 7, or udp, tcp-trans"},
    {"timeout set --type tcp --value 1", "timeout set: --type tcp: must be 1 to 7"},
    {"timeout set --type udp --value 4m2h", "--value 4m2h: must be 0 to 4294967295 seconds, or a time such as 2h4m"},
    {"timeout set --type udp --value 49711d", "--value 49711d: must be"},
    {"sessions clear --protocol any", "--protocol any: must be 1 to 255, or icmp, tcp, udp, icmpv6"},
    {"mapt bmr add --rule 1 --domain 1 --v4 0.0.0.0/0 --v6 ::/0 --params 1,2,3,4 --psid 1",
     "mapt bmr add: --psid excludes --params"},
    {"timeout set --type 1 --value ''", "timeout set: --value '': must be 0 to 4294967295"},
    {"timeout set --type 1", "timeout set: --value is required"},
    {"adj set --type 1 --address 192.0.2", "--address 192.0.2: must be an address such as 192.0.2.1 or 2001:db8::1"},
    {"settings set --bytes 00", "settings set: --bytes 00: must be 32 hexadecimal digits"},
    {"sessions walk --limit 0", "sessions walk: --limit 0: must be 1 to 4294967295"},
    {"dev cgm update --batch 1 --data 00", "dev cgm update: --data 00: must be 48 hexadecimal digits"},
    {"interface set --ifh 1 --sful 2001:db8::", "--sful 2001:db8::: must be an IPv6 prefix of at most 96 bits"},
    {"interface set --ifh 1 --sless-v6v4 1.2.3.4/8", "--sless-v6v4 1.2.3.4/8: must be an IPv6 prefix"},
    {"prefix mod --prefix 2001:db8::1/64 --kind 1", "must be a prefix with no bits set behind its first 64"},
    {"pool mod --id 1 --param 1 --start ::1 --end 192.0.2.2", "--start ::1: must be an IPv4 address such as 192.0.2.1"},
    {"logging del --dest 192.0.2.1 --port 1 --param 256", "logging del: --transport 256: must be 0 to 255"},
    {"mapt bmr add --rule 1 --domain 1 --v6 ::/0 --v4 192.0.2.0/33", "must be an IPv4 prefix of at most 32 bits"},
    {"mapt bmr del --rule 1 --domain 1 --params 1,2,3", "--params 1,2,3: must be 4 numbers between commas"},
    {"mapt bmr del --rule 1 --domain 1 --params 1,2,3,65536", "--params 65536: must be 0 to 65535"},
    {"dev mapt lookup x", "dev mapt lookup: address x: must be an address"},
    {"dev server fail-next --code 0", "dev server fail-next: --code 0: must be 1 to 4294967295"},
    {"dev server notify debug --class 1 --on 1", "--class 1: must be info|trace|warning|error|all"},
    {"--timeout 0 status", "--timeout 0: must be 1 to 2147483647 milliseconds, or a time such as 250ms or 5s"},
    {"--timeout 25d status", "--timeout 25d: must be 1 to"},
    {"--connect x top --interval 99ms", "--interval 99ms: must be 100 to 86400000 milliseconds, or a time"},
    {"config apply --confirm 1500ms x", "--confirm 1500ms: must be 1 to 86400 seconds, or a time such as 2h4m"},
    {"--dry-run config confirm", "config confirm: a dry run confirms nothing; config log shows what waits"},
    {"--dry-run fleet rollback --store etcd://127.0.0.1:1/x", "fleet rollback: a dry run puts nothing; "},
    {"--dry-run --connect x daemon reload", "daemon: needs --connect or NATCTL_CONNECT, and takes no --dry-run"},
    {"config rollback 4294967295", "version 4294967295: must be 0 to 4294967294"},
    {"config show 4294967295", "version 4294967295: must be 0 to 4294967294"},
    {"config apply --confirm 0s x", "--confirm 0s: must be 1 to 86400 seconds"},
    {"mapt explain [2001:db8::1]:80", "must be as 192.0.2.18, 192.0.2.18:1232 or 2001:db8::1"},
    {"--connect '' status", "--connect '': must be the name of a server"},
    {"--trace serve name", "natctl: serve: serve excludes --trace\n"},
    {"--dry-run serve name", "natctl: serve: serve excludes --dry-run\n"},
    {"--connect other serve name", "natctl: serve: serve excludes --connect\n"},
    {"--debug-level 1 serve name", "natctl: serve: serve excludes --debug-level\n"},
    {"frob", "frob: must be status, convert, configuration, timeout, "},
    {"sttas", "natctl: sttas: did you mean stats?\n"},
    {"statsu", "natctl: statsu: did you mean status?\n"}, /* stats is as near, but shorter */
    {"help tiemout", "natctl: help: tiemout: did you mean timeout?\n"},
    {"session walk", "natctl: session: did you mean sessions?\n"},
    {"sessions clear", "sessions clear: needs an option that says which sessions, or --all to clear every one\n"},
    {"sessions clear --all --port 5", "sessions clear: --port excludes --all"},
    {"tiemout set", "natctl: tiemout: did you mean timeout?\n"},
    {"smappin add", "natctl: smappin: did you mean smapping?\n"}, /* dmapping comes later and is nearly as near */
    {"mapt bmr ad", "mapt bmr: ad: did you mean add?\n"},
    {"timeout set --tpye 1 --value 2", "timeout set: --tpye: did you mean --type?\n"},
    {"timeout set --type 1 --vale=2", "timeout set: --vale=2: did you mean --value?\n"},
    {"timeout set --hepl", "timeout set: --hepl: did you mean --help?\n"},
    {"sessions walk --limt 2", "sessions walk: --limt: did you mean --limit?\n"},
    {"status --jsn", "status: --jsn: did you mean --json?\n"},
    {"timeout set --type 1111111111222222222233333333334444444444555555555566666666667 --value 1",
     "--type 111111111122222222223333333333444444444455555555556666666666...: must be 1 to 7, or udp"},
    {"timeout set --type 11111111112222222222333333333344444444445555555555666666666\xc3\xa4 --value 1",
     "--type 11111111112222222222333333333344444444445555555555666666666...: must be 1 to 7, or udp"},
    {"mapt 1111111111222222222233333333334444444444555555555566666666667",
     "mapt: 111111111122222222223333333333444444444455555555556666666666...: must be show, rules, explain, bmr, "
     "dmr\n"},
    {"limit", "limit: must go on with add, mod, del, show"},
    {"limit frob", "limit: frob: must be add, mod, del, show"},
    {"status --frob", "status: --frob: not expected here, see --help"},
    {"status status", "status: status: not expected here, see --help"},
    {"batch", "batch: file is required"},
    {"batch /nonexistent", "batch: /nonexistent: No such file or directory"},
    {"batch /", "batch: /: is a directory, not a file or a pipe"},
};

/** Lines of batches that may be read in another way than the words of a command line. */
constexpr const char *other_lines[] = {
    "timeout set --value=300 --type=0x1",
    "timeout set --type= 1 --value 0xffffffff",
    "timeout set --type 1 --type 1 --type 9 --value x",
    "timeout set --type 9 --value 1 --type 9",
    "timeout set --value 2 --type",
    "timeout set --value --type 1",
    "timeout set --type 1 --value 2 --",
    "timeout set --type 1 -- --value 2",
    "timeout frob set --type 1 --value 2 more",
    "timeout set --type 1 --value 2 first second",
    "timeout --type 1 set --value 2",
    "limit ''",
    "limit sett",
    "mapt bmr",
    "limit add --type 1 --value 2 -1",
    "limit add --Type 1 --value=''",
    "limit del --type 1 --value 7",
    "adj set --type 13 --address ::ffff:192.0.2.1",
    "adj set --type 1 --address 01.2.3.4",
    "replication set --value 1 --value2 2",
    "settings set --bytes 000102030405060708090a0b0c0d0e0F",
    "interface set --mtu 1280 --sless-v6v4 ::/0 --sful 2001:db8::/32 --sless 64:ff9b::/96 --enable 0 --ifh 7",
    "interface set --ifh 2", /* it knows nothing of the options of the one before it */
    "interface set --ifh 1 --mtu none",
    "sessions clear --protocol 6 --src 192.0.2.1",
    "sessions clear --all",
    "dev cgm end-batch --batch 2 --async",
    "dev cgm end-batch --batch 1",
    "prefix mod --prefix 64:ff9b::/0x60 --kind 4",
    "smapping del --id 1 --addr1 192.0.2.1",
    "dmapping add --id 1 --type 7 --ext 000102030405060708090a0b0c0d0e0f1011121314151617 --ext-arg 9",
    "logging add --dest 192.0.2.1 --port 9 --param 255 --param2 65535",
    "mapt bmr add --params 1,2,3,4 --v4 192.0.2.0/24 --v6 2001:db8::/40 --domain 2 --rule 1",
};

class field_errors_test : public natctl_test {};

/** The outcome of a dry run, without the members that differ between runs or between a batch and a single command. */
json_t without_run(json_t outcome) {
    outcome.erase("line");
    constexpr size_t header_digits = 64;
    for (size_t i = 0; outcome.contains("messages") && i < outcome["messages"].size(); ++i) {
        json_t &message = outcome["messages"][i];
        const auto digits = message["hex"].get<std::string>();
        message["hex"] = digits.substr(std::min(header_digits, digits.size()));
    }
    return outcome;
}

TEST_F(field_errors_test, a_wrong_value_is_named_in_both_forms_and_a_line_of_a_batch_is_read_as_a_command_line_is) {
    std::vector<std::pair<std::string, json_t>> alone;
    for (const auto &[command, error] : field_errors) {
        const run_t result = run(command);
        EXPECT_TRUE(ends(result, 2, error)) << command;
        EXPECT_EQ(result.answers, "") << command;
        const json_t document = json_of(command);
        EXPECT_EQ((document.is_array() ? document.at(0) : document).at("status"), "usage") << command;
        const std::string line = command;
        const bool is_line = line.substr(0, 2) != "--" && line.substr(0, 5) != "batch" && line != "frob" &&
                             line != "status --jsn" && line != "tiemout set";
        if (is_line) alone.emplace_back(line, document);
    }
    for (const char *line : other_lines) {
        alone.emplace_back(line, json_of(std::string("--dry-run ") + line));
    }
    std::string batch;
    for (const auto &[line, outcome] : alone) {
        batch += line + '\n';
    }
    const json_t of_lines = outcomes_of(batch, "--dry-run");
    ASSERT_EQ(of_lines.size(), alone.size());
    for (size_t i = 0; i < alone.size(); ++i) {
        EXPECT_EQ(without_run(of_lines[i]), without_run(alone[i].second)) << alone[i].first;
    }
    EXPECT_NE(run("batch -", "timeout set --type 1 -h").notes.find("Sets a timeout\n"), std::string::npos);
}

}  // namespace
