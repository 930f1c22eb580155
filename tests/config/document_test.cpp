/* Parsing, checking and writing of documents in both notations. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "config/load.h"
#include "config/notation.h"
#include "config/plan.h"
#include "records/families.h"
#include "records/reader.h"
#include "records/words.h"

namespace {

std::string texts_of(const problems_t &problems) {
    std::string texts;
    for (const problem_t &problem : problems) {
        texts += problem.text() + (problem.field.empty() ? "\n" : " [" + problem.field + "]\n");
    }
    return texts;
}

document_t load(const std::string &text) {
    problems_t problems;
    document_t document = load_document(text, problems);
    EXPECT_FALSE(has_error(problems)) << texts_of(problems);
    return document;
}

constexpr const char *shuffled =
    "\xef\xbb\xbf# every family, in no order\n"
    "mapt dmr add --id 9 --data 20010db8ffff000000000000000000004000000000000001\r\n"
    "mapt dmr add --id 8 --prefix 2001:db8:ffff::/64\n"
    "mapt dmr add --id 7 --prefix ::/96\n"
    "mapt bmr add --rule 2 --domain 1 --v6 2001:db8:ff00::/40 --v4 192.0.2.128/25 --params 16,6,9,0\n"
    "mapt bmr add --rule 1 --domain 2 --v6 2001:db8:ff01::/48 --v4 192.0.2.128/25\n"
    "nvi enable --ifh 8\n"
    "nvi enable --ifh 7\n"
    "interface set --ifh 7 --sless 64:ff9b::/96 \\\n"
    "  --mtu 1400 # this interface\n"
    "interface set --ifh 8\n"
    "interface set --ifh 6 --enable 0 --mtu 1300\n"
    "pool add --id 0x2 --param=2 --start '192.0.2.1' --end 192.0.2.100 --hsl 6\n"
    "pool add --id 10 --param 2 --start 10.0.0.0 --end 10.0.0.0\n"
    "pool add --id 1 --param 2 --start 198.51.100.1 --end 198.51.100.9\n"
    "range add --id 2 --start 203.0.113.7 --end 203.0.113.9\n"
    "range add --id 2 --start 9.0.0.0 --end 9.0.0.9\n"
    "timeout set --type tcp-est --value 2h4m\n"
    "timeout set --type udp --value 0\n"
    "logging add --dest 192.0.2.9 --port 2055 --param tcp\n"
    "settings set --bytes 000102030405060708090A0b0c0d0e0f\n"
    "replication set --value 1\n"
    "dmapping add --id 4 --type 0 --ext 000102030405060708090a0b0c0d0e0f1011121314151617 --ext-arg 5\n"
    "smapping add --id 3 --addr1 2001:db8::1 --addr2 192.0.2.1\n"
    "limit add --type 1 --value 9\n"
    "service add --type alg --value 10\n"
    "adj set --type 13 --address 2001:db8::1\n"
    "prefix add --prefix 64:ff9b::/96 --kind dns64";

constexpr const char *lines =
    "# nat64 configuration version 1\n"
    "settings set --bytes 000102030405060708090a0b0c0d0e0f\n"
    "timeout set --type tcp-est --value 7440\n"
    "limit add --type sessions --value 9\n"
    "service add --type alg --value 10\n"
    "adj set --type 13 --address 2001:db8::1\n"
    "replication set --value 1\n"
    "logging add --dest 192.0.2.9 --port 2055 --transport tcp\n"
    "pool add --id 1 --param 2 --start 198.51.100.1 --end 198.51.100.9\n"
    "pool add --id 2 --param 2 --start 192.0.2.1 --end 192.0.2.100 --hsl 6\n"
    "pool add --id 10 --param 2 --start 10.0.0.0 --end 10.0.0.0\n"
    "range add --id 2 --start 9.0.0.0 --end 9.0.0.9\n"
    "range add --id 2 --start 203.0.113.7 --end 203.0.113.9\n"
    "prefix add --prefix 64:ff9b::/96 --kind dns64\n"
    "smapping add --id 3 --addr1 2001:db8::1 --addr2 192.0.2.1\n"
    "dmapping add --id 4 --type endpoint-independent --ext 000102030405060708090a0b0c0d0e0f1011121314151617 "
    "--ext-arg 5\n"
    "mapt bmr add --rule 1 --domain 2 --v6 2001:db8:ff01::/48 --v4 192.0.2.128/25\n"
    "mapt bmr add --rule 2 --domain 1 --v6 2001:db8:ff00::/40 --v4 192.0.2.128/25 --ea-len 16 --psid-offset 6 "
    "--psid-len 9\n"
    "mapt dmr add --id 7 --prefix ::/96\n"
    "mapt dmr add --id 8 --prefix 2001:db8:ffff::/64\n"
    "mapt dmr add --id 9 --data 20010db8ffff000000000000000000004000000000000001\n"
    "interface set --ifh 6 --enable 0 --mtu 1300\n"
    "interface set --ifh 7 --sless 64:ff9b::/96 --mtu 1400\n"
    "nvi enable --ifh 7\n"
    "nvi enable --ifh 8\n";

/* Without the line breaks between objects. */
constexpr const char *json =
    R"({"version":1,"items":{)"
    R"("settings":[{"bytes":"000102030405060708090a0b0c0d0e0f"}],)"
    R"("timeout":[{"type":"tcp-est","value":7440}],)"
    R"("limit":[{"type":"sessions","value":9}],)"
    R"("service":[{"type":"alg","value":10}],)"
    R"("adj":[{"type":13,"address":"2001:db8::1"}],)"
    R"("replication":[{"value":1}],)"
    R"("logging":[{"dest":"192.0.2.9","port":2055,"transport":"tcp"}],)"
    R"("pool":[{"id":1,"param":2,"start":"198.51.100.1","end":"198.51.100.9"},)"
    R"({"id":2,"param":2,"start":"192.0.2.1","end":"192.0.2.100","hsl":6},)"
    R"({"id":10,"param":2,"start":"10.0.0.0","end":"10.0.0.0"}],)"
    R"("range":[{"id":2,"start":"9.0.0.0","end":"9.0.0.9"},{"id":2,"start":"203.0.113.7","end":"203.0.113.9"}],)"
    R"("prefix":[{"prefix":"64:ff9b::/96","kind":"dns64"}],)"
    R"("smapping":[{"id":3,"addr1":"2001:db8::1","addr2":"192.0.2.1"}],)"
    R"("dmapping":[{"id":4,"type":"endpoint-independent",)"
    R"("ext":"000102030405060708090a0b0c0d0e0f1011121314151617","ext_arg":5}],)"
    R"("mapt bmr":[{"rule":1,"domain":2,"v6":"2001:db8:ff01::/48","v4":"192.0.2.128/25"},)"
    R"({"rule":2,"domain":1,"v6":"2001:db8:ff00::/40","v4":"192.0.2.128/25",)"
    R"("ea_len":16,"psid_offset":6,"psid_len":9}],)"
    R"("mapt dmr":[{"id":7,"prefix":"::/96"},{"id":8,"prefix":"2001:db8:ffff::/64"},)"
    R"({"id":9,"data":"20010db8ffff000000000000000000004000000000000001"}],)"
    R"("interface":[{"ifh":6,"enable":0,"mtu":1300},{"ifh":7,"sless":"64:ff9b::/96","mtu":1400}],)"
    R"("nvi":[{"ifh":7},{"ifh":8}]}})";

