/* Fixture of the C++ interface: a client, the server model, and a host loop whose clock stands still until the test
 * advances it. At the end it checks that nothing is left on the platform. */
#ifndef TESTS_CXX_CXX_FIXTURE_H
#define TESTS_CXX_CXX_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "fwx_host/adapter.hpp"
#include "fwx_host/fault.h"
#include "model/model.h"
#include "platform/smc.h"
#include "tests/support/platform_watch.h"

constexpr fwx::nat64::pool a_pool(uint32_t id) {
    return {.id = id,
            .start = fwx::nat64::ipv4_address(0xc0000200 + 8 * id),
            .end = fwx::nat64::ipv4_address(0xc0000207 + 8 * id)};
}
constexpr fwx::nat64::basic_rule a_rule(uint32_t id) {
    return {.rule_id = id, .v6 = "2001:db8::/40", .v4 = "192.0.2.0/24", .ea_len = 16};
}

inline constexpr auto ignored = [](const auto &...) {};

class cxx_fixture_t : public testing::Test {
protected:
    void SetUp() override {
        fwx_host_clock_turn(0);
        make_model();
        bind();
    }
    void TearDown() override {
        client.reset();
        fwx_mapt_plu_cleanup();
        model.reset();
        fwx_host_server_unregister(server_);
        pump();
        EXPECT_EQ(watch_.left() + watch_.faults(), "");
        fwx_host_clock_run();
    }
    void make_model() { model = fwx_nat64_model_t::create(loop, FWX_NAT64_CHANNEL_NAME); }
    void end_model() {
        model.reset();
        pump();
    }
    void restart_model() {
        end_model();
        make_model();
    }
    /** Has the model send the answers that it holds. */
    void release() {
        model->release(fwx_nat64_model_order_t::in_order);
        pump();
    }
    /** Replaces the client. */
    void bind(const fwx::nat64::handlers &handlers = {}, const fwx::nat64::adapter &adapter = fwx::host::adapter) {
        client.emplace("test", loop.get(), handlers, adapter);
        pump();
    }
    /** Replaces the model by another server, and the client by one of that server. */
    void serve(const fwx_host_server_ops_t &ops) {
        client.reset();
        end_model();
        ASSERT_EQ(fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &ops, nullptr, &server_), 0u);
        bind();
    }
    void pump() const { fwx_host_loop_run_until_idle(loop); }
    /** Advances the clock and does what has become due. */
    void turn(uint64_t ms) const {
        fwx_host_clock_turn(ms);
        pump();
    }
    /** Runs a task to its end. Throws if it does not end without an advance of the clock. */
    template <class value_type>
    value_type run(fwx::nat64::task<value_type> task) const {
        task.start();
        pump();
        if (!task.done()) throw std::runtime_error("the task waits for something that does not come");
        return task.get();
    }
    /** Runs a coroutine that awaits a command, list or page and gives its result. */
    template <class awaitable_type>
    auto run(awaitable_type &&awaitable) const {
        /* g++ 12 would copy an awaitable that is awaited by reference. */
        struct in_place_t {
            std::remove_reference_t<awaitable_type> *of;
            bool await_ready() const { return of->await_ready(); }
            auto await_suspend(std::coroutine_handle<> waiting) const { return of->await_suspend(waiting); }
            auto await_resume() const { return of->await_resume(); }
        };
        const auto wait = [](in_place_t each) -> fwx::nat64::task<decltype(each.await_resume())> {
            co_return co_await each;
        };
        return run(wait(in_place_t{&awaitable}));
    }
    template <class value_type>
    static fwx::nat64::task<value_type> begin(fwx::nat64::task<value_type> task) {
        task.start();
        return task;
    }
    /** Starts a task that awaits a command, or the list that a function makes, and appends its error to `ends_`. */
    fwx::nat64::task<> begin(auto awaitable) { return begin(keep(std::move(awaitable))); }
    fwx::nat64::task<> keep(auto command) {
        const fwx::nat64::result got = co_await command;
        ends_.push_back(got.error);
    }
    fwx::nat64::task<> keep(std::invocable auto make_list) {
        const auto got = co_await make_list();
        ends_.push_back(got.error);
    }
    /** Starts a walk and reads it to its end. Gives the number of its entries, or 0 after an error. */
    static fwx::nat64::task<size_t> count(auto make_walk) {
        auto walk = make_walk();
        size_t seen = 0;
        while (auto page = co_await walk.next()) {
            seen += page.size();
        }
        co_return walk.end() ? seen : 0;
    }
    /** Starts each task with a send that the channel refuses because it is full. */
    static void start_refused(std::span<fwx::nat64::task<>> tasks) {
        for (fwx::nat64::task<> &each : tasks) {
            fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, FWX_HOST_ERR_FULL);
            each.start();
        }
    }
    /** Reports as the library does whether the channel is full. */
    static void report_throttle(uint32_t is_full) {
        fwx_nat64_client_info_get()->throttle_cb(is_full == 0 ? 1 : 0, nullptr);
    }
    static void report_room() { report_throttle(0); }
    /** Pauses the server and sends until the channel refuses a send. Returns the result of that send. The channel gets
     * lower marks first, so that 64 KiB fill it instead of 40 MiB, and the commands are small, so that no other fits.
     */
    fwx::nat64::result fill_up() {
        constexpr uint32_t high_bytes = 16384;
        constexpr uint32_t low_bytes = 1024;
        fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
        EXPECT_EQ(smc_msg_chan_fc_set(info->chan, info, high_bytes, low_bytes, report_throttle), 0u);
        model->pause_set(true);
        bool was_throttled = false;
        fwx::nat64::result got = {};
        for (size_t i = 0; i < 1000000 && got; ++i) {
            was_throttled = client->is_throttled();
            got = client->ipalias_upload(ignored);
        }
        EXPECT_EQ(got.error, fwx::nat64::client_errc::no_room);
        EXPECT_TRUE(was_throttled) << "it shows without a turn of the loop";
        return got;
    }
    void add_pools(uint32_t count) {
        for (uint32_t id = 1; id <= count; ++id) {
            ASSERT_TRUE(client->pool_add(a_pool(id), ignored));
        }
        pump();
    }

private:
    platform_watch_t watch_; /* constructed before the loop, so that it counts the loop too */
    fwx_host_server_t *server_ = nullptr;

protected:
    fwx::host::loop loop;
    std::unique_ptr<fwx_nat64_model_t> model;
    std::optional<fwx::nat64::client> client;
    std::vector<std::error_code> ends_;
};

#endif
