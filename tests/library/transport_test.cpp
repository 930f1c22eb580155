/* Framing and sending, without commands of the PAL: headers, failures, messages of an earlier binding, whole replies.
 */
#include "library_fixture.h"

namespace {

class transport_test_t : public bound_library_t {
protected:
    void *frame(uint32_t msgno, void *cb_func, size_t size = 40) {
        void *msg = nullptr;
        EXPECT_EQ(fwx_nat64_client_async_cmd_init(size, msgno, this, cb_func, &msg), 0u);
        return msg;
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
