/*
 * A PAL on asio. The io_context watches the host loop's descriptor, which is readable whenever the loop has work.
 *     c++ -std=c++20 asio.cpp -o asio $(pkg-config --cflags --libs fwx_nat64 fwx_host)
 */
#include <asio.hpp>
#include <cstdio>
#include <cstdlib>
#include <fwx_host/adapter.hpp>

using namespace fwx::nat64;

void drive(asio::posix::stream_descriptor &descriptor, fwx_host_loop_t *loop) {
    descriptor.async_wait(asio::posix::stream_descriptor::wait_read, [&descriptor, loop](std::error_code error) {
        if (error) return;
        fwx_host_loop_process(loop);
        drive(descriptor, loop);
    });
}

task<> work(client &pal, int &answered) {
    for (uint32_t id = 1; id <= 40; ++id) {
        if (co_await pal.limit_add(limit{.value = id})) ++answered;
    }
}

int main(int argc, char **argv) try {
    if (argc != 2) return 2;
    srandom(arc4random()); /* the binding's epoch is drawn with random */
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, argv[1]);
    asio::io_context io;
    const fwx::host::loop loop;
    asio::posix::stream_descriptor descriptor(io, fwx_host_loop_fd(loop));
    drive(descriptor, loop);
    client pal("PAL1", loop, {}, fwx::host::adapter);
    int answered = 0, ticks = 0;
    asio::steady_timer timer(io, std::chrono::milliseconds(1)); /* sends from outside the descriptor's callback */
    task<> running = work(pal, answered);
    timer.async_wait([&](std::error_code) { running.start(); });
    while (answered < 40 && ++ticks < 100000 && io.run_one() != 0) {
    }
    descriptor.release(); /* because the loop owns it */
    std::printf("%d commands: ok\n", answered);
    return answered == 40 ? 0 : 1;
} catch (const std::exception &error) {
    return std::fprintf(stderr, "%s\n", error.what()), 2;
}
