/* Messages through an open channel: buffers, order, flow control, delivery, synchronous messages, fairness. Then the
 * ends of channels: closed ones, also from callbacks, dropped peers, and servers that are unregistered. */
#include <sys/eventfd.h>

#include "channel_fixture.h"

namespace {

using channel_t = channel_fixture_t;

class channel_over_t : public any_link_t {};
INSTANTIATE_TEST_SUITE_P(links, channel_over_t, both_links, link_name);

TEST_F(channel_t, transmit_buffers_are_zeroed_aligned_and_recycled) {
    for (const size_t size : {1u, 31u, 32u, 33u, 48u, 63u, 64u, 65u, 5000u, 4u << 20}) {
        void *msg = nullptr;
        ASSERT_EQ(smc_msg_tx_buffer_alloc(size, &msg), 0u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(msg) % 16, 0u);
        memset(msg, 0xff, size);
        smc_msg_tx_buffer_free(msg);
        void *again = nullptr;
        ASSERT_EQ(smc_msg_tx_buffer_alloc(size, &again), 0u);
        EXPECT_EQ(again, msg);
        const auto *bytes = static_cast<const uint8_t *>(again);
        EXPECT_TRUE(std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; }));
        smc_msg_tx_buffer_free(again);
    }
    void *none = nullptr;
    EXPECT_EQ(smc_msg_tx_buffer_alloc((4u << 20) + 1, &none), FWX_HOST_ERR_TOO_LONG);
    EXPECT_EQ(smc_msg_tx_buffer_alloc(1, nullptr), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(errors().bad_frees, 0u);
}

TEST_P(channel_over_t, messages_of_every_short_length_arrive_as_they_were_sent) {
    static char rx[256];
    ASSERT_EQ(smc_msg_rx_buffer_set(chan_, rx, sizeof(rx), nullptr), 0u);
    std::string text;
    for (char next = '0'; next <= 'z'; text += next++) {
        ASSERT_EQ(send(text), 0u);
        ASSERT_EQ(reply(text), 0u);
        run();
        EXPECT_EQ(count("took " + text), 1);
        EXPECT_EQ(count("got " + text), 1);
    }
    EXPECT_GT(text.size(), 64u);
}

TEST_P(channel_over_t, a_buffer_is_freed_once_and_never_while_it_is_in_the_channel) {
    void *msg = buffer_with(framed("a"));
    EXPECT_EQ(smc_async_msg_sends(chan_, msg, msg, 7, on_done), FWX_HOST_ERR_BAD_BUFFER); /* more than its size */
    EXPECT_EQ(smc_async_msg_sends(chan_, nullptr, msg, 4, on_done), FWX_HOST_ERR_BAD_BUFFER);
    ASSERT_EQ(smc_async_msg_sends(chan_, msg, msg, 5, on_done), 0u);
    smc_msg_tx_buffer_free(msg);
    EXPECT_EQ(errors().bad_frees, 1u);
    EXPECT_EQ(smc_async_msg_sends(chan_, msg, msg, 5, on_done), FWX_HOST_ERR_BAD_BUFFER);
    EXPECT_EQ(live().tx_buffers, 1u);
    run();
    EXPECT_EQ(take_log(), "took a, done a 0");
    smc_msg_tx_buffer_free(msg);
    EXPECT_EQ(errors().bad_frees, 2u);
    ASSERT_EQ(smc_async_msg_sends(chan_, buffer_with(framed("b")), nullptr, 5, nullptr), 0u); /* freed by the service */
    run();
    EXPECT_EQ(log_.back(), "took b");
    EXPECT_EQ(live().tx_buffers, 0u);
}

