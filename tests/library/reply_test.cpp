#include "library_fixture.h"

namespace {

class reply_test_t : public library_fixture_t {
protected:
    void SetUp() override {
        library_fixture_t::SetUp();
        bind_quietly();
    }
    /** Sends one command of a message number and returns it as the server got it. */
    bytes_t send(uint32_t msgno) {
        const fwx_nat64_sess_walk_filter_t filter{};
        const fwx_nat64_mapt_dmr_t dmr = {1, {}};
        uint32_t rc = 1;
        switch (msgno) {
            case 3:
                rc = fwx_nat64_ipalias_upload_a(this);
                break;
            case 4:
                rc = fwx_nat64_stats_sys_query_a(0, this);
                break;
            case 5:
                rc = fwx_nat64_stats_intf_query_a(this);
                break;
            case 6:
                rc = fwx_nat64_stats_pool_all_query_a(0, nullptr, 1, 0, this);
                break;
            case 7:
                rc = fwx_nat64_stats_mapping_all_query_a(0, nullptr, 1, 0, this);
                break;
            case 8:
                rc = fwx_nat64_stats_limit_all_query_a(0, 1, this);
                break;
            case 9:
                rc = fwx_nat64_session_walk_a(1, &filter, 0, 0, 0, walk_cb, this);
                break;
            case 13:
                rc = fwx_nat64_mapt_dmr_set_a(1, &dmr, this);
                break;
            default:
                break;
        }
        EXPECT_EQ(rc, 0u);
        pump();
        return received.back();
    }
    /** A statistics or walk reply with every value field set, and 0xd1, 0xd2… at its data address. */
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

class statistics_test_t : public reply_test_t, public testing::WithParamInterface<uint32_t> {
protected:
    static const char *callback_of(uint32_t msgno) {
        static constexpr const char *names[] = {"", "", "", "", "sys", "intf", "pool", "mapping", "limit"};
        return names[msgno];
    }
};

}  // namespace

TEST_F(reply_test_t, a_result_reply_reaches_its_callback_once_and_a_duplicate_is_refused) {
    const bytes_t reply = reply_to(send(3), 0, 36, 0x6003);
    deliver(reply);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].result, 0x6003u);
    EXPECT_EQ(calls[0].pal_ctx, this);
    expect_all_released();
    EXPECT_TRUE(logged.empty());
    deliver(reply);
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_EQ(logged, std::vector<std::string>{"error: \nfwx_nat64_async_rc_svr client context not found on list"});
}

