/* What the server sends. Replies: matching by epoch and context, minimum lengths, several replies to a query or walk,
 * refusals in every form. Unsolicited commands, and with them the notifications of the classifier manager. */
#include "library_fixture.h"

namespace {

class reply_test_t : public bound_library_t {
protected:
    /** Returns a statistics or walk reply with every value field set, and data bytes 0xd1, 0xd2… */
    bytes_t data_reply(const bytes_t &command, uint32_t msgno, uint32_t more, uint32_t result = 0) {
        static constexpr size_t data_at[] = {0, 0, 0, 0, 48, 48, 64, 64, 48, 72};
        bytes_t reply = reply_to(command, msgno, data_at[msgno] + 24, result);
        put(reply, msgno == 9 ? 48 : 40, more);
        if (msgno == 5 || msgno == 8) put(reply, 44, 0x44u);
        if (msgno == 6 || msgno == 7) put(reply, 48, uint64_t{0x4800000048});
        if (msgno == 6 || msgno == 7) put(reply, 56, 0x56u);
        if (msgno == 9) put(reply, 40, 0x40u);
        if (msgno == 9) put(reply, 56, uint64_t{0x5600000056});
        if (msgno == 9) put(reply, 64, 0x64u);
        for (size_t i = 0; i < 24; ++i)
            reply[data_at[msgno] + i] = static_cast<uint8_t>(0xd1 + i);
        return reply;
    }
    void expect_all_released() {
        EXPECT_EQ(outstanding(), 0u);
        EXPECT_EQ(live().pool_elements, 0u);
        EXPECT_EQ(fwx_host_memory_blocks_tag(1), 3u) << "client info, event cell, receive buffer";
    }
};

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

TEST_F(reply_test_t, replies_of_another_epoch_are_dropped_with_both_numbers_however_short) {
    fwx_nat64_dbg_warning_set(1);
    info()->epoch = 7;
    struct {
        uint32_t command, type;
        const char *handler;
    } const cases[] = {
        {3, 0, "fwx_nat64_async_rc_svr"}, {9, 9, "fwx_nat64_async_rsp_svr"}, {3, 10, "fwx_nat64_async_cgm_reply_svr"}};
    for (const auto &entry : cases) {
        bytes_t reply = reply_to(send(entry.command), entry.type, 40);
        put(reply, 24, 8u);
        deliver(reply);
        EXPECT_EQ(logged.back(), std::string("warning: \n") + entry.handler + " epoch(7/8)");
    }
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(outstanding(), 3u);
}

TEST_F(reply_test_t, null_foreign_and_unlisted_contexts_are_told_and_left_alone) {
    fwx_nat64_dbg_warning_set(1);
    bytes_t nobody = reply_to(bytes_t(32), 0, 36);
    put(nobody, 24, info()->epoch);
    deliver(nobody);
    EXPECT_TRUE(logged.empty());
    nobody = reply_to(bytes_t(32), 4, 80);
    put(nobody, 24, info()->epoch);
    deliver(nobody);
    EXPECT_EQ(logged.back(), "error: \nfwx_nat64_async_rsp_svr no clnt_ctx for msgno=-4");
    put<uint16_t>(nobody, 0, 0xC00B);
    deliver(nobody);
    EXPECT_EQ(logged.back(), "warning: \nfwx_nat64_async_cgm_reply_svr epoch(" + std::to_string(int(info()->epoch)) +
                                 "/" + std::to_string(int(info()->epoch)) +
                                 ") - cgm_notification_async_return() not invoked due to clnt_ctx of being NULL");
    const bytes_t query = send(4);
    deliver(reply_to(query, 5, 80));
    EXPECT_NE(logged.back().find(" found invalid cmd=4 for msgno=5"), std::string::npos);
    deliver(reply_to(query, 4, 80));
    deliver(reply_to(query, 4, 80)); /* a duplicate */
    EXPECT_EQ(logged.back(), "error: \nfwx_nat64_async_rsp_svr client context not found on list for cmd=4");
    EXPECT_EQ(reinterpret_cast<const uint32_t *>(get<uint64_t>(query, 16))[4], 14u)
        << "a released context is marked, where a platform does not know its pools";
    for (const uint64_t foreign : {uint64_t{0x1000}, get<uint64_t>(query, 16) + 8}) { /* not to be read */
        bytes_t reply = reply_to(query, 4, 80);
        put(reply, 16, foreign);
        deliver(reply);
        EXPECT_EQ(logged.back(), "error: \nfwx_nat64_async_rsp_svr client context not found on list for cmd=4");
        put<uint16_t>(reply, 0, 0xC000);
        deliver(reply);
        EXPECT_EQ(logged.back(), "error: \nfwx_nat64_async_rc_svr client context not found on list");
    }
    EXPECT_EQ(calls.size(), 1u);
    const bytes_t framed = send(6);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_REMOVE, 1, 2);
    deliver(reply_to(framed, 6, 80));
    EXPECT_EQ(logged.back(), "error: \nfwx_nat64_async_rsp_svr client context not found on list for cmd=6");
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_EQ(live().pool_elements, 1u) << "the context is left untouched";
    watch.expect_destroyed_in_use(1); /* this context is neither on the list nor in delivery */
}

