#include "library_fixture.h"

namespace {

class connection_test_t : public library_fixture_t {
protected:
    void SetUp() override {
        library_fixture_t::SetUp();
        bind_quietly();
    }
};

std::vector<std::pair<uint32_t, void *>> throttle_reports;

}  // namespace

TEST_F(connection_test_t, a_send_after_a_channel_error_opens_a_channel_and_sends_the_initial_commands_first) {
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
    pump();
    const bytes_t survivor = received.back();
    received.clear();
    fwx_nat64_dbg_warning_set(1);
    break_channel();
    EXPECT_EQ(info()->connected, 0u);
    ASSERT_FALSE(logged.empty());
    EXPECT_EQ(logged.back().find("warning: \nfwx_nat64_clnt_chan_err_hndlr channel error detected "), 0u);
    EXPECT_EQ(outstanding(), 1u);

    const fwx_nat64_timeout_t timeout = {7, 60};
    ASSERT_EQ(fwx_nat64_timeout_set_a(1, &timeout, this), 0u);
    pump();
    EXPECT_EQ(channels_opened, 2u);
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(hex(slice(received[0], 0, 4)), "02 c0 60 00");
    EXPECT_EQ(hex(slice(received[0], 32, 8)), "90 00 01 00 50 41 4c 31");
    EXPECT_EQ(received[0].size(), 40u);
    EXPECT_EQ(hex(slice(received[1], 0, 4)), "01 c0 60 00");
    EXPECT_EQ(hex(slice(received[2], 0, 4)), "03 c0 60 00");

    deliver(reply_to(survivor, 0, 36, 9)); /* the epoch is the same, so it is still an answer */
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].result, 9u);
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
    EXPECT_EQ(channels_opened, 2u);
}

TEST_F(connection_test_t, a_failed_reconnection_fails_the_command_and_leaves_the_channel_down) {
    struct {
        const char *step;
        fwx_host_op_t op;
        uint32_t nth;
        uint32_t expected;
        const char *line;
    } const failures[] = {
        {"open", FWX_HOST_OP_CHAN_OPEN, 1, FWX_NAT64_ERR_AGAIN, "open failed"},
        {"flow control", FWX_HOST_OP_FC_SET, 1, 5, "fc set failed"},
        {"handlers", FWX_HOST_OP_HANDLER_ATTACH, 5, 5, "attach msg handlers failed"},
        {"init frame", FWX_HOST_OP_CHUNK_MALLOC, 2, FWX_NAT64_ERR_NOMEM, "init cmd send failed"},
        {"init send", FWX_HOST_OP_ASYNC_SEND, 1, 5, "init cmd send failed"},
        {"setup frame", FWX_HOST_OP_TX_ALLOC, 3, FWX_NAT64_ERR_NOMEM, "unsol setup send failed"},
        {"setup send", FWX_HOST_OP_ASYNC_SEND, 2, 5, "unsol setup send failed"},
    };
    for (const auto &failure : failures) {
        SCOPED_TRACE(failure.step);
        break_channel();
        logged.clear();
        fwx_host_fault_arm(failure.op, failure.nth, 5);
        EXPECT_EQ(fwx_nat64_ipalias_upload_a(this), failure.expected);
        EXPECT_EQ(info()->connected, 0u);
        pump();
        EXPECT_EQ(live().channels, 0u);
        EXPECT_EQ(live().tx_buffers, 0u);
        EXPECT_EQ(outstanding(), 0u);
        ASSERT_GE(logged.size(), 2u);
        const std::string connect_line =
            std::string("error: \nfwx_nat64_client_connect_to_server ") + failure.line + " ";
        EXPECT_EQ(logged[logged.size() - 2].find(connect_line), 0u) << logged[logged.size() - 2];
        EXPECT_EQ(logged.back().find("error: \nfwx_nat64_client_async_cmd_send msg_send failed "), 0u);
        ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
        pump();
        EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
    }
}

