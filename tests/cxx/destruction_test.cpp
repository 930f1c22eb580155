/* Destruction of a waiting task, or of the client, at every suspension point: from outside, from a callback, and by the
 * coroutine itself. The sanitizer finds accesses to what is gone. */
#include "cxx_fixture.h"

namespace nat64 = fwx::nat64;
using namespace std::chrono_literals;

namespace {

/** The parameter names the object that is destroyed, and where: while the task waits, from outside or from a callback
 * of another command, or by the coroutine after it was resumed. */
class cxx_destruction_test_t : public cxx_fixture_t, public testing::WithParamInterface<std::string> {
protected:
    bool is_for(const char *part) const { return GetParam().find(part) != std::string::npos; }
    /** Counts the places at which the script goes on, and destroys the client at the chosen one if the coroutine does.
     */
    void passed() {
        ++passed_;
        if (passed_ == strike_at_ && is_for("by_the_coroutine")) client.reset();
    }
    bool is_there() const { return client.has_value(); }

    /** Awaits everything that can be awaited. Goes on after errors, as long as the client exists. */
    nat64::task<> script() {
        co_await client->pool_add(a_pool(1)).within(1s);
        passed();
        if (is_there()) co_await client->mapt_bmr_add(a_rule(1));
        passed();
        for (const size_t width : {3U, 1U}) {
            if (!is_there()) break;
            co_await nat64::when_all(
                6, width, [this](size_t i) { return client->pool_add(a_pool(i == 1 ? 0 : 1)); }, /* pool 0 is invalid */
                [this](size_t, const nat64::result &) { passed(); });
        }
        passed();
        if (is_there())
            co_await nat64::when_all(client->pool_add(a_pool(1)),
                                     client->mapt_dmr_add(nat64::default_rule{3, "64:ff9b::/96"}));
        passed();
        if (is_there()) co_await client->stats_pools();
        passed();
        if (is_there())
            co_await client->stats_pools([this](std::span<const fwx_nat64_stats_pool_entry_t>) { passed(); });
        passed();
        if (is_there()) co_await client->stats_boot();
        passed();
        if (is_there()) {
            auto sessions = client->sessions_full({}, 2);
            while (auto page = co_await sessions.next()) {
                passed();
                if (!is_there()) break;
                co_await client->pool_add(a_pool(1));
                passed();
            }
        }
        passed();
        if (is_there()) co_await inner();
        passed();
        has_ended_ = true;
    }
    nat64::task<> inner() {
        co_await client->pool_del(a_pool(99));
        passed();
    }
    void strike() { is_for("the_task") ? task_.reset() : client.reset(); }

    std::optional<nat64::task<>> task_;
    int passed_ = 0;
    int strike_at_ = 0;
    bool has_ended_ = false;
};

}  // namespace

TEST_P(cxx_destruction_test_t, is_safe_at_every_suspension_point) {
    model->reply_limit_set(2 * sizeof(fwx_nat64_session_full_t));
    bool struck = true;
    for (strike_at_ = 1; struck; ++strike_at_) {
        if (!client) bind();
        fwx_mapt_plu_cleanup();
        model->sessions_generate(8);
        passed_ = 0;
        has_ended_ = false;
        struck = false;
        task_.emplace(begin(script()));
        for (int steps = 0; !has_ended_ && !struck && steps < 1000 && client; ++steps) {
            struck = passed_ + 1 >= strike_at_ && !is_for("by_the_coroutine");
            if (!struck) {
                fwx_host_loop_run_once(loop, 0);
            } else if (is_for("in_a_callback")) {
                ASSERT_TRUE(client->timeout_set(nat64::timeout{nat64::timeout_kind::udp, 5s},
                                                [this](const nat64::result &) { strike(); }));
                pump();
            } else {
                strike();
            }
        }
        struck = struck || !client;
        pump();
        task_.reset();
        pump();
        ASSERT_LT(strike_at_, 100);
    }
    EXPECT_TRUE(has_ended_);
    EXPECT_GT(strike_at_, 20);
}

INSTANTIATE_TEST_SUITE_P(of, cxx_destruction_test_t,
                         testing::Values("the_task", "the_client", "the_task_in_a_callback", "the_client_in_a_callback",
                                         "the_client_by_the_coroutine"),
                         [](const auto &of) { return of.param; });

TEST_F(cxx_fixture_t, a_waiter_that_ends_because_the_client_closes_can_destroy_the_client) {
    client.reset();
    nat64::adapter full = fwx::host::adapter;
    full.is_throttled = [](uint64_t) { return 1U; };
    enum : uint8_t { command, room, stream, nobody };
    for (int destroyer = command; destroyer != nobody; ++destroyer) {
        auto closing = std::make_unique<nat64::client>("test", loop.get(), nat64::handlers{}, full);
        pump();
        size_t ended = 0;
        const auto end = [&](int waiter) {
            ++ended;
            if (waiter == destroyer) closing.reset();
        };
        for (int i = 0; i < 100; ++i) /* more than a block of slots, on both sides of the destroyer's */
            ASSERT_TRUE(
                closing->pool_add(a_pool(1), [&, i](const nat64::result &) { end(i == 50 ? command : nobody); }));
        const auto wait = [&end](nat64::client &c) -> nat64::task<> {
            co_await c.writable();
            end(room);
        };
        const auto listen = [&end](nat64::client &c) -> nat64::task<> {
            auto notifications = c.notifications();
            co_await notifications.next();
            end(stream);
        };
        const nat64::task<> waiters[] = {begin(wait(*closing)), begin(wait(*closing)), begin(listen(*closing)),
                                         begin(listen(*closing))};
        closing->close();
        EXPECT_EQ(ended, 104U);
        EXPECT_FALSE(closing);
    }
}
