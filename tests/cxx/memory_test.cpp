/* The C++ interface when memory is exhausted, and the memory of its queues. This file replaces operator new for the
 * whole program, because the host's fault injection covers only the C interface's memory. */
#include <malloc.h>

#include <new>

#include "cxx_fixture.h"

namespace nat64 = fwx::nat64;
using namespace std::chrono_literals;

namespace {

bool is_exhausted = false;
size_t live_bytes = 0;

using cxx_memory_test_t = cxx_fixture_t;

/** A function object whose n-th next move throws. */
struct throws_when_moved_t {
    static inline int moves_left = 0;
    throws_when_moved_t() = default;
    throws_when_moved_t(const throws_when_moved_t &) = default;
    throws_when_moved_t(throws_when_moved_t &&) {
        if (--moves_left == 0) throw std::bad_alloc();
    }
    uint32_t operator()(void *pal_ctx, uint64_t, uint64_t) const { return fwx_nat64_stats_intf_query_a(pal_ctx); }
};

}  // namespace

void *operator new(size_t size, const std::nothrow_t &) noexcept {
    void *made = malloc(size);
    live_bytes += malloc_usable_size(made);
    return made;
}
void *operator new(size_t size) {
    void *made = is_exhausted ? nullptr : operator new(size, std::nothrow);
    if (made == nullptr) throw std::bad_alloc();
    return made;
}
void operator delete(void *made) noexcept {
    live_bytes -= malloc_usable_size(made);
    free(made);
}
void operator delete(void *made, size_t) noexcept {
    operator delete(made);
}

TEST_F(cxx_memory_test_t, a_walk_that_could_not_begin_can_begin_later) {
    model->sessions_generate(1);
    const auto walk = [](nat64::client &c) -> nat64::task<size_t> {
        auto sessions = c.sessions();
        try {
            is_exhausted = true;
            co_await sessions.next();
        } catch (const std::bad_alloc &) {
            is_exhausted = false;
        }
        EXPECT_FALSE(is_exhausted);
        const auto page = co_await sessions.next();
        co_return page.size();
    };
    EXPECT_EQ(run(walk(*client)), 1U);
}

TEST_F(cxx_memory_test_t, a_list_that_cannot_wait_gives_its_coroutine_the_exception) {
    std::vector<nat64::task<>> waiting; /* as many as fit into the memory that a queue has */
    const auto read = [](nat64::client &c, auto on_page) -> nat64::task<bool> {
        try {
            co_await c.stats_pools(on_page);
        } catch (const std::bad_alloc &) {
            is_exhausted = false;
            co_return true;
        }
        co_return false;
    };
    add_pools(1500);
    for (int i = 0; i < 63; ++i)
        waiting.push_back(keep(client->pool_add(a_pool(1))));
    start_refused(waiting);
    const auto fill_up = [](std::span<const fwx_nat64_stats_pool_entry_t>) {
        fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, FWX_HOST_ERR_FULL);
        is_exhausted = true;
    };
    EXPECT_TRUE(run(read(*client, fill_up))) << "its next query waits for room";
    EXPECT_FALSE(is_exhausted);
    EXPECT_EQ(client->outstanding(), 63U);
}

TEST_F(cxx_memory_test_t, commands_that_wait_for_room_keep_their_place_without_memory) {
    std::string order;
    const auto wait = [&](nat64::client &c, const char *name) -> nat64::task<> {
        co_await c.pool_add(a_pool(1));
        order += name;
    };
    nat64::task<> tasks[] = {wait(*client, "1"), wait(*client, "2"), wait(*client, "3")};
    start_refused(tasks);
    for (const bool has_room : {false, true}) {
        if (!has_room) fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, FWX_HOST_ERR_FULL);
        is_exhausted = !has_room;
        report_room();
        is_exhausted = false;
        pump();
        EXPECT_EQ(order, has_room ? "123" : "");
    }
}

TEST_F(cxx_memory_test_t, commands_that_time_out_while_the_channel_is_full_leave_no_memory) {
    size_t before = 0;
    for (int i = 0; i < 1000; ++i) {
        fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, FWX_HOST_ERR_FULL);
        run(client->pool_add(a_pool(1)).within(0ms));
        if (i == 300) before = live_bytes;
    }
    EXPECT_LT(live_bytes, before + 3000) << "700 identifiers have 5600 bytes";
}

TEST_F(cxx_memory_test_t, a_query_whose_functions_cannot_be_moved_leaves_nothing) {
    bool has_ended = false;
    for (int moves = 1; !has_ended; ++moves) {
        throws_when_moved_t ask;
        throws_when_moved_t::moves_left = moves;
        try {
            ASSERT_TRUE(client->query(
                std::move(ask), [](const nat64::page &) { return nat64::list_step::next; },
                [&](const nat64::result &) { has_ended = true; }));
        } catch (const std::bad_alloc &) {
        }
        EXPECT_LE(client->outstanding(), 1U) << moves;
        pump();
        ASSERT_LT(moves, 10);
    }
}