TEST_P(channel_over_t, flow_control_reports_each_edge_once_and_from_the_loop) {
    ASSERT_EQ(smc_msg_chan_fc_set(chan_, nullptr, 15, 5, on_throttle), 0u);
    fwx_host_server_pause(server_, 1);
    ASSERT_EQ(send("a"), 0u);
    ASSERT_EQ(send("b"), 0u);
    run();
    EXPECT_TRUE(log_.empty());
    ASSERT_EQ(send("c"), 0u); /* 15 bytes: the high mark */
    ASSERT_EQ(send("d"), 0u);
    EXPECT_TRUE(log_.empty());
    run();
    EXPECT_EQ(take_log(), "throttle on");
    during_take_ = [this] { fwx_host_server_pause(server_, 1); }; /* so the server takes one message a turn */
    const auto take_one = [this] {
        fwx_host_server_pause(server_, 0);
        run();
        return take_log();
    };
    EXPECT_EQ(take_one(), "took a, done a 0");
    EXPECT_EQ(take_one(), "took b, done b 0") << "10 bytes are under the high mark only";
    EXPECT_EQ(take_one(), "took c, throttle off, done c 0") << "5 bytes: the low mark";
    EXPECT_EQ(take_one(), "took d, done d 0");
}

TEST_F(channel_t, both_edges_are_reported_when_the_server_is_faster_than_the_loop) {
    ASSERT_EQ(smc_msg_chan_fc_set(chan_, nullptr, 5, 0, on_throttle), 0u);
    ASSERT_EQ(send("a"), 0u);
    ASSERT_EQ(ask("q"), 0u);
    run();
    EXPECT_EQ(take_log(), "took a, asked q, answer yes, throttle on, throttle off, done a 0");
    EXPECT_EQ(smc_msg_chan_fc_set(chan_, nullptr, 5, 6, on_throttle), FWX_HOST_ERR_BAD_ARG);
}

TEST_P(channel_over_t, a_channel_holds_at_most_four_times_its_high_mark) {
    ASSERT_EQ(smc_msg_chan_fc_set(chan_, nullptr, 5, 0, nullptr), 0u);
    fwx_host_server_pause(server_, 1);
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(send("a"), 0u);
    }
    EXPECT_EQ(send("b"), FWX_HOST_ERR_FULL);
    fwx_host_server_pause(server_, 0);
    run();
    EXPECT_EQ(send(std::string(100, 'c')), 0u); /* one message always fits */
    run();
}

/* The buffer callback's behaviour, and whether a message that is too long for the old buffer is then delivered. */
struct rx_case_t {
    const char *what;
    bool has_buffer;
    uint32_t returned;
    size_t given; /* size of the buffer that the callback sets; 0: none */
    bool is_delivered;
};
constexpr rx_case_t rx_cases[] = {{"a larger one", true, 1, 104, true},
                                  {"the first one", false, 1, 200, true},
                                  {"still too small", true, 1, 103, false},
                                  {"none given", true, 0, 0, false},
                                  {"claimed but not given", true, 1, 0, false}};
const rx_case_t *rx_case;
const void *rx_buffer;

uint32_t give_buffer(smc_chan_t chan, void *old_buf, size_t size) {
    static char larger[200];
    EXPECT_EQ(old_buf, rx_buffer);
    EXPECT_EQ(size, 104u);
    if (rx_case->given != 0) {
        EXPECT_EQ(smc_msg_rx_buffer_set(chan, larger, rx_case->given, give_buffer), 0u);
    }
    return rx_case->returned;
}

TEST_P(channel_over_t, a_message_longer_than_the_buffer_is_delivered_into_a_new_one_or_dropped_and_counted) {
    uint64_t dropped = 0;
    for (const rx_case_t &tried : rx_cases) {
        rx_case = &tried;
        rx_buffer = tried.has_buffer ? rx_ : nullptr;
        log_.clear();
        ASSERT_EQ(smc_msg_rx_buffer_set(chan_, tried.has_buffer ? rx_ : nullptr, sizeof(rx_), give_buffer), 0u);
        ASSERT_EQ(reply(std::string(100, 'x')), 0u);
        run();
        EXPECT_EQ(log_, log_lines_t(tried.is_delivered ? 1 : 0, "got " + std::string(100, 'x'))) << tried.what;
        dropped += tried.is_delivered ? 0 : 1;
        EXPECT_EQ(errors().dropped_no_buffer, dropped) << tried.what;
        ASSERT_EQ(smc_msg_rx_buffer_set(chan_, rx_, sizeof(rx_), nullptr), 0u);
        ASSERT_EQ(reply("next"), 0u);
        run();
        EXPECT_EQ(log_.back(), "got next") << tried.what;
    }
}

