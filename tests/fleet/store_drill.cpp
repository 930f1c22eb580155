/*
 * Five gateways follow a store of three members, each in a network namespace of its own, while members fail in every
 * way. All gateways hold the last pushed version within 15 seconds of a majority being there, and say that they do not
 * know while there is none. `scripts/drill.sh store` runs it, as root. It prints what it measured.
 */
#include <sched.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "tests/fleet/etcd_process.h"
#include "tests/fleet/gateways_fixture.h"
#include "tests/gateway/network.h"
#include "tests/support/stopwatch.h"

namespace {

constexpr double most_s = 15;

class store_drill : public gateways_test {
protected:
    static constexpr size_t member_count = 3;

    void SetUp() override {
        ASSERT_EQ(unshare(CLONE_NEWNET), 0) << "network namespaces cannot be made by this user";
        must(
            run_command("ip link set lo up && ip link add hub type bridge && ip addr add 10.77.0.9/24 dev hub"
                        " && ip link set hub up"));
        std::vector<etcd_cluster_t::place_t> places;
        for (size_t i = 0; i < member_count; ++i) {
            const std::string wire = "m" + std::to_string(i);
            must(run_command("ip link add " + wire + " type veth peer name e0 netns " + member_places_[i].path() +
                             " && ip link set " + wire + " master hub up"));
            must(member_places_[i].run("ip link set lo up && ip addr add " + host(i) +
                                       "/24 dev e0 && ip link set e0 up"));
            places.push_back({host(i), [this, i] { member_places_[i].enter(); }});
        }
        cluster_ = std::make_unique<etcd_cluster_t>(places);
        std::string store = "etcd://";
        for (const std::string &place : cluster_->places()) {
            store += (store.back() == '/' ? "" : ",") + place;
        }
        start_gateways(store + "/p");
    }
    static void must(const ran_t &ran) { ASSERT_EQ(ran.status, 0) << ran.output; }
    static std::string host(size_t i) { return "10.77.0." + std::to_string(i + 1); }
    etcd_process_t &member(size_t i) const { return (*cluster_)[i]; }

    /** The member that leads, by its own account. */
    size_t leader() const {
        size_t found = member_count;
        EXPECT_TRUE(eventually([&] {
            for (size_t i = 0; i < member_count; ++i) {
                const ran_t said = run_command("ETCDCTL_API=3 timeout 2 " ETCDCTL_PATH " --endpoints " +
                                               member(i).place() + " endpoint status");
                if (said.output.find(", true, ") != std::string::npos) found = i;
            }
            return found < member_count;
        }));
        return found;
    }
    void kill(size_t i) const { member(i).end(SIGKILL); }
    void start(size_t i) const { EXPECT_TRUE(member(i).start()) << member(i).log(); }
    /** Cuts a member off from the other members, but not from the gateways. */
    void set_cut(size_t i, bool is_cut) const {
        for (size_t other = 0; other < member_count; ++other) {
            const std::string route = std::string(is_cut ? "add" : "del") + " blackhole " + host(other) + "/32";
            if (other != i) must(member_places_[i].run("ip route " + route));
        }
    }
    /** Takes a member off the network. */
    static void set_off(size_t i, bool is_off) {
        must(run_command("ip link set m" + std::to_string(i) + (is_off ? " down" : " up")));
    }

