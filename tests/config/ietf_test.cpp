/* Reading and writing of the standard form. The values are those of the examples in RFC 8512 and RFC 8676, in JSON as
 * in RFC 7951. */
#include <gtest/gtest.h>

#include <algorithm>

#include "config/ietf.h"
#include "config/json_tree.h"
#include "config/load.h"
#include "config/notation.h"

namespace {

constexpr ietf_loss_t refused = ietf_loss_t::refused;
constexpr ietf_loss_t warned = ietf_loss_t::warned;

std::string texts_of(const problems_t &problems) {
    std::string texts;
    for (const problem_t &problem : problems) {
        texts += problem.text() + "\n";
    }
    return texts;
}

struct converted_t {
    std::string text;
    std::string problems;
    bool is_error;
};

converted_t read(const std::string &text, ietf_loss_t loss = refused) {
    problems_t problems;
    const document_t document = read_ietf(text, loss, problems);
    return {write_lines(document), texts_of(problems), has_error(problems)};
}

converted_t write(const std::string &lines, ietf_loss_t loss = refused) {
    problems_t of_document;
    const document_t document = load_document("# nat64 configuration version 1\n" + lines, of_document);
    EXPECT_FALSE(has_error(of_document)) << texts_of(of_document);
    problems_t problems;
    std::string text = write_ietf(document, loss, problems);
    return {std::move(text), texts_of(problems), has_error(problems)};
}

/** The JSON of an instance with these leaves and a policy with those. */
std::string instance(const std::string &policy, const std::string &leaves = {}) {
    return R"({"ietf-nat:nat":{"instances":{"instance":[{"id":1,"type":"nat64","policy":[{"id":1)" +
           (policy.empty() ? "" : "," + policy) + "}]" + (leaves.empty() ? "" : "," + leaves) + "}]}}}";
}

std::string rule(const std::string &name, const std::string &leaves) {
    return R"({"name":")" + name +
           R"(","ea-len":16,"rule-ipv6-prefix":"2001:db8::/40","rule-ipv4-prefix":"192.0.2.0/24","forwarding":true)" +
           (leaves.empty() ? "" : "," + leaves) + "}";
}
std::string rules(const std::string &list) {
    return R"({"ietf-softwire-br:br-instances":{"algorithm":{"algo-instance":[)" + list + "]}}}";
}

constexpr const char *lines =
    "# nat64 configuration version 1\n"
    "timeout set --type udp --value 300\n"
    "timeout set --type tcp-trans --value 240\n"
    "timeout set --type tcp-est --value 7440\n"
    "timeout set --type tcp-in-syn --value 6\n"
    "timeout set --type fragment-min --value 2\n"
    "timeout set --type icmp --value 60\n"
    "limit add --type sessions --value 1024\n"
    "pool add --id 1 --param 1 --start 198.51.100.0 --end 198.51.100.255\n"
    "pool add --id 2 --param 1 --start 192.0.2.1 --end 192.0.2.1\n"
    "prefix add --prefix 64:ff9b::/96 --kind stateful\n"
    "prefix add --prefix 2001:db8:100::/40 --kind stateless\n"
    "smapping add --id 1568 --addr1 2001:db8:c000:221:: --addr2 198.51.100.1\n"
    "dmapping add --id 1 --type address-dependent\n"
    "mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24 --ea-len 16 --psid-offset 6 --psid-len 8\n"
    "mapt bmr add --rule 2 --domain 1 --v6 2001:db8:12:3400::/56 --v4 192.0.2.18/32 --psid-offset 6 --psid-len 8 "
    "--psid 52\n"
    "mapt dmr add --id 1 --prefix 2001:db8:ffff::/64\n";