std::string without_line_breaks(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

TEST(document_test, a_document_is_written_in_one_order_whatever_it_was_read_from) {
    const std::string same_json =
        R"({"items": {"nvi": [{"ifh": 8}], "mapt bmr": [{"params": [16, 6, 9, 0], "domain": 1,
            "rule": "2", "v4": "192.0.2.128/25", "v6": "2001:db8:ff00::/40"},
            {"params": [15, 6, 8, 0], "domain": 1, "rule": 3, "v4": "192.0.2.0/25", "v6": "2001:db8::/40"}],
            "interface": [{"enable": true, "ifh": 8}], "timeout": [{"value": "2h4m", "type": 3}]}, "version": 1})";
    EXPECT_EQ(write_lines(load(same_json)),
              "# nat64 configuration version 1\n"
              "timeout set --type tcp-est --value 7440\n"
              "mapt bmr add --rule 2 --domain 1 --v6 2001:db8:ff00::/40 --v4 192.0.2.128/25 --ea-len 16 "
              "--psid-offset 6 --psid-len 9\n"
              "mapt bmr add --rule 3 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/25 --ea-len 15 "
              "--psid-offset 6 --psid-len 8\n"
              "nvi enable --ifh 8\n");
    for (const char *text : {shuffled, lines, json}) {
        EXPECT_EQ(write_lines(load(text)), lines);
        EXPECT_EQ(without_line_breaks(write_json(load(text))), json);
    }
    EXPECT_EQ(write_json(load("limit add --type 1 --value 9\nnvi enable --ifh 7\nnvi enable --ifh 8\n")),
              R"({"version":1,
"items":{
"limit":[
{"type":"sessions","value":9}
],
"nvi":[
{"ifh":7},
{"ifh":8}
]
}}
)");
    EXPECT_EQ(write_lines(load("logging add --dest 192.0.2.1 --port 5\nlogging add --dest 10.0.0.2 --port 5\n")),
              "# nat64 configuration version 1\n"
              "logging add --dest 10.0.0.2 --port 5\n"
              "logging add --dest 192.0.2.1 --port 5\n");
    for (const char *text : {"# nat64 configuration version 1", "{\"version\":1,\"items\":{}}"}) {
        EXPECT_EQ(write_lines(load(text)), "# nat64 configuration version 1\n");
        EXPECT_EQ(write_json(load(text)), "{\"version\":1,\n\"items\":{}}\n");
    }
}

