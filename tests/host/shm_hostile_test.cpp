/*
 * A server that breaks every rule, against the library: it scribbles over indices, lengths and messages at random. All
 * that may come of it is channel errors and counted drops. The messages that it makes up never name a context under the
 * binding's epoch, save those it was sent.
 */
#include <cstring>
#include <random>

#include "fwx_nat64/fwx_nat64.h"
#include "host/messaging/shm/bell.h"
#include "host/messaging/shm/segment.h"
#include "host/messaging/shm/socket.h"
#include "host_fixture.h"
#include "platform/smc.h"
#include "tests/support/runtime_directory.h"
#include "tests/support/zero_server.h"

namespace {

constexpr uint64_t messages_in_all = 1000000;

/** Both ends of the server's side of a segment, held by raw hands. */
class hostile_server_t {
public:
    explicit hostile_server_t(uint32_t seed) : random_(seed) { EXPECT_EQ(shm_listen("hostile", &entrance_), 0u); }
    ~hostile_server_t() { shm_unlisten(entrance_); }
    hostile_server_t(const hostile_server_t &) = delete;
    hostile_server_t &operator=(const hostile_server_t &) = delete;

    /** Takes the next client, if there is one; the one before is let go. */
    void accept() {
        descriptor_t client;
        if (shm_accept(entrance_.socket, &client) != 0) return;
        shm_handles_t handles;
        ASSERT_EQ(shm_handles_receive(client, &handles), 0u);
        socket_ = std::move(client);
        bell_ = std::move(handles[1]);
        segment_ = shm_segment_map(handles[0]);
        ASSERT_NE(segment_, nullptr);
        reader_ = std::make_unique<shm_reader_t>(segment_->to_server, segment_->to_server_bytes, shm_ring_bytes);
        writer_ = std::make_unique<shm_writer_t>(segment_->to_client, segment_->to_client_bytes, shm_ring_bytes);
        connections += 1;
    }

    /** Bytes behind the key that the client's handler is for. */
    void send(const std::string &text) {
        const std::string bytes = std::string("\x03\xc0\x60\x00", 4) + text;
        ASSERT_TRUE(writer_->write(0, bytes.data(), static_cast<uint32_t>(bytes.size())));
        writer_->publish();
    }
    /** Changes a word of the record that the client reads next. */
    void change(uint32_t offset_bytes, uint32_t word) {
        const uint32_t start = segment_->to_client.read & (shm_ring_bytes - 8);
        memcpy(segment_->to_client_bytes + start + offset_bytes, &word, sizeof(word));
    }

    void act() {
        if (segment_ == nullptr) return;
        take_requests();
        for (uint32_t i = below(20); i > 0; --i) {
            say_something();
        }
        if (below(16) == 0) scribble();
        if (below(400) == 0) socket_ = descriptor_t();
        shm_bell_ring(bell_);
    }

    uint64_t messages = 0;
    uint64_t connections = 0;

private:
    uint32_t below(uint32_t limit) { return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random_); }
    uint32_t word() { return static_cast<uint32_t>(random_()); }
    /** Near what is right, or anywhere. */
    uint32_t near(uint32_t value) {
        switch (below(4)) {
            case 0:
                return word();
            case 1:
                return value + 8 * (below(64) - 32);
            case 2:
                return value + below(9) - 4;
            default:
                return below(4) * 0x55555555;
        }
    }

    void take_requests() {
        reader_->refresh();
        while (reader_->has_record()) {
            const shm_record_t record = reader_->front();
            if (reader_->is_broken()) return;
            std::vector<uint8_t> bytes(record.size);
            reader_->copy_to(bytes.data(), record);
            reader_->advance(record);
            if (!reader_->publish()) return;
            if (bytes.size() >= sizeof(fwx_nat64_msg_hdr_t)) memcpy(&heard_, bytes.data(), sizeof(heard_));
            if (below(4) != 0) answer();
        }
    }

    /** An answer to the command heard last, right or mangled behind its header, cut or prolonged. */
    void answer() {
        static constexpr uint32_t numbers[] = {0, 4, 5, 6, 7, 8, 10, 11, 13};
        uint8_t bytes[200] = {};
        fwx_nat64_reply_t reply{};
        reply.hdr = heard_;
        const bool is_sound = below(2) == 0;
        const uint32_t number = is_sound ? FWX_NAT64_MSG_RESULT : numbers[below(std::size(numbers))];
        reply.hdr.type = static_cast<uint16_t>(FWX_NAT64_MSG_ASYNC | number);
        reply.result = is_sound ? 0 : word();
        memcpy(bytes, &reply, sizeof(reply));
        for (size_t i = sizeof(reply); i < sizeof(bytes); ++i) {
            bytes[i] = static_cast<uint8_t>(word());
        }
        say(bytes, is_sound ? sizeof(reply) : below(sizeof(bytes) + 1));
    }

