/* The channel to the server after the bind: reopening it with the initial commands after an error, and flow control. */
#include "library_fixture.h"

namespace {

using connection_test_t = bound_library_t;

std::vector<std::pair<uint32_t, void *>> throttle_reports;

}  // namespace

TEST_F(connection_test_t, a_send_after_a_channel_error_opens_a_channel_and_sends_the_initial_commands_first) {
    const bytes_t survivor = send(3);
    received.clear();
    fwx_nat64_dbg_warning_set(1);
    break_channel();
    EXPECT_EQ(info()->connected, 0u);
    ASSERT_FALSE(logged.empty());
    EXPECT_EQ(logged.back().find("warning: \nfwx_nat64_clnt_chan_err_hndlr channel error detected "), 0u);
    EXPECT_EQ(outstanding(), 1u);

    const fwx_nat64_timeout_t timeout = {7, 60};
    struct {
        fwx_host_op_t op;
        uint32_t nth, expected;
        const char *line;
    } const failures[] = {{FWX_HOST_OP_CHAN_OPEN, 1, FWX_NAT64_ERR_AGAIN, "open failed"},
                          {FWX_HOST_OP_ASYNC_SEND, 1, 5, "init cmd send failed"},
                          {FWX_HOST_OP_ASYNC_SEND, 2, 5, "unsol setup send failed"}};
    for (const auto &failure : failures) { /* in each case the channel stays down and the command is refused */
        fwx_host_fault_arm(failure.op, failure.nth, 5);
        EXPECT_EQ(fwx_nat64_timeout_set_a(1, &timeout, this), failure.expected);
        EXPECT_TRUE(logged_line(std::string("error: \nfwx_nat64_client_connect_to_server ") + failure.line +
                                " Input/output error"));
        EXPECT_EQ(info()->connected, 0u);
        pump();
        EXPECT_EQ(live().channels + live().tx_buffers, 0u);
        EXPECT_EQ(outstanding(), 1u);
    }
    channels_opened = 1;
    received.clear();
    ASSERT_EQ(fwx_nat64_timeout_set_a(1, &timeout, this), 0u);
    pump();
    EXPECT_EQ(channels_opened, 2u);
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(hex(slice(received[0], 0, 4)), "02 c0 60 00");
    EXPECT_EQ(hex(slice(received[0], 32, 8)), "90 00 01 00 50 41 4c 31");
    EXPECT_EQ(received[0].size(), 40u);
    EXPECT_EQ(hex(slice(received[1], 0, 4)), "01 c0 60 00");
    EXPECT_EQ(hex(slice(received[2], 0, 4)), "03 c0 60 00");

    deliver(reply_to(survivor, 0, 36, 9)); /* the epoch is unchanged, so the reply is still valid */
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].result, 9u);
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
    EXPECT_EQ(channels_opened, 2u);
}

TEST_F(connection_test_t, flow_control_holds_from_10_mib_to_10_kib_and_is_counted_and_told) {
    throttle_reports.clear();
    fwx_nat64_dbg_trace_set(1);
    const auto send = [&](std::initializer_list<size_t> sizes) {
        for (const size_t size : sizes) {
            void *msg = nullptr;
            ASSERT_EQ(fwx_nat64_client_async_cmd_init(size, 3, nullptr, nullptr, &msg), 0u);
            ASSERT_EQ(fwx_nat64_client_async_cmd_send(msg, size), 0u);
        }
        pump();
    };
    const auto take = [&](int messages) {
        for (; messages > 0; --messages) {
            fwx_host_server_pause(server, 0);
            pump();
        }
    };
    pauses_after_each = true;
    fwx_host_server_pause(server, 1);
    send({1 << 22, 1 << 22, 2097111, 40});
    EXPECT_EQ(info()->throttle_on_cnt, 0u) << "a byte is missing";
    send({10240});
    EXPECT_EQ(info()->throttle_on_cnt, 1u); /* counted although no callback is set yet */
    EXPECT_TRUE(logged_line("trace: \nFWX NAT64 CL throttle=TRUE cb=(nil) ctx=(nil) on/off=(1,0)"));
    info()->throttle_cb = [](uint32_t may_send, void *ctx) { throttle_reports.emplace_back(may_send, ctx); };
    info()->throttle_ctx = this;
    take(3);
    EXPECT_EQ(info()->throttle_off_cnt, 0u) << "10280 bytes are left";
    take(1);
    EXPECT_EQ(info()->throttle_off_cnt, 1u);
    send({1 << 22, 1 << 22, 1 << 21});
    EXPECT_EQ(throttle_reports, (std::vector<std::pair<uint32_t, void *>>{{1, this}, {0, this}}));
    EXPECT_EQ(info()->throttle_on_cnt, 2u);
    take(4);
    EXPECT_EQ(received.size(), 8u);
}
