#include "library_fixture.h"

namespace {

class transport_test_t : public library_fixture_t {
protected:
    void SetUp() override {
        library_fixture_t::SetUp();
        bind_quietly();
    }
    void *frame(uint32_t msgno, void *cb_func, size_t size = 40) {
        void *msg = nullptr;
        EXPECT_EQ(fwx_nat64_client_async_cmd_init(size, msgno, this, cb_func, &msg), 0u);
        return msg;
    }
    template <typename fn_t>
    static void *as_pointer(fn_t fn) {
        return reinterpret_cast<void *>(fn);
    }
};

}  // namespace

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
    for (const fwx_host_op_t op : {FWX_HOST_OP_CHUNK_MALLOC, FWX_HOST_OP_TX_ALLOC, FWX_HOST_OP_LIST_INSERT_TAIL}) {
        fwx_host_fault_arm(op, 1, 99);
        EXPECT_EQ(fwx_nat64_client_async_cmd_init(40, 3, nullptr, nullptr, &msg), FWX_NAT64_ERR_NOMEM);
        EXPECT_EQ(live().pool_elements + live().tx_buffers + outstanding(), 0u);
    }
    fwx_host_pool_cap_set("FWX NAT64 Client CTX Chunk", 0);
    EXPECT_EQ(fwx_nat64_client_async_cmd_init(40, 3, nullptr, nullptr, &msg), FWX_NAT64_ERR_NOMEM);
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

TEST_F(transport_test_t, a_failed_send_releases_context_and_buffer_without_a_callback) {
    fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, 5);
    EXPECT_EQ(fwx_nat64_ipalias_upload_a(this), 5u);
    EXPECT_EQ(live().pool_elements + live().tx_buffers + outstanding(), 0u);
    EXPECT_EQ(logged,
              std::vector<std::string>{"error: \nfwx_nat64_client_async_cmd_send msg_send failed Input/output error"});
    logged.clear();
    fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, 5);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_REMOVE, 1, 2);
    EXPECT_EQ(fwx_nat64_ipalias_upload_a(this), 5u);
    ASSERT_EQ(logged.size(), 2u);
    EXPECT_EQ(logged[1],
              "error: \nfwx_nat64_client_async_cmd_send fwx_list_remove_element No such file or directory failed");
    pump();
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(live().pool_elements, 0u);
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
}

TEST_F(transport_test_t, a_failed_completion_tells_each_callback_in_its_own_shape) {
    const fwx_nat64_reply_cbs_t &cbs = reply_cbs;
    struct {
        uint32_t msgno;
        void *cb_func;
        const char *callback; /* null: nothing is delivered, a warning is logged */
        uint32_t result;
    } const shapes[] = {
        {0, as_pointer(cbs.cfg_reply_cb), "cfg", FWX_NAT64_ERR_AGAIN},
        {2, as_pointer(cbs.cfg_reply_cb), "cfg", FWX_NAT64_ERR_AGAIN},
        {3, as_pointer(cbs.cfg_reply_cb), "cfg", FWX_NAT64_ERR_AGAIN},
        {13, as_pointer(cbs.cfg_reply_cb), "cfg", FWX_NAT64_ERR_AGAIN},
        {4, as_pointer(cbs.sys_stats_cb), "sys", 0},
        {5, as_pointer(cbs.intf_stats_cb), "intf", 0},
        {8, as_pointer(cbs.limit_stats_cb), "limit", 0},
        {6, as_pointer(cbs.pool_stats_cb), "pool", 0},
        {7, as_pointer(cbs.mapping_stats_cb), "mapping", 0},
        {1, nullptr, nullptr, 0},
        {10, as_pointer(cbs.cfg_reply_cb), nullptr, 0},
        {11, as_pointer(cbs.cfg_reply_cb), nullptr, 0},
        {12, nullptr, nullptr, 0},
        {14, as_pointer(cbs.cfg_reply_cb), nullptr, 0},
    };
    fwx_nat64_dbg_warning_set(1);
    for (const auto &shape : shapes) {
        SCOPED_TRACE(shape.msgno);
        calls.clear();
        logged.clear();
        void *msg = frame(shape.msgno, shape.cb_func);
        fwx_host_fault_arm(FWX_HOST_OP_SEND_DONE, 1, 5);
        ASSERT_EQ(fwx_nat64_client_async_cmd_send(msg, 40), 0u);
        EXPECT_TRUE(calls.empty()) << "a completion is never called from inside the send";
        pump();
        ASSERT_EQ(calls.size(), shape.callback != nullptr ? 1u : 0u);
        if (shape.callback != nullptr) {
            EXPECT_EQ(calls[0].callback, shape.callback);
            EXPECT_EQ(calls[0].pal_ctx, this);
            EXPECT_EQ(calls[0].result, shape.result);
            EXPECT_EQ(calls[0].value + calls[0].value2, 0u);
            EXPECT_FALSE(calls[0].has_data);
            EXPECT_TRUE(logged.empty());
        } else {
            EXPECT_EQ(logged, std::vector<std::string>{"warning: \nfwx_nat64_clnt_cmd_cb invalid reply code " +
                                                       std::to_string(shape.msgno)});
        }
        EXPECT_EQ(live().pool_elements + live().tx_buffers + outstanding(), 0u);
    }
    EXPECT_TRUE(received.empty());
    for (const uint32_t msgno : {3u, 4u, 5u, 6u, 9u, 13u}) { /* a missing callback is skipped */
        calls.clear();
        void *msg = frame(msgno, nullptr);
        fwx_host_fault_arm(FWX_HOST_OP_SEND_DONE, 1, 5);
        ASSERT_EQ(fwx_nat64_client_async_cmd_send(msg, 40), 0u);
        pump();
        EXPECT_TRUE(calls.empty());
        EXPECT_EQ(live().pool_elements, 0u);
    }
}