TEST_F(reply_test_t, replies_of_another_epoch_are_dropped_with_both_numbers) {
    fwx_nat64_dbg_warning_set(1);
    info()->epoch = 7;
    struct {
        uint32_t command, type;
        const char *handler;
    } const cases[] = {
        {3, 0, "fwx_nat64_async_rc_svr"}, {4, 4, "fwx_nat64_async_rsp_svr"}, {3, 10, "fwx_nat64_async_cgm_reply_svr"}};
    for (const auto &entry : cases) {
        bytes_t reply = reply_to(send(entry.command), entry.type, 80);
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
    for (const uint64_t foreign : {uint64_t{0x1000}, get<uint64_t>(query, 16) + 8}) { /* which must not be read */
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
}

TEST_P(statistics_test_t, a_last_reply_hands_its_fields_on_and_releases_the_query) {
    const uint32_t msgno = GetParam();
    fwx_nat64_dbg_info_set(1);
    const bytes_t query = send(msgno);
    deliver(data_reply(query, msgno, 0));
    ASSERT_EQ(calls.size(), 1u);
    const call_t &call = calls[0];
    EXPECT_EQ(call.callback, callback_of(msgno));
    EXPECT_EQ(call.pal_ctx, this);
    EXPECT_EQ(call.result, 0u);
    EXPECT_EQ(call.value, msgno == 4 ? 0u : msgno == 5 || msgno == 8 ? 0x44u : 0x4800000048u);
    EXPECT_EQ(call.value2, msgno == 6 || msgno == 7 ? 0x56u : 0u);
    EXPECT_EQ(hex(slice(call.data, 0, 3)), "d1 d2 d3");
    EXPECT_NE(logged.back().find("\nfwx_nat64_async_rsp_svr client ctx=0x"), std::string::npos);
    EXPECT_NE(logged.back().find(" msgno=" + std::to_string(msgno) + " - freed"), std::string::npos);
    expect_all_released();
}

TEST_P(statistics_test_t, more_replies_keep_the_query_at_the_tail_until_the_last) {
    const uint32_t msgno = GetParam();
    const bytes_t query = send(msgno);
    send(3);
    deliver(data_reply(query, msgno, 3));
    EXPECT_EQ(calls.back().result, 3u);
    void *head = nullptr;
    ASSERT_EQ(fwx_list_head(info()->clnt_ctx_list, &head), 0u);
    EXPECT_NE(reinterpret_cast<uintptr_t>(head), get<uint64_t>(query, 16)) << "the query is behind the later command";
    EXPECT_EQ(outstanding(), 2u);
    deliver(data_reply(query, msgno, 0));
    EXPECT_EQ(calls.size(), 2u);
    EXPECT_EQ(outstanding(), 1u);
}

TEST_P(statistics_test_t, a_stop_consumes_the_rest_without_a_call) {
    const uint32_t msgno = GetParam();
    stop_value = 1;
    const bytes_t query = send(msgno);
    deliver(data_reply(query, msgno, 2));
    deliver(data_reply(query, msgno, 1));
    EXPECT_EQ(outstanding(), 1u);
    deliver(data_reply(query, msgno, 0));
    EXPECT_EQ(calls.size(), 1u);
    expect_all_released();
}

TEST_P(statistics_test_t, a_failed_query_is_told_with_zero_counts) {
    const uint32_t msgno = GetParam();
    const bool short_form_is_whole = msgno == 4;
    for (const bool whole : {true, false}) {
        calls.clear();
        const bytes_t query = send(msgno);
        deliver(whole ? data_reply(query, msgno, 3, 0x6003) : reply_to(query, msgno, 36, 0x6003));
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].result, 0u);
        EXPECT_EQ(calls[0].value, whole && (msgno == 6 || msgno == 7) ? 0x4800000048u : 0u);
        EXPECT_EQ(calls[0].value2, 0u);
        EXPECT_EQ(calls[0].has_data, whole && !short_form_is_whole);
        expect_all_released();
    }
}

TEST_P(statistics_test_t, a_query_that_cannot_be_put_back_ends) {
    const uint32_t msgno = GetParam();
    const bytes_t query = send(msgno);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_INSERT_TAIL, 1, 5);
    deliver(data_reply(query, msgno, 1));
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_EQ(logged, std::vector<std::string>{
                          "error: \nfwx_nat64_clnt_ctx_requeue fwx_list_insert_tail Input/output error failed"});
    expect_all_released();
}

INSTANTIATE_TEST_SUITE_P(every_query, statistics_test_t, testing::Values(4u, 5u, 6u, 7u, 8u));

TEST_F(reply_test_t, a_walk_runs_through_its_statuses) {
    const bytes_t walk = send(9);
    deliver(data_reply(walk, 9, 1));
    deliver(data_reply(walk, 9, 0));
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].status, 2u);
    EXPECT_EQ(calls[0].result, 0x40u);
    EXPECT_EQ(calls[0].value, 0x5600000056u);
    EXPECT_EQ(calls[0].value2, 0x64u);
    EXPECT_EQ(hex(slice(calls[0].data, 0, 3)), "d1 d2 d3");
    EXPECT_EQ(calls[1].status, 3u);
    expect_all_released();

    bytes_t stopped = data_reply(send(9), 9, 1);
    put(stopped, 52, 1u);
    deliver(stopped);
    EXPECT_EQ(calls.back().status, 1u);
    expect_all_released();
}

TEST_F(reply_test_t, a_walk_that_the_pal_stopped_is_consumed_silently) {
    stop_value = 1;
    const bytes_t walk = send(9);
    deliver(data_reply(walk, 9, 1));
    deliver(data_reply(walk, 9, 1));
    EXPECT_EQ(outstanding(), 1u);
    deliver(data_reply(walk, 9, 1, 5)); /* an error ends it */
    EXPECT_EQ(calls.size(), 1u);
    expect_all_released();
}