    /** Bytes under any key; where a header could name a context, its epoch is another. */
    void say_something() {
        uint8_t bytes[300];
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(word());
        }
        fwx_nat64_msg_hdr_t hdr;
        memcpy(&hdr, bytes, sizeof(hdr));
        if (below(3) != 0) {
            hdr.type = static_cast<uint16_t>(FWX_NAT64_MSG_ASYNC | below(20));
            hdr.domain = FWX_NAT64_MSG_DOMAIN;
        }
        hdr.epoch = ~heard_.epoch;
        memcpy(bytes, &hdr, sizeof(hdr));
        say(bytes, below(sizeof(bytes) + 1));
    }

    void say(const void *bytes, size_t size) {
        if (writer_->write(below(3), bytes, static_cast<uint32_t>(size))) messages += 1;
        if (!writer_->is_broken()) writer_->publish();
    }

    void scribble() {
        auto *segment = segment_.get();
        std::atomic<uint32_t> *const words[] = {&segment->to_client.written, &segment->to_client.read,
                                                &segment->to_server.written, &segment->to_server.read,
                                                &segment->answers.written,   &segment->answers.read,
                                                &segment->client_bell.armed, &segment->client_bell.wants_room};
        const uint32_t choice = below(std::size(words) + 2);
        if (choice < std::size(words)) {
            words[choice]->store(near(words[choice]->load()));
        } else if (choice == std::size(words)) {
            change(0, near(below(400)));
        } else {
            memset(segment->to_client_bytes + below(shm_ring_bytes / 2), static_cast<int>(below(256)), below(4096));
        }
    }

    std::mt19937 random_;
    shm_entrance_t entrance_;
    descriptor_t socket_;
    descriptor_t bell_;
    shm_mapping_t segment_;
    std::unique_ptr<shm_reader_t> reader_;
    std::unique_ptr<shm_writer_t> writer_;
    fwx_nat64_msg_hdr_t heard_{};
};

class shm_hostile_t : public host_fixture_t {
protected:
    static inline uint64_t answers = 0;
    runtime_directory_t directory_;
};

TEST_F(shm_hostile_t, whatever_a_server_does_to_the_segment_is_a_channel_error_or_a_counted_drop) {
    fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
    fwx_host_loop_t *loop = fwx_host_loop_create();
    /* An honest server for the binding itself; its channel then ends, and the library connects to the other. */
    fwx_host_server_t *server = nullptr;
    ASSERT_EQ(fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &zero_server_ops, nullptr, &server), 0u);
    fwx_nat64_reply_cbs_t callbacks{};
    callbacks.cfg_reply_cb = [](fwx_nat64_cmd_result_t *) { ++answers; };
    ASSERT_EQ(fwx_nat64_bind(nullptr, loop, nullptr, &callbacks), 0u);
    fwx_host_server_unregister(server);
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, "hostile");
    fwx_host_loop_run_until_idle(loop);

    hostile_server_t hostile(20240607);
    const fwx_nat64_timeout_t timeout = {1, 300};
    while (hostile.messages < messages_in_all && !HasFatalFailure()) {
        for (int i = 0; i < 4; ++i) {
            fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &timeout, this);
        }
        hostile.accept();
        fwx_host_loop_process(loop);
        hostile.act();
        fwx_host_loop_run_until_idle(loop);
    }
    const fwx_host_errors_t seen = errors();
    EXPECT_GT(answers, messages_in_all / 100);
    EXPECT_GT(hostile.connections, messages_in_all / 1000);
    EXPECT_GT(seen.dropped_malformed, hostile.connections / 10);
    EXPECT_GT(seen.dropped_no_handler, messages_in_all / 100);

    fwx_nat64_unbind();
    fwx_mapt_plu_cleanup();
    fwx_host_loop_run_until_idle(loop);
    fwx_host_loop_destroy(loop);
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
    fwx_host_debug_sink_set(nullptr, nullptr);
}

/** A client whose server changes each message between the look at it and its taking. */
struct changed_message_t {
    static inline hostile_server_t *server;
    static inline uint32_t offset_bytes;
    static inline uint32_t word;
    static inline std::vector<uint8_t> buffer;
    static inline std::vector<std::string> got;

    static uint32_t on_no_buffer(smc_chan_t chan, void *, size_t size) {
        server->change(offset_bytes, word);
        buffer = std::vector<uint8_t>(size);
        smc_msg_rx_buffer_set(chan, buffer.data(), buffer.size(), on_no_buffer);
        return 1;
    }
    static void on_message(void *, void *, void *msg, size_t size) {
        got.emplace_back(static_cast<const char *>(msg) + 4, size - 4);
    }
};

TEST_F(shm_hostile_t, a_message_is_as_long_as_when_it_was_seen_and_dropped_if_its_key_has_changed) {
    using client_t = changed_message_t;
    hostile_server_t hostile(1);
    client_t::server = &hostile;
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_connect_set("tested", "hostile");
    smc_chan_t chan = 0;
    const auto on_error = [](void *) { ADD_FAILURE() << "the channel is down"; };
    ASSERT_EQ(smc_msg_chan_open("tested", reinterpret_cast<smc_event_t>(loop), 0, on_error, &chan), 0u);
    ASSERT_EQ(smc_msg_handler_attach(chan, "\x03\xc0\x60\x00", client_t::on_message, 0, 0xc003, 0x60), 0u);
    hostile.accept();

    constexpr uint32_t length_at = 0;
    constexpr uint32_t key_at = 8;
    for (const uint32_t changed : {length_at, key_at}) {
        client_t::offset_bytes = changed;
        client_t::word = 4096;
        ASSERT_EQ(smc_msg_rx_buffer_set(chan, nullptr, 0, client_t::on_no_buffer), 0u);
        hostile.send("changed");
        hostile.send("whole");
        fwx_host_loop_run_until_idle(loop);
    }
    EXPECT_EQ(client_t::got, (std::vector<std::string>{"changed", "whole", "whole"}));
    EXPECT_EQ(errors().dropped_malformed, 1u);

    ASSERT_EQ(smc_msg_chan_close(&chan), 0u);
    fwx_host_loop_run_until_idle(loop);
    fwx_host_loop_destroy(loop);
    fwx_host_connect_set("tested", nullptr);
}

}  // namespace