TEST_F(connection_test_t, a_synchronous_command_reconnects_too) {
    break_channel();
    void *msg = nullptr;
    ASSERT_EQ(fwx_nat64_client_sync_cmd_init(20, 3, &msg), 0u);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_send(msg, 20), 0u);
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(hex(slice(received[0], 0, 2)), "02 c0");
    EXPECT_EQ(hex(slice(received[1], 0, 2)), "01 c0");
    EXPECT_EQ(hex(slice(received[2], 0, 2)), "03 80");
}

TEST_F(connection_test_t, flow_control_counts_and_tells_the_pal) {
    throttle_reports.clear();
    fwx_nat64_dbg_trace_set(1);
    fwx_host_server_pause(server, 1);
    const size_t message_bytes = 1 << 20;
    const auto fill = [&] {
        for (int i = 0; i < 10; ++i) {
            void *msg = nullptr;
            ASSERT_EQ(fwx_nat64_client_async_cmd_init(message_bytes, 3, nullptr, nullptr, &msg), 0u);
            ASSERT_EQ(fwx_nat64_client_async_cmd_send(msg, message_bytes), 0u);
        }
    };
    fill();
    pump();
    EXPECT_EQ(info()->throttle_on_cnt, 1u); /* no callback yet: counted all the same */
    EXPECT_TRUE(logged_line("trace: \nFWX NAT64 CL throttle=TRUE cb=(nil) ctx=(nil) on/off=(1,0)"));
    info()->throttle_cb = [](uint32_t may_send, void *ctx) { throttle_reports.emplace_back(may_send, ctx); };
    info()->throttle_ctx = this;
    fwx_host_server_pause(server, 0);
    pump();
    fwx_host_server_pause(server, 1);
    fill();
    pump();
    EXPECT_EQ(throttle_reports, (std::vector<std::pair<uint32_t, void *>>{{1, this}, {0, this}}));
    EXPECT_EQ(info()->throttle_off_cnt, 1u);
    EXPECT_EQ(info()->throttle_on_cnt, 2u);
    fwx_host_server_pause(server, 0);
    pump();
    received.clear();
}

TEST_F(connection_test_t, a_message_longer_than_the_receive_buffer_gets_a_larger_one) {
    ASSERT_EQ(fwx_nat64_stats_sys_query_a(0, this), 0u);
    pump();
    bytes_t reply = reply_to(received.back(), 4, 6000);
    put<uint64_t>(reply, 48, 0x1122334455667788);
    void *small = info()->rx_buf;
    fwx_host_fault_arm(FWX_HOST_OP_CALLOC, 1, 0);
    deliver(reply);
    EXPECT_TRUE(calls.empty()); /* no memory: dropped, the old buffer stays */
    EXPECT_EQ(info()->rx_buf, small);
    fwx_nat64_dbg_trace_set(1);
    deliver(reply);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(get<uint64_t>(calls[0].data, 0), 0x1122334455667788u);
    EXPECT_NE(info()->rx_buf, small);
    ASSERT_FALSE(logged.empty());
    EXPECT_EQ(logged[0].find("trace: \nFWX NAT64 CL rx buf cb obuf="), 0u);
    EXPECT_NE(logged[0].find(" sz=6000"), std::string::npos);
}

TEST_F(connection_test_t, a_larger_receive_buffer_that_the_channel_refuses_leaves_the_old_one_in_use) {
    ASSERT_EQ(fwx_nat64_stats_sys_query_a(0, this), 0u);
    pump();
    const bytes_t query = received.back();
    void *small = info()->rx_buf;
    const uint64_t blocks = live().memory_blocks;
    fwx_host_fault_arm(FWX_HOST_OP_RX_BUFFER_SET, 1, 5);
    deliver(reply_to(query, 4, 6000));
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(info()->rx_buf, small);
    EXPECT_EQ(live().memory_blocks, blocks);
    deliver(reply_to(query, 4, 48));
    EXPECT_EQ(calls.size(), 1u);
}
