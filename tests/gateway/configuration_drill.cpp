/*
 * The configuration in the kernel: while the gateway is killed at random moments, beside another program, and when
 * there is much of it.
 *
 *     gateway_drill [KILLS]
 */
#include <random>
#include <set>
#include <sstream>

#include "gateway_fixture.h"

namespace {

size_t kills = 100;

/** Configurations that differ by one command each, and what each is in the kernel. */
class stream_t {
public:
    explicit stream_t(uint32_t seed) : random_(seed) {
        items_ = {{"prefix", "prefix add --prefix 2001:db8:64::/96 --kind stateful"},
                  {"pool 1", "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.6"}};
    }
    using items_t = std::map<std::string, std::string>; /* its line, by the item's name */
    using facts_t = std::set<std::string>;

    /** Changes something, and returns the command that does so. */
    std::string next() {
        switch (below(10)) {
            case 0:
                return set("udp", "timeout set --type udp --value " + std::to_string(60 + below(900)));
            case 1:
                return set("limit", "limit add --type sessions --value " + std::to_string(1000 + below(9000)));
            case 2: {
                const std::string start = " --start 198.19.0." + std::to_string(8 * below(4));
                const std::string words = " --id 1" + start + " --end" + start.substr(8);
                return toggle("range" + start, "range add" + words, "range del" + words);
            }
            case 3:
            case 4: {
                const std::string id = std::to_string(2 + below(8));
                const std::string net = std::to_string(18 + 2 * below(2)) + "." + id;
                return toggle("pool " + id,
                              "pool add --id " + id + " --param 1 --start 198." + net + ".1 --end 198." + net + ".6",
                              "pool del --id " + id);
            }
            case 5: {
                const std::string words =
                    " --prefix 2001:db8:" + std::to_string(65 + below(4)) + "::/96 --kind stateful";
                return toggle("prefix" + words, "prefix add" + words, "prefix del" + words);
            }
            case 6: { /* sources with a prefix of 48 bits, which use all pools */
                const std::string id = std::to_string(1 + below(9));
                return toggle("dmapping " + id,
                              "dmapping add --id " + id + " --type address-and-port-dependent --ext 20010db8000" + id +
                                  "000000000000000000003000000000000000",
                              "dmapping del --id " + id);
            }
            default: {
                const size_t id = 1 + below(40);
                const std::string name = std::to_string(id);
                return toggle("smapping " + name,
                              "smapping add --id " + name + " --addr1 2001:db8:" + std::to_string(8 + below(2)) +
                                  "::" + name + " --addr2 203.0.113." + std::to_string(2 * id),
                              "smapping del --id " + name);
            }
        }
    }
    const items_t &items() const { return items_; }
    /** The item that was changed last. */
    const std::string &name() const { return name_; }
    void go_on_from(items_t items) { items_ = std::move(items); }
    size_t below(size_t count) { return random_() % count; }

