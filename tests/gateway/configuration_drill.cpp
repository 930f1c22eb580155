/* The configuration in the kernel: while the gateway is killed at random moments, beside another program, and when
 * there is much of it. Usage: gateway_drill [KILLS] */
#include <random>
#include <regex>
#include <set>

#include "gateway_fixture.h"

namespace {

size_t kills = 100;

using facts_t = std::set<std::string>;

/** A part of the configuration: its line as `config show` has it, and what it is in the table and among the routes. */
struct item_t {
    std::string line;
    facts_t table, routes;
};
using items_t = std::map<std::string, item_t>; /* by what its commands begin with */

class stream_t {
public:
    explicit stream_t(uint32_t seed) : random_(seed) {
        toggle_prefix("64");
        toggle_pool("1", "192.0.2");
    }

    std::string next() {
        const std::string id = std::to_string(2 + below(8));
        switch (below(10)) {
            case 0: {
                const std::string seconds = std::to_string(60 + below(900));
                return set("udp", {"timeout set --type udp --value " + seconds, {"lifetimes udp_" + seconds}, {}});
            }
            case 1: {
                const std::string most = std::to_string(1000 + below(9000));
                return set("limit", {"limit add --type sessions --value " + most, {"session_limit " + most}, {}});
            }
            case 2: {
                const std::string host = "198.19.0." + std::to_string(8 * below(4));
                return toggle("range", " --id 1 --start " + host + " --end " + host, "",
                              {"pool_1 [" + translated(host) + "]:1024-65535"}, {"route " + host});
            }
            case 3:
            case 4:
                return toggle_pool(id, "198." + std::to_string(18 + 2 * below(2)) + "." + id);
            case 5:
                return toggle_prefix(std::to_string(65 + below(4)));
            case 6: /* sources with a prefix of 48 bits, which use all pools */
                return toggle("dmapping", " --id " + id,
                              " --type address-and-port-dependent --ext 20010db8000" + id +
                                  "000000000000000000003000000000000000",
                              {"sources 2001:db8:" + id + "::/48 others"}, {});
            default: {
                const size_t number = 1 + below(40);
                const std::string inside = "2001:db8:" + std::to_string(8 + below(2)) + "::" + std::to_string(number);
                const std::string outside = "203.0.113." + std::to_string(2 * number);
                return toggle(
                    "smapping", " --id " + std::to_string(number), " --addr1 " + inside + " --addr2 " + outside,
                    {"inbound " + translated(outside) + " " + inside, "outbound " + inside + " " + translated(outside)},
                    {"route " + outside});
            }
        }
    }
    const items_t &items() const { return items_; }
    void go_on_from(items_t items) { items_ = std::move(items); }
    size_t below(size_t count) { return random_() % count; }

    static facts_t lines_of(const items_t &items) {
        facts_t lines;
        for (const auto &[name, item] : items) {
            lines.insert(item.line);
        }
        return lines;
    }
    /** What is to be found of the table, and of the routes if they are wanted. */
    static facts_t facts_of(const items_t &items, bool has_routes) {
        facts_t facts;
        for (const auto &[name, item] : items) {
            facts.insert(item.table.begin(), item.table.end());
            if (has_routes) facts.insert(item.routes.begin(), item.routes.end());
        }
        if (items.count("udp") == 0) facts.insert("lifetimes udp_300");
        return facts;
    }

private:
    std::string set(const std::string &name, item_t item) { return (items_[name] = std::move(item)).line; }
    std::string toggle(const std::string &family, const std::string &key, const std::string &value, facts_t table,
                       facts_t routes) {
        if (items_.erase(family + key) != 0) return family + " del" + key;
        return set(family + key, {family + " add" + key + value, std::move(table), std::move(routes)});
    }
    std::string toggle_prefix(const std::string &part) {
        const std::string prefix = "2001:db8:" + part + "::/96";
        return toggle("prefix", " --prefix " + prefix + " --kind stateful", "", {"prefixes " + prefix}, {});
    }
    std::string toggle_pool(const std::string &id, const std::string &net) {
        const std::string pool = "pool_" + id;
        return toggle(
            "pool", " --id " + id, " --param 1 --start " + net + ".1 --end " + net + ".6",
            {"chain " + pool, "counter " + pool, "others " + pool,
             pool + " [" + translated(net + ".1") + "]-[" + translated(net + ".6") + "]:1024-65535"},
            {"route " + net + ".1", "route " + net + ".2/31", "route " + net + ".4/31", "route " + net + ".6"});
    }
    static std::string translated(const std::string &ipv4) {
        in6_addr address{};
        inet_pton(AF_INET6, "fd6e:6174:3634::", &address);
        inet_pton(AF_INET, ipv4.c_str(), address.s6_addr + 12);
        char text[INET6_ADDRSTRLEN];
        return inet_ntop(AF_INET6, &address, text, sizeof text);
    }

