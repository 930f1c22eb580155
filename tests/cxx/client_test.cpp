/* Commands of the C++ interface: their results and deadlines, many commands at a time, flow control, unsolicited
 * messages, exceptions, and the loss of a channel. */
#include "cxx_fixture.h"

#include <malloc.h>

#include "fwx_nat64/server_result.h"

namespace nat64 = fwx::nat64;
using namespace std::chrono_literals;

namespace {

class cxx_client_test_t : public cxx_fixture_t {
protected:
    const std::error_code timed_out_ = std::make_error_code(std::errc::timed_out);
    const std::error_code not_ready_ = nat64::nat64_error(FWX_NAT64_ERR_NOT_READY);
};

}  // namespace

TEST_F(cxx_client_test_t, commands_that_are_awaited_together_give_the_servers_verdicts_and_their_texts) {
    const auto [added, rule, refused, invalid] =
        run(nat64::when_all(client->pool_add(a_pool(1)), client->mapt_bmr_add(a_rule(1)), client->pool_del(a_pool(2)),
                            client->pool_add(a_pool(0))));
    EXPECT_TRUE(added && rule.has_verdict);
    EXPECT_EQ(refused.code(), FWX_NAT64_MODEL_ERR_NO_ENTRY);
    EXPECT_EQ(refused.error.message(), "the server has no such entry");
    EXPECT_EQ(invalid.code(), FWX_NAT64_ERR_INVALID);
    EXPECT_TRUE(refused.was_sent && !invalid.was_sent);
    EXPECT_EQ(client->outstanding(), 0u);
}

TEST_F(cxx_client_test_t, the_verdict_on_a_rule_is_the_servers_and_not_the_rule_tables) {
    const nat64::rule_result added = run(client->mapt_bmr_add(a_rule(7)));
    EXPECT_TRUE(added && added.has_verdict);
    EXPECT_EQ(added.bmr_index, 1u);
    model->fail_next(99, 1);
    const nat64::rule_result refused = run(client->mapt_bmr_add(a_rule(8)));
    EXPECT_EQ(refused.code(), 99u);
    EXPECT_EQ(refused.table, nat64::nat64_error(0)) << "the library installs a refused rule";
    model->order_cleanup(true);
    EXPECT_TRUE(run(client->mapt_bmr_del(a_rule(7))).orders_cleanup);
    EXPECT_TRUE(client->mapt_bmr_add(a_rule(9), [this](const auto &) { client->close(); }));
    EXPECT_TRUE(client->mapt_bmr_add(a_rule(10), [this](const nat64::rule_result &unanswered) {
        EXPECT_FALSE(unanswered.has_verdict);
        ends_.push_back(unanswered.error);
    }));
    pump();
    EXPECT_EQ(ends_, std::vector({not_ready_}));
    bind({}, nat64::adapter{});
    model->fail_next(99, 1);
    const nat64::rule_result without_adapter = run(client->mapt_bmr_add(a_rule(11)));
    EXPECT_TRUE(without_adapter && !without_adapter.has_verdict);
}

TEST_F(cxx_client_test_t, a_callback_can_read_the_servers_verdict_on_a_rule_in_c) {
    std::string verdicts;
    const auto read = [&verdicts](const auto &) {
        size_t size = 0;
        const void *head = fwx_host_smc_head(&size);
        uint32_t verdict = 77;
        uint32_t index = 77;
        const int is_rule = fwx_nat64_mapt_verdict(head, size, &verdict, &index);
        verdicts += std::to_string(is_rule) + ' ' + std::to_string(verdict) + ' ' + std::to_string(index) + ", ";
    };
    ASSERT_TRUE(client->mapt_bmr_add(a_rule(7), read));
    pump();
    model->fail_next(99, 1);
    ASSERT_TRUE(client->mapt_bmr_del(a_rule(7), read));
    pump();
    ASSERT_TRUE(client->pool_add(a_pool(1), read));
    pump();
    EXPECT_EQ(verdicts, "1 0 1, 1 99 0, 0 77 77, ");
    uint32_t verdict = 0;
    EXPECT_EQ(fwx_nat64_mapt_verdict(nullptr, 0, &verdict, nullptr), 0);
}