    /** How `config show` has them. */
    static facts_t lines_of(const items_t &items) {
        facts_t lines;
        for (const auto &[name, line] : items) {
            lines.insert(line);
        }
        return lines;
    }
    /** What of the table, and with the routes if they are wanted, is to be found. */
    static facts_t facts_of(const items_t &items, bool has_routes) {
        facts_t facts = {"udp 300"};
        for (const auto &[name, line] : items) {
            std::istringstream words(line);
            std::map<std::string, std::string> values;
            for (std::string word; words >> word;) {
                if (word.rfind("--", 0) == 0) words >> values[word];
            }
            if (name.rfind("smapping", 0) == 0) {
                const std::string outside = translated(values["--addr2"]);
                facts.insert("inbound " + outside + " " + values["--addr1"]);
                facts.insert("outbound " + values["--addr1"] + " " + outside);
                if (has_routes) facts.insert("route " + values["--addr2"]);
            } else if (name.rfind("pool", 0) == 0) {
                const std::string pool = "pool_" + values["--id"];
                facts.insert("chain " + pool);
                facts.insert("counter " + pool);
                facts.insert("others " + pool);
                facts.insert(pool + " [" + translated(values["--start"]) + "]-[" + translated(values["--end"]) +
                             "]:1024-65535");
                const std::string network = values["--start"].substr(0, values["--start"].rfind('.'));
                for (const char *route : {".1", ".2/31", ".4/31", ".6"}) {
                    if (has_routes) facts.insert("route " + network + route);
                }
            } else if (name.rfind("range", 0) == 0) {
                facts.insert("pool_1 [" + translated(values["--start"]) + "]:1024-65535");
                if (has_routes) facts.insert("route " + values["--start"]);
            } else if (name.rfind("prefix", 0) == 0) {
                facts.insert("prefix " + values["--prefix"]);
            } else if (name.rfind("dmapping", 0) == 0) {
                facts.insert("sources 2001:db8:" + values["--id"] + "::/48 others");
            } else if (name == "udp") {
                facts.erase("udp 300");
                facts.insert("udp " + values["--value"]);
            } else if (name == "limit") {
                facts.insert("limit " + values["--value"]);
            }
        }
        return facts;
    }

private:
    std::string set(const std::string &name, const std::string &line) {
        name_ = name;
        return items_[name] = line;
    }
    std::string toggle(const std::string &name, const std::string &add, const std::string &del) {
        name_ = name;
        if (items_.erase(name) != 0) return del;
        return set(name, add);
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
    std::string name_;
};

/** The same from what nft lists. */
stream_t::facts_t facts_of_table(const std::string &listing) {
    stream_t::facts_t facts;
    std::istringstream words(listing);
    std::string kind, name, word, last, next;
    while (words >> word) {
        const bool begins = word == "map" || word == "chain" || word == "counter";
        if (begins && words >> next) {
            const bool is_used = next == "name" || next == "{" || next.front() == '@'; /* in a rule */
            if (is_used) continue;
            kind = word;
            name = next;
            const bool is_pool = name.rfind("pool_", 0) == 0;
            if (is_pool) facts.insert(kind + " " + name);
        } else if (kind == "map" && word == "elements") {
            words >> word >> word; /* = { */
            while (word.back() != '}' && words >> last >> word >> next) {
                if (next == "goto") words >> next;
                const bool is_last = next.back() != ',';
                if (!is_last) next.pop_back();
                facts.insert(name + " " + last + " " + next);
                if (is_last) break;
            }
        } else if (kind == "chain" && last == "snat" && word == "to" && name.rfind("pool_", 0) == 0) {
            words >> next;
            facts.insert(name + " " + next);
        } else if (kind == "chain" && name == "prefixes" && word == ":") {
            facts.insert("prefix " + last);
        } else if (kind == "chain" && name == "others" && word == "goto") {
            words >> next;
            if (next.back() == ',') next.pop_back();
            facts.insert("others " + next);
        } else if (kind == "chain" && name == "session_limit" && word == "over") {
            words >> next;
            facts.insert("limit " + next);
        } else if (kind == "chain" && name == "lifetimes" && word.rfind("\"udp_", 0) == 0) {
            facts.insert("udp " + word.substr(5, word.size() - 6));
        }
        last = word;
    }
    return facts;
}

std::string difference(const stream_t::facts_t &one, const stream_t::facts_t &other) {
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
    /** What `config show` says. */
    static stream_t::facts_t shown_lines() {
        stream_t::facts_t lines;
        std::istringstream shown(run_command(std::string(NATCTL_PATH) + " --connect edge config show").output);
        for (std::string line; std::getline(shown, line);) {
            if (line.front() != '#') lines.insert(line);
        }
        return lines;
    }
    stream_t::facts_t facts_with_routes() const {
        stream_t::facts_t facts = facts_of_table(table());
        std::istringstream routes(middle.run("ip -4 route show dev fwx_nat64").output);
        for (std::string line; std::getline(routes, line);) {
            facts.insert("route " + line.substr(0, line.find(' ')));
        }
        return facts;
    }
};

TEST_F(configuration_drill, what_was_acknowledged_before_a_kill_is_in_the_kernel_and_nothing_by_half) {
    constexpr size_t most_in_window = 64;
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    stream_t stream(seed);
    ASSERT_TRUE(serve()) << log();
    commander_t commander;
    for (const auto &[name, line] : stream.items()) {
        commander.carry_out(line);
    }
    size_t acknowledged = 0;
    size_t unacknowledged_in_kernel = 0;
    size_t unacknowledged_kept = 0;
    double longest_start_s = 0;
    for (size_t kill = 0; kill < kills && !HasFailure(); ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        const size_t window = stream.below(2) == 0 ? 1 : 1 + stream.below(most_in_window);
        std::vector<stream_t::items_t> states = {stream.items()}; /* before each command, and after the last */
        commander.forget();
        const auto death = clock_type::now() + std::chrono::microseconds(stream.below(300000));
        while (clock_type::now() < death) {
            while (commander.outstanding() < window) {
                if (!commander.send(stream.next())) FAIL() << "the gateway is not there";
                states.push_back(stream.items());
            }
            commander.turn(1);
        }
        gateway.end(SIGKILL);
        while (commander_t::is_connected()) {
            commander.turn(1);
        }
        const size_t answered = commander.answered();
        acknowledged += answered;
        EXPECT_EQ(commander.results(), std::vector<uint32_t>(answered, 0));
        const auto state_of = [&](auto is_it) {
            size_t number = answered;
            while (number < states.size() && !is_it(states[number])) {
                ++number;
            }
            return number;
        };
        const stream_t::facts_t found = facts_of_table(table());
        const size_t in_kernel = state_of([&](const auto &items) { return found == stream_t::facts_of(items, false); });
        ASSERT_LT(in_kernel, states.size()) << answered << " of " << commander.sent() << " were acknowledged\n"
                                            << difference(found, stream_t::facts_of(states[answered], false)) << log();

        const auto begin = clock_type::now();
        ASSERT_TRUE(serve()) << log();
        longest_start_s = std::max(longest_start_s, seconds_since(begin));
        const stream_t::facts_t lines = shown_lines();
        const size_t kept = state_of([&](const auto &items) { return lines == stream_t::lines_of(items); });
        ASSERT_LT(kept, states.size()) << answered << " of " << commander.sent() << " were acknowledged\n"
                                       << difference(lines, stream_t::lines_of(states[answered]));
        EXPECT_LE(kept, in_kernel) << "a change is in force before it is kept";
        EXPECT_EQ(difference(facts_with_routes(), stream_t::facts_of(states[kept], true)), "") << "after the restart";
        unacknowledged_in_kernel += in_kernel - answered;
        unacknowledged_kept += kept - answered;
        stream.go_on_from(states[kept]);
    }
    std::printf(
        "%zu kills: %zu changes acknowledged, all in the kernel and kept; of those that were not, %zu in the kernel, "
        "%zu kept; served again within %.2f s\n",
        kills, acknowledged, unacknowledged_in_kernel, unacknowledged_kept, longest_start_s);
}

TEST_F(configuration_drill, what_the_kernel_refuses_leaves_what_was_told) {
    constexpr uint32_t refused_by_kernel = 0x600d;
    constexpr size_t most_at_once = 24;
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    stream_t stream(seed);
    ASSERT_TRUE(serve()) << log();
    must(middle, "ip route add 203.0.114.0/24 dev out0");
    const std::string refused = "pool add --id 99 --param 1 --start 203.0.114.0 --end 203.0.114.255";
    commander_t commander;
    for (const auto &[name, line] : stream.items()) {
        commander.carry_out(line);
    }
    size_t accepted = 0;
    size_t told = 0;
    for (size_t round = 0; round < kills && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        stream_t::items_t items = stream.items();
        std::vector<std::pair<std::string, std::string>> sent; /* name and line */
        commander.forget();
        for (size_t left = 1 + stream.below(most_at_once); left > 0; --left) {
            const bool is_bad = stream.below(8) == 0;
            const std::string line = is_bad ? refused : stream.next();
            sent.emplace_back(is_bad ? "" : stream.name(), line);
            ASSERT_TRUE(commander.send(line));
            if (stream.below(4) == 0) commander.settle();
        }
        commander.settle();
        ASSERT_EQ(commander.answered(), sent.size()) << log();
        for (size_t i = 0; i < sent.size(); ++i) {
            const auto &[name, line] = sent[i];
            const uint32_t result = commander.results()[i];
            told += result == refused_by_kernel ? 1U : 0U;
            EXPECT_EQ(result, name.empty() ? refused_by_kernel : 0U) << line;
            if (result != 0) continue;
            ++accepted;
            const bool is_deleted = line.find(" del ") != std::string::npos;
            if (is_deleted) items.erase(name);
            if (!is_deleted) items[name] = line;
        }
        EXPECT_EQ(difference(shown_lines(), stream_t::lines_of(items)), "");
        EXPECT_EQ(difference(facts_with_routes(), stream_t::facts_of(items, true)), "");
        stream.go_on_from(items);
    }
    std::printf("%zu changes accepted and %zu refused by the kernel\n", accepted, told);
}

TEST_F(configuration_drill, a_gateway_that_is_killed_while_it_starts_is_followed_by_one_that_works) {
    constexpr size_t longest_life_us = 150000;
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    serve_with_pool();
    const std::string losses[] = {gateway_words("--remove edge"),
                                  "kill -KILL $(cat " + state("edge") + "/translator.pid)",
                                  "ip link delete fwx_nat64 && nft delete table ip6 fwx_nat64_edge", "true"};
    size_t begun = 0;
    double longest_start_s = 0;
    for (size_t kill = 0; kill < kills && !HasFailure(); ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        gateway.end(SIGKILL);
        must(middle, losses[kill % std::size(losses)]); /* what the next ones find */
        for (int early = 0; early < 3; ++early) {
            begun += serve(static_cast<suseconds_t>(1 + random() % longest_life_us)) ? 1U : 0U;
            gateway.end(SIGKILL);
        }
        const auto begin = clock_type::now();
        ASSERT_TRUE(serve()) << log();
        longest_start_s = std::max(longest_start_s, seconds_since(begin));
        EXPECT_NE(ping(server_behind_prefix, 8), 0U) << log();
        EXPECT_EQ(run_command("pgrep -c -f " + state("edge") + "/translator[.]conf").output, "1\n");
    }
    std::printf("%zu starts cut short, %zu of them served already; the next one served within %.2f s\n", 3 * kills,
                begun, longest_start_s);
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
    begin = clock_type::now();
    ASSERT_TRUE(serve()) << log();
    std::printf("%.2f s: a start with them\n", seconds_since(begin));
}

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1) kills = std::strtoul(argv[1], nullptr, 10);
    return RUN_ALL_TESTS();
}
