/* A fixture with a model and channels to it that do not use the library: messages are sent and received as bytes. */
#ifndef TESTS_MODEL_MODEL_FIXTURE_H
#define TESTS_MODEL_MODEL_FIXTURE_H

#include <gtest/gtest.h>

#include <list>

#include "fwx_host/fwx_host.h"
#include "model/model.h"
#include "platform/smc.h"
#include "tests/support/bytes.h"
#include "tests/support/platform_watch.h"

/** The bytes of a message, which tests write and read at literal offsets. */
struct message_t : bytes_t {
    using bytes_t::vector;

    template <typename value_t>
    message_t &put(size_t offset, value_t value) {
        EXPECT_LE(offset + sizeof(value), size());
        ::put(*this, offset, value);
        return *this;
    }
    template <typename value_t>
    value_t get(size_t offset) const {
        EXPECT_LE(offset + sizeof(value_t), size());
        return ::get<value_t>(*this, offset);
    }
    uint16_t u16(size_t offset) const { return get<uint16_t>(offset); }
    uint32_t u32(size_t offset) const { return get<uint32_t>(offset); }
    uint64_t u64(size_t offset) const { return get<uint64_t>(offset); }
    std::vector<uint32_t> words(size_t offset, size_t count) const {
        std::vector<uint32_t> found(count);
        for (size_t i = 0; i < count; ++i) {
            found[i] = u32(offset + 4 * i);
        }
        return found;
    }
};

using words_t = std::vector<uint32_t>;

/** An asynchronous command with context 0x1122334455667788 and epoch 0x0badcafe. */
inline message_t command(uint16_t msgno, size_t size) {
    message_t msg(size, 0);
    return msg.put<uint16_t>(0, static_cast<uint16_t>(0xc000 | msgno))
        .put<uint16_t>(2, 96)
        .put<uint64_t>(16, 0x1122334455667788)
        .put<uint32_t>(24, 0x0badcafe);
}
/** A configuration command with its 32-bit payload words. */
inline message_t config(uint32_t op_code, size_t payload_size, const std::vector<uint32_t> &words = {}) {
    message_t msg = command(3, payload_size + 40);
    msg.put<uint32_t>(32, op_code);
    for (size_t i = 0; i < words.size(); ++i) {
        msg.put<uint32_t>(36 + 4 * i, words[i]);
    }
    return msg;
}
inline message_t basic(uint32_t op, uint32_t rule_id, uint32_t domain_id = 0) {
    return command(13, 80).put<uint32_t>(36, op).put<uint32_t>(40, rule_id).put<uint32_t>(44, domain_id);
}
inline message_t by_default(uint32_t op, uint32_t id) {
    return command(13, 68).put<uint32_t>(32, 1).put<uint32_t>(36, op).put<uint32_t>(40, id);
}
inline message_t sync_command(uint16_t msgno, size_t size) {
    message_t msg(size, 0);
    return msg.put<uint16_t>(0, static_cast<uint16_t>(0x8000 | msgno)).put<uint16_t>(2, 96);
}

class model_fixture_t : public testing::Test {
protected:
    void SetUp() override {
        loop_ = fwx_host_loop_create();
        ASSERT_TRUE(serve());
        chan_ = open();
    }

    void TearDown() override {
        for (smc_chan_t chan : channels_) {
            smc_msg_chan_close(&chan);
        }
        fwx_host_loop_run_until_idle(loop_);
        end();
        fwx_host_loop_destroy(loop_);
        received.clear();
        channel_errors = 0;
        fwx_host_clock_run();
        EXPECT_EQ(watch_.left(), "");
        EXPECT_EQ(watch_.faults(), "");
    }

    /** Starts the server of the channel name "model under test". */
    virtual bool serve() {
        model_ = fwx_nat64_model_t::create(loop_, "model under test");
        return model_ != nullptr;
    }
    virtual void end() { model_.reset(); }

    smc_chan_t open() {
        smc_chan_t chan = 0;
        const auto event = reinterpret_cast<smc_event_t>(loop_);
        EXPECT_EQ(smc_msg_chan_open("model under test", event, 0, on_error, &chan), 0u);
        rx_.emplace_back(1 << 17);
        EXPECT_EQ(smc_msg_rx_buffer_set(chan, rx_.back().data(), rx_.back().size(), nullptr), 0u);
        for (uint16_t msgno = 0; msgno < 14; ++msgno) {
            const uint16_t key[] = {static_cast<uint16_t>(0xc000 | msgno), 96};
            EXPECT_EQ(smc_msg_handler_attach(chan, key, on_message, 0, key[0], key[1]), 0u);
        }
        channels_.push_back(chan);
        fwx_host_loop_run_until_idle(loop_);
        return chan;
    }

    static void *buffer_with(const message_t &msg) {
        void *buffer = nullptr;
        EXPECT_EQ(smc_msg_tx_buffer_alloc(msg.size(), &buffer), 0u);
        std::memcpy(buffer, msg.data(), msg.size());
        return buffer;
    }
    void send(const message_t &msg) {
        void *buffer = buffer_with(msg);
        ASSERT_EQ(smc_async_msg_sends(chan_, buffer, buffer, msg.size(), on_done), 0u);
    }

    /** Sends commands in one turn, calls `commit`, and returns the replies. None may be sent before the commit. */
    template <typename commit_t>
    std::vector<message_t> committed_replies_to(const std::vector<message_t> &commands, commit_t commit) {
        for (const message_t &msg : commands) {
            send(msg);
        }
        EXPECT_EQ(run().size(), 0u) << "an answer was sent before the commit";
        commit();
        return run();
    }
    /** Sends a command, runs the loop until it is idle, and returns the messages received. */
    std::vector<message_t> replies_to(const message_t &msg) {
        received.clear();
        send(msg);
        return run();
    }
    std::vector<message_t> run() {
        fwx_host_loop_run_until_idle(loop_);
        std::vector<message_t> arrived;
        arrived.swap(received);
        return arrived;
    }

    message_t reply_to(const message_t &msg) {
        const std::vector<message_t> replies = replies_to(msg);
        EXPECT_EQ(replies.size(), 1u);
        return replies.size() == 1 ? replies[0] : message_t(256, 0xff);
    }
    uint32_t result_of(const message_t &msg) { return reply_to(msg).u32(32); }

    /** Sends a synchronous command and returns its answer, which is empty when there is none. */
    message_t ask(const message_t &msg) {
        void *buffer = buffer_with(msg);
        message_t answer(20, 0xee);
        const uint32_t code = smc_sync_msg_send(chan_, buffer, msg.size(), answer.data(), answer.size());
        smc_msg_tx_buffer_free(buffer);
        return code == 0 ? answer : message_t{};
    }

    static void on_done(void *cookie, void *, uint32_t status) {
        EXPECT_EQ(status, 0u);
        smc_msg_tx_buffer_free(cookie);
    }
    static void on_error(void *) { ++channel_errors; }
    static void on_message(void *, void *, void *msg, size_t size) {
        const auto *bytes = static_cast<const uint8_t *>(msg);
        received.emplace_back(bytes, bytes + size);
    }

    static inline std::vector<message_t> received;
    static inline uint32_t channel_errors = 0;
    fwx_host_loop_t *loop_ = nullptr;
    std::unique_ptr<fwx_nat64_model_t> model_;
    smc_chan_t chan_ = 0;

private:
    std::vector<smc_chan_t> channels_;
    std::list<std::vector<uint8_t>> rx_;
    platform_watch_t watch_;
};

#endif
