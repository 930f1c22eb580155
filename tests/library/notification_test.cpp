/* Unsolicited commands of the server, and notifications of the classifier manager. */
#include "library_fixture.h"

namespace {

class notification_test_t : public bound_library_t {
protected:
    static bytes_t debug_event(uint32_t selector, uint32_t on) {
        bytes_t message = event(4, 28);
        put(message, 20, selector);
        put(message, 24, on);
        return message;
    }
    uint8_t classifier_data[24] = {0xc0, 0xc1, 0xc2};
    void *data_words[1] = {classifier_data};
};

}  // namespace

TEST_F(notification_test_t, the_wakeup_is_answered_with_a_resume_and_not_handed_on) {
    fwx_nat64_dbg_info_set(1);
    deliver(event(2, 20));
    ASSERT_EQ(received.size(), 1u);
    expect_message(received[0], 32, {{0, "0c c0 60 00"}});
    EXPECT_EQ(logged,
              (lines_t{"info: \nfwx_nat64_async_unsol_notify_svr FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP  is received",
                       "info: \nNAT_CLIENT: fwx_nat64_client_pal_cmd_q_resume_send_a entered",
                       "info: \nfwx_nat64_client_pal_cmd_q_resume_send_a FWX_NAT64_EVENT_PAL_CMD_Q_RESUME is sent"}));
    deliver(reply_to(received[0], 0, 36));
    EXPECT_EQ(outstanding(), 0u);
    fwx_host_fault_arm(FWX_HOST_OP_TX_ALLOC, 1, 0);
    deliver(event(2, 20));
    EXPECT_EQ(logged.back(),
              std::string("info: \nfwx_nat64_async_unsol_notify_svr pal_cmd_q_resume_send_a  is failed - ") +
                  xerr_strerror(FWX_NAT64_ERR_NOMEM));
}

TEST_F(notification_test_t, records_events_and_mappings_reach_their_callbacks) {
    bytes_t record = event(0, 42);
    put(record, 20, 0x20u);
    put(record, 24, 0x24u);
    put(record, 32, 0x32u);
    deliver(record);
    put<uint16_t>(record, 40, 0x100);
    deliver(record);
    deliver(event(1, 20));
    bytes_t mapping = event(3, 62);
    put(mapping, 20, 0x20u);
    put(mapping, 28, 0x28u);
    deliver(mapping);
    expect_message(data, 24, {{0, "20 00 00 00"}, {8, "01 00 00 00"}, {16, "28 00 00 00 00 00 00 00"}});
    mapping[61] = 1;
    deliver(mapping);
    expect_message(data, 24, {{8, "00 00 00 00"}});
    const std::string told = "mapping 0 0 1: 20 00 00, no context";
    EXPECT_EQ(calls, (lines_t{"record 3 24 20 32", "record 1 24 20 32", "event", told, told}));
}

TEST_F(notification_test_t, missing_callbacks_are_skipped) {
    info()->unsol_cb = {};
    info()->reply_cb.mapping_stats_cb = nullptr;
    deliver(event(0, 42));
    deliver(event(1, 20));
    deliver(event(3, 62));
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(logged.empty());
}

TEST_F(notification_test_t, short_and_unknown_commands_are_told_and_ignored) {
    fwx_nat64_dbg_warning_set(1);
    for (const auto &[code, least] : {std::pair<uint32_t, size_t>{0, 42}, {3, 62}, {4, 28}}) {
        logged.clear();
        deliver(event(code, least - 1));
        EXPECT_EQ(logged.size(), 1u);
    }
    logged.clear();
    deliver(event(0, 19));
    EXPECT_EQ(logged.size(), 1u);
    deliver(event(9, 77));
    EXPECT_EQ(logged.back(), "warning: \nfwx_nat64_unsol_cmd unsupported cmd 9 sz 77 - ignoring");
    EXPECT_TRUE(calls.empty());
}

