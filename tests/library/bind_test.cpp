/* The binding, its channel and the messages on it: what a bind publishes and sends, the state that a failed step
 * leaves, the reopening of the channel with the initial commands after an error, flow control, and framing and sending
 * without commands of the PAL. */
#include "library_fixture.h"

namespace {

using bind_test_t = library_fixture_t;

constexpr uint32_t injected = 0x104;
constexpr uint32_t already_bound = 17;

/* A fault during a bind: the result of bind, and the log line before the text of the fault. */
struct bind_failure_t {
    fwx_host_op_t op;
    uint32_t nth;
    uint32_t expected;
    const char *line; /* null for none */
};

constexpr bind_failure_t bind_failures[] = {
    {FWX_HOST_OP_CALLOC, 1, 12, nullptr},
    {FWX_HOST_OP_CALLOC, 2, 12, nullptr},
    {FWX_HOST_OP_EVENT_TO_SMC, 1, injected, nullptr},
    {FWX_HOST_OP_EVENT_CREATE, 1, injected, nullptr},
    {FWX_HOST_OP_LIST_INIT, 1, injected, nullptr},
    {FWX_HOST_OP_CALLOC, 3, FWX_NAT64_ERR_COMINGUP_NOMEM, nullptr},
    {FWX_HOST_OP_CHUNK_CREATE, 1, FWX_NAT64_ERR_COMINGUP_NOMEM, nullptr},
    {FWX_HOST_OP_CHAN_OPEN, 1, FWX_NAT64_ERR_AGAIN, "fwx_nat64_client_connect_to_server open failed "},
    {FWX_HOST_OP_FC_SET, 1, injected, "fwx_nat64_client_connect_to_server fc set failed "},
    {FWX_HOST_OP_HANDLER_ATTACH, 1, injected, "fwx_nat64_client_connect_to_server attach msg handlers failed "},
    {FWX_HOST_OP_HANDLER_ATTACH, 11, injected, "fwx_nat64_client_connect_to_server attach msg handlers failed "},
    {FWX_HOST_OP_CGM_REGISTER, 1, injected, "fwx_nat64_bind_cmn: failed to register with CGM: "},
    {FWX_HOST_OP_TX_ALLOC, 1, FWX_NAT64_ERR_NOMEM, nullptr},
    {FWX_HOST_OP_SYNC_SEND, 1, injected, "fwx_nat64_client_sync_cmd_send msg_send failed "},
    {FWX_HOST_OP_CHUNK_MALLOC, 1, FWX_NAT64_ERR_NOMEM, nullptr},
    {FWX_HOST_OP_TX_ALLOC, 2, FWX_NAT64_ERR_NOMEM, nullptr},
    {FWX_HOST_OP_LIST_INSERT_TAIL, 1, FWX_NAT64_ERR_NOMEM, nullptr},
    {FWX_HOST_OP_ASYNC_SEND, 1, injected, "fwx_nat64_client_async_cmd_send msg_send failed "},
};

using connection_test_t = bound_library_t;

std::vector<std::pair<uint32_t, void *>> throttle_reports;

class transport_test_t : public bound_library_t {
protected:
    void *frame(uint32_t msgno, void *cb_func, size_t size = 40) {
        void *msg = nullptr;
        EXPECT_EQ(fwx_nat64_client_async_cmd_init(size, msgno, this, cb_func, &msg), 0u);
        return msg;
    }
};

}  // namespace

TEST_F(bind_test_t, a_bind_publishes_the_pals_callbacks_and_sends_init_then_unsolicited_setup) {
    ASSERT_EQ(bind("\x01\x02\x03\x04"), 0u);
    ASSERT_NE(info(), nullptr);
    EXPECT_EQ(info()->connected, 1u);
    EXPECT_EQ(fwx_host_event_context_get(), info()->ev_ctx);
    EXPECT_EQ(memcmp(&info()->reply_cb, &reply_cbs, sizeof(reply_cbs)), 0);
    EXPECT_EQ(memcmp(&info()->unsol_cb, &unsol_cbs, sizeof(unsol_cbs)), 0);
    EXPECT_NE(info()->unsol_hndlr, nullptr);
    EXPECT_EQ(info()->throttle_cb, nullptr);
    EXPECT_EQ(outstanding(), 1u);

    pump();
    ASSERT_EQ(received.size(), 2u);
    expect_message(received[0], 24, {{0, "02 80 60 00"}, {16, "90 00 01 00 01 02 03 04"}});
    expect_message(received[1], 32, {{0, "01 c0 60 00"}});
    EXPECT_EQ(get<uint32_t>(received[1], 24), info()->epoch);
}

