/* Notifications: unsolicited commands of the server, and notifications of the classifier manager. Tables give the
 * lengths, callbacks, flags and results of each. */
#include "library_fixture.h"

namespace {

class notification_test_t : public bound_library_t {
protected:
    static bytes_t event(uint32_t code, size_t size) {
        bytes_t message(std::max<size_t>(size, 20));
        put<uint16_t>(message, 0, 0xC001);
        put<uint16_t>(message, 2, 96);
        put(message, 16, code);
        message.resize(size);
        return message;
    }
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
    EXPECT_EQ(hex(slice(received[0], 0, 4)), "0c c0 60 00");
    EXPECT_EQ(received[0].size(), 32u);
    EXPECT_EQ(logged,
              (std::vector<std::string>{
                  "info: \nfwx_nat64_async_unsol_notify_svr FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP  is received",
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
    mapping[61] = 1;
    deliver(mapping);
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[0].result, 3u);
    EXPECT_EQ(hex(calls[0].data), "24 00 00 00 20 00 00 00 32 00 00 00");
    EXPECT_EQ(calls[1].result, 1u);
    EXPECT_EQ(calls[2].callback, "event");
    EXPECT_EQ(calls[3].callback, "mapping");
    EXPECT_EQ(calls[3].pal_ctx, nullptr);
    EXPECT_EQ(calls[3].result, 0u);
    EXPECT_EQ(calls[3].value, 0u);
    EXPECT_EQ(calls[3].value2, 1u);
    EXPECT_EQ(hex(slice(calls[3].data, 0, 4)), "20 00 00 00");
    EXPECT_EQ(hex(slice(calls[3].data, 8, 4)), "01 00 00 00");
    EXPECT_EQ(hex(slice(calls[3].data, 16, 8)), "28 00 00 00 00 00 00 00");
    EXPECT_EQ(hex(slice(calls[4].data, 8, 4)), "00 00 00 00");
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
    EXPECT_EQ(hex(slice(received[0], 0, 4)), "03 80 60 00");
    EXPECT_EQ(hex(slice(received[0], 16, 99)), "15 00 00 00 07 00 00 00");
    EXPECT_EQ(hex(slice(received[1], 0, 4)), "03 80 60 00");
    EXPECT_EQ(hex(slice(received[1], 16, 8)), "16 00 00 00 c0 c1 c2 00");
    EXPECT_EQ(hex(slice(received[1], 44, 99)), "08 00 00 00");
    EXPECT_EQ(received[2].size(), 44u);
    EXPECT_EQ(hex(slice(received[2], 32, 8)), "15 00 00 00 09 00 00 00");
    EXPECT_EQ(received[3].size(), 68u);
    EXPECT_EQ(hex(slice(received[3], 32, 8)), "16 00 00 00 c0 c1 c2 00");
    EXPECT_EQ(hex(slice(received[3], 60, 4)), "0a 00 00 00");
    EXPECT_EQ(outstanding(), 2u);
}

TEST_F(notification_test_t, classifier_notifications_that_lack_something_are_refused) {
    void *ctx = this;
    constexpr uint32_t rejected = 0xa0300216;
    for (const uint32_t op : {0u, 1u, 3u, 6u, 14u, 15u, 99u}) {
        EXPECT_EQ(fwx_host_cgm_notify(20, op, data_words, 1, 0, ctx), rejected);
        EXPECT_EQ(fwx_host_cgm_notify(20, op, data_words, 1, 1, ctx), rejected);
    }
    EXPECT_EQ(fwx_host_cgm_notify(20, 5, nullptr, 1, 0, nullptr), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(20, 5, nullptr, 1, 1, nullptr), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, nullptr, 1, 0, ctx), rejected);
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, nullptr, 1, 1, ctx), rejected);
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, data_words, 1, 1, nullptr), rejected);
    void *no_data[1] = {nullptr};
    EXPECT_EQ(fwx_host_cgm_notify(20, 4, no_data, 1, 1, ctx), FWX_NAT64_ERR_INVALID);
    fwx_nat64_dbg_info_set(1);
    EXPECT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 1, 1, nullptr), rejected);
    EXPECT_EQ(logged,
              (std::vector<std::string>{
                  "info: \nFWX NAT64 EA - fwx_nat64_cgm_notification_handler: op=2 batch_id=1 async=1 ctx=(nil)",
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
    EXPECT_EQ(logged,
              (std::vector<std::string>{ctrl_line + "fwx_nat64_client_sync_cmd_send failed - Input/output error",
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
