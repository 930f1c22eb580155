/* A hostile server or client, which overwrites the memory that it shares with the other side. The test acts as it. */
#include "shm_fixture.h"

namespace {

class shm_hostile_t : public shm_fixture_t {
protected:
    void SetUp() override {
        shm_fixture_t::SetUp();
        end_channel();
        ASSERT_EQ(shm_listen("hostile", &entrance_), 0u);
        fwx_host_connect_set("tested", "hostile");
    }
    void TearDown() override {
        user_socket_unlisten(entrance_);
        shm_fixture_t::TearDown();
    }

    /** Opens the channel and accepts its offer without a server, so that the test can write to the segment. */
    void open_raw() {
        open();
        ASSERT_EQ(user_socket_accept(entrance_.socket, &socket_), 0u);
        ASSERT_EQ(shm_handles_receive(socket_, &handles_), 0u);
        segment_ = shm_segment_map(handles_[0]);
        ASSERT_NE(segment_, nullptr);
    }

    user_entrance_t entrance_;
    descriptor_t socket_;
    shm_handles_t handles_;
    shm_mapping_t segment_;
};

TEST_F(shm_hostile_t, a_message_keeps_the_length_first_read_and_is_dropped_if_its_key_has_changed) {
    static std::function<void()> during_look; /* called between the client's front() and copy_to() of a message */
    static char rx[64];
    open_raw();
    shm_writer_t writer(segment_->to_client, segment_->to_client_bytes, shm_ring_bytes);
    constexpr uint32_t length_at = 0;
    constexpr uint32_t key_at = 8;
    for (const uint32_t changed_at : {length_at, key_at}) {
        const uint32_t start = writer.position();
        during_look = [&] { memset(segment_->to_client_bytes + start + changed_at, 0x10, sizeof(uint32_t)); };
        const auto on_no_buffer = [](smc_chan_t chan, void *, size_t) {
            during_look();
            return smc_msg_rx_buffer_set(chan, rx, sizeof(rx), nullptr) + 1;
        };
        ASSERT_EQ(smc_msg_rx_buffer_set(chan_, nullptr, 0, on_no_buffer), 0u);
        for (const char *text : {"changed", "whole"}) {
            const std::string bytes = framed(text);
            ASSERT_TRUE(writer.write(0, bytes.data(), static_cast<uint32_t>(bytes.size())));
        }
        writer.publish();
        run_client();
    }
    EXPECT_EQ(take_log(), "got changed, got whole, got whole");
    EXPECT_EQ(errors().dropped_malformed, 1u);
}

TEST_F(shm_hostile_t, an_impossible_index_is_a_channel_error_and_is_counted) {
    const struct {
        shm_ring_t shm_segment_t::*ring;
        std::atomic<uint32_t> shm_ring_t::*index;
        bool is_of_a_question; /* detected by a synchronous message; else by the loop */
    } indices[] = {{&shm_segment_t::to_client, &shm_ring_t::written, false},
                   {&shm_segment_t::to_server, &shm_ring_t::read, false},
                   {&shm_segment_t::to_server, &shm_ring_t::read, true},
                   {&shm_segment_t::answers, &shm_ring_t::written, true}};
    uint64_t dropped = 0;
    for (const auto &tried : indices) {
        for (const uint32_t value : {4u, 0x7ffffff8u, 0x80000000u, 0xfffffff8u}) {
            open_raw();
            ASSERT_EQ(send("a"), 0u);
            run_client();
            (segment_.get()->*tried.ring.*tried.index).store(value);
            shm_bell_ring(handles_[1]);
            if (tried.is_of_a_question) {
                EXPECT_EQ(ask("q"), FWX_HOST_ERR_CHANNEL_DOWN) << value;
            }
            run_client();
            EXPECT_TRUE(count("error") == 1 && count("done a 5003") == 1) << take_log();
            EXPECT_EQ(errors().dropped_malformed, ++dropped) << value;
            log_.clear();
        }
    }
}

using shm_hostile_client_t = shm_fixture_t;

TEST_F(shm_hostile_client_t, a_broken_ring_disconnects_the_client_and_is_counted_but_a_withdrawal_is_not) {
    const std::function<void(shm_segment_t &)> deeds[] = {
        [](shm_segment_t &segment) { segment.to_server.written.store(4); },
        [](shm_segment_t &segment) { segment.to_server.read.store(8); },
        [](shm_segment_t &segment) {
            segment.to_server_bytes[3] = 0x10; /* of the length */
            segment.to_server.written.store(16);
        },
        [this](shm_segment_t &segment) {
            shm_writer_t writer(segment.to_server, segment.to_server_bytes, shm_ring_bytes);
            writer.write(0, "1234", 4);
            writer.publish();
            during_take_ = [&segment] { segment.to_server.read.store(8); };
        },
        [this](shm_segment_t &segment) {
            segment.to_client.read.store(4);
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(reply(std::string(600000, 'x')), 0u); /* the server looks when there is no room */
            }
        },
        [](shm_segment_t &segment) { segment.to_server.read.store(1); }, /* withdraws */
    };
    const uint64_t ended_before = peers().ended;
    uint64_t counted = 0;
    for (const auto &deed : deeds) {
        const raw_client_t client = join();
        log_.clear();
        deed(*client.segment);
        shm_bell_ring(client.handles[2]);
        run_server();
        during_take_ = nullptr;
        EXPECT_EQ(count("disconnected"), 1) << counted;
        const bool is_last = &deed == std::end(deeds) - 1;
        EXPECT_EQ(errors().dropped_malformed, is_last ? counted : ++counted);
    }
    EXPECT_EQ(counted, 5u);
    EXPECT_EQ(peers().ended, ended_before) << "they read, and sent nothing malformed";
}

}  // namespace
