/* A gateway between an IPv6 client and an IPv4 server, each in a network namespace. */
#ifndef TESTS_GATEWAY_GATEWAY_FIXTURE_H
#define TESTS_GATEWAY_GATEWAY_FIXTURE_H

#include <gtest/gtest.h>
#include <netinet/icmp6.h>
#include <sys/prctl.h>
#include <sys/time.h>

#include <algorithm>
#include <filesystem>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "net/json.h"
#include "network.h"
#include "records/reader.h"
#include "records/words.h"
#include "tests/support/child.h"
#include "tests/support/eventually.h"
#include "tests/support/runtime_directory.h"

using clock_type = std::chrono::steady_clock;

inline std::ostream &operator<<(std::ostream &out, const json_t &value) {
    return out << value.dump();
}

inline double seconds_since(clock_type::time_point begin) {
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

/** A client that gives commands as lines, as many at once as a test wants. There is one at a time; its answers must
 * come in the order of the commands. */
class commander_t {
public:
    commander_t() {
        fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, "edge");
        fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
        fwx_nat64_reply_cbs_t callbacks{};
        callbacks.cfg_reply_cb = [](fwx_nat64_cmd_result_t *result) { present->hear(*result); };
        present = this;
        EXPECT_EQ(fwx_nat64_bind("dril", loop_, nullptr, &callbacks), 0U);
    }
    ~commander_t() {
        fwx_nat64_unbind();
        fwx_mapt_plu_cleanup();
        fwx_host_loop_run_until_idle(loop_);
        fwx_host_loop_destroy(loop_);
        fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
    }
    commander_t(const commander_t &) = delete;
    commander_t &operator=(const commander_t &) = delete;

    /** False when there is no server. */
    bool send(const std::string &line) {
        words_.split(line);
        const bool is_read = reader_.read(words_.words()) == record_reader_t::result_t::record;
        EXPECT_TRUE(is_read) << line;
        if (!is_read) return false;
        void *number = reinterpret_cast<void *>(uintptr_t{sent_} + 1);
        if (reader_.family().send(reader_.verb().op, reader_.record().bytes, number) != 0) return false;
        ++sent_;
        return true;
    }
    void turn(int wait_ms) { fwx_host_loop_run_once(loop_, wait_ms); }
    void carry_out(const std::string &line) {
        ASSERT_TRUE(send(line)) << line;
        settle();
        ASSERT_EQ(answered(), sent_) << line;
        EXPECT_EQ(results_.back(), 0U) << line;
    }
    /** Waits until all is answered, or the server is gone. */
    void settle() {
        while (is_connected() && answered() < sent_) {
            turn(-1);
        }
    }
    /** Begins to count anew, with no server or another one. */
    void forget() {
        sent_ = 0;
        results_.clear();
    }

    static bool is_connected() { return fwx_nat64_client_info_get()->connected != 0; }
    size_t sent() const { return sent_; }
    size_t answered() const { return results_.size(); }
    size_t outstanding() const { return sent_ - answered(); }
    const std::vector<uint32_t> &results() const { return results_; }

private:
    void hear(const fwx_nat64_cmd_result_t &result) {
        const size_t number = reinterpret_cast<uintptr_t>(result.pal_ctx);
        const bool has_died = result.result == FWX_NAT64_ERR_AGAIN;
        if (has_died) return;
        results_.push_back(result.result);
        EXPECT_EQ(number, answered()) << "in their order";
    }

    static inline commander_t *present = nullptr;
    fwx_host_loop_t *loop_ = fwx_host_loop_create();
    line_words_t words_;
    record_reader_t reader_;
    size_t sent_ = 0;
    std::vector<uint32_t> results_;
};

class gateway_fixture_t : public testing::Test {
protected:
    static constexpr const char *client_address = "2001:db8:1::2";
    static constexpr const char *server_address = "198.51.100.2";
    static constexpr const char *server_behind_prefix = "2001:db8:64::c633:6402";

