/*
 * Measures the two directions of an asynchronous command: from the call to the hand-over to the platform, and from the
 * reply to the callback. Client and server are in one process, and the server only keeps headers. Times are per command
 * and include the host platform.
 */
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "tools/seed.h"

namespace {

using clock_type = std::chrono::steady_clock;

struct world_t {
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_server_t *server = nullptr;
    fwx_host_peer_t *peer = nullptr;
    std::vector<fwx_nat64_msg_hdr_t> commands;
    static inline uint64_t callbacks = 0;

    world_t() {
        static constexpr fwx_host_server_ops_t ops = {
            [](void *ctx, fwx_host_peer_t *from) { static_cast<world_t *>(ctx)->peer = from; }, nullptr,
            [](void *ctx, fwx_host_peer_t *, const void *msg, size_t) {
                auto &kept = static_cast<world_t *>(ctx)->commands;
                memcpy(&kept.emplace_back(), msg, sizeof(fwx_nat64_msg_hdr_t));
            },
            [](void *, fwx_host_peer_t *, const void *msg, size_t, void *reply, size_t) -> size_t {
                memset(reply, 0, sizeof(fwx_nat64_sync_reply_t));
                memcpy(reply, msg, sizeof(uint32_t));
                return sizeof(fwx_nat64_sync_reply_t);
            }};
        fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &ops, this, &server);
        fwx_nat64_reply_cbs_t callbacks_table{};
        callbacks_table.cfg_reply_cb = [](fwx_nat64_cmd_result_t *) { ++callbacks; };
        seed_random();
        fwx_nat64_bind(nullptr, loop, nullptr, &callbacks_table);
        fwx_host_loop_run_until_idle(loop);
        commands.clear();
    }
    ~world_t() {
        fwx_nat64_unbind();
        fwx_host_server_unregister(server);
        fwx_host_loop_destroy(loop);
    }
    void reply_to(const fwx_nat64_msg_hdr_t &command) const {
        fwx_nat64_reply_t reply{};
        reply.hdr = command;
        reply.hdr.type = FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_RESULT;
        fwx_host_peer_send(peer, &reply, sizeof(reply));
    }
};

double seconds_since(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

enum class way_t { call, reply };

/* Keeps `range(0)` commands outstanding at once and answers them in reverse order. */
void one_way(benchmark::State &state, way_t way) {
    world_t world;
    const auto outstanding = static_cast<size_t>(state.range(0));
    const fwx_nat64_timeout_t timeout = {1, 300};
    for (auto _ : state) {
        clock_type::time_point start = clock_type::now();
        for (size_t i = 0; i < outstanding; ++i)
            fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &timeout, nullptr);
        const double calls = seconds_since(start);
        fwx_host_loop_run_until_idle(world.loop);
        for (size_t i = outstanding; i-- > 0;)
            world.reply_to(world.commands[i]);
        start = clock_type::now();
        fwx_host_loop_run_until_idle(world.loop);
        const double replies = seconds_since(start);
        world.commands.clear();
        state.SetIterationTime(way == way_t::call ? calls : replies);
    }
    const auto commands = static_cast<double>(outstanding) * static_cast<double>(state.iterations());
    state.counters["per_command"] =
        benchmark::Counter(commands, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK_CAPTURE(one_way, call_to_hand_over, way_t::call)->Arg(64)->Arg(1000)->Arg(100000)->UseManualTime();
BENCHMARK_CAPTURE(one_way, reply_to_callback, way_t::reply)->Arg(64)->Arg(1000)->Arg(100000)->UseManualTime();
