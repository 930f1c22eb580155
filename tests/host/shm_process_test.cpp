/* A client and a server that are two processes: synchronous messages, bells, and a server that dies or stands still. */
#include <sys/wait.h>

#include <csignal>

#include "channel_fixture.h"

namespace {

constexpr char server_name[] = "test-server";
constexpr size_t result_bytes = 20; /* before the text of an answer */

/* The server, in its own process. A message is a key and an order; what there is to answer is the order itself. */
namespace server {

uint64_t received_count;
fwx_host_server_t *self;

void reply(fwx_host_peer_t *peer, const std::string &text) {
    const std::string bytes = std::string("\x03\xc0\x60\x00", 4) + text;
    fwx_host_peer_send(peer, bytes.data(), bytes.size());
}

void received(void *, fwx_host_peer_t *peer, const void *msg, size_t size) {
    const std::string order(static_cast<const char *>(msg) + 4, size - 4);
    received_count += 1;
    if (order == "die") raise(SIGKILL);
    if (order != "quiet") reply(peer, order);
}

size_t asked(void *, fwx_host_peer_t *peer, const void *msg, size_t size, void *answer, size_t cap) {
    const std::string order(static_cast<const char *>(msg) + 4, size - 4);
    if (order == "nothing") return 0;
    if (order == "die") raise(SIGKILL);
    if (order == "stop") raise(SIGSTOP);
    memset(answer, 'f', cap);
    memcpy(answer, msg, 4);
    if (order == "full") return cap;
    if (order == "short") return 1;
    if (order == "talk") {
        for (int i = 0; i < 3; ++i) {
            reply(peer, "talk" + std::to_string(i));
        }
    }
    const std::string text = order + " after " + std::to_string(received_count);
    memcpy(static_cast<char *>(answer) + result_bytes, text.data(), text.size());
    return result_bytes + text.size();
}

constexpr fwx_host_server_ops_t ops = {nullptr, nullptr, received, asked};

[[noreturn]] void serve(int ready_fd) {
    fwx_host_loop_t *loop = fwx_host_loop_create();
    if (fwx_host_server_register("tested", loop, &ops, nullptr, &self) != 0) _exit(1);
    if (fwx_host_server_listen(self, server_name) != 0) _exit(2);
    if (write(ready_fd, "r", 1) != 1) _exit(3);
    for (;;) {
        fwx_host_loop_run_once(loop, -1);
    }
}

}  // namespace server

class shm_process_t : public host_fixture_t {
protected:
    static inline shm_process_t *self = nullptr;

    void SetUp() override {
        host_fixture_t::SetUp();
        self = this;
        alarm(120); /* ends a test that hangs */
        start();
        fwx_host_connect_set("tested", server_name);
        loop_ = fwx_host_loop_create();
        open();
    }

    void TearDown() override {
        smc_msg_chan_close(&chan_);
        fwx_host_loop_run_until_idle(loop_);
        fwx_host_loop_destroy(loop_);
        fwx_host_sync_timeout_set_ms(5000);
        fwx_host_connect_set("tested", nullptr);
        stop();
        alarm(0);
        host_fixture_t::TearDown();
    }

