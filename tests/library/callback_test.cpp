/*
 * Callbacks that call the library. Whatever a callback of the PAL or of the classifier manager does to the binding, the
 * library must not touch anything that is gone. The sanitizer finds accesses that have no other effect.
 */
#include <sys/mman.h>

#include "library_fixture.h"

#ifdef ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace {

class callback_test_t : public library_fixture_t {
protected:
    void SetUp() override {
        library_fixture_t::SetUp();
        bind_quietly();
    }

    bytes_t sent(uint32_t rc) {
        EXPECT_EQ(rc, 0u);
        pump();
        return received.back();
    }
    bytes_t upload() { return sent(fwx_nat64_ipalias_upload_a(this)); }
    bytes_t query() { return sent(fwx_nat64_stats_sys_query_a(0, this)); }
    bytes_t walk() { return sent(fwx_nat64_session_walk_a(1, &filter_, 0, 0, 0, walk_cb, this)); }
    bytes_t rule() { return sent(fwx_nat64_mapt_dmr_set_a(FWX_NAT64_OP_ADD, &dmr_, this)); }

    /* The other queries. */
    bytes_t list_query(uint32_t msgno) {
        switch (msgno) {
            case FWX_NAT64_MSG_STATS_INTF:
                return sent(fwx_nat64_stats_intf_query_a(this));
            case FWX_NAT64_MSG_STATS_POOL_ALL:
                return sent(fwx_nat64_stats_pool_all_query_a(0, nullptr, 1, 0, this));
            case FWX_NAT64_MSG_STATS_MAPPING_ALL:
                return sent(fwx_nat64_stats_mapping_all_query_a(0, nullptr, 1, 0, this));
            default:
                return sent(fwx_nat64_stats_limit_all_query_a(0, 1, this));
        }
    }
    void answer_list_query(uint32_t msgno, uint32_t more) {
        bytes_t reply = reply_to(list_query(msgno), msgno, 64);
        put(reply, 40, more);
        deliver(reply);
    }

    /** Delivers a result to the first outstanding command, even if the server has not taken its message yet. Returns
     * the context of the command. */
    void *answer_first(uint32_t result) {
        void *context = nullptr;
        EXPECT_EQ(fwx_list_head(info()->clnt_ctx_list, &context), 0u);
        bytes_t named(32);
        put(named, 16, reinterpret_cast<uint64_t>(context));
        put(named, 24, info()->epoch);
        deliver(reply_to(named, 0, 36, result));
        return context;
    }

    static bytes_t query_reply(const bytes_t &command, uint32_t more) {
        bytes_t reply = reply_to(command, 4, 48);
        put(reply, 40, more);
        return reply;
    }
    static bytes_t walk_reply(const bytes_t &command, uint32_t more, uint32_t result = 0) {
        bytes_t reply = reply_to(command, 9, 72, result);
        put(reply, 48, more);
        return reply;
    }

    /** Makes the next callback call `act`, and no later one. */
    void once(std::function<void()> act) {
        on_call = [this, act = std::move(act)] {
            on_call = nullptr;
            act();
        };
    }
    void rebind() {
        fwx_nat64_unbind();
        ASSERT_EQ(bind(), 0u);
    }
    /** Sends enough commands to reuse every context that was returned to the pool. */
    void take_contexts() {
        for (int i = 0; i < 8; ++i)
            ASSERT_EQ(fwx_nat64_ipalias_upload_a(nullptr), 0u);
    }

    const fwx_nat64_sess_walk_filter_t filter_{};
    const fwx_nat64_mapt_dmr_t dmr_ = {1, {}};
};

}  // namespace

