/* How channels begin and end: opening, closing, from callbacks too, dropped peers, servers and loops that go away. */
#include "channel_fixture.h"

namespace {

using channel_end_t = channel_fixture_t;

class channel_end_over_t : public any_link_t {};
INSTANTIATE_TEST_SUITE_P(links, channel_end_over_t, both_links, link_name);

TEST_F(channel_end_t, a_channel_opens_to_a_registered_name_only) {
    smc_chan_t chan = 0;
    fwx_host_server_t *second = nullptr;
    EXPECT_EQ(smc_msg_chan_open("nobody", event(), 0, on_error, &chan), FWX_HOST_ERR_NO_SERVER);
    EXPECT_EQ(smc_msg_chan_open("tested", 0, 0, on_error, &chan), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(fwx_host_server_register("tested", loop_, &ops, this, &second), FWX_HOST_ERR_NAME_TAKEN);
    EXPECT_EQ(fwx_host_server_register("other", nullptr, &ops, this, &second), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(live().channels, 1u);
}

TEST_F(channel_end_t, the_server_learns_of_the_channel_before_its_messages_and_of_its_end_after_them) {
    smc_chan_t first = chan_;
    ASSERT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &chan_), 0u);
    ASSERT_EQ(ask("q"), 0u);
    run();
    ASSERT_EQ(smc_msg_chan_close(&chan_), 0u);
    run();
    EXPECT_EQ(log_, (log_lines_t{"connected", "asked q", "answer yes", "disconnected"}));
    chan_ = first;
}

TEST_P(channel_end_over_t,
       a_channel_closed_before_the_loop_ran_hands_over_nothing_and_its_completions_wait_for_the_loop) {
    smc_chan_t first = chan_;
    open();
    ASSERT_EQ(send("a"), 0u);
    ASSERT_EQ(smc_msg_chan_close(&chan_), 0u);
    EXPECT_TRUE(log_.empty());
    EXPECT_EQ(live().tx_buffers, 1u);
    run();
    EXPECT_EQ(count("done a 5005"), 1);
    EXPECT_EQ(count("took a"), 0);
    EXPECT_EQ(count("connected"), count("disconnected"));
    if (!is_shared()) {
        EXPECT_EQ(count("connected"), 0) << "it is never announced";
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
    const struct {
        const char *what;
        std::function<void()> *callback;
        bool runs_the_loop;
        log_lines_t log;
    } cases[] = {
        {"a server that takes",
         &during_take_,
         false,
         {"took a", "closed", "end", "disconnected", "done a 0", "done b 5005", "done c 5005"}},
        {"a server that takes and runs the loop",
         &during_take_,
         true,
         {"took a", "closed", "end", "disconnected", "done a 0", "done b 5005", "done c 5005"}},
        {"a completion",
         &during_done_,
         false,
         {"took a", "took b", "done a 0", "closed", "end", "done b 0", "done c 5005", "disconnected"}},
        {"a completion that runs the loop",
         &during_done_,
         true,
         {"took a", "took b", "done a 0", "closed", "disconnected", "end", "done b 0", "done c 5005"}},
        {"a handler",
         &during_receive_,
         false,
         {"took a", "took b", "done a 0", "done b 0", "got a", "closed", "end", "done c 5005", "disconnected"}},
        {"a handler that runs the loop",
         &during_receive_,
         true,
         {"took a", "took b", "done a 0", "done b 0", "got a", "closed", "disconnected", "end", "done c 5005"}},
    };
    for (const auto &tried : cases) {
        *tried.callback = [&] {
            if (send("c") != 0) return; /* closed before */
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
        EXPECT_EQ(log_, tried.log) << tried.what;
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
    EXPECT_EQ(log_, (log_lines_t{"disconnected"}));
    EXPECT_EQ(errors().dropped_no_buffer, 0u);
}

TEST_P(channel_end_over_t,
       a_drop_or_the_servers_end_delivers_what_was_sent_fails_what_was_not_taken_and_then_is_an_error) {
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
        EXPECT_EQ(log_, (log_lines_t{"took a", "disconnected", "done a 0", "got 1", "got 2", "done b 5003", "error"}));
        EXPECT_EQ(smc_msg_chan_close(&chan_), FWX_HOST_ERR_BAD_CHANNEL);
        EXPECT_EQ(live().channels, 0u);
        if (!ends) open();
        run();
        log_.clear();
    }
}

TEST_P(channel_end_over_t, the_error_handler_may_close_the_channel_and_open_another) {
    during_error_ = [this] {
        EXPECT_EQ(smc_msg_chan_close(&chan_), 0u);
        EXPECT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &chan_), 0u);
    };
    fwx_host_peer_drop(peer_);
    EXPECT_EQ(ask("q"), FWX_HOST_ERR_CHANNEL_DOWN);
    run();
    EXPECT_EQ(send("a"), 0u);
    run();
    EXPECT_EQ(log_, (log_lines_t{"error", "disconnected", "connected", "took a", "done a 0"}));
}

TEST_F(channel_end_t, a_peer_dropped_or_a_server_ended_while_it_is_asked_gives_no_answer) {
    during_take_ = [this] { fwx_host_peer_drop(peer_); };
    EXPECT_EQ(ask("q"), FWX_HOST_ERR_CHANNEL_DOWN);
    run();
    EXPECT_EQ(log_, (log_lines_t{"asked q", "error", "disconnected"}));
    open();
    run();
    log_.clear();
    during_take_ = [this] { end_server(); };
    EXPECT_EQ(ask("q"), FWX_HOST_ERR_CHANNEL_DOWN);
    run();
    EXPECT_EQ(log_, (log_lines_t{"asked q", "disconnected", "error"}));
}

TEST_F(channel_end_t, unregistering_disconnects_every_peer_at_once_and_its_clients_see_errors) {
    smc_chan_t other = 0;
    ASSERT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &other), 0u);
    run();
    ASSERT_EQ(send("a"), 0u);
    log_.clear();
    end_server();
    EXPECT_EQ(log_, (log_lines_t{"disconnected", "disconnected"}));
    EXPECT_EQ(send("b"), FWX_HOST_ERR_CHANNEL_DOWN);
    run();
    EXPECT_EQ(log_, (log_lines_t{"disconnected", "disconnected", "error", "done a 5003", "error"}));
    EXPECT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &other), FWX_HOST_ERR_NO_SERVER);
}

