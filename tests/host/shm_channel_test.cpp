/* Channels over shared memory. With both ends in this process: waking, rings and backlog, limits, forked children. With
 * a server in another process: synchronous messages, bells, and a server that dies or is stopped. */
#include "channel_fixture.h"
#include "platform/runtime.h"
#include "tests/support/child.h"

namespace {

using shm_channel_t = shm_fixture_t;

TEST_F(shm_channel_t, the_server_is_woken_once_for_all_messages_sent_before_the_loop_waits) {
    EXPECT_FALSE(is_readable(loop_));
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(send("x"), 0u);
    }
    EXPECT_FALSE(is_readable(loop_));
    EXPECT_EQ(fwx_host_loop_process(client_loop_), 0u);
    EXPECT_TRUE(is_readable(loop_));
    EXPECT_EQ(fwx_host_loop_process(loop_), 51u); /* the bell, and the messages */
    EXPECT_FALSE(is_readable(loop_));
    run();
    EXPECT_EQ(count("done x 0"), 50);
}

TEST_F(shm_channel_t, a_program_that_polls_the_descriptor_misses_nothing_sent_after_its_last_pass) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(is_readable(client_loop_));
        fwx_host_loop_next_timeout_ms(client_loop_);
        ASSERT_EQ(send("x"), 0u);
        EXPECT_TRUE(is_readable(client_loop_)) << "it has to wake the server";
        fwx_host_loop_process(client_loop_);
        EXPECT_FALSE(is_readable(client_loop_));
        EXPECT_TRUE(is_readable(loop_));
        fwx_host_loop_process(loop_);
        EXPECT_TRUE(is_readable(client_loop_)) << "the completion";
        fwx_host_loop_process(client_loop_);
        ASSERT_EQ(reply("y"), 0u);
        fwx_host_loop_process(loop_);
        EXPECT_TRUE(is_readable(client_loop_)) << "and the reply";
        fwx_host_loop_process(client_loop_);
    }
    EXPECT_EQ(count("got y"), 3);
}

TEST_F(shm_channel_t, messages_that_do_not_fit_into_the_ring_are_queued_on_either_side_and_arrive_in_order) {
    static char rx[64 << 10];
    ASSERT_EQ(smc_msg_rx_buffer_set(chan_, rx, sizeof(rx), nullptr), 0u);
    const std::string filler(43672, '.'); /* a block of the backlog with six of them lacks one word for a seventh */
    log_lines_t taken;
    log_lines_t received;
    during_take_ = [&] { taken.push_back(log_.back().substr(5, 4)); };
    during_receive_ = [&] { received.push_back(log_.back().substr(4, 4)); };
    log_lines_t expected;
    for (int i = 1000; i < 1100; ++i) {
        expected.push_back(std::to_string(i));
        ASSERT_EQ(send(expected.back() + filler), 0u);
        ASSERT_EQ(reply(expected.back() + filler), 0u);
    }
    expected.emplace_back("last"); /* short enough to fit into the ring, but must not overtake */
    ASSERT_EQ(send("last"), 0u);
    ASSERT_EQ(reply("last"), 0u);
    run_server();
    EXPECT_LT(taken.size(), 25u); /* only those that fit into the ring */
    run();
    EXPECT_EQ(taken, expected);
    EXPECT_EQ(received, expected);
    const std::string longer((1 << 20) - 72 + 1 - 4, 'x'); /* one byte too long for a ring of 1 MiB */
    EXPECT_EQ(send(longer), FWX_HOST_ERR_TOO_LONG);
    EXPECT_EQ(ask(longer), FWX_HOST_ERR_TOO_LONG);
    EXPECT_EQ(reply(longer), FWX_HOST_ERR_TOO_LONG);
    EXPECT_EQ(live().tx_buffers, 0u);
}