TEST_P(channel_over_t, messages_without_a_handler_and_malformed_ones_are_dropped_and_counted) {
    ASSERT_EQ(fwx_host_peer_send(peer_, "\x04\xc0\x60\x00 body", 9), 0u);
    ASSERT_EQ(fwx_host_peer_send(peer_, "\x03\xc0\x61\x00 body", 9), 0u);
    ASSERT_EQ(fwx_host_peer_send(peer_, "\x03\xc0\x60", 3), 0u);
    ASSERT_EQ(reply("kept"), 0u);
    run();
    EXPECT_EQ(errors().dropped_no_handler, 2u);
    EXPECT_EQ(errors().dropped_malformed, 1u);
    EXPECT_EQ(fwx_host_peer_send(peer_, rx_, (4u << 20) + 1), FWX_HOST_ERR_TOO_LONG);
    static int calls;
    const auto again = [](void *, void *, void *, size_t) { ++calls; };
    const uint16_t key[] = {type_word, domain};
    ASSERT_EQ(smc_msg_handler_attach(chan_, key, again, 0, type_word, domain), 0u);
    EXPECT_EQ(smc_msg_handler_attach(chan_, key, again, 0, 0x8003, domain), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(smc_msg_handler_attach(chan_, key, again, 0, type_word, domain + 1), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(smc_msg_handler_attach(chan_, key, nullptr, 0, type_word, domain), FWX_HOST_ERR_BAD_ARG);
    ASSERT_EQ(reply("x"), 0u);
    run();
    EXPECT_EQ(take_log(), "got kept");
    EXPECT_EQ(std::exchange(calls, 0), 1) << "by the handler that was attached last";
}

TEST_F(channel_t, an_answer_is_truncated_to_the_reply_buffer_and_a_missing_one_is_an_error) {
    answer_ = "truncated";
    ASSERT_EQ(ask("q", 25), 0u);
    answer_.clear();
    EXPECT_EQ(ask("r"), FWX_HOST_ERR_NO_ANSWER);
    fwx_host_server_pause(server_, 1);
    EXPECT_EQ(ask("unheard"), FWX_HOST_ERR_NO_ANSWER);
    EXPECT_EQ(take_log(), "asked q, answer trunc, asked r");
}

TEST_F(channel_t, an_answer_shorter_than_a_result_or_to_another_message_is_refused) {
    const std::string zeros(16, '\0');
    for (const std::string &bad : {zeros.substr(0, 1), framed(zeros.substr(1)), "\x03\xc0\x61" + zeros + "\1"}) {
        whole_answer_ = bad;
        EXPECT_EQ(ask("q"), FWX_HOST_ERR_BAD_ANSWER) << bad.size();
    }
    EXPECT_EQ(errors().dropped_malformed, 3u);
    EXPECT_EQ(log_, log_lines_t(3, "asked q"));
}

TEST_P(channel_over_t, a_handler_can_ask_how_much_of_its_message_follows_an_address_in_it) {
    const char *const end = rx_ + 4 + 5;
    const void *const before = reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(rx_) - 1);
    during_receive_ = [&] {
        if (log_.back() == "got inner") return;
        EXPECT_EQ(fwx_host_smc_bytes_behind(rx_), 9u);
        EXPECT_EQ(fwx_host_smc_bytes_behind(end - 1), 1u);
        EXPECT_EQ(fwx_host_smc_bytes_behind(end) + fwx_host_smc_bytes_behind(before), 0u);
        ASSERT_EQ(reply("inner"), 0u);
        run();
        EXPECT_EQ(fwx_host_smc_bytes_behind(end - 1), 1u) << "the loop ran within the handler";
        ASSERT_EQ(smc_msg_chan_close(&chan_), 0u);
        EXPECT_EQ(fwx_host_smc_bytes_behind(rx_), 0u) << "the buffer is the client's again";
    };
    ASSERT_EQ(reply("outer"), 0u);
    run();
    EXPECT_EQ(fwx_host_smc_bytes_behind(rx_), 0u);
    EXPECT_EQ(count("got outer"), 1);
}

TEST_P(channel_over_t, channels_do_not_starve_one_another) {
    smc_chan_t other = 0;
    ASSERT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &other), 0u);
    run();
    fwx_host_server_pause(server_, 1);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(send("a"), 0u);
    }
    std::swap(chan_, other);
    ASSERT_EQ(send("z"), 0u);
    std::swap(chan_, other);
    fwx_host_server_pause(server_, 0);
    run();
    const auto place = std::find(log_.begin(), log_.end(), "took z") - log_.begin();
    EXPECT_LT(place, 300);
    EXPECT_EQ(smc_msg_chan_close(&other), 0u);
}