TEST_F(notification_test_t, the_debug_command_sets_the_selected_flags) {
    struct {
        uint32_t selector, on;
        const char *flags;
    } const cases[] = {{1, 1, "1010"}, {2, 1, "1011"}, {3, 1, "1111"}, {4, 0, "0111"}, {5, 0, "0000"}, {5, 1, "1111"}};
    EXPECT_EQ(flags(), "1000");
    for (const auto &entry : cases) {
        deliver(debug_event(entry.selector, entry.on));
        EXPECT_EQ(flags(), entry.flags);
    }
    logged.clear();
    deliver(debug_event(0, 0));
    EXPECT_EQ(logged.back(), std::string("error: \nfwx_nat64_unsol_cmd NAT64 CLIENT LIB debugs not enabled - ") +
                                 xerr_strerror(FWX_NAT64_ERR_INVALID));
    deliver(debug_event(6, 0));
    EXPECT_EQ(logged.back(), "console: \nFWX NAT64 CLIENT: Invalid debug level");
    EXPECT_EQ(flags(), "1111");
}

TEST_F(notification_test_t, classifier_notifications_become_commands_in_both_forms) {
    void *ctx = this;
    EXPECT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 7, 0, nullptr), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, data_words, 8, 0, nullptr), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 9, 1, ctx), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, data_words, 10, 5, ctx), 0u);
    pump();
    ASSERT_EQ(received.size(), 4u);
    expect_message(received[0], 24, {{0, "03 80 60 00"}, {16, "15 00 00 00 07 00 00 00"}});
    expect_message(received[1], 48, {{0, "03 80 60 00"}, {16, "16 00 00 00 c0 c1 c2 00"}, {44, "08 00 00 00"}});
    expect_message(received[2], 44, {{32, "15 00 00 00 09 00 00 00"}});
    expect_message(received[3], 68, {{32, "16 00 00 00 c0 c1 c2 00"}, {60, "0a 00 00 00"}});
    EXPECT_EQ(outstanding(), 2u);
}

TEST_F(notification_test_t, classifier_notifications_that_lack_something_are_refused) {
    void *ctx = this;
    constexpr uint32_t rejected = 0xa0300216;
    for (const uint32_t async : {0u, 1u}) {
        for (const uint32_t op : {0u, 1u, 3u, 6u, 14u, 15u, 99u}) {
            EXPECT_EQ(fwx_host_cgm_notify(20, op, data_words, 1, async, ctx), rejected) << op;
        }
        EXPECT_EQ(fwx_host_cgm_notify(20, 5, nullptr, 1, async, nullptr), 0u);
        EXPECT_EQ(fwx_host_cgm_notify(20, 4, nullptr, 1, async, ctx), rejected);
    }
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, data_words, 1, 1, nullptr), rejected);
    void *no_data[1] = {nullptr};
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, no_data, 1, 1, ctx), FWX_NAT64_ERR_INVALID);
    fwx_nat64_dbg_info_set(1);
    EXPECT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 1, 1, nullptr), rejected);
    EXPECT_EQ(
        logged,
        (lines_t{"info: \nFWX NAT64 EA - fwx_nat64_cgm_notification_handler: op=2 batch_id=1 async=1 ctx=(nil)",
                 "info: \nFWX NAT64 EA - fwx_nat64_cgm_notification_handler: CGM_OP_END_BATCH event implemented"}));
    pump();
    EXPECT_TRUE(received.empty());
}

TEST_F(notification_test_t, failures_of_classifier_commands_are_logged_and_returned_as_each_form_does) {
    const std::string end_batch_line =
        "error: \nfwx_nat64_cgm_notification_handler: failed to send END_BATCH to server , ";
    const std::string ctrl_line = "error: \nfwx_nat64_client_ctrl_cmd_send - ";
    sync_result = 5;
    EXPECT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 1, 0, nullptr), 5u);
    EXPECT_EQ(logged, (lines_t{ctrl_line + "fwx_nat64_client_sync_cmd_send failed - Input/output error",
                               end_batch_line + "Input/output error"}));
    logged.clear();
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, data_words, 1, 0, nullptr), 0u);
    EXPECT_EQ(logged.size(), 1u);
    fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, 5);
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, data_words, 1, 1, this), 5u);
    fwx_host_fault_arm(FWX_HOST_OP_TX_ALLOC, 1, 0);
    EXPECT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 1, 1, this), FWX_NAT64_ERR_NOMEM);
    EXPECT_EQ(logged.back(), end_batch_line + xerr_strerror(FWX_NAT64_ERR_NOMEM));
    fwx_nat64_unbind();
    logged.clear();
    EXPECT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 1, 0, nullptr), FWX_NAT64_ERR_NOT_READY);
    EXPECT_EQ(logged[0], ctrl_line + "EA not initialized yet");
    EXPECT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 1, 1, this), FWX_NAT64_ERR_NOT_READY);
}
