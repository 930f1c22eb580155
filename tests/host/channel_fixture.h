/* A fixture with a server and a channel to it, over either kind of link. All callbacks of both write to one log, so
 * that a test can check the order of events. */
#ifndef TESTS_HOST_CHANNEL_FIXTURE_H
#define TESTS_HOST_CHANNEL_FIXTURE_H

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>

#include "host_fixture.h"
#include "platform/smc.h"
#include "tests/support/hand_over.h"
#include "tests/support/runtime_directory.h"

using log_lines_t = std::vector<std::string>;

/** With between_processes, server and client communicate as two processes do, but both are in this process, each on its
 * own loop. */
enum class link_kind_t : uint8_t { within_a_process, between_processes };

class channel_fixture_t : public host_fixture_t {
protected:
    explicit channel_fixture_t(link_kind_t kind = link_kind_t::within_a_process) : kind_(kind) {}

    static constexpr char server_name[] = "test-server";
    static constexpr uint16_t type_word = 0xc003;
    static constexpr uint16_t domain = 96;
    static inline channel_fixture_t *self = nullptr;

    void SetUp() override {
        host_fixture_t::SetUp();
        self = this;
        client_loop_ = loop_ = fwx_host_loop_create();
        ASSERT_EQ(fwx_host_server_register("tested", loop_, &ops, this, &server_), 0u);
        if (is_shared()) {
            alarm(120); /* ends a test that hangs */
            directory_.emplace();
            client_loop_ = fwx_host_loop_create();
            ASSERT_EQ(fwx_host_server_listen(server_, server_name), 0u);
            ASSERT_EQ(fwx_host_connect_set("tested", server_name), 0u);
        }
        open();
        run();
        log_.clear();
    }

    void TearDown() override {
        during_take_ = during_done_ = during_receive_ = nullptr;
        smc_msg_chan_close(&chan_);
        end_server();
        run();
        if (is_shared()) {
            fwx_host_connect_set("tested", nullptr);
            fwx_host_loop_destroy(client_loop_);
            EXPECT_TRUE(directory_->is_clean());
            alarm(0);
        }
        fwx_host_loop_destroy(loop_);
        host_fixture_t::TearDown();
    }

    static fwx_host_peers_t peers() {
        fwx_host_peers_t now{};
        fwx_host_peers_get(&now);
        return now;
    }
    bool is_shared() const { return kind_ == link_kind_t::between_processes; }
    smc_event_t event() const { return reinterpret_cast<smc_event_t>(client_loop_); }
    void run_client() const { fwx_host_loop_run_until_idle(client_loop_); }
    void run_server() const { fwx_host_loop_run_until_idle(loop_); }
    void run() const {
        while (fwx_host_loop_run_until_idle(client_loop_) + fwx_host_loop_run_until_idle(loop_) != 0) {
        }
    }

    std::ptrdiff_t count(const std::string &line) const { return std::count(log_.begin(), log_.end(), line); }

    std::string take_log() {
        std::string lines;
        for (const std::string &line : std::exchange(log_, {})) {
            lines += (lines.empty() ? "" : ", ") + line;
        }
        return lines;
    }

    uint32_t try_open() { return smc_msg_chan_open("tested", event(), 0, on_error, &chan_); }
    void open() {
        const uint16_t key[] = {type_word, domain};
        ASSERT_EQ(try_open(), 0u);
        ASSERT_EQ(smc_msg_handler_attach(chan_, key, on_message, 0, type_word, domain), 0u);
        ASSERT_EQ(smc_msg_rx_buffer_set(chan_, rx_, sizeof(rx_), nullptr), 0u);
    }
    void end_channel() {
        ASSERT_EQ(smc_msg_chan_close(&chan_), 0u);
        run();
        log_.clear();
    }
    void end_server() {
        fwx_host_server_unregister(server_);
        server_ = nullptr;
    }

    static std::string framed(const std::string &text) { return std::string("\x03\xc0\x60\x00", 4) + text; }
    static std::string text_of(const void *msg, size_t size) {
        return size < 4 ? "?" : std::string(static_cast<const char *>(msg) + 4, size - 4);
    }

    /** A transmit buffer one byte longer than its content, so that on_done can read the first byte of an empty text. */
    static void *buffer_with(const std::string &bytes) {
        void *msg = nullptr;
        EXPECT_EQ(smc_msg_tx_buffer_alloc(bytes.size() + 1, &msg), 0u);
        memcpy(msg, bytes.data(), bytes.size());
        return msg;
    }

    /** Sends a text. The completion writes to the log and frees the buffer. A refused buffer is freed at once. */
    uint32_t send(const std::string &text) {
        const std::string bytes = framed(text);
        void *msg = buffer_with(bytes);
        const uint32_t code = smc_async_msg_sends(chan_, msg, msg, bytes.size(), on_done);
        if (code != 0) smc_msg_tx_buffer_free(msg);
        return code;
    }