    std::mt19937 random_;
    items_t items_;
};

/** The facts in what nft lists of a table: the name of a map or chain, and what its lines say. */
facts_t facts_of_table(const std::string &listing) {
    static const struct {
        const char *block;
        std::regex pattern;
        const char *fact;
    } facts_in[] = {
        {"map ", std::regex("([0-9a-f:/]+) : (?:goto )?([^ ,]+)"), "$1 $2"},
        {"chain pool_", std::regex("snat to ([^ ]+)"), "$1"},
        {"chain prefixes", std::regex("([0-9a-f:/]+) : "), "$1"},
        {"chain others", std::regex("goto ([^ ,]+)"), "$1"},
        {"chain session_limit", std::regex("over ([0-9]+)"), "$1"},
        {"chain lifetimes", std::regex("\"(udp_[0-9]+)\""), "$1"},
    };
    static const std::regex begin("\\t((?:map|chain|counter) ([^ ]+)) \\{.*");
    facts_t facts;
    std::smatch head;
    std::string block, name;
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_match(line, head, begin)) {
            block = head[1];
            name = head[2];
            if (name.rfind("pool_", 0) == 0) facts.insert(block);
        }
        for (const auto &[its_block, pattern, fact] : facts_in) {
            if (block.rfind(its_block, 0) != 0) continue;
            for (auto at = std::sregex_iterator(line.begin(), line.end(), pattern); at != std::sregex_iterator();
                 ++at) {
                facts.insert(name + " " + at->format(fact));
            }
        }
    }
    return facts;
}

std::string difference(const facts_t &one, const facts_t &other) {
    std::string text;
    for (const auto &fact : one) {
        if (other.count(fact) == 0) text += "only one has: " + fact + "\n";
    }
    for (const auto &fact : other) {
        if (one.count(fact) == 0) text += "only the other has: " + fact + "\n";
    }
    return text;
}

class configuration_drill : public gateway_fixture_t {
protected:
    static facts_t shown_lines() {
        facts_t lines;
        std::istringstream shown(run_command(std::string(NATCTL_PATH) + " --connect edge config show").output);
        for (std::string line; std::getline(shown, line);) {
            if (line.front() != '#') lines.insert(line);
        }
        return lines;
    }
    /** Checks the gateway's configuration, the table and the routes. */
    void expect_in_force(const items_t &items) const {
        facts_t facts = facts_of_table(table());
        std::istringstream routes(middle.run("ip -4 route show dev fwx_nat64").output);
        for (std::string line; std::getline(routes, line);) {
            facts.insert("route " + line.substr(0, line.find(' ')));
        }
        EXPECT_EQ(difference(facts, stream_t::facts_of(items, true)), "");
        EXPECT_EQ(difference(shown_lines(), stream_t::lines_of(items)), "");
    }
    void serve_again() {
        const auto begin = clock_type::now();
        ASSERT_TRUE(serve()) << log();
        longest_start_s_ = std::max(longest_start_s_, seconds_since(begin));
    }

    const uint32_t seed_ = std::random_device{}();
    const testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(seed_)};
    double longest_start_s_ = 0;
};

