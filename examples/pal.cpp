/*
 * The PAL of pal.c with coroutines. It sends 10,000 commands to a server in another process, up to 256 outstanding. It
 * obeys flow control, reconnects when the server has restarted, and accounts for every command.
 *     c++ -std=c++20 pal.cpp -o pal $(pkg-config --cflags --libs fwx_nat64 fwx_host)
 */
#include <cstdio>
#include <cstdlib>
#include <fwx_host/adapter.hpp>

using namespace fwx::nat64;
using namespace std::chrono_literals;
constexpr uint32_t commands = 10000, window = 256;
struct tally_t {
    uint32_t sent = 0, ok = 0, refused = 0, lost = 0, unanswered = commands, reconnections = 0;
    std::error_code last_refusal;
};

task<result> send(client &pal, uint32_t number) {
    if (number % 5 == 0) co_return co_await pal.timeout_set(timeout{.kind = timeout_kind::udp, .value = 5min});
    if (number % 5 == 1) co_return co_await pal.limit_add(limit{.value = 1 + number});
    if (number % 5 == 2) co_return co_await pal.dmapping_add(dynamic_mapping{.id = 1 + number});
    if (number % 5 == 3) co_return co_await pal.stats_totals();
    co_return co_await pal.smapping_del(static_mapping{.id = number}); /* refused */
}

task<> work(client &pal, const fwx::host::loop &loop, tally_t &tally) {
    while (tally.sent < commands) {
        const uint32_t number = tally.sent++;
        result done;
        for (int tries = 200; tries > 0; --tries) {
            co_await pal.writable();
            done = co_await send(pal, number);
            if (done.was_sent && done.code() != FWX_NAT64_ERR_AGAIN) break;
            co_await fwx::host::sleep(loop, 50ms); /* these commands may be executed twice */
        }
        bool is_lost =
            !done.was_sent || done.code() == FWX_NAT64_ERR_AGAIN || done.error == client_errc::connection_lost;
        if (!done && !is_lost) tally.last_refusal = done.error;
        ++(done ? tally.ok : is_lost ? tally.lost : tally.refused), --tally.unanswered;
    }
}

int main(int argc, char **argv) try {
    if (argc != 2) return 2;
    srandom(arc4random()); /* the binding's epoch is drawn with random */
    fwx::host::add_server_texts();
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, argv[1]);
    tally_t tally;
    const fwx::host::loop loop;
    client pal("PAL1", loop, {.lost = [&] { ++tally.reconnections; }}, fwx::host::adapter);
    std::vector<task<>> workers;
    for (uint32_t i = 0; i < window; ++i)
        workers.push_back(work(pal, loop, tally));
    loop.run(all(workers));
    std::printf("%u commands: %u ok, %u refused (%s), %u lost, %u unanswered; %u reconnections\n", commands, tally.ok,
                tally.refused, tally.last_refusal.message().c_str(), tally.lost, tally.unanswered, tally.reconnections);
    return tally.unanswered == 0 ? 0 : 1;
} catch (const std::exception &error) {
    return std::fprintf(stderr, "%s: %s\n", argv[1], error.what()), 2;
}
