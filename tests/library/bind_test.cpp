/* Binding: what a bind publishes and sends, the refusal of wrong arguments and of a second bind, and the state that is
 * left after a fault in each step. */
#include "library_fixture.h"

namespace {

class bind_test_t : public library_fixture_t {};

constexpr uint32_t fault = 0x104;
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
    {FWX_HOST_OP_EVENT_TO_SMC, 1, fault, nullptr},
    {FWX_HOST_OP_EVENT_CREATE, 1, fault, nullptr},
    {FWX_HOST_OP_LIST_INIT, 1, fault, nullptr},
    {FWX_HOST_OP_CALLOC, 3, FWX_NAT64_ERR_COMINGUP_NOMEM, nullptr},
    {FWX_HOST_OP_CHUNK_CREATE, 1, FWX_NAT64_ERR_COMINGUP_NOMEM, nullptr},
    {FWX_HOST_OP_CHAN_OPEN, 1, FWX_NAT64_ERR_AGAIN, "fwx_nat64_client_connect_to_server open failed "},
    {FWX_HOST_OP_FC_SET, 1, fault, "fwx_nat64_client_connect_to_server fc set failed "},
    {FWX_HOST_OP_HANDLER_ATTACH, 1, fault, "fwx_nat64_client_connect_to_server attach msg handlers failed "},
    {FWX_HOST_OP_HANDLER_ATTACH, 11, fault, "fwx_nat64_client_connect_to_server attach msg handlers failed "},
    {FWX_HOST_OP_CGM_REGISTER, 1, fault, "fwx_nat64_bind_cmn: failed to register with CGM: "},
    {FWX_HOST_OP_TX_ALLOC, 1, FWX_NAT64_ERR_NOMEM, nullptr},
    {FWX_HOST_OP_SYNC_SEND, 1, fault, "fwx_nat64_client_sync_cmd_send msg_send failed "},
    {FWX_HOST_OP_CHUNK_MALLOC, 1, FWX_NAT64_ERR_NOMEM, nullptr},
    {FWX_HOST_OP_TX_ALLOC, 2, FWX_NAT64_ERR_NOMEM, nullptr},
    {FWX_HOST_OP_LIST_INSERT_TAIL, 1, FWX_NAT64_ERR_NOMEM, nullptr},
    {FWX_HOST_OP_ASYNC_SEND, 1, fault, "fwx_nat64_client_async_cmd_send msg_send failed "},
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
    EXPECT_EQ(hex(slice(received[0], 0, 4)), "02 80 60 00");
    EXPECT_EQ(hex(slice(received[0], 16, 8)), "90 00 01 00 01 02 03 04");
    EXPECT_EQ(received[0].size(), 24u);
    EXPECT_EQ(hex(slice(received[1], 0, 4)), "01 c0 60 00");
    EXPECT_EQ(received[1].size(), 32u);
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
        fwx_host_fault_arm(failure.op, failure.nth, fault);
        EXPECT_EQ(bind(), failure.expected);
        std::vector<std::string> lines;
        if (failure.line != nullptr) lines.push_back(std::string("error: \n") + failure.line + xerr_strerror(fault));
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
