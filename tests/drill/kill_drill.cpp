/*
 * Kills servers at random times under load and starts them again, while the PAL keeps sending. Every command that was
 * sent must be answered once, or fail once, or be outstanding at the end. Nothing may hang, no command may be lost, and
 * the server's view of the commands must agree with the PAL's.
 * usage: kill_drill SERVER KILLS [SEED]
 */
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <random>
#include <string>

#include "fwx_host/fwx_host.h"
#include "tests/drill/ledger.h"
#include "tests/support/child.h"
#include "tests/support/platform_watch.h"
#include "tests/support/runtime_directory.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr unsigned longest_round_s = 30; /* then the watchdog ends the process */
constexpr auto longest_until_reported = std::chrono::seconds(1);
constexpr uint32_t most_outstanding_log2 = 12;
constexpr uint32_t longest_life_us = 4000;
constexpr uint64_t most_in_a_turn = 64; /* messages that a server takes before its answers become visible */
constexpr char server_name[] = "drilled";

class drill_t {
public:
    drill_t(const char *server, int view_fd, server_view_t &view, uint32_t seed)
        : ledger(view), server_program_(server), view_fd_(std::to_string(view_fd)), random_(seed) {
        present = this;
        struct sigaction action {};
        action.sa_handler = [](int) { kill(present->server_.pid(), SIGKILL); };
        sigaction(SIGUSR1, &action, nullptr);
        sigevent event{};
        event.sigev_notify = SIGEV_SIGNAL;
        event.sigev_signo = SIGUSR1;
        timer_create(CLOCK_MONOTONIC, &event, &kill_timer_);
        fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, server_name);
        fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
    }
    ~drill_t() {
        fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
        fwx_host_loop_destroy(loop_);
        timer_delete(kill_timer_);
    }
    drill_t(const drill_t &) = delete;
    drill_t &operator=(const drill_t &) = delete;

    bool start() { return start_server() && bind(); }
    /** Kills the server under load, starts it again, and waits until all commands are settled. */
    void round() {
        outstanding_ = 1 + below(uint32_t{1} << below(most_outstanding_log2 + 1));
        rounds_ += 1;
        kill_server();
        settle();
    }
    void end() {
        const uint64_t left = ledger.open_count();
        ledger.compare_with(*fwx_nat64_client_info_get());
        fwx_nat64_unbind();
        fwx_mapt_plu_cleanup();
        fwx_host_loop_run_until_idle(loop_);
        check(ledger.open_count() == left, "no callback after the end of the binding");
        check(ledger.sent == ledger.answered + ledger.failed + left,
              "every command that was sent is answered, failed or outstanding");
    }
    void print() const {
        std::cout << rounds_ << " kills, " << outstanding_at_kills_ / std::max<uint64_t>(rounds_, 1)
                  << " commands outstanding at each in the mean: " << ledger.sent << " sent: " << ledger.answered
                  << " answered, " << ledger.failed << " failed as not taken, " << ledger.open_count()
                  << " outstanding; " << ledger.refused << " refused without a server\n";
    }

    static void check(bool is_true, const char *what) {
        if (is_true) return;
        faults += 1;
        fprintf(stderr, "kill_drill: this does not hold: %s\n", what);
    }

    static uint64_t faults;
    ledger_t ledger;

