#include "library_fixture.h"

namespace {

class bind_test_t : public library_fixture_t {};

struct bind_failure_t {
    const char *step;
    fwx_host_op_t op;
    uint32_t nth;
    uint32_t code;     /* the fault's */
    uint32_t expected; /* bind's */
    bool stays_bound;
    const char *line; /* logged at error level, null for none */
};

class bind_failure_test_t : public library_fixture_t, public testing::WithParamInterface<bind_failure_t> {};

}  // namespace

TEST_F(bind_test_t, the_client_info_keeps_field_order_and_widths) {
    EXPECT_EQ(sizeof(fwx_nat64_client_info_t), 168u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, smc_ev), 8u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, clnt_ctx_chunk), 16u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, clnt_ctx_list), 24u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, rx_buf), 32u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, chan), 40u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, epoch), 48u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, connected), 52u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, client_id), 56u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, reply_cb), 64u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, unsol_cb), 112u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, unsol_hndlr), 136u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, throttle_cb), 144u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, throttle_ctx), 152u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, throttle_off_cnt), 160u);
    EXPECT_EQ(offsetof(fwx_nat64_client_info_t, throttle_on_cnt), 164u);
}

TEST_F(bind_test_t, a_bind_publishes_the_pals_callbacks_and_sends_init_then_unsolicited_setup) {
    ASSERT_EQ(bind("\x01\x02\x03\x04"), 0u);
    ASSERT_NE(info(), nullptr);
    EXPECT_EQ(info()->connected, 1u);
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

TEST_F(bind_test_t, without_identifier_and_unsolicited_callbacks_zeros_are_kept) {
    ASSERT_EQ(fwx_nat64_bind(nullptr, loop, nullptr, &reply_cbs), 0u);
    pump();
    EXPECT_EQ(hex(slice(received[0], 20, 4)), "00 00 00 00");
    EXPECT_EQ(info()->unsol_cb.reserved, nullptr);
    EXPECT_EQ(info()->unsol_cb.record_cb, nullptr);
    EXPECT_EQ(info()->unsol_cb.event_cb, nullptr);
}

TEST_F(bind_test_t, missing_arguments_and_a_second_bind_change_nothing) {
    EXPECT_EQ(fwx_nat64_bind("PAL1", nullptr, &unsol_cbs, &reply_cbs), 22u);
    EXPECT_EQ(fwx_nat64_bind("PAL1", loop, &unsol_cbs, nullptr), 22u);
    EXPECT_EQ(live().memory_blocks, 0u);
    ASSERT_EQ(bind(), 0u);
    const uint32_t epoch = info()->epoch;
    EXPECT_EQ(bind(), 17u);
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

TEST_F(bind_test_t, an_answer_too_short_to_hold_a_result_does_not_bind) {
    sync_limit = 1;
    EXPECT_EQ(bind(), FWX_HOST_ERR_BAD_ANSWER);
    EXPECT_EQ(info(), nullptr);
    pump();
    EXPECT_EQ(live().channels, 0u);
}

TEST_F(bind_test_t, a_missing_server_is_again_and_leaves_the_library_unbound) {
    fwx_host_server_unregister(server);
    server = nullptr;
    EXPECT_EQ(bind(), FWX_NAT64_ERR_AGAIN);
    EXPECT_EQ(info(), nullptr);
}

TEST_F(bind_test_t, a_thousand_bindings_with_commands_outstanding_leave_nothing) {
    const fwx_nat64_timeout_t timeout = {1, 300};
    uint32_t epochs_that_repeat = 0;
    uint32_t last_epoch = 0;
    for (int cycle = 0; cycle < 1000; ++cycle) {
        ASSERT_EQ(bind(), 0u);
        epochs_that_repeat += info()->epoch == last_epoch ? 1 : 0;
        last_epoch = info()->epoch;
        ASSERT_EQ(fwx_nat64_timeout_set_a(1, &timeout, this), 0u);
        if (cycle % 2 == 0) pump();
        ASSERT_GE(outstanding(), 2u);
        fwx_nat64_unbind();
        ASSERT_EQ(fwx_host_memory_live(), 0u);
        ASSERT_EQ(live().pools, 0u);
    }
    pump();
    EXPECT_EQ(epochs_that_repeat, 0u);
    EXPECT_TRUE(calls.empty());
}

TEST_F(bind_test_t, clean_up_reports_every_outstanding_command_and_keeps_the_binding) {
    bind_quietly();
    fwx_nat64_dbg_warning_set(1);
    const fwx_nat64_timeout_t timeout = {1, 300};
    const fwx_nat64_sess_walk_filter_t filter{};
    ASSERT_EQ(fwx_nat64_timeout_set_a(1, &timeout, this), 0u);
    ASSERT_EQ(fwx_nat64_session_walk_a(1, &filter, 0, 0, 0, walk_cb, this), 0u);
    ASSERT_EQ(fwx_nat64_client_unsol_setup_send_a(), 0u);
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].result, FWX_NAT64_ERR_AGAIN);
    EXPECT_EQ(calls[0].pal_ctx, this);
    EXPECT_EQ(calls[1].callback, "walk");
    EXPECT_EQ(calls[1].status, 4u);
    EXPECT_TRUE(logged_line("warning: \nfwx_nat64_clnt_cmd_cb invalid reply code 1"));
    EXPECT_EQ(logged.size(), 4u);
    EXPECT_NE(info(), nullptr);
    EXPECT_EQ(live().pool_elements, 0u);
    fwx_nat64_unbind();
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
}