/* Without the line breaks and blanks, which no value has. */
constexpr const char *json =
    R"({"ietf-nat:nat":{"instances":{"instance":[{"id":1,"enable":true,"type":"ietf-nat:nat64","policy":[{"id":1,)"
    R"("nat64-prefixes":[{"nat64-prefix":"64:ff9b::/96","stateless-enable":false},)"
    R"({"nat64-prefix":"2001:db8:100::/40","stateless-enable":true}],)"
    R"("external-ip-address-pool":[{"pool-id":1,"external-ip-pool":"198.51.100.0/24"},)"
    R"({"pool-id":2,"external-ip-pool":"192.0.2.1/32"}],"mapping-type":"adm","fragment-behavior":"out-of-order",)"
    R"("timers":{"udp-timeout":300,"tcp-idle-timeout":7440,"tcp-trans-open-timeout":240,)"
    R"("tcp-trans-close-timeout":240,"tcp-in-syn-timeout":6,"fragment-min-timeout":2,"icmp-timeout":60}}],)"
    R"("mapping-limits":{"limit-port-mappings":1024},"mapping-table":{"mapping-entry":[{"index":1568,"type":"static",)"
    R"("internal-src-address":"2001:db8:c000:221::/128","external-src-address":"198.51.100.1/32"}]}}]}},)"
    R"("ietf-softwire-br:br-instances":{"algorithm":{"algo-instance":[)"
    R"({"name":"domain-1-rule-1","enable":true,"dmr-ipv6-prefix":"2001:db8:ffff::/64","ea-len":16,)"
    R"("rule-ipv6-prefix":"2001:db8::/40","rule-ipv4-prefix":"192.0.2.0/24","forwarding":true,)"
    R"("port-set":{"psid-offset":6,"psid-len":8,"psid":0}},)"
    R"({"name":"domain-1-rule-2","enable":true,"dmr-ipv6-prefix":"2001:db8:ffff::/64","ea-len":0,)"
    R"("rule-ipv6-prefix":"2001:db8:12:3400::/56","rule-ipv4-prefix":"192.0.2.18/32","forwarding":true,)"
    R"("port-set":{"psid-offset":6,"psid-len":8,"psid":52}}]}}})";

std::string without_layout(std::string text) {
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == ' ' || c == '\n'; }), text.end());
    return text;
}

constexpr const char *empty_json = R"({
  "ietf-nat:nat": {
    "instances": {
      "instance": [
        {
          "id": 1,
          "enable": true,
          "type": "ietf-nat:nat64"
        }
      ]
    }
  }
}
)";

TEST(ietf_test, items_that_both_forms_can_express_survive_a_round_trip) {
    const converted_t written = write(lines);
    EXPECT_EQ(written.problems, "");
    EXPECT_EQ(without_layout(written.text), json);
    for (const std::string &text : {written.text, std::string(json)}) {
        const converted_t got = read(text);
        EXPECT_EQ(got.problems, "");
        EXPECT_EQ(got.text, lines);
    }
    EXPECT_EQ(write("").text, empty_json);
    EXPECT_EQ(read(empty_json).text, "# nat64 configuration version 1\n");
}

TEST(ietf_test, defaults_and_other_spellings_of_the_standard_are_understood) {
    const std::pair<std::string, const char *> table[] = {
        {instance(R"("nat64-prefixes":[{"nat64-prefix":"2001:DB8:122:300::/56"}])"),
         "prefix add --prefix 2001:db8:122:300::/56 --kind stateful\n"},
        {instance(R"("external-ip-address-pool":[{"external-ip-pool":"198.51.100.77/24","pool-id":1}])"),
         "pool add --id 1 --param 1 --start 198.51.100.0 --end 198.51.100.255\n"},
        {instance(R"("external-ip-address-pool":[{"external-ip-pool":"128.0.0.0/2","pool-id":4294967295}])"),
         "pool add --id 4294967295 --param 1 --start 128.0.0.0 --end 191.255.255.255\n"},
        {R"({"ietf-nat:nat":{"instances":{"instance":[{"id":1,"mapping-limits":{"limit-port-mappings":0}}]}}})",
         "limit add --type sessions --value 0\n"},
        {rules(rule("domain-7-rule-9", R"("port-set":{"psid-len":8,"psid":0})")),
         "mapt bmr add --rule 9 --domain 7 --v6 2001:db8::/40 --v4 192.0.2.0/24 --ea-len 16 --psid-offset 6 "
         "--psid-len 8\n"},
    };
    for (const auto &[text, expected] : table) {
        const converted_t got = read(text);
        EXPECT_EQ(got.problems, "") << text;
        EXPECT_EQ(got.text, std::string("# nat64 configuration version 1\n") + expected) << text;
    }
}