TEST_F(cxx_client_test_t, codes_after_which_a_retry_helps_are_distinguished_from_refusals) {
    for (const uint32_t code : {0x4030020bu, 0x4030020cu, 0xa030060cu, 12u})
        EXPECT_TRUE(fwx_nat64_may_retry(code)) << code;
    for (const uint32_t code : {0u, 17u, 22u, 0x4030020du, 0x40300216u, 0xa0300611u, 0x6004u})
        EXPECT_FALSE(fwx_nat64_may_retry(code)) << code;
}

TEST_F(cxx_client_test_t, an_unanswered_command_ends_at_its_deadline_and_its_late_answer_is_ignored) {
    model->hold();
    client->deadline_set(80ms);
    const nat64::task<> slower = begin(client->pool_add(a_pool(2)));
    const nat64::task<> slow = begin(client->pool_add(a_pool(1)).within(50ms));
    turn(49);
    EXPECT_TRUE(ends_.empty());
    turn(1);
    EXPECT_EQ(ends_, std::vector({timed_out_}));
    client->deadline_set(std::nullopt);
    const nat64::task<> reusing = begin(client->pool_add(a_pool(3))); /* reuses the slot of the command that ended */
    turn(30);
    EXPECT_EQ(ends_, std::vector({timed_out_, timed_out_}));
    release();
    EXPECT_EQ(ends_, std::vector({timed_out_, timed_out_, nat64::nat64_error(0)}));
}

TEST_F(cxx_client_test_t, without_timers_deadlines_are_checked_when_the_program_calls_expire) {
    bind({}, nat64::adapter{.now_ms = fwx_host_clock_ms});
    model->hold();
    const nat64::task<> slow = begin(client->pool_add(a_pool(1)).within(50ms));
    turn(50);
    EXPECT_TRUE(ends_.empty());
    client->expire();
    EXPECT_EQ(ends_, std::vector({timed_out_}));
    release();
}

TEST_F(cxx_client_test_t, deadlines_are_kept_when_a_timer_cannot_be_set_or_rings_too_early) {
    static bool is_first;
    static bool is_early;
    nat64::adapter platform = fwx::host::adapter;
    platform.timer_add = [](void *of, uint64_t delay_ms, void (*fn)(void *), void *arg) {
        const bool is_wrong = std::exchange(is_first, false);
        const auto add = [=](uint64_t ms) { return fwx::host::adapter.timer_add(of, ms, fn, arg); };
        return !is_wrong ? add(delay_ms) : is_early ? add(delay_ms - 1) : 0;
    };
    for (const char *what : {"not set", "early"}) {
        is_first = true;
        is_early = *what == 'e';
        ends_.clear();
        bind({}, platform);
        model->hold();
        const nat64::task<> tasks[] = {begin(client->pool_add(a_pool(1)).within(50ms)),
                                       begin(client->pool_add(a_pool(2)).within(80ms))};
        for (const uint64_t turn_ms : {49U, 1U, 30U}) {
            EXPECT_EQ(ends_.size(), turn_ms == 30U ? 1U : 0U) << what;
            turn(turn_ms);
        }
        EXPECT_EQ(ends_, std::vector(2, timed_out_)) << what;
        release();
    }
}