TEST_F(shm_channel_t, a_client_that_does_not_read_takes_at_most_64_mib_of_the_servers_memory) {
    const std::string text(size_t{1} << 19, 'x');
    const fwx_host_peers_t before = peers();
    uint32_t code = 0;
    size_t accepted = 0;
    for (; code == 0 && accepted < 1000; ++accepted) {
        code = reply(text);
    }
    EXPECT_EQ(code, FWX_HOST_ERR_FULL);
    EXPECT_GT(accepted, 100u);
    EXPECT_LT(accepted, 140u);
    run();
    EXPECT_EQ(errors().dropped_no_buffer, 1u) << "the message that was in its ring";
    EXPECT_EQ(take_log(), "error, disconnected");
    EXPECT_EQ(peers().dropped - before.dropped, accepted - 1);
    EXPECT_EQ(peers().ended - before.ended, 1u);
    EXPECT_EQ(peers().queued_bytes, 0u);
    open();
    ASSERT_EQ(send("a"), 0u);
    run();
    EXPECT_EQ(log_.back(), "done a 0");
}

TEST_F(shm_channel_t, a_client_that_sends_more_than_a_thousand_malformed_messages_is_dropped) {
    const uint64_t before = peers().malformed;
    during_take_ = [this] { fwx_host_peer_malformed(peer_); };
    for (int i = 0; i < 1002; ++i) {
        ASSERT_EQ(send("x"), 0u);
    }
    run();
    EXPECT_EQ(count("took x"), 1001);
    EXPECT_EQ(count("done x 0"), 1001);
    EXPECT_EQ(count("error"), 1);
    EXPECT_EQ(peers().malformed, before + 1001);
}