TEST_F(bind_test_t, missing_arguments_and_a_second_bind_change_nothing) {
    EXPECT_EQ(fwx_nat64_bind("PAL1", nullptr, &unsol_cbs, &reply_cbs), 22u);
    EXPECT_EQ(fwx_nat64_bind("PAL1", loop, &unsol_cbs, nullptr), 22u);
    EXPECT_EQ(fwx_nat64_client_comingup(nullptr), FWX_NAT64_ERR_COMINGUP_NO_INFO);
    EXPECT_EQ(live().memory_blocks, 0u);
    ASSERT_EQ(bind(), 0u);
    const uint32_t epoch = info()->epoch;
    EXPECT_EQ(bind(), already_bound);
    EXPECT_EQ(info()->epoch, epoch);
    EXPECT_EQ(channels_opened, 1u);
}

TEST_F(bind_test_t, a_refusal_of_the_init_command_unbinds_and_is_returned) {
    sync_result = 0x1234;
    EXPECT_EQ(bind(), 0x1234u);
    EXPECT_EQ(info(), nullptr);
    pump();
    EXPECT_EQ(peer, nullptr);
    sync_result = 0;
    EXPECT_EQ(bind(), 0u);
}

TEST_F(bind_test_t, a_failure_is_returned_and_leaves_the_state_that_belongs_to_its_step) {
    for (const bind_failure_t &failure : bind_failures) {
        SCOPED_TRACE(std::string(fwx_host_op_name(failure.op)) + " " + std::to_string(failure.nth));
        logged.clear();
        fwx_host_fault_arm(failure.op, failure.nth, injected);
        EXPECT_EQ(bind(), failure.expected);
        lines_t lines;
        if (failure.line != nullptr) lines.push_back(std::string("error: \n") + failure.line + xerr_strerror(injected));
        EXPECT_EQ(logged, lines);
        if (failure.op == FWX_HOST_OP_CGM_REGISTER) { /* after this step the library stays bound */
            EXPECT_EQ(info()->connected, 1u);
            EXPECT_EQ(bind(), already_bound);
        } else {
            EXPECT_EQ(info(), nullptr);
            pump();
            const fwx_host_live_t now = live();
            EXPECT_EQ(now.memory_blocks + now.lists + now.pools + now.tx_buffers + now.channels, 0u);
        }
        fwx_nat64_unbind();
        EXPECT_EQ(bind(), 0u);
        fwx_nat64_unbind();
    }
}

TEST_F(connection_test_t, a_send_after_a_channel_error_opens_a_channel_and_sends_the_initial_commands_first) {
    const bytes_t survivor = send(3);
    received.clear();
    fwx_nat64_dbg_warning_set(1);
    fwx_host_peer_drop(peer);
    pump();
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
    expect_message(received[0], 40, {{0, "02 c0 60 00"}, {32, "90 00 01 00 50 41 4c 31"}});
    expect_message(received[1], 32, {{0, "01 c0 60 00"}});
    expect_message(received[2], 48, {{0, "03 c0 60 00"}});

    deliver(reply_to(survivor, 0, 36, 9)); /* the epoch is unchanged, so the reply is still valid */
    EXPECT_EQ(calls, lines_t{"cfg 9"});
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

TEST_F(transport_test_t, a_framed_command_carries_type_domain_context_and_epoch) {
    void *msg = frame(0x1FFF, nullptr);
    bytes_t header(static_cast<uint8_t *>(msg), static_cast<uint8_t *>(msg) + 32);
    EXPECT_EQ(hex(slice(header, 0, 4)), "ff cf 60 00");
    EXPECT_NE(get<uint64_t>(header, 16), 0u);
    EXPECT_EQ(get<uint32_t>(header, 24), info()->epoch);
    EXPECT_EQ(outstanding(), 1u);
    ASSERT_EQ(fwx_nat64_client_async_cmd_send(msg, 40), 0u);
    fwx_nat64_dbg_warning_set(1);
    fwx_nat64_clnt_cleanup();
    EXPECT_TRUE(logged_line("warning: \nfwx_nat64_clnt_cmd_cb invalid reply code 8191"));
}

TEST_F(transport_test_t, a_failed_init_leaves_nothing_allocated) {
    void *msg = nullptr;
    EXPECT_EQ(fwx_nat64_client_async_cmd_init(40, 3, nullptr, nullptr, nullptr), FWX_NAT64_ERR_BAD_ARG);
    fwx_host_pool_cap_set("FWX NAT64 Client CTX Chunk", 0);
    EXPECT_EQ(fwx_nat64_client_async_cmd_init(40, 3, nullptr, nullptr, &msg), FWX_NAT64_ERR_NOMEM);
    EXPECT_EQ(live().pool_elements + live().tx_buffers, 0u);
    fwx_host_pool_cap_set("FWX NAT64 Client CTX Chunk", UINT64_MAX);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_init(40, 3, nullptr), FWX_NAT64_ERR_BAD_ARG);
    fwx_host_fault_arm(FWX_HOST_OP_TX_ALLOC, 1, 99);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_init(40, 3, &msg), FWX_NAT64_ERR_NOMEM);
    EXPECT_EQ(fwx_nat64_client_async_cmd_send(nullptr, 40), FWX_NAT64_ERR_BAD_ARG);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_send(nullptr, 40), FWX_NAT64_ERR_BAD_ARG);
    EXPECT_EQ(msg, nullptr);
    EXPECT_TRUE(logged.empty());
    fwx_nat64_unbind();
    EXPECT_EQ(fwx_nat64_client_async_cmd_init(40, 3, nullptr, nullptr, &msg), FWX_NAT64_ERR_NOT_READY);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_init(40, 3, &msg), FWX_NAT64_ERR_NOT_READY);
}