TEST_F(channel_end_t, destroying_the_loop_ends_channels_silently_and_frees_their_messages) {
    ASSERT_EQ(send("a"), 0u);
    ASSERT_EQ(reply("x"), 0u);
    smc_chan_t gone = chan_;
    fwx_host_loop_destroy(loop_);
    EXPECT_TRUE(log_.empty());
    EXPECT_EQ(live().tx_buffers, 0u);
    EXPECT_EQ(live().channels, 0u);
    EXPECT_EQ(smc_msg_chan_close(&gone), FWX_HOST_ERR_BAD_CHANNEL);
    client_loop_ = loop_ = fwx_host_loop_create();
    EXPECT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &gone), FWX_HOST_ERR_NO_SERVER);
    end_server();
    EXPECT_EQ(log_, (log_lines_t{"disconnected"}));
}

TEST_F(channel_end_t, client_and_server_may_run_on_loops_of_their_own) {
    fwx_host_loop_t *other = fwx_host_loop_create();
    smc_chan_t first = chan_;
    ASSERT_EQ(smc_msg_chan_open("tested", reinterpret_cast<smc_event_t>(other), 0, on_error, &chan_), 0u);
    ASSERT_EQ(send("a"), 0u);
    EXPECT_EQ(fwx_host_loop_run_until_idle(other), 0u);
    run();
    EXPECT_EQ(log_, (log_lines_t{"connected", "took a"}));
    fwx_host_loop_run_until_idle(other);
    EXPECT_EQ(log_, (log_lines_t{"connected", "took a", "done a 0"}));
    fwx_host_loop_destroy(other);
    run();
    EXPECT_EQ(log_.back(), "disconnected");
    chan_ = first;
}

}  // namespace