TEST_F(cxx_client_test_t, many_commands_keep_to_their_window_and_each_reports_its_result) {
    std::vector<int> answers(40);
    size_t most = 0;
    const auto many = [&]() -> nat64::task<nat64::all_result> {
        const auto make = [&](size_t i) { return client->pool_add(a_pool(static_cast<uint32_t>(i % 10))); };
        co_return co_await nat64::when_all(40, 8, make, [&](size_t index, const nat64::result &got) {
            EXPECT_EQ(bool{got}, index % 10 != 0) << index << ": pool 0 is invalid";
            most = std::max(most, client->outstanding());
            ++answers.at(index);
        });
    };
    nat64::task<nat64::all_result> task = begin(many());
    EXPECT_EQ(client->outstanding(), 8u);
    pump();
    const nat64::all_result sum = task.get();
    EXPECT_EQ(sum.failed, 4u);
    EXPECT_EQ(sum.first_error, nat64::nat64_error(FWX_NAT64_ERR_INVALID));
    EXPECT_EQ(most, 7u) << "the command that was just answered no longer counts";
    EXPECT_EQ(answers, std::vector(40, 1));
}

TEST_F(cxx_client_test_t, a_callback_is_called_once_but_never_for_a_command_that_was_not_sent) {
    std::vector<uint32_t> codes;
    const auto note = [&codes, alive = std::make_shared<int>()](const nat64::result &got) {
        codes.push_back(got.code());
    };
    EXPECT_TRUE(client->pool_add(a_pool(1), note));
    EXPECT_TRUE(
        client->mapt_bmr_add(a_rule(1), [&codes](const nat64::rule_result &got) { codes.push_back(got.bmr_index); }));
    EXPECT_EQ(client->pool_add(a_pool(0), note).code(), FWX_NAT64_ERR_INVALID);
    EXPECT_TRUE(codes.empty());
    model->duplicate_set(2);
    pump();
    EXPECT_EQ(codes, (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(client->outstanding(), 0u);
}

TEST_F(cxx_client_test_t, commands_in_flight_end_with_their_channel_and_the_next_command_opens_another_one) {
    std::string heard;
    bind({.flow = [&](bool may_send) { heard += may_send ? " room" : " full"; }, .lost = [&] { heard += " lost"; }});
    model->silent_set(true);
    const nat64::task<> taken = begin(client->pool_add(a_pool(1)));
    pump();
    EXPECT_TRUE(ends_.empty());
    model->drop_clients();
    pump();
    EXPECT_EQ(ends_, std::vector({make_error_code(nat64::client_errc::connection_lost)}));
    EXPECT_EQ(heard, " lost");
    EXPECT_FALSE(client->is_connected());
    model->silent_set(false);
    EXPECT_TRUE(run(client->pool_add(a_pool(1))));
    EXPECT_TRUE(client->is_connected());
    model->silent_set(true);
    nat64::task<> replaced = keep(client->pool_add(a_pool(2)));
    std::vector<std::error_code> later; /* of commands in slots that were free when the channel ended */
    EXPECT_TRUE(client->pool_add(a_pool(3), [&](const nat64::result &) {
        model->silent_set(false);
        for (const uint32_t id : {4U, 5U}) {
            EXPECT_TRUE(client->pool_add(a_pool(id), [&](const nat64::result &got) { later.push_back(got.error); }));
        }
        replaced = begin(client->pool_add(a_pool(2)));
    }));
    replaced.start();
    pump();
    model->drop_clients();
    pump();
    EXPECT_TRUE(replaced.done());
    EXPECT_EQ(ends_.back(), nat64::nat64_error(0)) << "it was sent through another channel";
    EXPECT_EQ(later, std::vector(2, nat64::nat64_error(0)));
    end_model();
    EXPECT_EQ(run(client->pool_add(a_pool(1))).error, nat64::nat64_error(FWX_NAT64_ERR_AGAIN));
}

TEST_F(cxx_client_test_t, a_client_that_replaces_another_in_a_callback_is_not_told_that_the_channel_was_lost) {
    bool was_told = false;
    model->silent_set(true);
    EXPECT_TRUE(client->pool_add(a_pool(1), [&](const nat64::result &) {
        model->silent_set(false);
        client.emplace("test", loop.get(), nat64::handlers{.lost = [&] { was_told = true; }}, fwx::host::adapter);
    }));
    pump();
    model->drop_clients();
    pump();
    EXPECT_TRUE(client->is_connected());
    EXPECT_FALSE(was_told);
}

TEST_F(cxx_client_test_t, a_wait_for_room_ends_when_there_is_room_or_the_channel_is_gone) {
    const auto wait = [](nat64::client &c) -> nat64::task<> { co_await c.writable(); };
    for (const bool dies : {false, true}) {
        fill_up();
        const nat64::task<> waiting = begin(wait(*client));
        { const nat64::task<> dropped = begin(wait(*client)); }
        pump();
        EXPECT_FALSE(waiting.done());
        if (dies) model->drop_clients();
        model->pause_set(false);
        pump();
        EXPECT_TRUE(waiting.done() && !client->is_throttled());
    }
}

TEST_F(cxx_client_test_t, unsolicited_messages_reach_their_handlers) {
    std::string heard;
    using words_t = std::span<const uint32_t, 3>;
    bind({.record = [&](uint32_t op, words_t words) { heard += std::to_string(op) + std::to_string(words[2]) + ' '; },
          .event = [&] { client.reset(); },
          .mapping = [&](const fwx_nat64_stats_mapping_entry_t &mapping) { heard += std::to_string(mapping.id); }});
    ASSERT_EQ(model->notify_record(true, 1, 2, 3), 0u);
    ASSERT_EQ(model->notify_mapping(42, true, 1), 0u);
    ASSERT_EQ(model->notify_event(), 0u);
    pump();
    EXPECT_EQ(heard, "13 42");
    EXPECT_FALSE(client) << "the event was heard";
}

TEST_F(cxx_client_test_t, unsolicited_messages_can_be_awaited_until_the_client_ends) {
    using kind_t = nat64::notification_kind;
    const auto listen = [](nat64::notification_stream &stream, std::string &into) -> nat64::task<> {
        while (const auto each = co_await stream.next()) {
            if (each->kind == kind_t::record) into += std::to_string(each->op) + std::to_string(each->words[1]) + ' ';
            if (each->kind == kind_t::event) into += "event ";
            if (each->kind == kind_t::mapping) into += std::to_string(each->mapping.id) + ' ';
        }
        into += "missed " + std::to_string(stream.missed());
    };
    nat64::notification_stream streams[] = {client->notifications(), client->notifications(), client->notifications()};
    std::string told[3];
    const nat64::task<> listeners[] = {begin(listen(streams[0], told[0])), begin(listen(streams[1], told[1]))};
    {
        const nat64::notification_stream dropped = client->notifications();
        ASSERT_EQ(model->notify_record(true, 1, 2, 3), 0u);
        pump();
    }
    ASSERT_EQ(model->notify_mapping(42, true, 1), 0u);
    pump();
    EXPECT_EQ(told[0] + told[1], "12 42 12 42 ");
    for (int i = 0; i < 2500; ++i) {
        ASSERT_EQ(model->notify_event(), 0u);
        pump();
    }
    client.reset();
    for (const int i : {0, 1}) {
        EXPECT_TRUE(listeners[i].done());
        EXPECT_EQ(told[i].substr(told[i].size() - 14), "event missed 0");
    }
    run(listen(streams[2], told[2]));
    EXPECT_EQ(std::count(told[2].begin(), told[2].end(), 'v'), nat64::notification_stream::kept_most) << "events";
    EXPECT_EQ(streams[2].missed(), 1502u);
}

TEST_F(cxx_client_test_t, a_stream_that_is_read_but_never_empty_does_not_grow) {
    const auto in_use = [] {
        const struct mallinfo2 heap = mallinfo2();
        return heap.uordblks + heap.hblkhd;
    };
    nat64::notification_stream stream = client->notifications();
    ASSERT_EQ(model->notify_event(), 0u);
    const size_t before = in_use();
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(model->notify_event(), 0u);
        pump();
        ASSERT_TRUE(run(stream.next()));
    }
    EXPECT_LT(in_use(), before + 4 * nat64::notification_stream::kept_most * sizeof(nat64::notification));
}

TEST_F(cxx_client_test_t, a_stream_or_walk_and_the_coroutine_that_awaits_it_may_be_destroyed_in_either_order) {
    const auto once = [](auto &source) -> nat64::task<> { static_cast<void>(co_await source.next()); };
    std::unique_ptr<nat64::notification_stream> short_lived(new nat64::notification_stream(client->notifications()));
    const nat64::task<> outlives_it = begin(once(*short_lived));
    short_lived.reset();
    nat64::notification_stream stream = client->notifications();
    model->sessions_generate(10);
    auto sessions = client->sessions();
    { const nat64::task<> dropped[] = {begin(once(stream)), begin(once(sessions))}; }
    ASSERT_EQ(model->notify_event(), 0u);
    pump();
    EXPECT_FALSE(outlives_it.done());
    EXPECT_TRUE(run(stream.next()));
    EXPECT_TRUE(run(sessions.next()));
}

TEST_F(cxx_client_test_t, a_second_client_is_refused_and_leaves_the_first_alone) {
    EXPECT_THROW(nat64::client("two", loop.get()), std::system_error);
    std::error_code error;
    {
        nat64::client second("two", loop.get(), {}, {}, error);
        EXPECT_EQ(error, nat64::nat64_error(17));
        EXPECT_EQ(second.pool_add(a_pool(1), ignored).error, not_ready_);
    }
    EXPECT_TRUE(run(client->pool_add(a_pool(1))));
}

TEST_F(cxx_client_test_t, a_bind_that_fails_reports_it_and_leaves_nothing) {
    client.reset();
    end_model();
    std::error_code error;
    client.emplace("test", loop.get(), nat64::handlers{}, fwx::host::adapter, error);
    EXPECT_EQ(error, nat64::nat64_error(FWX_NAT64_ERR_AGAIN));
    EXPECT_FALSE(client->is_open());
    make_model();
    for (const fwx_host_op_t failing : {FWX_HOST_OP_CGM_REGISTER, FWX_HOST_OP_SYNC_SEND, FWX_HOST_OP_COUNT}) {
        fwx_host_fault_arm(failing, 1, 0);
        client.emplace("test", loop.get(), nat64::handlers{}, fwx::host::adapter, error);
        const bool is_good = failing == FWX_HOST_OP_COUNT;
        EXPECT_EQ(error, nat64::nat64_error(is_good ? 0 : FWX_HOST_ERR_FAULT)) << fwx_host_op_name(failing);
        EXPECT_EQ(client->is_open(), is_good);
    }
}

TEST_F(cxx_client_test_t,
       an_add_of_a_rule_that_the_table_still_has_after_a_server_restart_fails_until_it_is_forgotten) {
    EXPECT_TRUE(run(client->mapt_bmr_add(a_rule(7))));
    restart_model();
    const nat64::rule_result stale = run(client->mapt_bmr_add(a_rule(7)));
    EXPECT_FALSE(stale);
    EXPECT_EQ(stale.error, nat64::nat64_error(0)) << "the server has carried it out";
    EXPECT_EQ(stale.first_error(), nat64::nat64_error(FWX_NAT64_ERR_EXISTS));
    restart_model();
    const nat64::all_result sum = run(nat64::when_all(1, 1, [&](size_t) { return client->mapt_bmr_add(a_rule(7)); }));
    EXPECT_EQ(sum.failed, 1u);
    EXPECT_EQ(sum.first_error, nat64::nat64_error(FWX_NAT64_ERR_EXISTS));
    restart_model();
    nat64::client::rules_forget();
    EXPECT_TRUE(run(client->mapt_bmr_add(a_rule(7))));
}

TEST_F(cxx_client_test_t, a_loop_that_only_sends_sees_a_full_channel_and_awaited_commands_wait_for_room) {
    const nat64::result refused = fill_up();
    EXPECT_EQ(refused.error, nat64::client_errc::no_room);
    EXPECT_TRUE(refused.code() == 0 && !refused.was_sent);
    std::vector<std::string> ended;
    const auto end = [&](const char *name, bool is_good) { ended.push_back(name + std::string(is_good ? "" : "!")); };
    const auto one = [&]() -> nat64::task<> { end("one", bool{co_await client->pool_add(a_pool(1))}); };
    const auto query = [&]() -> nat64::task<> { end("query", bool{co_await client->stats_pools()}); };
    const auto both = [&]() -> nat64::task<> {
        const auto [a, b] = co_await nat64::when_all(client->pool_add(a_pool(2)), client->pool_add(a_pool(3)));
        end("both", a && b);
    };
    const auto window = [&]() -> nat64::task<> {
        const auto make = [&](size_t i) { return client->pool_add(a_pool(static_cast<uint32_t>(10 + i))); };
        const auto sum = co_await nat64::when_all(9, 4, make);
        end("window", bool{sum});
    };
    const auto room = [&]() -> nat64::task<> {
        co_await client->writable();
        end("room", !client->is_throttled());
    };
    const nat64::task<> waiting[] = {begin(one()), begin(query()), begin(both()), begin(window()), begin(room())};
    const nat64::task<> late = begin(client->pool_add(a_pool(99)).within(50ms));
    nat64::task<> dropped = begin(client->pool_add(a_pool(98)));
    turn(50);
    EXPECT_EQ(ends_, std::vector({timed_out_})) << "the deadline passed while it waited for room";
    EXPECT_TRUE(ended.empty());
    { const nat64::task<> gone = std::move(dropped); }
    model->pause_set(false);
    pump();
    std::sort(ended.begin(), ended.end());
    EXPECT_EQ(ended, (std::vector<std::string>{"both", "one", "query", "room", "window"}));
    EXPECT_EQ(model->totals().pools, 12u);
    EXPECT_FALSE(client->is_throttled());
    EXPECT_EQ(client->outstanding(), 0u);
}

TEST_F(cxx_client_test_t, the_time_of_a_command_and_of_a_lists_first_reply_includes_the_wait_for_room) {
    const auto both = [&](nat64::client &c) -> nat64::task<> {
        const auto [a, b] =
            co_await nat64::when_all(c.pool_add(a_pool(1)).within(50ms), c.pool_add(a_pool(2)).within(50ms));
        ends_.insert(ends_.end(), {a.error, b.error});
    };
    const auto window = [&](nat64::client &c) -> nat64::task<> {
        co_await nat64::when_all(
            2, 1, [&](size_t) { return c.pool_add(a_pool(3)).within(50ms); },
            [&](size_t, const nat64::result &got) { ends_.push_back(got.error); });
    };
    const auto list = [&](nat64::client &c) -> nat64::task<> {
        ends_.push_back((co_await c.stats_pools().within(50ms)).error);
    };
    for (const bool has_room : {false, true}) {
        ends_.clear();
        model->hold();
        nat64::task<> tasks[] = {keep(client->pool_add(a_pool(4)).within(50ms)), both(*client), window(*client),
                                 list(*client)};
        start_refused(tasks);
        turn(30);
        if (has_room) report_room();
        turn(19);
        EXPECT_TRUE(ends_.empty()) << has_room;
        turn(1);
        EXPECT_EQ(ends_, std::vector(5, timed_out_)) << has_room;
        release();
        ASSERT_EQ(ends_.size(), 6U);
        EXPECT_FALSE(ends_.back()) << "the time of the second command of a window begins when the first has ended";
        report_room();
    }
}

TEST_F(cxx_client_test_t, commands_and_lists_that_wait_for_room_end_with_the_client_and_were_not_sent) {
    fill_up();
    const nat64::task<> one = begin(client->pool_add(a_pool(1)));
    const auto window_of = [](nat64::client &c) -> nat64::task<> {
        const auto sum = co_await nat64::when_all(3, 2, [&](size_t) { return c.pool_add(a_pool(2)); });
        EXPECT_EQ(sum.failed, 3u);
    };
    const nat64::task<> window = begin(window_of(*client));
    const size_t waiting = client->outstanding();
    { const nat64::task<> dropped = begin(window_of(*client)); }
    EXPECT_EQ(client->outstanding(), waiting);
    const auto list_of = [](nat64::client &c) -> nat64::task<> {
        const auto pools = co_await c.stats_pools();
        EXPECT_TRUE(pools.error && !pools.was_sent);
    };
    const nat64::task<> list = begin(list_of(*client));
    client->close();
    EXPECT_EQ(ends_, std::vector({not_ready_}));
    EXPECT_TRUE(window.done() && list.done());
    EXPECT_FALSE(client->is_open());
    model->pause_set(false);
}

TEST_F(cxx_client_test_t, an_exception_reaches_the_awaiting_coroutine_from_a_call_at_once_and_from_the_loop) {
    const auto thrower = [](size_t at) {
        return [at](size_t index, const nat64::result &) {
            if (index == at) throw std::runtime_error("thrown");
        };
    };
    /* Pool 0 is refused at once, pool 1 is answered. */
    for (const size_t at : {size_t{0}, size_t{1}}) {
        const auto window = [&](nat64::client &c) -> nat64::task<> {
            try {
                co_await nat64::when_all(
                    3, 2, [&](size_t i) { return c.pool_add(a_pool(static_cast<uint32_t>(i))); }, thrower(at));
            } catch (const std::runtime_error &) {
                EXPECT_EQ(c.outstanding(), 0u);
                throw;
            }
        };
        EXPECT_THROW(run(window(*client)), std::runtime_error) << at;
        const auto make = [&](size_t i) {
            if (i == at + 1) throw std::runtime_error("thrown");
            return client->pool_add(a_pool(static_cast<uint32_t>(i)));
        };
        EXPECT_THROW(run(nat64::when_all(3, 1, make)), std::runtime_error) << at;
        EXPECT_EQ(client->outstanding(), 0u);
    }
    const auto page = [](std::span<const fwx_nat64_stats_pool_entry_t>) { throw std::runtime_error("thrown"); };
    EXPECT_THROW(run(client->stats_pools(page)), std::runtime_error);
    const auto send = [](void *) -> uint32_t { throw std::runtime_error("thrown"); };
    EXPECT_THROW(run(client->configure(send)), std::runtime_error);
    EXPECT_EQ(client->outstanding(), 0u);
}

TEST_F(cxx_client_test_t, an_error_or_exception_of_a_send_that_is_repeated_for_room_reaches_the_coroutine) {
    fill_up();
    const nat64::task<> refused = begin(client->pool_add(a_pool(1)));
    const auto both_of = [](nat64::client &c) -> nat64::task<> {
        const auto again = [calls = 0](void *pal_ctx) mutable {
            if (calls++ != 0) throw std::runtime_error("thrown");
            return fwx_nat64_ipalias_upload_a(pal_ctx);
        };
        co_await nat64::when_all(c.pool_add(a_pool(1)), c.configure(again), c.pool_add(a_pool(2)));
    };
    nat64::task<> both = begin(both_of(*client));
    fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, 0);
    model->pause_set(false);
    pump();
    EXPECT_EQ(ends_, std::vector({nat64::nat64_error(FWX_HOST_ERR_FAULT)}));
    EXPECT_THROW(both.get(), std::runtime_error);
    EXPECT_EQ(client->outstanding(), 0U);
}