TEST_F(reply_test_t, a_query_is_told_part_by_part_and_a_failed_one_with_zero_counts) {
    const struct {
        uint32_t msgno;
        const char *part, *last, *failed, *failed_briefly;
    } queries[] = {
        {4, "sys 3: d1 d2 d3", "sys 0: d1 d2 d3", "sys 0", "sys 0"}, /* a failure is one in any length */
        {5, "intf 3 44: d1 d2 d3", "intf 0 44: d1 d2 d3", "intf 0 0: d1 d2 d3", "intf 0 0"},
        {6, "pool 3 4800000048 56: d1 d2 d3", "pool 0 4800000048 56: d1 d2 d3", "pool 0 4800000048 0: d1 d2 d3",
         "pool 0 0 0"},
        {7, "mapping 3 4800000048 56: d1 d2 d3", "mapping 0 4800000048 56: d1 d2 d3",
         "mapping 0 4800000048 0: d1 d2 d3", "mapping 0 0 0"},
        {8, "limit 3 44: d1 d2 d3", "limit 0 44: d1 d2 d3", "limit 0 0: d1 d2 d3", "limit 0 0"},
    };
    for (const auto &[msgno, part, last, failed, failed_briefly] : queries) {
        SCOPED_TRACE(msgno);
        calls.clear();
        const bytes_t query = send(msgno);
        deliver(data_reply(query, msgno, 3));
        EXPECT_EQ(outstanding(), 1u);
        deliver(data_reply(query, msgno, 0));
        expect_all_released();
        deliver(data_reply(send(msgno), msgno, 3, 0x6003));
        expect_all_released();
        deliver(reply_to(send(msgno), msgno, 36, 0x6003));
        expect_all_released();
        const bytes_t lost = send(msgno);
        fwx_host_fault_arm(FWX_HOST_OP_LIST_INSERT_TAIL, 1, 5);
        deliver(data_reply(lost, msgno, 3)); /* the query ends here, without a further call */
        EXPECT_EQ(logged.back(), "error: \nfwx_nat64_clnt_ctx_requeue fwx_list_insert_tail Input/output error failed");
        expect_all_released();
        EXPECT_EQ(calls, (lines_t{part, last, failed, failed_briefly, part}));
    }
}

TEST_F(reply_test_t, a_walk_runs_through_its_statuses) {
    stop_value = 2; /* only 1 stops a walk */
    const bytes_t walk = send(9);
    deliver(data_reply(walk, 9, 1));
    deliver(data_reply(walk, 9, 0));
    EXPECT_EQ(calls, (lines_t{"walk 40 5600000056 64 2: d1 d2 d3", "walk 40 5600000056 64 3: d1 d2 d3"}));
    expect_all_released();

    bytes_t stopped = data_reply(send(9), 9, 1);
    put(stopped, 52, 1u);
    deliver(stopped);
    EXPECT_EQ(calls.back(), "walk 40 5600000056 64 1: d1 d2 d3");
    expect_all_released();
}

TEST_F(reply_test_t, a_query_or_walk_answered_by_a_bare_result_ends_as_failed) {
    for (uint32_t msgno = 4; msgno <= 9; ++msgno) {
        deliver(reply_to(send(msgno), 0, 36, 0x6001));
        expect_all_released();
    }
    deliver(reply_to(send(9), 10, 36, 5)); /* the classifier manager is told too */
    EXPECT_EQ(calls, (lines_t{"sys 0", "intf 0 0", "pool 0 0 0", "mapping 0 0 0", "limit 0 0", "walk 0 0 0 4",
                              "walk 0 0 0 4"}));
    EXPECT_EQ(cgm_returns, (std::vector<std::pair<void *, uint32_t>>{{this, 5}}));
    expect_all_released();
}

TEST_F(reply_test_t, replies_too_short_for_their_type_are_dropped_before_anything_is_touched) {
    struct {
        uint32_t command, type;
        size_t least;
    } const cases[] = {{3, 0, 36}, {4, 4, 44}, {5, 5, 48},  {8, 8, 48},  {6, 6, 60},
                       {7, 7, 60}, {9, 9, 68}, {3, 10, 36}, {3, 11, 36}, {13, 13, 64}};
    for (const auto &entry : cases) {
        SCOPED_TRACE(entry.type);
        const bytes_t command = send(entry.command);
        logged.clear();
        calls.clear();
        bytes_t reply = reply_to(command, entry.type, entry.least - 1);
        deliver(reply);
        EXPECT_EQ(logged.size(), 1u);
        EXPECT_EQ(outstanding(), 1u);
        reply.resize(20);
        deliver(reply);
        EXPECT_EQ(logged.size(), 2u);
        EXPECT_TRUE(calls.empty());
        deliver(reply_to(command, entry.type, entry.least));
        EXPECT_EQ(outstanding(), 0u);
        EXPECT_EQ(calls.size() + cgm_returns.size(), 1u);
        cgm_returns.clear();
    }
}

TEST_F(reply_test_t, a_classifier_reply_returns_the_result_to_the_manager) {
    fwx_nat64_dbg_trace_set(1);
    auto *ctx = reinterpret_cast<void *>(uintptr_t{0x1122334455});
    ASSERT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 7, 1, ctx), 0u);
    pump();
    deliver(reply_to(received.back(), 10, 36, 5));
    EXPECT_EQ(cgm_returns, (std::vector<std::pair<void *, uint32_t>>{{ctx, 5}}));
    EXPECT_NE(logged.back().find("- cgm_notification_async_return() for PAL CTX: 0x22334455, Input/output error"),
              std::string::npos);
    EXPECT_TRUE(calls.empty());
    deliver(reply_to(received.back(), 10, 36, 5));
    EXPECT_EQ(cgm_returns.size(), 1u);
    EXPECT_EQ(logged.back(), "error: \nfwx_nat64_async_cgm_reply_svr client context not found on list");
    expect_all_released();
}

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