TEST(document_test, each_error_is_reported_with_its_line_and_field) {
    const std::pair<std::string, std::string> documents[] = {
        {"", "neither a command nor `# nat64 configuration version 1`: this is not a document\n"},
        {"\n # x\n", "neither a command nor `# nat64 configuration version 1`: this is not a document\n"},
        {std::string("a\nb\0c\n", 6), "line 2: zero byte: a document must be text\n"},
        {"pol\n# nat64 configuration version 2\nnvi enable --ifh 1\nnvi enable --ifh 1\n",
         "line 2: version 2: must be 1 [version]\n"},
        {"pol add\nmapt foo\nmapt\nstatus\npool 'x\npool\npool add -h\nmapt dmr ++\n",
         "line 1: pol: did you mean pool?\n"
         "line 2: mapt foo: no family of configuration commands\n"
         "line 3: mapt: no family of configuration commands\n"
         "line 4: status: no family of configuration commands\n"
         "line 5: ': quote without its end\n"
         "line 6: pool: must go on with add, mod, del\n"
         "line 7: pool: --help, -- and ++ are not allowed in a document\n"
         "line 8: mapt dmr: --help, -- and ++ are not allowed in a document\n"},
        {"nvi enable \\\n--ifh 1\nlimit add \\\n--value 1 \\\n--type 2\nnvi enable --ifh 1\n",
         "line 3: limit add: --type 2: must be 1, or sessions [--type]\n"
         "line 6: nvi enable: --ifh 1: line 1 has it already [--ifh]\n"},
        {"pool add --id 0 --param x --end 1\nlimit mod --type 1 --value 2\npool del --id 1\nreplication unset\n"
         "limit add --value 1 --value 2\nlimit add --type 1 --valu 1\nlimit add --type 2 --value\n"
         "range add --id 7 --start 192.0.2.1 --end 192.0.2.2\n",
         "line 1: pool add: --id 0: must be 1 to 4294967295 [--id]\n"
         "line 1: pool add: --param x: must be 1 to 4294967295 [--param]\n"
         "line 1: pool add: --end 1: must be an IPv4 address such as 192.0.2.1 [--end]\n"
         "line 1: pool add: --start is required [--start]\n"
         "line 2: limit mod: a document describes a state: must be limit add\n"
         "line 3: pool del: a document describes a state: must be pool add\n"
         "line 4: replication unset: a document describes a state: must be replication set\n"
         "line 5: limit add: --value: At Most 1 required but received 2 [--value]\n"
         "line 5: limit add: --type is required [--type]\n"
         "line 6: limit add: --valu: did you mean --value? [--valu]\n"
         "line 7: limit add: --value: 1 required 0 to 4294967295 missing [--value]\n"
         "line 7: limit add: --type 2: must be 1, or sessions [--type]\n"},
        {"timeout set --type icmp --value 5\ntimeout set --type 6 --value 5\nsettings set --bytes "
         "00000000000000000000000000000001\nsettings set --bytes 00000000000000000000000000000001\n"
         "nvi enable --ifh 4\nnvi enable --ifh 4\ninterface set --ifh 4 --enable 0\ninterface set --ifh 5\n"
         "interface set --ifh 5\ninterface set --ifh 3 --enable 0\n",
         "line 2: timeout set: --type icmp: line 1 has it already [--type]\n"
         "line 4: settings set: line 3 has it already\n"
         "line 5: nvi enable: --ifh 4: line 7 turns the interface off [--ifh]\n"
         "line 6: nvi enable: --ifh 4: line 5 has it already [--ifh]\n"
         "line 9: interface set: --ifh 5: line 8 has it already [--ifh]\n"
         "line 10: warning: interface set: --ifh 3: this is the server's default [--ifh]\n"},
        {"pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.9\n"
         "pool add --id 2 --param 1 --start 192.0.2.20 --end 192.0.2.19\n"
         "pool add --id 3 --param 1 --start 192.0.2.5 --end 192.0.2.6\n"
         "range add --id 7 --start 198.0.2.1 --end 198.0.2.2\n"
         "range add --id 1 --start 192.0.2.2 --end 192.0.2.4\n"
         "range add --id 3 --start 192.0.2.7 --end 192.0.2.8\n"
         "range add --id 3 --start 198.0.2.2 --end 198.0.2.9\n"
         "range add --id 1 --start 192.0.2.6 --end 192.0.2.6\n",
         "line 2: pool add: --end 192.0.2.19: must be 192.0.2.20 or above [--end]\n"
         "line 3: pool add: --start 192.0.2.5: overlaps pool 1 in line 1 [--start]\n"
         "line 4: range add: --id 7: there is no such pool [--id]\n"
         "line 6: range add: --start 192.0.2.7: overlaps pool 1 in line 1 [--start]\n"
         "line 7: range add: --start 198.0.2.2: overlaps a range of pool 7 in line 4 [--start]\n"
         "line 8: range add: --start 192.0.2.6: overlaps pool 3 in line 3 [--start]\n"},
        {"prefix add --prefix 2001:db8::/50 --kind 1\nprefix add --prefix 2001:db8:0:0:100::/96 --kind 1\n"
         "interface set --ifh 1 --sful ::/0\nmapt dmr add --id 1 --prefix 2001:db8::/33\nmapt dmr add --id 2\n"
         "logging add --dest 0.0.0.0 --port 3\n",
         "line 1: prefix add: --prefix 2001:db8::/50: must be a prefix of 32, 40, 48, 56, 64 or 96 bits, with zeros "
         "in bits 64 to 71 [--prefix]\n"
         "line 2: prefix add: --prefix 2001:db8:0:0:100::/96: must be a prefix of 32, 40, 48, 56, 64 or 96 bits, "
         "with zeros in bits 64 to 71 [--prefix]\n"
         "line 3: interface set: --sful ::/0: must be a prefix of 32, 40, 48, 56, 64 or 96 bits, with zeros in bits "
         "64 to 71 [--sful]\n"
         "line 4: mapt dmr add: --prefix 2001:db8::/33: must be a prefix of 32, 40, 48, 56, 64 or 96 bits, with "
         "zeros in bits 64 to 71 [--prefix]\n"
         "line 6: logging add: --dest 0.0.0.0: must be the address of a host [--dest]\n"},
        {"pool add --id 1 --param 1 --start 0.0.0.0 --end 255.255.255.255\n"
         "pool add --id 2 --param 1 --start 223.255.255.255 --end 224.0.0.0\n"
         "pool add --id 3 --param 1 --start 10.0.0.0 --end 10.0.0.1\n"
         "range add --id 3 --start 126.255.255.255 --end 128.0.0.0\n"
         "smapping add --id 1 --addr1 2001:db8::1 --addr2 2001:db8::2\n"
         "smapping add --id 2 --addr1 192.0.2.1 --addr2 2001:db8::2\n",
         "line 1: pool add: --start 0.0.0.0: the addresses up to 255.255.255.255 must be unicast: within 1.0.0.0 to "
         "223.255.255.255, without 127.0.0.0/8 [--start]\n"
         "line 2: pool add: --start 223.255.255.255: the addresses up to 224.0.0.0 must be unicast: within 1.0.0.0 to "
         "223.255.255.255, without 127.0.0.0/8 [--start]\n"
         "line 2: pool add: --start 223.255.255.255: overlaps pool 1 in line 1 [--start]\n"
         "line 3: pool add: --start 10.0.0.0: overlaps pool 1 in line 1 [--start]\n"
         "line 4: range add: --start 126.255.255.255: the addresses up to 128.0.0.0 must be unicast: within 1.0.0.0 to "
         "223.255.255.255, without 127.0.0.0/8 [--start]\n"
         "line 4: range add: --start 126.255.255.255: overlaps pool 1 in line 1 [--start]\n"
         "line 5: smapping add: --addr2 2001:db8::2: must be an IPv4 address behind 2001:db8::1 [--addr2]\n"},
        {"mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24 --ea-len 60000\n"
         "mapt bmr add --rule 2 --domain 1 --v6 2001:db8:1::/48 --v4 198.51.100.0/24 --ea-len 16 --psid-offset 12\n"
         "mapt bmr add --rule 3 --domain 1 --v6 2001:db8:2::/48 --v4 203.0.113.0/24 --ea-len 16 --psid-len 6\n",
         "line 1: mapt bmr add: --ea-len 60000: must be 0 to 24 with an IPv4 prefix of 24 bits [--ea-len]\n"
         "line 2: mapt bmr add: --psid-len 8: must be 0 to 4 with a PSID offset of 12 [--psid-len]\n"
         "line 3: mapt bmr add: --psid-len 6: must be 8, which the EA bits leave for it [--psid-len]\n"},
        {"mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24\n"
         "mapt bmr add --rule 2 --domain 1 --v6 2001:db8::/41 --v4 192.0.2.0/24\n"
         "mapt bmr add --rule 3 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24\n",
         "line 3: warning: mapt bmr add: --v4 192.0.2.0/24: shared by 3 rules, of which the first is --rule 1 "
         "--domain 1 in line 1 [--v4]\n"
         "line 3: warning: mapt bmr add: --v6 2001:db8::/40: shared by 2 rules, of which the first is --rule 1 "
         "--domain 1 in line 1 [--v6]\n"},
        {"{\"items\":{\"pool\":[{\"id\":\"1\",\"parm\":1,\n\"start\":[1],\"end\":{\"x\":1}}, 5,\n[]],\n"
         "\"pools\":[{\"id\":1}],\n\"timeout\":{\"type\":1},\"nvi\":7,\n"
         "\"mapt bmr\":[{\"rule\":1,\"rule\":2,\"domain\":-1,\"v6\":\"::/0\",\"v4\":null,\n"
         "\"params\":[1,2,3,[4]],\"ea_len\":2}]}, \"x\":{\"a\":[1]},\n\"items\":{\"pool\":[{}]}}",
         "version is required [version]\n"
         "line 1: pool: parm: did you mean param? [parm]\n"
         "line 2: pool: start [...]: must be an IPv4 address such as 192.0.2.1 [start]\n"
         "line 2: pool: end [...]: must be an IPv4 address such as 192.0.2.1 [end]\n"
         "line 2: pool: must be an array of objects\n"
         "line 3: pool: must be an array of objects\n"
         "line 4: pools: did you mean pool? [pools]\n"
         "line 5: timeout: must be an array of objects\n"
         "line 5: nvi: must be an array of objects\n"
         "line 6: mapt bmr: rule: At Most 1 required but received 2 [rule]\n"
         "line 6: mapt bmr: domain -1: must be 0 to 4294967295 [domain]\n"
         "line 6: mapt bmr: v4 null: must be an IPv4 prefix of at most 32 bits, such as 192.0.2.0/24 "
         "[v4]\n"
         "line 7: mapt bmr: ea_len excludes params [params]\n"
         "line 7: x: no such field [x]\n"
         "line 8: items is given twice [items]\n"},
        {"{\"version\":1,\"items\":{\"range\":[{\"id\":7,\"start\":\"192.0.2.1\",\"end\":\"192.0.2.0\"},\n"
         "{\"id\":7,\"start\":\"192.0.2.1\",\"end\":\"192.0.2.0\"}]}}",
         "line 1: range: id 7: there is no such pool [id]\n"
         "line 1: range: end 192.0.2.0: must be 192.0.2.1 or above [end]\n"
         "line 2: range: id 7 start 192.0.2.1 end 192.0.2.0: line 1 has it already [id]\n"},
        {"{\"version\":1,\"items\":{\"pool\":[{\"id\":1,\"param\":1,\"start_addr\":\"10.0.0.1\",\"end\":\"10.0.0.2\"}],"
         "\n"
         "\"range\":[{\"id\":7,\"start\":\"192.0.2.1\",\"end\":\"192.0.2.2\"}]}}",
         "line 1: warning: pool: start_addr: is called start now, and start_addr goes with the next version "
         "[start_addr]\n"
         "line 2: range: id 7: there is no such pool [id]\n"},
        {"{\"version\":1,\"items\":{\"limit\":[{\"type\":1,\n\"\":5,\n\"value\":9},\n{\"type\":1,\n\"" +
             std::string(61, 'x') + "\":5}]}}",
         "line 2: limit: '': no such field ['']\n"
         "line 5: limit: " +
             std::string(60, 'x') + "...: no such field [" + std::string(60, 'x') + "...]\n"},
        {"{\"version\":1,\n\"items\":{\"pool\":[{\"id\":1,]",
         "line 2: not JSON: column 26: syntax error while parsing object key - unexpected ']'; expected string "
         "literal\n"},
        {"{\"version\":1,\"items\":{}} x",
         "line 1: not JSON: column 26: syntax error while parsing value - invalid "
         "literal; last read: '\"items\":{}} x'; expected end of input\n"},
        {"{\"version\":true,\"items\":{\"limit\":[{\"type\":true,\"value\":1}]}}",
         "line 1: version true: must be 1 [version]\n"},
        {"{\"version\":1e999}", "line 1: not JSON: number overflow parsing '1e999'\n"},
        {"[{}]", "line 1: must be an object with version and items\n"},
        {"{}", "version is required [version]\nitems is required [items]\n"},
        {"{\"version\":\"2\",\"items\":{\"foo\":1,\"nvi\":[{\"ifh\":1},{\"ifh\":1}]}}",
         "line 1: version 2: must be 1 [version]\n"},
        {"{\"version\":[1],\"items\":1}",
         "line 1: version: must be a number [version]\n"
         "line 1: items: must be an object of arrays [items]\n"},
    };
    for (const auto &[text, errors] : documents) {
        problems_t problems;
        load_document(text, problems);
        EXPECT_EQ(texts_of(problems), errors) << text;
    }
}