TEST_F(cxx_client_test_t, exceptions_of_callbacks_handlers_and_unawaited_tasks_reach_the_handler) {
    std::string heard;
    const auto hear = [&](const std::exception_ptr &what) {
        try {
            std::rethrow_exception(what);
        } catch (const std::runtime_error &error) {
            heard += error.what();
        }
    };
    bind({.event = [] { throw std::runtime_error("event "); }, .failed = hear});
    EXPECT_TRUE(client->pool_add(a_pool(1), [](const nat64::result &) { throw std::runtime_error("callback "); }));
    pump();
    EXPECT_TRUE(client->stats_pools(
        [](std::span<const fwx_nat64_stats_pool_entry_t>) { throw std::runtime_error("page "); },
        [&](const nat64::result &got) { heard += got.error == nat64::client_errc::callback_threw ? "ended " : "?"; }));
    pump();
    ASSERT_EQ(model->notify_event(), 0u);
    pump();
    const auto thrower = [](nat64::client &c) -> nat64::task<> {
        co_await c.pool_add(a_pool(1));
        throw std::runtime_error("task ");
    };
    {
        const nat64::task<> forgotten = begin(thrower(*client));
        pump();
    }
    const auto outer = [&](nat64::client &c) -> nat64::task<> { co_await thrower(c); };
    EXPECT_THROW(run(outer(*client)), std::runtime_error) << "an awaited error does not reach the handler";
    EXPECT_TRUE(client->pool_add(a_pool(1), [](const nat64::result &) { throw std::runtime_error("close "); }));
    client->close();
    EXPECT_EQ(heard, "callback page ended event task close ");
}

