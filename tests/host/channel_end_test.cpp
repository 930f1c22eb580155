/* Opening and ending channels: closing, also from callbacks, dropped peers, and servers that are unregistered. */
#include "channel_fixture.h"

namespace {

using channel_end_t = channel_fixture_t;

class channel_end_over_t : public any_link_t {};
INSTANTIATE_TEST_SUITE_P(links, channel_end_over_t, both_links, link_name);

TEST_F(channel_end_t, the_server_learns_of_the_channel_before_its_messages_and_of_its_end_after_them) {
    end_channel();
    open();
    ASSERT_EQ(ask("q"), 0u);
    ASSERT_EQ(smc_msg_chan_close(&chan_), 0u);
    run();
    EXPECT_EQ(take_log(), "connected, asked q, answer yes, disconnected");
}

TEST_P(channel_end_over_t,
       a_channel_closed_before_the_loop_ran_delivers_no_message_and_its_completions_come_from_the_loop) {
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

TEST_F(channel_end_t, every_operation_refuses_a_stale_handle) {
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

TEST_F(channel_end_t, any_callback_may_close_the_channel_and_run_the_loop) {
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

TEST_P(channel_end_over_t, a_channel_can_be_closed_from_its_buffer_callback) {
    const auto close_instead = [](smc_chan_t chan, void *, size_t) { return smc_msg_chan_close(&chan) + 1; };
    ASSERT_EQ(smc_msg_rx_buffer_set(chan_, rx_, 4, close_instead), 0u);
    ASSERT_EQ(reply("1"), 0u);
    run();
    EXPECT_EQ(take_log(), "disconnected");
    EXPECT_EQ(errors().dropped_no_buffer, 0u);
}

TEST_P(channel_end_over_t,
       a_drop_or_the_servers_end_delivers_its_messages_fails_untaken_ones_and_then_reports_an_error) {
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