TEST_F(transport_test_t, a_failed_completion_after_a_rebind_touches_only_its_buffer) {
    fwx_host_server_pause(server, 1);
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
    fwx_nat64_unbind();
    fwx_host_server_pause(server, 0);
    ASSERT_EQ(bind(), 0u);
    pump();
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(logged.empty());
    EXPECT_EQ(outstanding(), 1u);
    EXPECT_EQ(live().tx_buffers, 0u);
}

TEST_F(transport_test_t, a_synchronous_command_returns_the_servers_result) {
    void *msg = nullptr;
    for (const uint32_t result : {0u, 0x6001u}) {
        sync_result = result;
        ASSERT_EQ(fwx_nat64_client_sync_cmd_init(24, 3, &msg), 0u);
        EXPECT_EQ(fwx_nat64_client_sync_cmd_send(msg, 24), result);
    }
    EXPECT_TRUE(logged.empty());
    fwx_host_fault_arm(FWX_HOST_OP_SYNC_SEND, 1, 5);
    ASSERT_EQ(fwx_nat64_client_sync_cmd_init(24, 3, &msg), 0u);
    EXPECT_EQ(fwx_nat64_client_sync_cmd_send(msg, 24), 5u);
    EXPECT_EQ(live().tx_buffers, 0u);
    EXPECT_EQ(logged,
              std::vector<std::string>{"error: \nfwx_nat64_client_sync_cmd_send msg_send failed Input/output error"});
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

TEST_F(transport_test_t, a_hundred_thousand_commands_answered_in_reverse_run_each_callback_once) {
    constexpr size_t commands = 100000;
    std::vector<uint8_t> answered(commands);
    for (size_t i = 0; i < commands; ++i) {
        ASSERT_EQ(fwx_nat64_ipalias_upload_a(&answered[i]), 0u);
        if (i % 1000 == 0) pump();
    }
    pump();
    ASSERT_EQ(received.size(), commands);
    for (size_t i = commands; i-- > 0;) {
        const bytes_t reply = reply_to(received[i], 0, 36);
        ASSERT_EQ(fwx_host_peer_send(peer, reply.data(), reply.size()), 0u);
        if (i % 1000 == 0) pump();
    }
    for (const call_t &call : calls)
        ++*static_cast<uint8_t *>(call.pal_ctx);
    EXPECT_EQ(answered, std::vector<uint8_t>(commands, 1));
    EXPECT_EQ(outstanding(), 0u);
}