TEST_F(configuration_drill, what_was_acknowledged_before_a_kill_is_in_the_kernel_and_nothing_by_half_or_refused) {
    constexpr uint32_t refused_by_kernel = 0x600d;
    constexpr size_t most_in_window = 64;
    const std::string refused = "pool add --id 99 --param 1 --start 203.0.114.0 --end 203.0.114.255";
    stream_t stream(seed_);
    ASSERT_TRUE(serve()) << log();
    must(middle, "ip route add 203.0.114.0/24 dev out0");
    commander_t commander;
    for (const auto &[name, item] : stream.items()) {
        commander.carry_out(item.line);
    }
    size_t acknowledged = 0;
    size_t told = 0;
    size_t unacknowledged_in_kernel = 0;
    size_t unacknowledged_kept = 0;
    for (size_t kill = 0; kill < kills && !HasFailure(); ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        const size_t window = stream.below(2) == 0 ? 1 : 1 + stream.below(most_in_window);
        std::vector<items_t> states = {stream.items()}; /* before each command, and after the last */
        std::vector<uint32_t> results;                  /* to be expected, of each command */
        commander.forget();
        const auto death = clock_type::now() + std::chrono::microseconds(stream.below(300000));
        while (clock_type::now() < death) {
            while (commander.outstanding() < window) {
                const bool is_bad = stream.below(24) == 0;
                if (!commander.send(is_bad ? refused : stream.next())) FAIL() << "the gateway is not there";
                results.push_back(is_bad ? refused_by_kernel : 0);
                states.push_back(stream.items());
            }
            commander.turn(1);
        }
        if (stream.below(4) == 0) { /* is killed when nothing is in flight */
            commander.settle();
            expect_in_force(states.back());
        }
        gateway.end(SIGKILL);
        while (commander_t::is_connected()) {
            commander.turn(1);
        }
        const size_t answered = commander.answered();
        acknowledged += answered;
        results.resize(answered);
        EXPECT_EQ(commander.results(), results);
        told += static_cast<size_t>(std::count(results.begin(), results.end(), refused_by_kernel));
        const auto state_of = [&](auto is_it) {
            size_t number = answered;
            while (number < states.size() && !is_it(states[number])) {
                ++number;
            }
            return number;
        };
        facts_t found = facts_of_table(table());
        std::erase_if(found, [](const std::string &fact) { return fact.find("pool_99") != std::string::npos; });
        const size_t in_kernel = state_of([&](const auto &items) { return found == stream_t::facts_of(items, false); });
        ASSERT_LT(in_kernel, states.size()) << answered << " of " << commander.sent() << " were acknowledged\n"
                                            << difference(found, stream_t::facts_of(states[answered], false)) << log();

        serve_again();
        const facts_t lines = shown_lines();
        const size_t kept = state_of([&](const auto &items) { return lines == stream_t::lines_of(items); });
        ASSERT_LT(kept, states.size()) << answered << " of " << commander.sent() << " were acknowledged\n"
                                       << difference(lines, stream_t::lines_of(states[answered]));
        EXPECT_LE(kept, in_kernel) << "a change is in force before it is kept";
        expect_in_force(states[kept]);
        unacknowledged_in_kernel += in_kernel - answered;
        unacknowledged_kept += kept - answered;
        stream.go_on_from(states[kept]);
    }
    std::printf(
        "%zu kills: %zu changes acknowledged, all in the kernel and kept, but for %zu that the kernel refused; of "
        "those "
        "not acknowledged, %zu in the kernel, %zu kept; served again within %.2f s\n",
        kills, acknowledged, told, unacknowledged_in_kernel, unacknowledged_kept, longest_start_s_);
}

TEST_F(configuration_drill, a_gateway_that_is_killed_while_it_starts_is_followed_by_one_that_works) {
    constexpr size_t longest_life_us = 150000;
    std::mt19937 random(seed_);
    serve_with_pool();
    const std::string losses[] = {gateway_words("--remove edge"),
                                  "kill -KILL $(cat " + state("edge") + "/translator.pid)",
                                  "ip link delete fwx_nat64 && nft delete table ip6 fwx_nat64_edge", "true"};
    size_t begun = 0;
    for (size_t kill = 0; kill < kills && !HasFailure(); ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        gateway.end(SIGKILL);
        must(middle, losses[kill % std::size(losses)]); /* what the next ones find */
        for (int early = 0; early < 3; ++early) {
            begun += serve(static_cast<suseconds_t>(1 + random() % longest_life_us)) ? 1U : 0U;
            gateway.end(SIGKILL);
        }
        serve_again();
        EXPECT_NE(ping(server_behind_prefix, 8), 0U) << log();
        EXPECT_EQ(run_command("pgrep -c -f " + state("edge") + "/translator[.]conf").output, "1\n");
    }
    std::printf("%zu starts cut short, %zu of them served already; the next one served within %.2f s\n", 3 * kills,
                begun, longest_start_s_);
}