    void start() {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        server_ = fork();
        if (server_ == 0) server::serve(ready[1]);
        close(ready[1]);
        char byte = 0;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    void stop() const {
        kill(server_, SIGKILL);
        waitpid(server_, nullptr, 0);
    }

    void open() {
        ASSERT_EQ(smc_msg_chan_open("tested", reinterpret_cast<smc_event_t>(loop_), 0, on_error, &chan_), 0u);
        const uint16_t key[] = {0xc003, 96};
        ASSERT_EQ(smc_msg_handler_attach(chan_, key, on_message, 0, 0xc003, 96), 0u);
        ASSERT_EQ(smc_msg_rx_buffer_set(chan_, rx_, sizeof(rx_), nullptr), 0u);
    }

    static void *buffer_with(const std::string &order) {
        void *msg = nullptr;
        EXPECT_EQ(smc_msg_tx_buffer_alloc(order.size() + 4, &msg), 0u);
        memcpy(msg, "\x03\xc0\x60\x00", 4);
        memcpy(static_cast<char *>(msg) + 4, order.data(), order.size());
        return msg;
    }
    uint32_t send(const std::string &order) {
        void *msg = buffer_with(order);
        const uint32_t code = smc_async_msg_sends(chan_, msg, msg, order.size() + 4, on_done);
        if (code != 0) smc_msg_tx_buffer_free(msg);
        return code;
    }
    uint32_t ask(const std::string &order, std::string *answer = nullptr) {
        void *msg = buffer_with(order);
        std::string reply(64, '\0');
        const uint32_t code = smc_sync_msg_send(chan_, msg, order.size() + 4, reply.data(), reply.size());
        if (answer != nullptr) *answer = reply.substr(result_bytes, reply.find('\0', result_bytes) - result_bytes);
        smc_msg_tx_buffer_free(msg);
        return code;
    }
    /** Runs the loop, which waits when there is nothing to do, until it is so. */
    template <typename condition_t>
    void run_until(condition_t condition) {
        while (!condition()) {
            fwx_host_loop_run_once(loop_, -1);
        }
    }

    static void on_done(void *cookie, void *, uint32_t status) {
        (status == 0 ? self->taken_ : self->failed_) += 1;
        if (status != 0) {
            EXPECT_EQ(status, FWX_HOST_ERR_CHANNEL_DOWN);
        }
        smc_msg_tx_buffer_free(cookie);
    }
    static void on_message(void *, void *, void *msg, size_t size) {
        self->received_.emplace_back(static_cast<const char *>(msg) + 4, size - 4);
    }
    static void on_error(void *) { self->errors_seen_ += 1; }

    runtime_directory_t directory_;
    pid_t server_ = 0;
    fwx_host_loop_t *loop_ = nullptr;
    smc_chan_t chan_ = 0;
    char rx_[2000] = {};
    log_lines_t received_;
    uint32_t taken_ = 0;
    uint32_t failed_ = 0;
    uint32_t errors_seen_ = 0;
};

TEST_F(shm_process_t, no_bell_is_missed_when_both_sides_sleep_after_each_message) {
    for (size_t i = 1; i <= 20000; ++i) {
        ASSERT_EQ(send(std::to_string(i)), 0u);
        run_until([&] { return received_.size() == i; });
        ASSERT_EQ(received_.back(), std::to_string(i));
        ASSERT_EQ(taken_, i);
    }
}

TEST_F(shm_process_t, messages_answered_in_any_batches_stay_in_order) {
    log_lines_t expected;
    for (size_t i = 0; i < 50000; ++i) {
        expected.push_back(std::to_string(i));
        ASSERT_EQ(send(expected.back()), 0u);
        if (i % 97 == 0) fwx_host_loop_run_once(loop_, i % 2 == 0 ? 0 : 1);
    }
    run_until([&] { return received_.size() == expected.size(); });
    EXPECT_EQ(received_, expected);
    EXPECT_EQ(taken_, expected.size());
}

TEST_F(shm_process_t, a_loop_that_spins_first_gets_its_messages_too) {
    fwx_host_spin_set_us(50);
    for (size_t i = 1; i <= 2000; ++i) {
        ASSERT_EQ(send("x"), 0u);
        run_until([&] { return received_.size() == i; });
    }
    fwx_host_spin_set_us(0);
}

TEST_F(shm_process_t, completions_come_without_an_answer) {
    for (uint32_t i = 1; i <= 100; ++i) {
        ASSERT_EQ(send("quiet"), 0u);
        run_until([&] { return taken_ == i; });
    }
    EXPECT_TRUE(received_.empty());
}

TEST_F(shm_process_t, a_synchronous_message_is_answered_after_all_that_was_sent_before) {
    std::string answer;
    ASSERT_EQ(ask("q", &answer), 0u);
    EXPECT_EQ(answer, "q after 0");
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(send("quiet" + std::string(1000, '.')), 0u); /* three times what the ring holds */
    }
    ASSERT_EQ(ask("q", &answer), 0u);
    EXPECT_EQ(answer, "q after 3000");
    EXPECT_EQ(taken_, 0u); /* told by the loop alone */
    run_until([&] { return taken_ == 3000; });
}

TEST_F(shm_process_t, what_arrives_during_a_synchronous_message_stays_for_the_loop_in_order) {
    std::string answer;
    ASSERT_EQ(send("before"), 0u);
    ASSERT_EQ(ask("talk", &answer), 0u);
    EXPECT_EQ(answer, "talk after 1");
    EXPECT_TRUE(received_.empty());
    run_until([&] { return received_.size() == 4; });
    EXPECT_EQ(received_, (log_lines_t{"before", "talk0", "talk1", "talk2"}));
}

TEST_F(shm_process_t, the_longest_answer_fills_the_reply_and_nothing_behind_it) {
    std::string answer;
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(ask("full", &answer), 0u);
        EXPECT_EQ(answer, std::string(64 - result_bytes, 'f'));
    }
}

