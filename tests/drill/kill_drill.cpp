/*
 * A server is killed at random points under load and started again, and the PAL goes on. Every command must be answered
 * once, or fail once, or have its send refused, or be outstanding at the end; nothing may hang and nothing may be lost.
 * usage: kill_drill SERVER KILLS [SEED]
 */
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "fwx_host/fwx_host.h"
#include "tests/drill/ledger.h"
#include "tests/support/platform_watch.h"
#include "tests/support/runtime_directory.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr unsigned longest_round_s = 30; /* the watchdog's */
constexpr auto longest_until_reported = std::chrono::seconds(1);
constexpr uint32_t most_outstanding_log2 = 10;
constexpr uint32_t longest_life_us = 4000;

volatile pid_t victim_pid; /* for the signal handler */
ledger_t ledger;
uint64_t faults;
std::vector<uint16_t> sent_types; /* of the messages handed over since it was last cleared */

uint32_t below(uint32_t limit, std::mt19937 &random) {
    return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random);
}

void check(bool is_true, const char *what) {
    if (is_true) return;
    faults += 1;
    fprintf(stderr, "kill_drill: not so: %s\n", what);
}

/** The server process, and the timer whose signal kills it. */
class victim_t {
public:
    explicit victim_t(const char *program) : program_(program) {
        sigevent event{};
        event.sigev_notify = SIGEV_SIGNAL;
        event.sigev_signo = SIGUSR1;
        timer_create(CLOCK_MONOTONIC, &event, &timer_);
        struct sigaction action {};
        action.sa_handler = [](int) { kill(victim_pid, SIGKILL); };
        sigaction(SIGUSR1, &action, nullptr);
    }
    ~victim_t() {
        timer_delete(timer_);
        fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
    }
    victim_t(const victim_t &) = delete;
    victim_t &operator=(const victim_t &) = delete;

    const char *name() const { return name_; }