TEST_P(channel_over_t, a_stream_of_messages_does_not_starve_descriptors) {
    for (int i = 0; i < 20000; ++i) {
        ASSERT_EQ(reply("a"), 0u);
    }
    const descriptor_t readable(eventfd(1, EFD_CLOEXEC));
    static size_t lines; /* length of the log when the descriptor's callback ran */
    lines = 0;
    const auto count_lines = [](void *log) { lines = static_cast<log_lines_t *>(log)->size() + 1; };
    ASSERT_EQ(fwx_host_loop_watch(client_loop_, readable.get(), count_lines, &log_), 0u);
    while (lines == 0) {
        if (is_shared()) run_server();
        fwx_host_loop_run_once(client_loop_, 0);
    }
    EXPECT_LT(lines, 4096U);
    fwx_host_loop_unwatch(client_loop_, readable.get());
    run();
}

TEST_F(channel_t, the_server_learns_of_the_channel_before_its_messages_and_of_its_end_after_them) {
    end_channel();
    open();
    ASSERT_EQ(ask("q"), 0u);
    ASSERT_EQ(smc_msg_chan_close(&chan_), 0u);
    run();
    EXPECT_EQ(take_log(), "connected, asked q, answer yes, disconnected");
}

TEST_P(channel_over_t, a_channel_closed_before_the_loop_ran_delivers_no_message_and_completes_from_the_loop) {
    smc_chan_t first = chan_;
    open();
    ASSERT_EQ(smc_msg_chan_fc_set(chan_, nullptr, 1, 0, on_throttle), 0u);
    ASSERT_EQ(send("a"), 0u);
    ASSERT_EQ(smc_msg_chan_close(&chan_), 0u);
    EXPECT_TRUE(log_.empty());
    EXPECT_EQ(live().tx_buffers, 1u);
    run();
    EXPECT_EQ(count("throttle on"), 0);
    EXPECT_EQ(count("done a 5005"), 1);
    EXPECT_EQ(count("took a"), 0);
    EXPECT_EQ(count("connected"), count("disconnected"));
    if (!is_shared()) {
        EXPECT_EQ(count("connected"), 0) << "the server never learns of the channel";
    }
    chan_ = first;
}

TEST_F(channel_t, every_operation_refuses_a_stale_handle) {
    smc_chan_t stale = chan_;
    ASSERT_EQ(smc_msg_chan_close(&chan_), 0u);
    run();
    ASSERT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &chan_), 0u);
    ASSERT_NE(chan_, stale);
    const uint16_t key[] = {type_word, domain};
    void *msg = buffer_with(framed("a"));
    char answer[8];
    EXPECT_EQ(smc_msg_chan_fc_set(stale, nullptr, 2, 1, on_throttle), FWX_HOST_ERR_BAD_CHANNEL);
    EXPECT_EQ(smc_msg_rx_buffer_set(stale, rx_, 64, nullptr), FWX_HOST_ERR_BAD_CHANNEL);
    EXPECT_EQ(smc_msg_handler_attach(stale, key, on_message, 0, type_word, domain), FWX_HOST_ERR_BAD_CHANNEL);
    EXPECT_EQ(smc_async_msg_sends(stale, msg, msg, 5, on_done), FWX_HOST_ERR_BAD_CHANNEL);
    EXPECT_EQ(smc_sync_msg_send(stale, msg, 5, answer, 8), FWX_HOST_ERR_BAD_CHANNEL);
    EXPECT_EQ(smc_msg_chan_close(&stale), FWX_HOST_ERR_BAD_CHANNEL);
    EXPECT_EQ(smc_msg_chan_close(nullptr), FWX_HOST_ERR_BAD_CHANNEL);
    smc_msg_tx_buffer_free(msg);
}