TEST_F(shm_process_t, a_server_with_nothing_or_too_little_to_say_is_no_answer_at_once) {
    fwx_host_sync_timeout_set_ms(UINT64_MAX);
    EXPECT_EQ(ask("nothing"), FWX_HOST_ERR_NO_ANSWER);
    EXPECT_EQ(ask("short"), FWX_HOST_ERR_BAD_ANSWER);
}

TEST_F(shm_process_t, a_server_that_stands_still_is_no_answer_in_time_and_its_late_answer_is_dropped) {
    fwx_host_sync_timeout_set_ms(50);
    EXPECT_EQ(ask("stop"), FWX_HOST_ERR_NO_ANSWER);
    EXPECT_EQ(ask("unheard"), FWX_HOST_ERR_NO_ANSWER);
    ASSERT_EQ(send("a"), 0u);
    kill(server_, SIGCONT);
    fwx_host_sync_timeout_set_ms(60000);
    std::string answer;
    ASSERT_EQ(ask("now", &answer), 0u);
    EXPECT_EQ(answer, "now after 1");
    run_until([&] { return received_.size() == 1; });
    EXPECT_EQ(taken_, 1u);
}

TEST_F(shm_process_t, a_server_that_dies_during_a_synchronous_message_is_a_channel_error) {
    fwx_host_sync_timeout_set_ms(UINT64_MAX);
    EXPECT_EQ(ask("die"), FWX_HOST_ERR_CHANNEL_DOWN);
    EXPECT_EQ(ask("again"), FWX_HOST_ERR_CHANNEL_DOWN);
    EXPECT_EQ(send("a"), FWX_HOST_ERR_CHANNEL_DOWN);
    run_until([&] { return errors_seen_ == 1; });
    EXPECT_EQ(send("a"), FWX_HOST_ERR_BAD_CHANNEL);
}

TEST_F(shm_process_t, a_server_that_dies_fails_exactly_what_it_did_not_take_in_a_whole_turn) {
    for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(send("x"), 0u);
    }
    ASSERT_EQ(send("x"), 0u);
    ASSERT_EQ(send("die"), 0u);
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(send("y" + std::string(1000, '.')), 0u); /* in the ring and behind it */
    }
    run_until([&] { return errors_seen_ == 1; });
    EXPECT_EQ(received_, log_lines_t(64, "x")) << "no answer of the turn that it did not finish";
    EXPECT_EQ(taken_, 64u);
    EXPECT_EQ(failed_, 3002u);
    EXPECT_EQ(live().tx_buffers, 0u);
}

TEST_F(shm_process_t, a_killed_server_is_an_error_also_to_a_client_that_sleeps_and_its_successor_takes_over) {
    for (int i = 0; i < 5; ++i) {
        stop();
        run_until([&] { return errors_seen_ == 1; });
        start(); /* finds the socket of the dead one */
        errors_seen_ = 0;
        received_.clear();
        open();
        ASSERT_EQ(send("x"), 0u);
        run_until([&] { return received_.size() == 1; });
    }
}

}  // namespace