/* Each is an error. If losses are allowed, it is a warning with the same text, and `rest` remains of the document. */
TEST(ietf_test, each_leaf_without_a_place_in_a_document_is_named) {
    const std::string policy = "/ietf-nat:nat/instances/instance[id='1']/policy[id='1']/";
    const std::string at = "/ietf-nat:nat/instances/instance[id='1']/";
    const std::string algo = "/ietf-softwire-br:br-instances/algorithm/algo-instance[name='";
    struct {
        std::string text;
        std::string problems;
        const char *rest;
    } const table[] = {
        {instance(R"("nat64-prefixes":[{"nat64-prefix":"2001:db8:122::/48",)"
                  R"("destination-ipv4-prefix":[{"ipv4-prefix":"198.51.100.0/24"}]}])"),
         policy + "nat64-prefixes[nat64-prefix='2001:db8:122::/48']/"
                  "destination-ipv4-prefix[ipv4-prefix='198.51.100.0/24']/ipv4-prefix: 198.51.100.0/24 has no place in "
                  "a document: a prefix stands for all IPv4 addresses; without it, neither has the entry\n",
         ""},
        {instance("", R"("mapping-table":{"mapping-entry":[{"index":15,"type":"dynamic-explicit",)"
                      R"("internal-src-address":"192.0.2.1/32","external-src-address":"198.51.100.1/32"},)"
                      R"({"index":1,"type":"static","transport-protocol":6,"internal-src-address":"192.0.2.0/24",)"
                      R"("internal-src-port":{"start-port-number":100}}]})"),
         at +
             "mapping-table/mapping-entry[index='15']/type: dynamic-explicit has no place in a document: a mapping "
             "that is made by traffic or a protocol is no configuration; without it, neither has the entry\n" +
             at +
             "mapping-table/mapping-entry[index='1']/transport-protocol: 6 has no place in a document: a static "
             "mapping is of whole addresses, for every protocol; without it, neither has the entry\n" +
             at +
             "mapping-table/mapping-entry[index='1']/internal-src-address: 192.0.2.0/24 has no place in a "
             "document: a static mapping is of one address; without it, neither has the entry\n" +
             at +
             "mapping-table/mapping-entry[index='1']/internal-src-port/start-port-number: 100 has no place in a "
             "document: a static mapping is of whole addresses, for every protocol; without it, neither "
             "has the entry\n",
         ""},
        {instance(R"("port-quota":[{"quota-type":6,"port-limit":1024}],"mapping-type":"eim")"),
         policy +
             "port-quota[quota-type='6']/quota-type: 6 has no place in a document: the one limit is that of "
             "sessions\n" +
             policy +
             "port-quota[quota-type='6']/port-limit: 1024 has no place in a document: the one limit is that "
             "of sessions\n",
         "dmapping add --id 1 --type endpoint-independent\n"},
        {instance(R"("timers":{"tcp-trans-open-timeout":240,"hold-down-timeout":120})"),
         policy + "timers/hold-down-timeout: 120 has no place in a document: there is no such timeout\n" + policy +
             "timers/tcp-trans-close-timeout: is missing: must be 240 as " + policy +
             "timers/tcp-trans-open-timeout has it: the service has one value for both\n",
         "timeout set --type tcp-trans --value 240\n"},
        {instance(R"("fragment-behavior":"out-of-order")"),
         policy + "fragment-behavior: has no place in a document: without fragment-min-timeout the server chooses\n",
         ""},
        {instance("", R"("name":"edge","statistics":{"pools-stats":{"addresses-free":[3]}})"),
         at + "name: edge has no place in a document: the instance has no name\n" + at +
             "statistics/pools-stats/addresses-free[1]: 3 has no place in a document: it is state, not "
             "configuration\n",
         ""},
        {rules(rule("algo", "") + "," + rule("domain-1-rule-1", "") + "," +
               rule("encapsulates", R"("br-ipv6-addr":"2001:db8:ffff::1","enable":false)") + "," + rule("other", "")),
         algo + "algo']/name: algo has no place in a document: a rule is domain-D-rule-R, as numbers\n" + algo +
             "encapsulates']/name: encapsulates has no place in a document: a rule is domain-D-rule-R, as numbers\n" +
             algo +
             "encapsulates']/br-ipv6-addr: 2001:db8:ffff::1 has no place in a document: packets are translated, not "
             "encapsulated; without it, neither has the entry\n" +
             algo +
             "encapsulates']/enable: false has no place in a document: a rule that is there is in force; without it, "
             "neither has the entry\n" +
             algo + "other']/name: other has no place in a document: a rule is domain-D-rule-R, as numbers\n",
         "mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24 --ea-len 16 --psid-offset 6\n"
         "mapt bmr add --rule 2 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24 --ea-len 16 --psid-offset 6\n"
         "mapt bmr add --rule 3 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24 --ea-len 16 --psid-offset 6\n"},
        {rules(rule("domain-1-rule-1", R"("dmr-ipv6-prefix":"2001:db8:ffff::/64")") + "," +
               rule("domain-1-rule-2", "")),
         algo + "domain-1-rule-2']/dmr-ipv6-prefix: is missing: must be 2001:db8:ffff::/64 as " + algo +
             "domain-1-rule-1']/dmr-ipv6-prefix has it: the service has one value for both\n",
         "mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24 --ea-len 16 --psid-offset 6\n"
         "mapt bmr add --rule 2 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24 --ea-len 16 --psid-offset 6\n"
         "mapt dmr add --id 1 --prefix 2001:db8:ffff::/64\n"},
    };
    for (const auto &[text, problems, rest] : table) {
        const converted_t got = read(text);
        EXPECT_TRUE(got.is_error) << text;
        EXPECT_EQ(got.problems.substr(0, problems.size()), problems);
        const converted_t lossy = read(text, warned);
        EXPECT_FALSE(lossy.is_error) << lossy.problems;
        EXPECT_EQ(lossy.problems.find("warning: "), 0U);
        EXPECT_EQ(lossy.text, std::string("# nat64 configuration version 1\n") + rest);
    }
}

