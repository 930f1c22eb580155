/* Fixture of the C++ interface: a client, the server model, and a host loop whose clock stands still until the test
 * advances it. At the end it checks that nothing is left on the platform. */
#ifndef TESTS_CXX_CXX_FIXTURE_H
#define TESTS_CXX_CXX_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "fwx_host/adapter.hpp"
#include "model/model.h"
#include "tests/support/platform_watch.h"

class cxx_fixture_t : public testing::Test {
protected:
    void SetUp() override {
        fwx_host_clock_turn(0);
        make_model();
        client.emplace("test", loop.get(), fwx::nat64::handlers{}, fwx::host::adapter);
        pump();
    }
    void TearDown() override {
        client.reset();
        fwx_mapt_plu_cleanup();
        model.reset();
        pump();
        EXPECT_EQ(watch_.left() + watch_.faults(), "");
        fwx_host_clock_run();
    }
    void make_model() { model = fwx_nat64_model_t::create(loop, FWX_NAT64_CHANNEL_NAME); }
    void pump() const { fwx_host_loop_run_until_idle(loop); }
    /** Runs a task to its end. Throws if it does not end without an advance of the clock. */
    template <class value_type>
    value_type run(fwx::nat64::task<value_type> task) {
        task.start();
        pump();
        if (!task.done()) throw std::runtime_error("the task waits for something that does not come");
        return task.get();
    }

private:
    platform_watch_t watch_; /* constructed before the loop, so that it counts the loop too */

protected:
    fwx::host::loop loop;
    std::unique_ptr<fwx_nat64_model_t> model;
    std::optional<fwx::nat64::client> client;
};

constexpr fwx::nat64::pool a_pool(uint32_t id) {
    return {.id = id,
            .start = fwx::nat64::ipv4_address(0xc0000200 + 8 * id),
            .end = fwx::nat64::ipv4_address(0xc0000207 + 8 * id)};
}
constexpr fwx::nat64::basic_rule a_rule(uint32_t id) {
    return {.rule_id = id, .v6 = "2001:db8::/40", .v4 = "192.0.2.0/24", .ea_len = 16};
}

/** Sends to a paused server until the channel refuses a send. Returns the result of that send. */
inline fwx::nat64::result fill_up(fwx::nat64::client &client, bool &was_throttled) {
    for (size_t i = 0; i < 1000000; ++i) {
        const fwx::nat64::result got =
            client.session_clear(fwx::nat64::session_filter{}, [](const fwx::nat64::result &) {});
        if (!got) return got;
        was_throttled = was_throttled || client.is_throttled();
    }
    return {};
}

#endif