TEST_F(callback_test_t, a_callback_may_unbind_bind_again_and_flush_wherever_it_is_called) {
    struct {
        const char *where;
        std::function<void()> reach;
    } const ways[] = {
        {"result", [&] { deliver(reply_to(upload(), 0, 36)); }},
        {"query with more to come", [&] { deliver(query_reply(query(), 3)); }},
        {"last reply of a query", [&] { deliver(query_reply(query(), 0)); }},
        {"interface query with more to come", [&] { answer_list_query(FWX_NAT64_MSG_STATS_INTF, 3); }},
        {"last reply of a pool query", [&] { answer_list_query(FWX_NAT64_MSG_STATS_POOL_ALL, 0); }},
        {"mapping query with more to come", [&] { answer_list_query(FWX_NAT64_MSG_STATS_MAPPING_ALL, 3); }},
        {"last reply of a limit query", [&] { answer_list_query(FWX_NAT64_MSG_STATS_LIMIT_ALL, 0); }},
        {"failed query", [&] { deliver(reply_to(query(), 4, 48, 5)); }},
        {"query answered by a result", [&] { deliver(reply_to(query(), 0, 36)); }},
        {"walk with more to come", [&] { deliver(walk_reply(walk(), 1)); }},
        {"walk that is to stop",
         [&] {
             stop_value = 1;
             deliver(walk_reply(walk(), 1));
             stop_value = 0;
         }},
        {"last reply of a walk", [&] { deliver(walk_reply(walk(), 0)); }},
        {"failed walk", [&] { deliver(walk_reply(walk(), 0, 5)); }},
        {"walk answered by a result", [&] { deliver(reply_to(walk(), 0, 36)); }},
        {"walk answered to the classifier manager", [&] { deliver(reply_to(walk(), 10, 36)); }},
        {"rule", [&] { deliver(reply_to(rule(), 13, 64)); }},
        {"refused rule", [&] { deliver(reply_to(rule(), 13, 36, 5)); }},
        {"return to the classifier manager",
         [&] {
             ASSERT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 7, 1, this), 0u);
             pump();
             deliver(reply_to(received.back(), 10, 36));
         }},
        {"failed completion",
         [&] {
             fwx_host_fault_arm(FWX_HOST_OP_SEND_DONE, 1, 5);
             ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
             pump();
         }},
        {"failed completion of a walk",
         [&] {
             fwx_host_fault_arm(FWX_HOST_OP_SEND_DONE, 1, 5);
             ASSERT_EQ(fwx_nat64_session_walk_a(1, &filter_, 0, 0, 0, walk_cb, this), 0u);
             pump();
         }},
        {"flush",
         [&] {
             upload();
             walk();
             query();
             EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
         }},
    };
    struct {
        const char *what;
        std::function<void()> act;
    } const deeds[] = {
        {"unbinds", [] { fwx_nat64_unbind(); }},
        {"binds again", [&] { rebind(); }},
        {"binds again and sends",
         [&] {
             rebind();
             take_contexts();
         }},
        {"flushes", [] { fwx_nat64_clnt_cleanup(); }},
        {"flushes and sends",
         [&] {
             fwx_nat64_clnt_cleanup();
             fwx_nat64_ipalias_upload_a(nullptr); /* refused: a flush is in progress */
         }},
    };
    for (const auto &way : ways) {
        for (const auto &deed : deeds) {
            SCOPED_TRACE(std::string(way.where) + " " + deed.what);
            bool has_acted = false;
            once([&] {
                has_acted = true;
                deed.act();
            });
            way.reach();
            EXPECT_TRUE(has_acted);
            on_call = nullptr;
            if (info() == nullptr) {
                ASSERT_EQ(bind(), 0u);
            }
            pump();
            calls.clear();
            deliver(reply_to(upload(), 0, 36, 9));
            ASSERT_EQ(calls.size(), 1u) << "the binding works";
            EXPECT_EQ(calls[0].result, 9u);
            fwx_nat64_unbind();
            ASSERT_EQ(bind(), 0u);
            pump();
            cgm_returns.clear();
        }
    }
}

TEST_F(callback_test_t, a_flush_refuses_what_its_callbacks_frame_and_ends) {
    std::vector<uint32_t> refused;
    on_call = [&] { refused.push_back(fwx_nat64_ipalias_upload_a(this)); };
    upload();
    query();
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
    EXPECT_EQ(refused, std::vector<uint32_t>(2, FWX_NAT64_ERR_NOT_READY));
    EXPECT_EQ(outstanding(), 0u);

    upload();
    upload();
    refused.clear();
    on_call = [&] {
        if (refused.empty()) rebind();
        refused.push_back(fwx_nat64_ipalias_upload_a(this));
    };
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
    EXPECT_EQ(refused, std::vector<uint32_t>{0u}) << "a new binding is not the one that is flushed";
    on_call = nullptr;
    EXPECT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
}

TEST_F(callback_test_t,
       a_completion_that_fails_after_the_answer_does_not_end_the_command_again_wherever_its_message_stood) {
    constexpr uintptr_t segment = uintptr_t{1} << 32; /* a multiple of it has a zero low half */
    constexpr size_t page = 4096;
    void *place = MAP_FAILED;
    for (uintptr_t at = 0x5000 * segment; place == MAP_FAILED; at += segment) {
        place = mmap(reinterpret_cast<void *>(at - page), 2 * page, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
        ASSERT_LT(at, 0x5100 * segment);
    }
#ifdef ADDRESS_SANITIZER /* the list of free buffers passes through this page, so the leak checker must scan it */
    __lsan_register_root_region(place, 2 * page);
#endif
    fwx_host_tx_buffer_offer(static_cast<uint8_t *>(place) + page);

    fwx_host_server_pause(server, 1);
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
    answer_first(7);
    ASSERT_EQ(calls.size(), 1u);
    fwx_host_fault_arm(FWX_HOST_OP_SEND_DONE, 1, 5);
    fwx_host_server_pause(server, 0);
    pump();
    EXPECT_EQ(calls.size(), 1u);
}

TEST_F(callback_test_t, a_completion_that_fails_late_leaves_the_command_alone_that_has_taken_its_context) {
    fwx_host_server_pause(server, 1);
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
    void *context = answer_first(7); /* before the server has taken the command */
    ASSERT_EQ(calls.size(), 1u);

    ASSERT_EQ(fwx_nat64_ipalias_upload_a(context), 0u);
    void *taken = nullptr;
    ASSERT_EQ(fwx_list_head(info()->clnt_ctx_list, &taken), 0u);
    ASSERT_EQ(taken, context);
    fwx_host_fault_arm(FWX_HOST_OP_SEND_DONE, 1, 5);
    fwx_host_server_pause(server, 0);
    pump();
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_EQ(outstanding(), 1u);
    deliver(reply_to(received.back(), 0, 36, 8));
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].pal_ctx, context);
    EXPECT_EQ(calls[1].result, 8u);
}

TEST_F(callback_test_t, a_completion_that_fails_within_its_commands_callback_does_not_end_it_again) {
    fwx_host_server_pause(server, 1);
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
    fwx_host_server_unregister(server);
    server = nullptr;
    once([&] { pump(); }); /* the flush's callback runs the loop, which delivers the completion */
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_EQ(live().pool_elements, 0u);
    EXPECT_EQ(live().tx_buffers, 0u);
}