TEST_F(channel_t, any_callback_may_close_the_channel_and_run_the_loop) {
    const std::string taken = "took a, closed, end, disconnected, done a 0, done b 5005, done c 5005";
    const std::string both = "took a, took b, done a 0, ";
    const struct {
        std::function<void()> *callback;
        bool runs_the_loop;
        std::string log;
    } cases[] = {
        {&during_take_, false, taken},
        {&during_take_, true, taken},
        {&during_done_, false, both + "closed, end, done b 0, done c 5005, disconnected"},
        {&during_done_, true, both + "closed, disconnected, end, done b 0, done c 5005"},
        {&during_receive_, false, both + "done b 0, got a, closed, end, done c 5005, disconnected"},
        {&during_receive_, true, both + "done b 0, got a, closed, disconnected, end, done c 5005"},
    };
    for (const auto &tried : cases) {
        *tried.callback = [&] {
            if (send("c") != 0) return; /* the channel is closed already */
            EXPECT_EQ(smc_msg_chan_close(&chan_), 0u);
            EXPECT_EQ(reply("lost"), FWX_HOST_ERR_CHANNEL_DOWN);
            log_.emplace_back("closed");
            if (tried.runs_the_loop) run();
            log_.emplace_back("end");
        };
        for (const char *text : {"a", "b"}) {
            ASSERT_EQ(send(text), 0u);
            ASSERT_EQ(reply(text), 0u);
        }
        run();
        EXPECT_EQ(take_log(), tried.log);
        *tried.callback = nullptr;
        open();
        run();
        log_.clear();
    }
}

TEST_P(channel_over_t, a_channel_can_be_closed_from_its_buffer_callback) {
    const auto close_instead = [](smc_chan_t chan, void *, size_t) { return smc_msg_chan_close(&chan) + 1; };
    ASSERT_EQ(smc_msg_rx_buffer_set(chan_, rx_, 4, close_instead), 0u);
    ASSERT_EQ(reply("1"), 0u);
    run();
    EXPECT_EQ(take_log(), "disconnected");
    EXPECT_EQ(errors().dropped_no_buffer, 0u);
}

TEST_P(channel_over_t, a_drop_or_the_servers_end_delivers_its_messages_fails_untaken_ones_and_then_reports_an_error) {
    for (const bool ends : {false, true}) {
        during_take_ = [&] {
            ASSERT_EQ(reply("1"), 0u);
            ASSERT_EQ(reply("2"), 0u);
            if (ends) return end_server();
            fwx_host_peer_drop(peer_);
            EXPECT_EQ(reply("late"), FWX_HOST_ERR_CHANNEL_DOWN);
        };
        during_done_ = [this] { EXPECT_EQ(send("c"), FWX_HOST_ERR_CHANNEL_DOWN); };
        ASSERT_EQ(send("a"), 0u);
        ASSERT_EQ(send("b"), 0u);
        run();
        EXPECT_EQ(take_log(), "took a, disconnected, done a 0, got 1, got 2, done b 5003, error");
        EXPECT_EQ(smc_msg_chan_close(&chan_), FWX_HOST_ERR_BAD_CHANNEL);
        EXPECT_EQ(live().channels, 0u);
        if (!ends) open();
        run();
        log_.clear();
    }
}

}  // namespace