TEST(ietf_test, a_text_that_is_not_the_configuration_of_one_nat64_is_refused_even_if_losses_are_allowed) {
    const std::string policy = "/ietf-nat:nat/instances/instance[id='1']/policy[id='1']/";
    std::string ones;
    for (size_t depth = 1; depth < json_max_depth; ++depth) {
        ones += "[1]";
    }
    const std::pair<std::string, std::string> table[] = {
        {"",
         "not JSON: parse error at line 1, column 1: syntax error while parsing value - unexpected end of input; "
         "expected '[', '{', or a literal\n"},
        {"[]", "must be an object with ietf-nat:nat\n"},
        {"{}", "neither ietf-nat:nat nor ietf-softwire-br:br-instances: there is nothing to read\n"},
        {std::string(json_max_depth + 1, '['), ones + ": deeper than 24 arrays and objects\n"},
        {R"({"ietf-nat:nat":{"instances":{"instance":[]}}})", "/ietf-nat:nat/instances: has no instance\n"},
        {R"({"ietf-nat:nat":{}})", "/ietf-nat:nat/instances: has no instance\n"},
        {R"({"ietf-nat:nat":{"instances":{"instance":[{"id":1},{"id":2}]}}})",
         "/ietf-nat:nat/instances/instance: has 2 entries: a document is for one\n"
         "/ietf-nat:nat/instances/instance[id='2']/id: 2 has no place in a document: the instance is 1\n"},
        {R"({"ietf-nat:nat":{"instances":{"instance":[{"id":1,"type":"ietf-nat:siit"}]}}})",
         "/ietf-nat:nat/instances/instance[id='1']/type: siit: only an instance of type nat64 is this service's\n"},
        {R"({"ietf-nat:nat":{"instances":{"instance":[{"type":"nat64"}]}}})",
         "/ietf-nat:nat/instances/instance[1]: id is required\n"},
        {R"({"ietf-nat:nat":{"instances":{"instance":{"id":1}}}})",
         "/ietf-nat:nat/instances/instance: must be an array of objects\n/ietf-nat:nat/instances: has no instance\n"},
        {R"({"ietf-nat:nat":{"instances":{"instance":[{"id":1,"id":1}]}}})",
         "/ietf-nat:nat/instances/instance[1]/id: is given twice\n"},
        {R"({"ietf-interfaces:interfaces":{}})",
         "/ietf-interfaces:interfaces: ietf-interfaces:interfaces: not in this "
         "place\n"},
        {instance(R"("timers":{"udp-timout":1,"icmp-timeout":"60","udp-timeout":0,"tcp-idle-timeout":-1})"),
         policy + "timers/udp-timout: udp-timout: did you mean udp-timeout?\n" + policy +
             "timers/icmp-timeout: 60: must be a number from 1 to 4294967295\n" + policy +
             "timers/udp-timeout: 0: must be a number from 1 to 4294967295\n" + policy +
             "timers/tcp-idle-timeout: -1: must be a number from 1 to 4294967295\n"},
        {instance(R"("timers":{"udp-timeout":1.5,"icmp-timeout":4294967296,"tcp-idle-timeout":[1]})"),
         policy + "timers/udp-timeout: 1.5: must be a number from 1 to 4294967295\n" + policy +
             "timers/icmp-timeout: 4294967296: must be a number from 1 to 4294967295\n" + policy +
             "timers/tcp-idle-timeout: must be a number from 1 to 4294967295\n"},
        {instance(R"("fragment-behavior":"all","timers":{"fragment-min-timeout":2})"),
         policy + "fragment-behavior: all: must be one of drop-all in-order out-of-order\n"},
        {instance(R"("timers":{"fragment-min-timeout":2})"),
         policy + "timers/fragment-min-timeout: needs fragment-behavior out-of-order in its policy\n"},
        {instance(R"("nat64-prefixes":[{"nat64-prefix":"2001:db8::/41"},{"nat64-prefix":"192.0.2.0/24"},)"
                  R"({"nat64-prefix":"2001:db8::/129"},{"nat64-prefix":"64:ff9b::/96","stateless-enable":1},)"
                  R"({"nat64-prefix":"64:ff9b:0::/96"}])"),
         policy +
             "nat64-prefixes[nat64-prefix='192.0.2.0/24']/nat64-prefix: 192.0.2.0/24: must be an IPv6 prefix such "
             "as 2001:db8::/32\n" +
             policy +
             "nat64-prefixes[nat64-prefix='2001:db8::/129']/nat64-prefix: 2001:db8::/129: must be an IPv6 "
             "prefix such as 2001:db8::/32\n" +
             policy + "nat64-prefixes[nat64-prefix='64:ff9b::/96']/stateless-enable: 1: must be true or false\n" +
             policy + "nat64-prefixes[nat64-prefix='64:ff9b::/96']: is there twice\n" + policy +
             "nat64-prefixes[nat64-prefix='2001:db8::/41']/nat64-prefix: 2001:db8::/41: must be a prefix of 32, 40, "
             "48, 56, 64 or 96 bits, with zeros in bits 64 to 71\n"},
        {instance(R"("external-ip-address-pool":[{"pool-id":1},{"pool-id":2,"external-ip-pool":"192.0.2.0/24"},)"
                  R"({"pool-id":3,"external-ip-pool":"192.0.2.1/32"}])"),
         policy + "external-ip-address-pool[pool-id='1']/external-ip-pool: is required\n" + policy +
             "external-ip-address-pool[pool-id='3']/external-ip-pool: 192.0.2.1: overlaps pool 2\n"},
        {rules(R"({"name":"domain-1-rule-1","rule-ipv6-prefix":"2001:db8::/72","rule-ipv4-prefix":"192.0.2.0/24",)"
               R"("ea-len":16,"forwarding":true,"port-set":{"psid-len":16}},{"name":"domain-1-rule-2"})"),
         "/ietf-softwire-br:br-instances/algorithm/algo-instance[name='domain-1-rule-1']/port-set/psid-len: 16: must "
         "be a number from 0 to 15\n"
         "/ietf-softwire-br:br-instances/algorithm/algo-instance[name='domain-1-rule-2']/ea-len: is required\n"
         "/ietf-softwire-br:br-instances/algorithm/algo-instance[name='domain-1-rule-2']/forwarding: is required\n"},
        {rules(R"({"name":"domain-1-rule-1","rule-ipv6-prefix":"2001:db8::/72","ea-len":16,"forwarding":true})"),
         "/ietf-softwire-br:br-instances/algorithm/algo-instance[name='domain-1-rule-1']/rule-ipv6-prefix: "
         "2001:db8::/72: must be an IPv6 prefix of at most 64 bits, such as 2001:db8::/32\n"
         "/ietf-softwire-br:br-instances/algorithm/algo-instance[name='domain-1-rule-1']/rule-ipv4-prefix: is "
         "required\n"},
    };
    for (const auto &[text, problems] : table) {
        EXPECT_EQ(read(text).problems, problems) << text;
        EXPECT_TRUE(read(text, warned).is_error) << text;
    }
}

