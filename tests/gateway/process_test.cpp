/* The gateway as a process: what it refuses, what it needs, and what it leaves. */
#include <linux/rtnetlink.h>

#include "gateway/netlink.h"
#include "gateway_fixture.h"

namespace {

class process_test : public gateway_fixture_t {
protected:
    void expect_refused(const std::string &command, const std::string &message) const {
        const ran_t ran = middle.run("timeout 20 " + command);
        EXPECT_EQ(ran.status, 2) << command;
        EXPECT_EQ(ran.output, "nat64-gateway: " + message + "\n");
    }
    static std::string shown() { return run_command(std::string(NATCTL_PATH) + " --connect edge config show").output; }
};

TEST_F(process_test, what_is_not_on_this_gateway_is_refused_with_its_code_and_kept_nowhere) {
    serve_with_pool();
    const std::string before = shown();
    const char *const refused[] = {
        "interface set --ifh 1 --mtu 1400",
        "interface set --ifh 1 --sful 2001:db8:65::/96",
        "prefix add --prefix 2001:db8:65::/64 --kind stateful",
        "prefix add --prefix 2001:db8:65::/96 --kind stateless",
        "prefix add --prefix 2001:db8:65::/96 --kind dns64",
        "pool add --id 3 --param 1 --start 203.0.113.1 --end 203.0.113.2 --hsl 1",
        "dmapping add --id 1 --type endpoint-independent",
        "dmapping add --id 1 --type address-dependent",
        "logging add --dest 203.0.113.200 --port 4739",
        "service add --type alg --value 21",
        "adj set --type inside --address 2001:db8::1",
        "replication set",
        "settings set --bytes 00000000000000000000000000000000",
        "mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24",
        "mapt dmr add --id 1 --prefix 2001:db8::/64",
        "dev ipalias upload",
    };
    for (const char *line : refused) {
        const auto [status, answer] = ask(line);
        EXPECT_EQ(status, 1) << line << answer;
        EXPECT_EQ(answer["code"], 0x600c) << line;
        EXPECT_NE(answer.dump().find("not on this gateway"), std::string::npos) << line << answer;
    }
    EXPECT_EQ(system("refused_not_here"), std::size(refused));
    EXPECT_EQ(shown(), before);
}

TEST_F(process_test, values_that_cannot_be_are_refused_before_the_kernel_sees_them) {
    /* A prefix is its bytes, its length and seven zero bytes. */
    const std::string sources_48 = "20010db80001000000000000000000003000000000000000";
    const std::string sources_32 = "20010db80000000000000000000000002000000000000000";
    const std::string sources_64 = "20010db80001000200000000000000004000000000000000";
    serve_with_pool();
    configure({"smapping add --id 1 --addr1 2001:db8:1::2 --addr2 203.0.113.1",
               "dmapping add --id 1 --type address-and-port-dependent",
               "dmapping add --id 3 --type address-and-port-dependent --ext-arg 1 --ext " + sources_48});
    const std::string dmapping = "dmapping add --id 2 --type address-and-port-dependent --ext-arg ";
    const std::pair<std::string, int> refused[] = {
        {"smapping add --id 2 --addr1 2001:db8:1::2 --addr2 203.0.113.2", 0x6004},
        {"smapping add --id 2 --addr1 2001:db8:1::3 --addr2 203.0.113.1", 0x6004},
        {"smapping add --id 2 --addr1 203.0.113.2 --addr2 2001:db8:1::3", 0x6006},
        {"pool add --id 2 --param 64513 --start 203.0.113.7 --end 203.0.113.7", 0x6006},
        {"timeout set --type udp --value 2147484", 0x6006},
        {"prefix add --prefix fd6e:6174:3634::/96 --kind stateful", 0x6006},
        {"interface set --ifh 999", 0x6006},
        {"nvi enable --ifh 999", 0x6006},
        {dmapping + "1", 0x6004},
        {dmapping + "9 --ext 200000000000000000000000000000000300000000000000", 0x6005},
        {dmapping + "1 --ext " + sources_32, 0x600c},
        {dmapping + "1 --ext " + sources_64, 0x600c},
    };
    for (const auto &[line, code] : refused) {
        EXPECT_EQ(ask(line).second["code"], code) << line;
    }
}

TEST_F(process_test, what_the_kernel_refuses_is_refused_with_its_reason_in_the_log_and_goes_back) {
    const char *const spoil =
        "nft add table ip6 fwx_nat64_edge && nft delete table ip6 fwx_nat64_edge && nft add table ip6 fwx_nat64_edge"
        " && nft 'add map ip6 fwx_nat64_edge inbound { type ipv4_addr : ipv4_addr; }'";
    const char *const setting = "cat /proc/sys/net/netfilter/nf_conntrack_icmpv6_timeout";
    const std::string mapping = "smapping add --id 5 --addr1 2001:db8:1::5 --addr2 203.0.113.5";
    serve_with_pool();
    must(middle, "nft delete table ip6 fwx_nat64_edge");
    /* No refusal: what others changed is put right. */
    configure({"timeout set --type udp --value 50", "timeout set --type icmp --value 77"});
    must(middle, spoil);
    const auto [status, answer] = ask("pool add --id 2 --param 1 --start 203.0.113.1 --end 203.0.113.2");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(answer["code"], 0x600d);
    EXPECT_NE(log().find("refused by the kernel: nftables: "), std::string::npos) << log();
    EXPECT_EQ(ask("stats pools").second["data"].size(), 1U);
    EXPECT_EQ(middle.run("ip route").output.find("203.0.113."), std::string::npos);
    EXPECT_EQ(ask("timeout set --type icmp --value 12").second["code"], 0x600d);
    EXPECT_EQ(middle.run(setting).output, "77\n");
    EXPECT_EQ(ask(mapping).second["code"], 0x600d);

    must(middle, "nft delete table ip6 fwx_nat64_edge && ip route add 203.0.113.64 dev out0");
    configure({"pool add --id 2 --param 1 --start 203.0.113.1 --end 203.0.113.2", mapping});
    EXPECT_NE(ping(server_behind_prefix, 8), 0U) << "all of it is in force again";
    EXPECT_EQ(ask("pool add --id 3 --param 1 --start 203.0.113.64 --end 203.0.113.64").second["code"], 0x600d);
    EXPECT_NE(log().find("the route of 203.0.113.64"), std::string::npos) << log();

    gateway.end(SIGTERM);
    must(middle, spoil);
    EXPECT_FALSE(serve()) << "it does not serve a configuration that is not in force";
    EXPECT_NE(log().find("nat64-gateway: the kernel refuses the configuration\n"), std::string::npos) << log();
}

TEST_F(process_test, what_the_kernel_refuses_takes_nothing_with_it_that_came_in_the_same_turn) {
    ASSERT_TRUE(serve()) << log();
    must(middle, "ip route add 203.0.114.0/24 dev out0");
    commander_t commander;
    gateway.stop();
    for (const char *line : {"pool add --id 1 --param 1 --start 203.0.113.1 --end 203.0.113.1",
                             "pool add --id 2 --param 1 --start 203.0.114.0 --end 203.0.114.255",
                             "dmapping add --id 1 --type address-and-port-dependent --ext-arg 2",
                             "pool add --id 3 --param 1 --start 203.0.113.3 --end 203.0.113.3"}) {
        ASSERT_TRUE(commander.send(line));
    }
    gateway.signal(SIGCONT);
    commander.settle();
    EXPECT_EQ(commander.results(), (std::vector<uint32_t>{0, 0x600d, 0x6005, 0}));
    EXPECT_EQ(ask("stats pools").second["data"].size(), 2U);
}

TEST_F(process_test, a_pool_that_is_deleted_while_the_device_is_gone_leaves_the_routes_of_others) {
    serve_with_pool();
    configure({"pool add --id 2 --param 1 --start 203.0.113.9 --end 203.0.113.9"});
    must(middle, "ip route add 203.0.113.9 dev out0 metric 50 && ip link delete fwx_nat64");
    configure({"pool del --id 2"});
    EXPECT_EQ(middle.run("ip route show 203.0.113.9").output, "203.0.113.9 dev out0 scope link metric 50 \n") << log();
}

TEST_F(process_test, a_network_namespace_has_one_gateway_and_remove_leaves_nothing) {
    serve_with_pool();
    expect_refused(gateway_words("other"), "a gateway runs in this network namespace");
    EXPECT_EQ(middle.run(gateway_words("--remove edge")).status, 2) << "while it runs";
    EXPECT_EQ(gateway.end(SIGTERM), 0);
    EXPECT_NE(ping(server_behind_prefix, 8), 0U) << "a gateway that ends leaves its work in force";
    for (const char *words : {"other", "ed", "--remove other"}) {
        expect_refused(gateway_words(words),
                       "this network namespace is gateway edge's; remove that with: nat64-gateway --remove edge");
    }
    EXPECT_EQ(listed_sessions(), 1U);
    EXPECT_NE(ping(server_behind_prefix, 8), 0U) << "and so does one that may not be started or removed";

    must(middle, "kill -STOP $(cat " + state("edge") + "/translator.pid)");
    const ran_t removed = middle.run(gateway_words("--remove edge"));
    EXPECT_EQ(removed.status, 0) << removed.output;
    EXPECT_EQ(removed.output, "");
    EXPECT_EQ(middle.run("nft list ruleset").output, "");
    EXPECT_NE(middle.run("ip link show fwx_nat64").status, 0);
    EXPECT_EQ(middle.run("ip route").output.find("fwx_nat64"), std::string::npos);
    EXPECT_EQ(run_command("pgrep -f " + state("edge")).output.find(text_of(state("edge") + "/translator.pid")),
              std::string::npos);
    ASSERT_TRUE(serve()) << "and the configuration is kept: " << log();
    EXPECT_NE(ping(server_behind_prefix, 8), 0U);
}

TEST_F(process_test, a_gateway_has_one_translator_even_when_that_has_lost_its_device) {
    serve_with_pool();
    EXPECT_EQ(gateway.end(SIGTERM), 0);
    const std::string process = text_of(state("edge") + "/translator.pid");
    must(middle, "ip link delete fwx_nat64");
    expect_refused(gateway_words("--translator edge"), "a translator of gateway edge runs");
    const std::string file = state("edge") + "/translator.pid";
    EXPECT_EQ(text_of(file), process);

    kill(std::stoi(process), SIGKILL);
    std::filesystem::create_directory(file + ".new");
    expect_refused(gateway_words("--translator edge"), file + ".new: Is a directory"); /* nobody could end it */

    child_t other; /* has the number of the translator, as after a restart of the machine */
    const bool has_written =
        other.start([](int) { return execl("/usr/bin/tail", "tayga", "-qf", "/dev/null", "/dev/null", nullptr); });
    ASSERT_FALSE(has_written) << "the pipe is closed when tail runs";
    std::ofstream(file) << other.pid() << "\n";
    must(middle, gateway_words("--remove edge"));
    EXPECT_FALSE(other.has_ended());
    std::filesystem::remove(file);
}

TEST_F(process_test, the_rest_of_an_interrupted_answer_is_not_read_as_the_next_answer) {
    must(middle, "for i in $(seq 50); do ip link add l$i type veth peer name m$i || exit 1; done");
    netlink_t netlink = middle.inside([] { return netlink_t(NETLINK_ROUTE); });
    netlink_request_t<ifinfomsg> request(RTM_GETLINK, NLM_F_DUMP);
    size_t count = 0;
    const int interrupted = netlink.ask(request.message(), [&](const nlmsghdr *) {
        if (count++ == 0) must(middle, "ip link delete l1");
    });
    EXPECT_EQ(interrupted, EINTR);
    count = 0;
    EXPECT_EQ(netlink.ask(request.message(), [&count](const nlmsghdr *) { ++count; }), 0);
    EXPECT_EQ(count, 2U * 49 + 3) << "lo, in0 and out0 as well";
}

TEST_F(process_test, what_is_missing_is_said_at_the_start) {
    expect_refused("setpriv --bounding-set=-net_admin --inh-caps=-net_admin " + gateway_words("edge"),
                   "the gateway may not change the network: it needs CAP_NET_ADMIN");
    expect_refused(gateway_words("--tayga /no/tayga edge"),
                   "there is no program /no/tayga to translate with; install it: apt-get install tayga");
    must(middle, "echo 0 >/proc/sys/net/ipv6/conf/all/forwarding");
    expect_refused(gateway_words("edge"),
                   "the kernel does not forward packets: set /proc/sys/net/ipv6/conf/all/forwarding to 1");
    for (const std::string name : {"no name", ".."}) {
        expect_refused(gateway_words("'" + name + "'"),
                       "NAME \"" + name + "\": must be at most 64 letters, digits, dots, dashes and underscores");
    }
    EXPECT_EQ(middle.run("nft list ruleset").output, "") << "nothing was begun";
    must(middle, "ip link set lo down && ip link set lo name fwx_nat64"); /* a device that cannot be deleted */
    expect_refused(gateway_words("--remove edge"), "cannot delete device fwx_nat64: Operation not supported");
}

}  // namespace