    void SetUp() override {
        for (const char *program : {"tayga", "nft", "conntrack", "ip"}) {
            const std::string look = std::string("PATH=$PATH:/usr/sbin:/sbin command -v ") + program;
            if (run_command(look).status != 0) GTEST_SKIP() << "there is no program " << program;
        }
        const bool is_made = client.is_made() && middle.is_made() && server.is_made();
        if (!is_made) GTEST_SKIP() << "network namespaces cannot be made by this user";
        if (access("/dev/net/tun", F_OK) != 0) GTEST_SKIP() << "there is no /dev/net/tun";
        if (middle.run("nft list tables").status != 0) GTEST_SKIP() << "the kernel has no nf_tables";
        setenv("PATH", (std::string(getenv("PATH")) + ":/usr/sbin:/sbin").c_str(), 1);
        must(client, "ip link set lo up && ip link add c0 type veth peer name in0 netns " + middle.path() +
                         " && ip addr add 2001:db8:1::2/64 dev c0 nodad && ip addr add 2001:db8:1::3/64 dev c0 nodad"
                         " && ip link set c0 up && ip -6 route add default via 2001:db8:1::1");
        must(middle, "ip link set lo up && ip link set in0 up && ip addr add 2001:db8:1::1/64 dev in0 nodad");
        must(server, "ip link set lo up && ip link add s0 type veth peer name out0 netns " + middle.path() +
                         " && ip addr add 198.51.100.2/24 dev s0 && ip link set s0 up"
                         " && ip route add default via 198.51.100.1");
        must(middle,
             "ip link set out0 up && ip addr add 198.51.100.1/24 dev out0"
             " && echo 1 >/proc/sys/net/ipv6/conf/all/forwarding && echo 1 >/proc/sys/net/ipv4/ip_forward");
    }
    void TearDown() override {
        gateway.end(SIGKILL);
        pid_t translator = 0;
        std::ifstream(state("edge") + "/translator.pid") >> translator;
        const bool is_translator = text_of("/proc/" + std::to_string(translator) + "/comm") == "tayga\n";
        if (is_translator) kill(translator, SIGKILL); /* another process may have its number by now */
    }

    static void must(const namespace_t &place, const std::string &command) {
        const ran_t ran = place.run(command);
        ASSERT_EQ(ran.status, 0) << command << ": " << ran.output;
    }

    static std::string gateway_words(const std::string &words) { return std::string(GATEWAY_PATH) + " " + words; }
    std::string state(const std::string &name) const { return directory.path() + "/state/fwx/gateway/" + name; }
    std::string log() const { return text_of(directory.path() + "/log"); }