TEST(document_test, former_names_of_json_are_read_with_one_warning_each) {
    problems_t problems;
    const document_t document = load_document(
        R"({"version":1,"items":{"pool":[{"id":1,"param":1,"start_addr":"10.0.0.1","end":"10.0.0.2"},
{"id":2,"param":1,"start_addr":"10.0.0.3","end":"10.0.0.4"}],"logging":[{"dest":"192.0.2.1","port":5,"param":"udp"}]}})",
        problems);
    EXPECT_EQ(write_lines(document),
              "# nat64 configuration version 1\n"
              "logging add --dest 192.0.2.1 --port 5 --transport udp\n"
              "pool add --id 1 --param 1 --start 10.0.0.1 --end 10.0.0.2\n"
              "pool add --id 2 --param 1 --start 10.0.0.3 --end 10.0.0.4\n");
    EXPECT_EQ(texts_of(problems),
              "line 1: warning: pool: start_addr: is called start now, and start_addr goes with the next version "
              "[start_addr]\n"
              "line 2: warning: logging: param: is called transport now, and param goes with the next version "
              "[param]\n");
}

TEST(document_test, commands_that_a_server_has_carried_out_change_its_document) {
    const std::pair<const char *, const char *> histories[] = {
        {"interface set --ifh 1 --enable 0 --mtu 5;nvi enable --ifh 1;interface set --ifh 2 --mtu 6;"
         "interface set --ifh 2 --enable 0;nvi enable --ifh 3;interface set --ifh 3 --mtu 7",
         "interface set --ifh 1 --mtu 5\nnvi enable --ifh 1\ninterface set --ifh 3 --mtu 7\n"},
        {"dmapping add --id 4 --type 0 --ext-arg 5;dmapping mod --id 4 --type 1;dmapping add --id 5 --type 0;"
         "dmapping del --id 5",
         "dmapping add --id 4 --type address-dependent --ext-arg 5\n"},
        {"timeout set --type 1 --value 5;timeout set --type 1 --value 0;timeout set --type 1 --value 7;"
         "interface set --ifh 2 --enable 0;limit add --type 1 --value 9",
         "timeout set --type udp --value 7\nlimit add --type sessions --value 9\n"},
        {"limit mod --type 1 --value 2;timeout set --type 1 --value 5;timeout set --type 1 --value 0;"
         "replication set --value 1;replication unset;replication set --value2 9",
         "limit add --type sessions --value 2\nreplication set --value2 9\n"},
    };
    for (const auto &[history, held] : histories) {
        for (const bool settles_often : {false, true}) {
            document_t document;
            line_words_t words;
            record_reader_t reader;
            for (std::string_view rest = history; !rest.empty();) {
                const std::string_view line = rest.substr(0, rest.find(';'));
                rest.remove_prefix(std::min(line.size() + 1, rest.size()));
                words.split(line);
                ASSERT_EQ(reader.read(words.words()), record_reader_t::result_t::record) << line;
                document.carry_out(reader.family(), reader.verb().op, reader.record().bytes);
                EXPECT_EQ(command_line(reader.family(), reader.verb().op, reader.record().bytes).substr(0, 9),
                          line.substr(0, 9));
                if (settles_often) document.settle();
            }
            document.settle();
            EXPECT_EQ(write_lines(document), std::string("# nat64 configuration version 1\n") + held);
            const document_t again = load(write_lines(document));
            EXPECT_EQ(plan_t(document, again).size(), 0U);
        }
    }
}

}  // namespace