TEST_F(configuration_drill, changes_of_others_in_nftables_refuse_none) {
    serve_with_pool();
    child_t other; /* as a firewall that is busy */
    ASSERT_TRUE(other.start([this](int ready) {
        middle.inside([ready] {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(ready, STDOUT_FILENO);
            return execl(
                "/bin/sh", "sh", "-c",
                "echo begun; exec >/dev/null; while :; do nft add table ip6 other; nft delete table ip6 other; done",
                nullptr);
        });
    }));
    commander_t commander;
    const auto begin = clock_type::now();
    size_t changes = 0;
    for (; seconds_since(begin) < 5; changes += 4) {
        change_unrelated(commander, 4);
        if (HasFailure()) break;
    }
    EXPECT_EQ(log(), "");
    std::printf("%zu changes beside those of another program\n", changes);
}

TEST_F(configuration_drill, ten_thousand_mappings_and_a_thousand_pools_are_applied_within_5_s) {
    constexpr size_t mapping_count = 10000;
    constexpr size_t pool_count = 1000;
    constexpr double longest_s = 5;
    ASSERT_TRUE(serve()) << log();
    std::string document = "prefix add --prefix 2001:db8:64::/96 --kind stateful\n";
    const auto numbered = [](size_t net, size_t number) {
        return std::to_string(net) + "." + std::to_string(number / 250) + "." + std::to_string(number % 250);
    };
    for (size_t i = 1; i <= mapping_count; ++i) {
        char inside[64];
        std::snprintf(inside, sizeof inside, "2001:db8:a::%zx", i);
        document +=
            "smapping add --id " + std::to_string(i) + " --addr1 " + inside + " --addr2 10." + numbered(1, i) + "\n";
    }
    for (size_t i = 1; i <= pool_count; ++i) {
        const std::string net = "20." + numbered(1, i);
        document += "pool add --id " + std::to_string(i) + " --param 1 --start " + net + " --end " + net + "\n";
    }
    std::ofstream(directory.path() + "/document") << document;
    auto begin = clock_type::now();
    const ran_t applied =
        run_command(std::string(NATCTL_PATH) + " --connect edge config apply " + directory.path() + "/document");
    const double applied_s = seconds_since(begin);
    ASSERT_EQ(applied.status, 0) << applied.output;
    EXPECT_LT(applied_s, longest_s);
    size_t elements = 0;
    size_t chains = 0;
    for (const std::string &fact : facts_of_table(table())) {
        elements += fact.rfind("inbound ", 0) == 0 ? 1U : 0U;
        chains += fact.rfind("chain pool_", 0) == 0 ? 1U : 0U;
    }
    EXPECT_EQ(elements, mapping_count);
    EXPECT_EQ(chains, pool_count);
    std::printf("%zu mappings and %zu pools in %.2f s\n", elements, chains, applied_s);
    commander_t commander;
    commander.carry_out("timeout set --type udp --value 60");
    for (const char *line :
         {"smapping add --id 90000 --addr1 2001:db8:b::1 --addr2 203.0.113.77", "smapping del --id 90000",
          "pool add --id 90000 --param 1 --start 203.0.113.80 --end 203.0.113.87", "pool del --id 90000",
          "timeout set --type udp --value 61"}) {
        begin = clock_type::now();
        commander.carry_out(line);
        std::printf("%.0f ms: %s\n", seconds_since(begin) * 1000, line);
    }
    gateway.end(SIGKILL);
    serve_again();
    std::printf("%.2f s: a start with them\n", longest_start_s_);
}

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1) kills = std::strtoul(argv[1], nullptr, 10);
    return RUN_ALL_TESTS();
}