    /** Starts `nat64-gateway edge`, and waits until it serves, or until it has died after so many microseconds. */
    bool serve(suseconds_t life_us = 0) {
        return gateway.start([this, life_us](int ready) {
            middle.inside([this, ready, life_us] {
                const itimerval death = {{0, 0}, {0, life_us}};
                setitimer(ITIMER_REAL, &death, nullptr);
                const int log_fd = open((directory.path() + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                dup2(ready, STDOUT_FILENO);
                dup2(log_fd, STDERR_FILENO);
                return execl(GATEWAY_PATH, GATEWAY_PATH, "edge", nullptr);
            });
        });
    }
    /** What natctl answers: its exit status, and the document. */
    static std::pair<int, json_t> ask(const std::string &words) {
        const ran_t ran = run_command(std::string(NATCTL_PATH) + " --connect edge --json " + words);
        const json_t answer = json_t::parse(ran.output.substr(0, ran.output.find('\n')));
        EXPECT_TRUE(answer.is_object()) << ran.output;
        return {ran.status, answer};
    }
    static void configure(const std::vector<std::string> &lines) {
        for (const std::string &line : lines) {
            EXPECT_EQ(ask(line).first, 0) << line;
        }
    }
    static json_t sessions(const std::string &filter = "") { return ask("sessions walk " + filter).second["data"]; }
    std::string table() const { return middle.run("nft list table ip6 fwx_nat64_edge").output; }
    std::string tracked() const { return middle.run("{ conntrack -L -f ipv6 2>/dev/null; }").output; }
    size_t listed_sessions() const {
        const std::string list = tracked();
        return static_cast<size_t>(std::count(list.begin(), list.end(), '\n'));
    }
    /** So many changes that concern none of the flows. */
    static void change_unrelated(commander_t &commander, size_t count) {
        for (size_t i = 0; i < count; i += 4) {
            for (const char *line : {"smapping add --id 900 --addr1 2001:db8:9::9 --addr2 203.0.113.77",
                                     "pool add --id 900 --param 1 --start 203.0.113.80 --end 203.0.113.87",
                                     "smapping del --id 900", "pool del --id 900"}) {
                commander.carry_out(line);
            }
        }
    }
    static uint64_t system(const char *name) {
        const json_t data = ask("stats system").second["data"];
        const json_t &record = data.is_array() ? data.back() : data;
        return record.contains("data") ? record["data"][name].get<uint64_t>() : record[name].get<uint64_t>();
    }
    void serve_with_pool(const std::string &pool = "--param 1 --start 192.0.2.1 --end 192.0.2.8") {
        ASSERT_TRUE(serve()) << log();
        configure({"prefix add --prefix 2001:db8:64::/96 --kind stateful", "pool add --id 1 " + pool});
    }

    socket_t from_client(int type, uint16_t port = 0, const char *address = client_address) const {
        return {client, type, {address, port}};
    }
    socket_t at_server(int type, uint16_t port) const { return {server, type, {server_address, port}}; }
    socket_t web_server() const {
        socket_t at = at_server(SOCK_STREAM, 80);
        listen(at.fd(), 2);
        return at;
    }
    struct connection_t {
        socket_t caller, called;
    };
    connection_t connection(const socket_t &listener) const {
        socket_t caller = from_client(SOCK_STREAM);
        EXPECT_TRUE(caller.connects(to_server(80)));
        return {std::move(caller), listener.accepted()};
    }
    static end_t to_server(uint16_t port) { return {server_behind_prefix, port}; }

    /** A socket of the client that receives only ICMPv6 messages of this type. */
    socket_t icmp_socket(uint8_t type) const {
        socket_t raw(client, SOCK_RAW, {client_address, 0}, IPPROTO_ICMPV6);
        icmp6_filter filter;
        ICMP6_FILTER_SETBLOCKALL(&filter);
        ICMP6_FILTER_SETPASS(type, &filter);
        setsockopt(raw.fd(), IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter);
        return raw;
    }
    /** The size of the answer to an ICMPv6 echo request, 0 for none. */
    size_t ping(const std::string &address, size_t size, int wait_ms = socket_t::patience_ms) const {
        const socket_t raw = icmp_socket(ICMP6_ECHO_REPLY);
        std::string request(sizeof(icmp6_hdr) + size, 'p');
        const icmp6_hdr head = {ICMP6_ECHO_REQUEST, 0, 0, {}};
        request.replace(0, sizeof head, reinterpret_cast<const char *>(&head), sizeof head);
        return raw.send(request, {address, 0}) ? raw.receive(wait_ms).size() : 0;
    }
    void send_from_new_port(std::vector<socket_t> &open, const char *address = client_address,
                            uint16_t port = 7) const {
        open.push_back(from_client(SOCK_DGRAM, 0, address));
        open.back().send("hello", to_server(port));
    }
    /** Whether a message from a new port, which belongs to no session, gets through to port 7. */
    bool passes(const socket_t &at, const std::string &to = server_behind_prefix) const {
        from_client(SOCK_DGRAM).send("hello", {to, 7});
        return !at.receive(socket_t::never_ms).empty();
    }
    static bool converse(const socket_t &from, const socket_t &at, end_t to, const std::string &text = "hello",
                         end_t *seen = nullptr, int wait_ms = socket_t::patience_ms) {
        end_t peer;
        if (!from.send(text, to) || at.receive(wait_ms, &peer) != text) return false;
        if (seen != nullptr) *seen = peer;
        return at.send(text + "!", peer) && from.receive() == text + "!";
    }

    const runtime_directory_t directory;
    const namespace_t client, middle, server;
    child_t gateway;
};

#endif