    uint32_t ask(const std::string &text, size_t reply_size = 64) {
        const std::string bytes = framed(text);
        void *msg = buffer_with(bytes);
        std::string reply(64, '.');
        const uint32_t code = smc_sync_msg_send(chan_, msg, bytes.size(), reply.data(), reply_size);
        if (code == 0) log_.push_back("answer " + reply.substr(20, reply.find('.') - 20));
        smc_msg_tx_buffer_free(msg);
        return code;
    }

    uint32_t reply(const std::string &text) {
        const std::string bytes = framed(text);
        return fwx_host_peer_send(peer_, bytes.data(), bytes.size());
    }

    static void on_done(void *cookie, void *, uint32_t status) {
        char line[20];
        snprintf(line, sizeof(line), "done %c %x", static_cast<const char *>(cookie)[4], status);
        self->log_.emplace_back(line);
        smc_msg_tx_buffer_free(cookie);
        if (self->during_done_) self->during_done_();
    }
    static void on_message(void *, void *, void *msg, size_t size) {
        self->log_.push_back("got " + text_of(msg, size));
        if (self->during_receive_) self->during_receive_();
    }
    static void on_error(void *) { self->log_.emplace_back("error"); }
    static void on_throttle(uint32_t on) { self->log_.emplace_back(on != 0 ? "throttle on" : "throttle off"); }

    static void on_connected(void *, fwx_host_peer_t *peer) {
        self->peer_ = peer;
        self->log_.emplace_back("connected");
    }
    static void on_disconnected(void *, fwx_host_peer_t *) { self->log_.emplace_back("disconnected"); }
    static void on_received(void *, fwx_host_peer_t *peer, const void *msg, size_t size) {
        self->peer_ = peer;
        self->log_.push_back("took " + text_of(msg, size));
        if (self->during_take_) self->during_take_();
    }
    static size_t on_asked(void *, fwx_host_peer_t *peer, const void *msg, size_t size, void *answer, size_t) {
        self->peer_ = peer;
        self->log_.push_back("asked " + text_of(msg, size));
        if (self->during_take_) self->during_take_();
        std::string bytes = self->whole_answer_;
        if (bytes.empty() && !self->answer_.empty()) bytes = framed(std::string(16, '-') + self->answer_);
        memcpy(answer, bytes.data(), bytes.size());
        return bytes.size();
    }
    static inline const fwx_host_server_ops_t ops = {on_connected, on_disconnected, on_received, on_asked};

    fwx_host_loop_t *loop_ = nullptr; /* the server's */
    fwx_host_loop_t *client_loop_ = nullptr;
    fwx_host_server_t *server_ = nullptr;
    fwx_host_peer_t *peer_ = nullptr;
    smc_chan_t chan_ = 0;
    char rx_[64] = {};
    std::string answer_ = "yes"; /* the answer's text behind the result; empty: no answer */
    std::string whole_answer_;   /* if not empty, the bytes of a bad answer to send instead */
    log_lines_t log_;
    std::function<void()> during_take_, during_done_, during_receive_;

private:
    const link_kind_t kind_;
    std::optional<runtime_directory_t> directory_;
};

/** For tests that run over both kinds of links. Use INSTANTIATE_TEST_SUITE_P with both_links and link_name. */
class any_link_t : public channel_fixture_t, public testing::WithParamInterface<link_kind_t> {
protected:
    any_link_t() : channel_fixture_t(GetParam()) {}
};
inline const auto both_links = testing::Values(link_kind_t::within_a_process, link_kind_t::between_processes);
inline constexpr auto link_name = [](const testing::TestParamInfo<link_kind_t> &info) -> std::string {
    return info.param == link_kind_t::within_a_process ? "within_a_process" : "between_processes";
};

/** For tests of links between processes, with clients that speak the protocol by hand. */
class shm_fixture_t : public channel_fixture_t {
protected:
    shm_fixture_t() : channel_fixture_t(link_kind_t::between_processes) {}

    static descriptor_t connect_raw() {
        descriptor_t socket;
        EXPECT_EQ(shm_connect(server_name, &socket), 0u);
        return socket;
    }

    struct raw_client_t {
        handles_t handles = sound_handles();
        shm_mapping_t segment = shm_segment_map(handles[0]);
        descriptor_t socket = connect_raw();
    };
    /** Makes a client whose valid offer the server has accepted. */
    raw_client_t join() const {
        raw_client_t client;
        EXPECT_TRUE(hand_over(client.socket, word(greeting), client.handles));
        run_server();
        return client;
    }
};

#endif
