/* Replies of the server: matching by epoch and context, minimum lengths, several replies to a query or walk, and
 * refusals in every form. */
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