TEST_F(transport_test_t, a_failed_send_of_a_message_that_names_no_context_frees_the_message_and_returns_the_code) {
    void *msg = frame(3, nullptr);
    memset(static_cast<uint8_t *>(msg) + 16, 0, 8);
    fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, 99);
    EXPECT_EQ(fwx_nat64_client_async_cmd_send(msg, 40), 99u);
    EXPECT_EQ(live().tx_buffers, 0u);
    EXPECT_EQ(logged,
              lines_t{"error: \nfwx_nat64_client_async_cmd_send msg_send failed " + std::string(xerr_strerror(99))});
    EXPECT_EQ(outstanding(), 1u) << "the context that the header named before";
}

TEST_F(transport_test_t, a_command_that_is_flushed_before_its_send_is_told_once_and_the_binding_stands) {
    void *msg = frame(3, reinterpret_cast<void *>(reply_cbs.cfg_reply_cb));
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
    EXPECT_EQ(fwx_nat64_client_async_cmd_send(msg, 40), FWX_NAT64_ERR_NOT_READY);
    EXPECT_EQ(calls, lines_t{"cfg 4030020b"}) << "told once, to try again";
    EXPECT_EQ(live().tx_buffers, 0u);
    EXPECT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
}

TEST_F(transport_test_t, a_message_of_an_earlier_binding_is_not_sent) {
    void *unbound_send = frame(3, nullptr);
    void *rebound_send = frame(3, nullptr);
    fwx_nat64_unbind();
    EXPECT_EQ(fwx_nat64_client_async_cmd_send(unbound_send, 40), FWX_NAT64_ERR_NOT_READY);
    ASSERT_EQ(bind(), 0u);
    pump();
    const size_t before = received.size();
    EXPECT_EQ(fwx_nat64_client_async_cmd_send(rebound_send, 40), FWX_NAT64_ERR_NOT_READY);
    EXPECT_EQ(outstanding(), 1u);
    pump();
    EXPECT_EQ(received.size(), before);
    EXPECT_EQ(live().tx_buffers, 0u);
    EXPECT_EQ(logged.size(), 2u);

    void *async = frame(3, nullptr);
    void *sync = nullptr;
    ASSERT_EQ(fwx_nat64_client_sync_cmd_init(24, 3, &sync), 0u);
    fwx_nat64_client_goingdown(info()); /* a message of a binding that went down is not sent either */
    EXPECT_EQ(fwx_nat64_client_async_cmd_send(async, 40), FWX_NAT64_ERR_NOT_READY);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_send(sync, 24), FWX_NAT64_ERR_NOT_READY);
    EXPECT_EQ(fwx_nat64_client_async_cmd_init(40, 3, nullptr, nullptr, &async), FWX_NAT64_ERR_NOT_READY);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_init(24, 3, &sync), FWX_NAT64_ERR_NOT_READY);
}

TEST_F(transport_test_t, the_long_synchronous_form_returns_the_whole_reply) {
    sync_extra = {1, 2, 3, 4, 5, 6, 7, 8};
    sync_result = 0x42;
    bytes_t reply(26, 0xee);
    void *msg = nullptr;
    ASSERT_EQ(fwx_nat64_client_sync_cmd_init(24, 3, &msg), 0u);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_rsp_send(msg, 24, nullptr, 26), FWX_NAT64_ERR_BAD_ARG);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_rsp_send(msg, 24, reply.data(), 19), FWX_NAT64_ERR_BAD_ARG);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_rsp_send(nullptr, 24, reply.data(), 26), FWX_NAT64_ERR_BAD_ARG);
    EXPECT_EQ(live().tx_buffers, 1u); /* still the caller's */
    EXPECT_EQ(fwx_nat64_client_sync_cmd_rsp_send(msg, 24, reply.data(), reply.size()), 0x42u);
    EXPECT_EQ(hex(slice(reply, 16, 10)), "42 00 00 00 01 02 03 04 05 06");
    ASSERT_EQ(fwx_nat64_client_sync_cmd_init(24, 3, &msg), 0u);
    fwx_nat64_unbind();
    EXPECT_EQ(fwx_nat64_client_sync_cmd_rsp_send(msg, 24, reply.data(), reply.size()), FWX_NAT64_ERR_NOT_READY);
    EXPECT_EQ(logged.back(), std::string("error: \nfwx_nat64_client_sync_cmd_rsp_send msg_send failed ") +
                                 xerr_strerror(FWX_NAT64_ERR_NOT_READY));
}
