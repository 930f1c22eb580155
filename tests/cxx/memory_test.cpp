/* The C++ interface when memory is exhausted, and the memory of its queues. This file replaces operator new for the
 * whole program, because the host's fault injection covers only the C interface's memory. */
#include <malloc.h>

#include <new>

#include "cxx_fixture.h"
#include "fwx_host/fault.h"

namespace nat64 = fwx::nat64;
using namespace std::chrono_literals;

namespace {

bool is_exhausted = false;
size_t live_bytes = 0;

using cxx_memory_test_t = cxx_fixture_t;

}  // namespace

void *operator new(size_t size) {
    void *made = is_exhausted ? nullptr : malloc(size);
    if (made == nullptr) throw std::bad_alloc();
    live_bytes += malloc_usable_size(made);
    return made;
}
void operator delete(void *made) noexcept {
    live_bytes -= malloc_usable_size(made);
    free(made);
}
void operator delete(void *made, size_t) noexcept {
    operator delete(made);
}

TEST_F(cxx_memory_test_t, commands_that_wait_for_room_keep_their_place_without_memory) {
    std::string order;
    const auto wait = [&](nat64::client &c, const char *name) -> nat64::task<> {
        co_await c.pool_add(a_pool(1));
        order += name;
    };
    nat64::task<> tasks[] = {wait(*client, "1"), wait(*client, "2"), wait(*client, "3")};
    for (nat64::task<> &each : tasks) {
        fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, FWX_HOST_ERR_FULL);
        each.start();
    }
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    for (const bool has_room : {false, true}) {
        if (!has_room) fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, FWX_HOST_ERR_FULL);
        is_exhausted = !has_room;
        info->throttle_cb(1, nullptr);
        is_exhausted = false;
        pump();
        EXPECT_EQ(order, has_room ? "123" : "");
    }
}

TEST_F(cxx_memory_test_t, commands_that_time_out_while_the_channel_is_full_leave_no_memory) {
    const auto once = [](nat64::client &c) -> nat64::task<> { co_await c.pool_add(a_pool(1)).within(0ms); };
    size_t before = 0;
    for (int i = 0; i < 1000; ++i) {
        fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, FWX_HOST_ERR_FULL);
        run(once(*client));
        if (i == 300) before = live_bytes;
    }
    EXPECT_LT(live_bytes, before + 3000) << "700 identifiers have 5600 bytes";
}