    template <typename is_so_t>
    static bool all(is_so_t is_so) {
        for (size_t i = 0; i < count; ++i) {
            const json_t got = status(i);
            if (!got.is_object() || !is_so(got)) return false;
        }
        return true;
    }
    /** Pushes the next document until the store takes it, and waits until all hold it and say so. */
    void expect_push_reaches_all(const std::string &when) {
        const auto begin = clock_type::now();
        run_t pushed;
        ++pool_count_;
        EXPECT_TRUE(eventually([&] { return (pushed = push(pool_count_, "", "5000")).status == 0; })) << pushed.notes;
        const double pushed_s = seconds_since(begin);
        const bool is_held = eventually([this] {
            return all([this](const json_t &got) {
                return got["in_step"] == true && got["items"] == 3 * pool_count_ + 1 && got["store"]["up"] == true;
            });
        });
        const double held_s = seconds_since(begin);
        std::printf("%-50s pushed %5.1f s, held by all %5.1f s\n", when.c_str(), pushed_s, held_s);
        EXPECT_TRUE(is_held && held_s <= most_s) << when << ": " << status(0);
    }
    /** Waits until no gateway says that the store confirms its document. */
    void expect_all_doubt(const std::string &when) {
        const auto begin = clock_type::now();
        EXPECT_TRUE(eventually([] { return all([](const json_t &got) { return got["store"]["up"] == false; }); }));
        const double doubted_s = seconds_since(begin);
        std::printf("%-50s doubted by all %5.1f s\n", when.c_str(), doubted_s);
        EXPECT_LE(doubted_s, most_s) << when;
        EXPECT_NE(daemons_[0]->get("/metrics").find("\nnat64_store_up 0\n"), std::string::npos);
        EXPECT_NE(daemons_[0]->get("/healthz").find("does not confirm"), std::string::npos);
        ++pool_count_; /* the store may keep it for later */
        EXPECT_NE(push(pool_count_, "", "5000").status, 0) << when;
        EXPECT_TRUE(all([](const json_t &got) { return got["items"] != 0; })) << "they keep their document";
    }

    struct fault_t {
        const char *name;
        std::function<void(size_t)> begin;
        std::function<void(size_t)> end;
    };
    const fault_t faults[4] = {
        {"killed", [this](size_t i) { kill(i); }, [this](size_t i) { start(i); }},
        {"stopped", [this](size_t i) { member(i).signal(SIGSTOP); }, [this](size_t i) { member(i).signal(SIGCONT); }},
        {"cut off from the others", [this](size_t i) { set_cut(i, true); }, [this](size_t i) { set_cut(i, false); }},
        {"off the network", [](size_t i) { set_off(i, true); }, [](size_t i) { set_off(i, false); }},
    };

    uint32_t pool_count_ = 2;
    namespace_t member_places_[member_count];
    std::unique_ptr<etcd_cluster_t> cluster_;
};

TEST_F(store_drill, one_member_of_three_fails) {
    expect_push_reaches_all("before");
    for (const fault_t &fault : faults) {
        for (const bool leads : {true, false}) {
            const size_t first = leader();
            const size_t i = leads ? first : (first + 1) % member_count;
            const std::string name = std::string(leads ? "leader " : "follower ") + fault.name;
            fault.begin(i);
            expect_push_reaches_all(name);
            fault.end(i);
            expect_push_reaches_all(name + ", back");
        }
    }
    for (size_t i = 0; i < 2 * member_count; ++i) {
        kill(i % member_count);
        expect_push_reaches_all("killed in turn");
        start(i % member_count);
    }
}

TEST_F(store_drill, two_members_fail_and_then_all_and_lose_their_data) {
    expect_push_reaches_all("before");
    for (const fault_t &fault : faults) {
        const size_t first = leader();
        const size_t second = (first + 1) % member_count;
        const std::string name = std::string("two ") + fault.name;
        fault.begin(first);
        fault.begin(second);
        expect_all_doubt(name);
        fault.end(first);
        fault.end(second);
        expect_push_reaches_all(name + ", back");
    }
    for (size_t i = 0; i < member_count; ++i) {
        kill(i);
        member(i).lose_data();
    }
    expect_all_doubt("all killed");
    for (size_t i = 0; i < member_count; ++i) {
        start(i);
    }
    expect_push_reaches_all("all back, without their data");
}

TEST_F(store_drill, the_leader_stalls) {
    expect_push_reaches_all("before");
    const size_t first = leader();
    std::atomic<bool> is_over = false;
    /* It stalls as with a slow disk. */
    std::thread stalls([&] {
        while (!is_over) {
            member(first).signal(SIGSTOP);
            poll(nullptr, 0, 400);
            member(first).signal(SIGCONT);
            poll(nullptr, 0, 200);
        }
    });
    for (int i = 0; i < 3; ++i) {
        expect_push_reaches_all("the leader stalls 400 of each 600 ms");
    }
    is_over = true;
    stalls.join();
}

}  // namespace

int main(int argc, char **argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    testing::InitGoogleTest(&argc, argv);
    setenv("PATH", (std::string(getenv("PATH")) + ":/usr/sbin:/sbin").c_str(), 1);
    return RUN_ALL_TESTS();
}