TEST_F(reply_test_t, a_failed_walk_is_told_once_however_it_fails) {
    fwx_nat64_dbg_warning_set(1);
    deliver(reply_to(send(9), 9, 36, 0x6003));
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].status, 4u);
    EXPECT_FALSE(calls[0].has_data);
    EXPECT_EQ(logged.back().find("warning: \nfwx_nat64_async_rsp_svr error: PAL ctx=0x"), 0u);
    expect_all_released();

    const bytes_t walk = send(9);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_INSERT_TAIL, 1, 5);
    deliver(data_reply(walk, 9, 1));
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].status, 4u);
    EXPECT_EQ(calls[1].result, 0u);
    EXPECT_EQ(logged.back(), "error: \nfwx_nat64_async_rsp_svr fwx_list_insert_tail Input/output error failed");
    expect_all_released();

    void *msg = nullptr; /* a walk without a record delivers nothing */
    ASSERT_EQ(fwx_nat64_client_async_cmd_init(144, 9, this, nullptr, &msg), 0u);
    ASSERT_EQ(fwx_nat64_client_async_cmd_send(msg, 144), 0u);
    pump();
    deliver(data_reply(received.back(), 9, 1));
    EXPECT_EQ(calls.size(), 2u);
    expect_all_released();
}

TEST_F(reply_test_t, a_query_or_walk_answered_by_a_bare_result_ends_as_failed) {
    const char *const callbacks[] = {"sys", "intf", "pool", "mapping", "limit", "walk"};
    for (uint32_t msgno = 4; msgno <= 9; ++msgno) {
        SCOPED_TRACE(msgno);
        calls.clear();
        deliver(reply_to(send(msgno), 0, 36, 0x6001));
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].callback, callbacks[msgno - 4]);
        EXPECT_EQ(calls[0].pal_ctx, this);
        EXPECT_EQ(calls[0].result, 0u);
        EXPECT_FALSE(calls[0].has_data);
        EXPECT_EQ(calls[0].status, msgno == 9 ? 4u : 0u);
        expect_all_released();
    }
    deliver(reply_to(send(9), 10, 36, 5)); /* which the classifier manager hears of all the same */
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].status, 4u);
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

TEST_F(reply_test_t, a_refused_rule_command_without_its_fields_hears_the_servers_result) {
    fwx_nat64_dbg_info_set(1);
    const bytes_t refusal = reply_to(send(13), 13, 36, 0x6003);
    logged.clear();
    deliver(refusal);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].result, 0x6003u);
    EXPECT_EQ(logged.size(), 1u) << "what came, and no line about its end";
    deliver(refusal);
    EXPECT_EQ(logged.back(), "error: \nfwx_nat64_async_rsp_svr client context not found on list for cmd=13");
    expect_all_released();
}

TEST_F(reply_test_t, a_reply_of_an_earlier_binding_is_told_as_such_however_short_it_is) {
    bytes_t reply = reply_to(send(9), 9, 40);
    put(reply, 24, info()->epoch + 1);
    fwx_nat64_dbg_warning_set(1);
    deliver(reply);
    EXPECT_EQ(logged.back().find("warning: \nfwx_nat64_async_rsp_svr epoch("), 0u) << logged.back();
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
}

TEST_F(reply_test_t, a_reply_number_that_is_not_served_releases_its_context) {
    /* The service routes by the whole key, so the handler is called through the channel's own type 4 route only when a
     * message is rewritten on its way; the tap is where a test can do that. */
    const bytes_t command = send(3);
    bytes_t reply = reply_to(command, 4, 80);
    fwx_host_tap_set(
        [](void *, fwx_host_direction_t, const void *msg, size_t) {
            auto *bytes = static_cast<uint8_t *>(const_cast<void *>(msg));
            if (bytes[0] == 4) bytes[0] = 3;
        },
        nullptr);
    deliver(reply);
    fwx_host_tap_set(nullptr, nullptr);
    EXPECT_EQ(logged, std::vector<std::string>{"error: \nfwx_nat64_async_rsp_svr invalid reply code 3"});
    EXPECT_TRUE(calls.empty());
    expect_all_released();
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