TEST(ietf_test, each_item_without_a_place_in_the_standard_form_is_named) {
    const std::string items =
        "pool add --id 1 --param 2 --start 192.0.2.1 --end 192.0.2.2 --hsl 6\n"
        "range add --id 1 --start 203.0.113.0 --end 203.0.113.127\n"
        "timeout set --type udp-min --value 5\n"
        "prefix add --prefix 64:ff9b::/96 --kind stateful\n"
        "prefix add --prefix 64:ff9b::/96 --kind stateless\n"
        "prefix add --prefix 2001:db8::/32 --kind dns64\n"
        "dmapping add --id 1 --type 4\n"
        "mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.18/32 --psid-len 16\n"
        "mapt dmr add --id 1 --prefix 2001:db8:ffff::/64\n"
        "nvi enable --ifh 1\n"
        "logging add --dest 192.0.2.9 --port 2055\n"
        "prefix add --prefix 2001:db8:100::/40 --kind stateless-v6v4\n";
    const std::string others =
        "line 4: timeout set: --type udp-min: has no place: there is no such timer in ietf-nat\n"
        "line 6: prefix add: --prefix 64:ff9b::/96 --kind stateless: has no place: ietf-nat has each prefix once, for "
        "stateful or stateless translation\n"
        "line 7: prefix add: --kind dns64: has no place: ietf-nat has each prefix once, for stateful or stateless "
        "translation\n"
        "line 8: dmapping add: --id 1: has no place: ietf-nat has one mapping-type, which is that of dynamic mapping "
        "1: eim, adm or edm\n"
        "line 9: mapt bmr add: --psid-len 16: has no place: psid-len is 0 to 15\n"
        "line 10: mapt dmr add: --id 1: has no place: ietf-softwire-br says one default rule, which is 1, within its "
        "basic rules\n"
        "line 11: interface set: --ifh 1: has no place: ietf-nat has no prefixes and MTU of interfaces\n"
        "line 12: logging add: --dest 192.0.2.9 --port 2055: has no place: ietf-nat has nothing of the kind\n"
        "line 13: prefix add: --kind stateless-v6v4: has no place: ietf-nat has each prefix once, for stateful or "
        "stateless translation\n";
    const converted_t strict = write(items);
    EXPECT_TRUE(strict.is_error);
    EXPECT_EQ(strict.problems,
              "line 2: pool add: --start 192.0.2.1: has no place: a pool of ietf-nat is one prefix\n"
              "line 2: pool add: --param 2: has no place: the standard form does not say it\n"
              "line 2: pool add: --hsl 6: has no place: the standard form does not say it\n"
              "line 3: range add: --id 1 --start 203.0.113.0 --end 203.0.113.127: has no place: a pool of ietf-nat is "
              "one prefix, without further ranges\n" +
                  others);
    const converted_t lossy = write(items, warned);
    EXPECT_FALSE(lossy.is_error);
    const converted_t again = read(lossy.text);
    EXPECT_EQ(again.problems, "");
    EXPECT_EQ(again.text,
              "# nat64 configuration version 1\n"
              "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.1\n"
              "pool add --id 2 --param 1 --start 192.0.2.2 --end 192.0.2.2\n"
              "pool add --id 3 --param 1 --start 203.0.113.0 --end 203.0.113.127\n"
              "prefix add --prefix 64:ff9b::/96 --kind stateful\n");
    EXPECT_NE(lossy.problems.find("line 2: warning: pool add: --id 1: a pool of ietf-nat is one prefix: written as "
                                  "pool 1, 2\n"),
              std::string::npos)
        << lossy.problems;
}

}  // namespace