TEST_F(bind_test_t, clean_up_stops_at_a_failing_list_and_returns_its_code) {
    bind_quietly();
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_HEAD, 1, 0x77);
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0x77u);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_REMOVE, 1, 0x78);
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0x78u);
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u) << "an element whose removal is refused is on no list";
}

TEST_F(bind_test_t, unbinding_frees_the_record_of_a_walk_without_a_call) {
    bind_quietly();
    const fwx_nat64_sess_walk_filter_t filter{};
    ASSERT_EQ(fwx_nat64_session_walk_a(1, &filter, 0, 0, 0, walk_cb, this), 0u);
    fwx_nat64_unbind();
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(fwx_host_memory_live(), 0u);
    fwx_nat64_unbind();
}

TEST_P(bind_failure_test_t, returns_the_code_and_leaves_the_state_that_belongs_to_the_step) {
    const bind_failure_t &failure = GetParam();
    fwx_host_fault_arm(failure.op, failure.nth, failure.code);
    EXPECT_EQ(bind(), failure.expected);
    EXPECT_EQ(info() != nullptr, failure.stays_bound);
    EXPECT_EQ(failure.line == nullptr, logged.empty()) << testing::PrintToString(logged);
    EXPECT_TRUE(failure.line == nullptr || logged_line(failure.line)) << testing::PrintToString(logged);
    if (failure.stays_bound) {
        EXPECT_EQ(info()->connected, 1u);
        EXPECT_EQ(bind(), 17u);
    } else {
        pump();
        const fwx_host_live_t now = live();
        EXPECT_EQ(now.memory_blocks + now.lists + now.pools + now.tx_buffers + now.channels, 0u);
    }
    fwx_nat64_unbind();
    EXPECT_EQ(bind(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    every_step, bind_failure_test_t,
    testing::Values(
        bind_failure_t{"info", FWX_HOST_OP_CALLOC, 1, 0, 12, false, nullptr},
        bind_failure_t{"event_cell", FWX_HOST_OP_CALLOC, 2, 0, 12, false, nullptr},
        bind_failure_t{"event_to_smc", FWX_HOST_OP_EVENT_TO_SMC, 1, 0x101, 0x101, false, nullptr},
        bind_failure_t{"event_create", FWX_HOST_OP_EVENT_CREATE, 1, 0x102, 0x102, false, nullptr},
        bind_failure_t{"list", FWX_HOST_OP_LIST_INIT, 1, 0x103, 0x103, false, nullptr},
        bind_failure_t{"rx_buffer", FWX_HOST_OP_CALLOC, 3, 0, FWX_NAT64_ERR_COMINGUP_NOMEM, false, nullptr},
        bind_failure_t{"pool", FWX_HOST_OP_CHUNK_CREATE, 1, 0, FWX_NAT64_ERR_COMINGUP_NOMEM, false, nullptr},
        bind_failure_t{"open", FWX_HOST_OP_CHAN_OPEN, 1, 0x104, FWX_NAT64_ERR_AGAIN, false,
                       "error: \nfwx_nat64_client_connect_to_server open failed unknown error 0x00000104"},
        bind_failure_t{"flow_control", FWX_HOST_OP_FC_SET, 1, 5, 5, false,
                       "error: \nfwx_nat64_client_connect_to_server fc set failed Input/output error"},
        bind_failure_t{"first_handler", FWX_HOST_OP_HANDLER_ATTACH, 1, 5, 5, false,
                       "error: \nfwx_nat64_client_connect_to_server attach msg handlers failed Input/output error"},
        bind_failure_t{"last_handler", FWX_HOST_OP_HANDLER_ATTACH, 11, 5, 5, false,
                       "error: \nfwx_nat64_client_connect_to_server attach msg handlers failed Input/output error"},
        bind_failure_t{"cgm", FWX_HOST_OP_CGM_REGISTER, 1, 5, 5, true,
                       "error: \nfwx_nat64_bind_cmn: failed to register with CGM: Input/output error"},
        bind_failure_t{"init_frame", FWX_HOST_OP_TX_ALLOC, 1, 0, FWX_NAT64_ERR_NOMEM, false, nullptr},
        bind_failure_t{"init_send", FWX_HOST_OP_SYNC_SEND, 1, 5, 5, false,
                       "error: \nfwx_nat64_client_sync_cmd_send msg_send failed Input/output error"},
        bind_failure_t{"setup_context", FWX_HOST_OP_CHUNK_MALLOC, 1, 0, FWX_NAT64_ERR_NOMEM, false, nullptr},
        bind_failure_t{"setup_buffer", FWX_HOST_OP_TX_ALLOC, 2, 0, FWX_NAT64_ERR_NOMEM, false, nullptr},
        bind_failure_t{"setup_list", FWX_HOST_OP_LIST_INSERT_TAIL, 1, 0, FWX_NAT64_ERR_NOMEM, false, nullptr},
        bind_failure_t{"setup_send", FWX_HOST_OP_ASYNC_SEND, 1, 5, 5, false,
                       "error: \nfwx_nat64_client_async_cmd_send msg_send failed Input/output error"}),
    [](const auto &test) { return test.param.step; });