TEST_F(cxx_client_test_t, times_out_of_range_are_errors_at_the_call_and_zero_is_now) {
    EXPECT_THROW((void)client->pool_add(a_pool(1)).within(-1ms), std::out_of_range);
    EXPECT_THROW((void)client->pool_add(a_pool(1)).within(std::chrono::hours::max()), std::out_of_range);
    EXPECT_THROW((void)client->stats_pools().within(-1s), std::out_of_range);
    EXPECT_THROW(client->deadline_set(-1ms), std::out_of_range);
    EXPECT_THROW((void)fwx::host::sleep(loop, -1ms), std::out_of_range);
    for (const auto value : {-1s, std::chrono::seconds(int64_t{1} << 32)}) {
        EXPECT_THROW((void)client->timeout_set(nat64::timeout{nat64::timeout_kind::udp, value}), std::out_of_range);
    }
    model->hold();
    const nat64::task<> at_once = begin(client->pool_add(a_pool(1)).within(0ms));
    pump();
    EXPECT_EQ(ends_, std::vector({timed_out_}));
    const auto query = [&](nat64::client &c) -> nat64::task<> {
        ends_.push_back((co_await c.stats_pools().within(20ms)).error);
        auto sessions = c.sessions();
        sessions.within(20ms);
        co_await sessions.next();
        ends_.push_back(sessions.end().error);
    };
    const nat64::task<> task = begin(query(*client));
    turn(20);
    turn(20);
    EXPECT_EQ(ends_, std::vector(3, timed_out_));
    release();
}

TEST_F(cxx_client_test_t, a_loop_that_awaits_tasks_which_end_at_once_takes_no_stack) {
    client->close();
    const auto refused = [](nat64::client &c) -> nat64::task<bool> { co_return !(co_await c.pool_add(a_pool(1))); };
    const auto count = [&](nat64::client &c) -> nat64::task<uint32_t> {
        uint32_t total = 0;
        for (int i = 0; i < 300000; ++i) {
            if (co_await refused(c)) ++total;
        }
        co_return total;
    };
    EXPECT_EQ(run(count(*client)), 300000U);
}

TEST_F(cxx_client_test_t, a_task_that_is_not_done_has_no_value_and_one_that_is_replaced_is_destroyed) {
    const auto wait = [](nat64::client &c, std::shared_ptr<int>) -> nat64::task<> { co_await c.pool_add(a_pool(1)); };
    const auto first = std::make_shared<int>();
    nat64::task<> task = wait(*client, first);
    task.start();
    EXPECT_THROW(task.get(), std::logic_error);
    nat64::task<> other = wait(*client, nullptr);
    task = std::move(other);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_EQ(client->outstanding(), 0u);
}