private:
    static drill_t *present;

    uint32_t below(uint32_t limit) { return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random_); }
    static bool is_connected() { return fwx_nat64_client_info_get()->connected != 0; }

    /** Returns when the server has written to standard output. */
    bool start_server() {
        return server_.start([this](int ready) {
            dup2(ready, STDOUT_FILENO);
            execl(server_program_, server_program_, server_name, "0", view_fd_.c_str(), nullptr);
        });
    }
    bool bind() {
        fwx_nat64_reply_cbs_t callbacks{};
        callbacks.cfg_reply_cb = [](fwx_nat64_cmd_result_t *result) {
            present->ledger.verdict(result->pal_ctx, result->result);
        };
        callbacks.sys_stats_cb = [](void *pal_ctx, uint32_t, void *data) -> uint32_t {
            present->ledger.statistics(pal_ctx, data);
            return 0;
        };
        return fwx_nat64_bind("dril", loop_, nullptr, &callbacks) == 0;
    }

    /** Sends a synchronous command. It must return, but whether it succeeds depends on the time of the kill. */
    static void ask_one() {
        void *msg = nullptr;
        if (fwx_nat64_client_sync_cmd_init(sizeof(fwx_nat64_sync_init_msg_t), FWX_NAT64_MSG_INIT, &msg) != 0) return;
        fwx_nat64_client_sync_cmd_send(msg, sizeof(fwx_nat64_sync_init_msg_t));
    }
    /** Sends commands until outstanding_ are outstanding, or a send is refused. */
    void fill() {
        while (ledger.open_count() - lost_ < outstanding_ && ledger.send_next()) {
        }
    }
    void keep_busy() {
        fill();
        if (below(64) == 0) ask_one();
        fwx_host_loop_run_once(loop_, 0);
    }

    void kill_server() {
        const bool skips_loop = below(2) == 0; /* do not run the loop until the server is dead */
        fill();
        outstanding_at_kills_ += ledger.open_count() - lost_;
        itimerspec at{}; /* when a signal handler in this process kills it, at any point of this process's code */
        at.it_value.tv_nsec = long{below(longest_life_us)} * 1000 + 1;
        timer_settime(kill_timer_, 0, &at, nullptr);
        while (!server_.has_ended()) {
            if (!skips_loop) keep_busy();
        }
        const clock_type::time_point died = clock_type::now();
        while (is_connected()) {
            fwx_host_loop_run_once(loop_, 1);
        }
        check(clock_type::now() - died < longest_until_reported, "a kill is reported within a second");
        check(!ledger.send_next(), "a send without a server returns an error");
        check(ledger.unnoted() <= 1, "a dead server has recorded all refusals, except perhaps the last");
        ledger.forget_unnoted();
        check(ledger.open_count() - lost_ <= most_in_a_turn, "no command is lost that the server had not taken");
        check(ledger.failed_in_turn <= most_in_a_turn,
              "the server took no failed command, except in the unfinished turn");
        ledger.failed_in_turn = 0;
        lost_ = ledger.open_count();
        check(start_server(), "the server starts again");
    }
    /** Waits until the new server has answered all commands, and the two views agree. */
    void settle() {
        check(ledger.send_next(), "a living server accepts a command");
        while (ledger.open_count() > lost_) {
            fwx_host_loop_run_once(loop_, -1);
        }
        while (ledger.unnoted() != 0) {
            fwx_host_loop_run_once(loop_, 1);
        }
    }

    runtime_directory_t directory_;
    const char *server_program_;
    const std::string view_fd_;
    child_t server_;
    timer_t kill_timer_{};
    fwx_host_loop_t *loop_ = fwx_host_loop_create();
    std::mt19937 random_;
    uint32_t outstanding_ = 1; /* number of commands to keep outstanding */
    uint64_t lost_ = 0;        /* commands that stay open, because their server took them and died */
    uint64_t rounds_ = 0;
    uint64_t outstanding_at_kills_ = 0;
};

uint64_t drill_t::faults;
drill_t *drill_t::present;

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s SERVER KILLS [SEED]\n", argv[0]);
        return 2;
    }
    const unsigned long kills = strtoul(argv[2], nullptr, 10);
    const uint32_t seed = argc > 3 ? static_cast<uint32_t>(strtoul(argv[3], nullptr, 10)) : std::random_device{}();
    const int view_fd = memfd_create("view", 0); /* the server inherits it */
    const bool has_view = view_fd >= 0 && ftruncate(view_fd, sizeof(server_view_t)) == 0;
    server_view_t *view = has_view ? server_view_t::map(view_fd) : nullptr;
    if (view == nullptr) {
        perror("kill_drill: no memory to share");
        return 1;
    }
    const platform_watch_t watch;
    {
        drill_t drill(argv[1], view_fd, *view, seed);
        alarm(longest_round_s);
        if (!drill.start()) {
            fprintf(stderr, "kill_drill: no server\n");
            return 1;
        }
        for (unsigned long i = 0; i < kills && drill_t::faults + drill.ledger.faults == 0; ++i) {
            alarm(longest_round_s);
            drill.round();
        }
        drill.end();
        drill.print();
        drill_t::faults += drill.ledger.faults;
    }
    drill_t::check(watch.left().empty(), "no platform objects are left");
    drill_t::check(watch.faults().empty(), "nothing was freed twice or dropped");
    return drill_t::faults == 0 ? 0 : 1;
}