TEST_F(shm_channel_t, a_forked_child_can_do_nothing_to_its_parents_channels) {
    fwx_list_t *list = nullptr;
    void *head = nullptr;
    ASSERT_EQ(fwx_list_init(&list, 1), 0u);
    ASSERT_EQ(send("a"), 0u);
    ASSERT_EQ(reply("b"), 0u);
    const pid_t child = fork();
    if (child == 0) {
        const bool is_refused = send("c") == FWX_HOST_ERR_FORKED && ask("c") == FWX_HOST_ERR_FORKED &&
                                try_open() == FWX_HOST_ERR_FORKED && reply("c") == FWX_HOST_ERR_FORKED &&
                                fwx_list_head(list, &head) == FWX_HOST_ERR_FORKED &&
                                smc_msg_chan_close(&chan_) == FWX_HOST_ERR_FORKED;
        fwx_host_peer_drop(peer_);
        run();
        fwx_host_server_unregister(server_);
        fwx_host_loop_destroy(loop_);
        fwx_host_loop_destroy(client_loop_);
        loop_ = client_loop_ = fwx_host_loop_create();
        const bool can_serve_itself = fwx_host_server_register("tested", loop_, &ops, this, &server_) == 0;
        _exit(is_refused && can_serve_itself && log_.empty() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    run();
    EXPECT_EQ(take_log(), "got b, took a, done a 0");
    EXPECT_EQ(fwx_list_head(list, &head), 0u);
    fwx_list_destroy(list);
}

constexpr size_t result_bytes = 20; /* header and result, before the text of an answer */

/* The server process. A message is a key and an order. The server executes the order and sends the message back. */
uint64_t received_count;

void carry_out(const void *msg, size_t size) {
    const std::string order(static_cast<const char *>(msg) + 4, size - 4);
    if (order == "die") raise(SIGKILL);
    if (order == "stop") raise(SIGSTOP);
}

constexpr fwx_host_server_ops_t child_ops = {
    nullptr, nullptr,
    [](void *, fwx_host_peer_t *peer, const void *msg, size_t size) {
        carry_out(msg, size);
        received_count += 1;
        fwx_host_peer_send(peer, msg, size);
    },
    [](void *, fwx_host_peer_t *, const void *msg, size_t size, void *answer, size_t) {
        carry_out(msg, size);
        const std::string text = "after " + std::to_string(received_count);
        memset(answer, 0, result_bytes);
        memcpy(answer, msg, 4);
        memcpy(static_cast<char *>(answer) + result_bytes, text.data(), text.size());
        return result_bytes + text.size();
    }};

[[noreturn]] void serve(const char *name, int ready_fd) {
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_server_t *server = nullptr;
    if (fwx_host_server_register("tested", loop, &child_ops, nullptr, &server) != 0) _exit(1);
    if (fwx_host_server_listen(server, name) != 0) _exit(2);
    if (write(ready_fd, "r", 1) != 1) _exit(3);
    for (;;) {
        fwx_host_loop_run_once(loop, -1);
    }
}

class shm_process_t : public shm_fixture_t {
protected:
    void SetUp() override {
        channel_fixture_t::SetUp();
        end_channel();
        end_server();
        ASSERT_TRUE(child_.start([](int fd) { serve(server_name, fd); }));
        static char rx[2000];
        open();
        ASSERT_EQ(smc_msg_rx_buffer_set(chan_, rx, sizeof(rx), nullptr), 0u);
        log_.clear();
    }
    void TearDown() override {
        smc_msg_chan_close(&chan_);
        fwx_host_sync_timeout_set_ms(5000);
        child_.end(SIGKILL);
        ASSERT_EQ(fwx_host_server_register("tested", loop_, &ops, this, &server_), 0u);
        ASSERT_EQ(fwx_host_server_listen(server_, server_name), 0u) << "the dead server's name can be reused";
        channel_fixture_t::TearDown();
    }

    /** Runs the loop, which may block, until the log has this many lines. */
    void run_until(size_t lines) {
        while (log_.size() < lines) {
            fwx_host_loop_run_once(client_loop_, -1);
        }
    }

    child_t child_;
};

TEST_F(shm_process_t, no_bell_is_missed_when_both_sides_sleep_after_each_message) {
    for (size_t i = 1; i <= 20000; ++i) {
        const std::string text = std::to_string(i);
        ASSERT_EQ(send(text), 0u);
        run_until(2);
        ASSERT_EQ(take_log(), "done " + text.substr(0, 1) + " 0, got " + text);
    }
}

TEST_F(shm_process_t, a_synchronous_message_is_answered_after_all_that_was_sent_before) {
    ASSERT_EQ(ask("q"), 0u);
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(send("x" + std::string(1000, '-')), 0u); /* three times what the ring holds */
    }
    ASSERT_EQ(ask("q"), 0u);
    EXPECT_EQ(take_log(), "answer after 0, answer after 3000") << "only the loop delivers asynchronous messages";
    run_until(6000);
    EXPECT_EQ(count("done x 0"), 3000);
}

TEST_F(shm_process_t, a_stopped_server_causes_a_timeout_and_its_late_answer_is_dropped) {
    fwx_host_sync_timeout_set_ms(50);
    EXPECT_EQ(ask("stop"), FWX_HOST_ERR_NO_ANSWER);
    EXPECT_EQ(ask("unheard"), FWX_HOST_ERR_NO_ANSWER);
    ASSERT_EQ(send("a"), 0u);
    child_.signal(SIGCONT);
    fwx_host_sync_timeout_set_ms(60000);
    ASSERT_EQ(ask("now"), 0u);
    run_until(3);
    EXPECT_EQ(take_log(), "answer after 1, done a 0, got a");
}

TEST_F(shm_process_t, a_server_that_dies_during_a_synchronous_message_is_a_channel_error) {
    fwx_host_sync_timeout_set_ms(UINT64_MAX);
    EXPECT_EQ(ask("die"), FWX_HOST_ERR_CHANNEL_DOWN);
    EXPECT_EQ(ask("again"), FWX_HOST_ERR_CHANNEL_DOWN);
    EXPECT_EQ(send("a"), FWX_HOST_ERR_CHANNEL_DOWN);
    run_until(1);
    EXPECT_EQ(take_log(), "error");
    EXPECT_EQ(send("a"), FWX_HOST_ERR_BAD_CHANNEL);
}

TEST_F(shm_process_t, when_a_server_dies_exactly_the_messages_of_no_finished_turn_fail) {
    child_.stop(); /* so that its first turn begins when all messages are sent */
    for (int i = 0; i < 65; ++i) {
        ASSERT_EQ(send("x"), 0u);
    }
    ASSERT_EQ(send("die"), 0u);
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(send("y" + std::string(1000, '.')), 0u); /* more than the ring holds */
    }
    child_.signal(SIGCONT);
    run_until(64 + 64 + 3002 + 1);
    EXPECT_EQ(count("got x"), 64) << "no answer of the turn that it did not finish";
    EXPECT_EQ(count("done x 0"), 64);
    EXPECT_EQ(count("done x 5003") + count("done d 5003") + count("done y 5003"), 3002);
    EXPECT_EQ(count("error"), 1);
    EXPECT_EQ(live().tx_buffers, 0u);
}

}  // namespace