    /** Returns when the server listens. */
    bool start() {
        int ready[2];
        if (pipe(ready) != 0) return false;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ready[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, ready[0]);
        std::string program = program_;
        char *arguments[] = {program.data(), name_, nullptr};
        pid_t child = 0;
        const bool is_spawned = posix_spawn(&child, program_, &actions, nullptr, arguments, environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
        victim_pid = child;
        close(ready[1]);
        char byte = 0;
        const bool is_ready = is_spawned && read(ready[0], &byte, 1) == 1;
        close(ready[0]);
        return is_ready;
    }

    void kill_in(uint32_t microseconds) const {
        itimerspec at{};
        at.it_value.tv_nsec = long{microseconds} * 1000 + 1;
        timer_settime(timer_, 0, &at, nullptr);
    }
    bool is_dead() const { return waitpid(victim_pid, nullptr, WNOHANG) != 0; }
    void end() const {
        kill(victim_pid, SIGKILL);
        waitpid(victim_pid, nullptr, 0);
    }

private:
    const char *program_;
    char name_[8] = "drilled";
    runtime_directory_t directory_;
    timer_t timer_{};
};

/** Sends one command and checks that a new connection begins with the two initial ones; false when it was refused. */
bool send_one() {
    const bool was_connected = fwx_nat64_client_info_get()->connected != 0;
    const uint64_t refused = ledger.refused;
    sent_types.clear();
    ledger.send_next();
    if (ledger.refused != refused) return false;
    if (was_connected) {
        check(sent_types.size() == 1, "one message for one command");
    } else {
        check(sent_types.size() == 3 && sent_types[0] == 0xc002 && sent_types[1] == 0xc001,
              "a new connection begins with the init command and the unsolicited setup");
    }
    return true;
}

/** A synchronous command; whether it succeeds is up to the moment of the kill, but it returns. */
void ask_one() {
    void *msg = nullptr;
    if (fwx_nat64_client_sync_cmd_init(sizeof(fwx_nat64_sync_init_msg_t), FWX_NAT64_MSG_INIT, &msg) != 0) return;
    fwx_nat64_client_sync_cmd_send(msg, sizeof(fwx_nat64_sync_init_msg_t));
}

/** Keeps commands outstanding until the server is dead and the library knows. */
void one_kill(fwx_host_loop_t *loop, victim_t &victim, std::mt19937 &random) {
    const uint32_t outstanding = 1 + below(uint32_t{1} << below(most_outstanding_log2 + 1, random), random);
    const uint64_t already_lost = ledger.open_count();
    send_one();
    victim.kill_in(below(longest_life_us, random));
    clock_type::time_point died;
    bool is_dead = false;
    while (!is_dead || fwx_nat64_client_info_get()->connected != 0) {
        while (!is_dead && ledger.open_count() - already_lost < outstanding && send_one()) {
        }
        if (!is_dead && below(64, random) == 0) ask_one();
        fwx_host_loop_run_once(loop, is_dead ? 1 : 0);
        if (!is_dead && victim.is_dead()) {
            is_dead = true;
            died = clock_type::now();
        }
    }
    check(clock_type::now() - died < longest_until_reported, "a kill is reported within a second");
    check(!send_one(), "without a server a send returns a code");
}

bool bind(fwx_host_loop_t *loop) {
    fwx_nat64_reply_cbs_t callbacks{};
    callbacks.cfg_reply_cb = [](fwx_nat64_cmd_result_t *result) { ledger.verdict(result->pal_ctx, result->result); };
    callbacks.sys_stats_cb = [](void *pal_ctx, uint32_t, void *data) -> uint32_t {
        ledger.statistics(pal_ctx, data);
        return 0;
    };
    return fwx_nat64_bind("dril", loop, nullptr, &callbacks) == 0;
}

void settle(fwx_host_loop_t *loop, uint64_t lost) {
    send_one();
    while (ledger.open_count() > lost) {
        fwx_host_loop_run_once(loop, -1);
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s SERVER KILLS [SEED]\n", argv[0]);
        return 2;
    }
    const unsigned long kills = strtoul(argv[2], nullptr, 10);
    std::mt19937 random(argc > 3 ? static_cast<uint32_t>(strtoul(argv[3], nullptr, 10)) : std::random_device{}());
    const platform_watch_t watch;
    victim_t victim(argv[1]);
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, victim.name());
    fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
    fwx_host_tap_set(
        [](void *, fwx_host_direction_t direction, const void *msg, size_t) {
            if (direction == FWX_HOST_SENT) sent_types.push_back(*static_cast<const uint16_t *>(msg));
        },
        nullptr);
    alarm(longest_round_s);
    if (!victim.start() || !bind(loop)) {
        fprintf(stderr, "kill_drill: no server\n");
        return 1;
    }
    for (unsigned long i = 0; i < kills && faults + ledger.faults == 0; ++i) {
        alarm(longest_round_s);
        one_kill(loop, victim, random);
        const uint64_t lost = ledger.open_count();
        check(victim.start(), "the server starts again");
        settle(loop, lost);
    }
    alarm(longest_round_s);
    const uint64_t outstanding = ledger.open_count();
    ledger.compare_with(*fwx_nat64_client_info_get());
    fwx_nat64_unbind();
    fwx_mapt_plu_cleanup();
    fwx_host_loop_run_until_idle(loop);
    check(ledger.open_count() == outstanding, "no callback after the end of the binding");
    check(ledger.sent == ledger.answered + ledger.failed + ledger.refused + outstanding, "the books balance");
    victim.end();
    fwx_host_loop_destroy(loop);
    check(watch.left().empty(), "nothing is live");
    check(watch.faults().empty(), "nothing was freed twice or dropped");
    faults += ledger.faults;
    printf(
        "%lu kills: %llu commands: %llu answered, %llu failed untaken, %llu refused, %llu outstanding; %llu faults\n",
        kills, static_cast<unsigned long long>(ledger.sent), static_cast<unsigned long long>(ledger.answered),
        static_cast<unsigned long long>(ledger.failed), static_cast<unsigned long long>(ledger.refused),
        static_cast<unsigned long long>(outstanding), static_cast<unsigned long long>(faults));
    return faults == 0 ? 0 : 1;
}
