/* Callbacks that call the library. Whatever a callback of the PAL or of the classifier manager does to the binding, the
 * library must not touch anything that is gone. The sanitizer finds accesses that have no other effect. */
#include <sys/mman.h>

#include "library_fixture.h"

#ifdef ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace {

constexpr uint32_t upload_no = 3;
constexpr uint32_t query_no = 4;
constexpr uint32_t walk_no = 9;
constexpr uint32_t mapt_rule_no = 13;

class callback_test_t : public bound_library_t {
protected:
    /** Delivers a reply of that type and of `size` bytes to a new command of a message number. */
    void answer(uint32_t msgno, uint32_t type, size_t size, uint32_t more = 0, uint32_t result = 0) {
        bytes_t reply = reply_to(send(msgno), type, size, result);
        if (size >= 48) put(reply, msgno == walk_no ? 48 : 40, more);
        deliver(reply);
    }

    void fail_completion(uint32_t msgno) {
        fwx_host_fault_arm(FWX_HOST_OP_SEND_DONE, 1, 5);
        send(msgno);
    }

    static void *first_context() {
        void *context = nullptr;
        EXPECT_EQ(fwx_list_head(info()->clnt_ctx_list, &context), 0u);
        return context;
    }
    /** Sends a command, and delivers its result before the server, which is paused, takes it. Returns its context. */
    void *answer_too_early() {
        fwx_host_server_pause(server, 1);
        EXPECT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
        void *const context = first_context();
        bytes_t named(32);
        put(named, 16, reinterpret_cast<uint64_t>(context));
        put(named, 24, info()->epoch);
        deliver(reply_to(named, 0, 36, 7));
        EXPECT_EQ(calls, lines_t{"cfg 7"});
        return context;
    }
    /** Lets the paused server take the messages, with a failure for the first. */
    void fail_late_completion() {
        fwx_host_fault_arm(FWX_HOST_OP_SEND_DONE, 1, 5);
        fwx_host_server_pause(server, 0);
        pump();
        EXPECT_EQ(calls.size(), 1u);
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
};

}  // namespace

TEST_F(callback_test_t, a_callback_may_unbind_bind_again_and_flush_wherever_it_is_called) {
    struct {
        const char *where;
        std::function<void()> reach;
    } const ways[] = {
        {"result", [&] { answer(upload_no, 0, 36); }},
        {"query with more to come", [&] { answer(query_no, query_no, 48, 3); }},
        {"last reply of a query", [&] { answer(query_no, query_no, 48); }},
        {"interface query with more to come", [&] { answer(5, 5, 64, 3); }},
        {"last reply of a pool query", [&] { answer(6, 6, 64); }},
        {"mapping query with more to come", [&] { answer(7, 7, 64, 3); }},
        {"last reply of a limit query", [&] { answer(8, 8, 64); }},
        {"failed query", [&] { answer(query_no, query_no, 48, 0, 5); }},
        {"query answered by a result", [&] { answer(query_no, 0, 36); }},
        {"walk with more to come", [&] { answer(walk_no, walk_no, 72, 1); }},
        {"last reply of a walk", [&] { answer(walk_no, walk_no, 72); }},
        {"failed walk", [&] { answer(walk_no, walk_no, 72, 0, 5); }},
        {"walk answered by a result", [&] { answer(walk_no, 0, 36); }},
        {"walk answered to the classifier manager", [&] { answer(walk_no, 10, 36); }},
        {"rule", [&] { answer(mapt_rule_no, mapt_rule_no, 64); }},
        {"refused rule", [&] { answer(mapt_rule_no, mapt_rule_no, 36, 0, 5); }},
        {"return to the classifier manager",
         [&] {
             ASSERT_EQ(fwx_host_cgm_notify(20, 2, nullptr, 7, 1, this), 0u);
             pump();
             deliver(reply_to(received.back(), 10, 36));
         }},
        {"failed completion", [&] { fail_completion(upload_no); }},
        {"failed completion of a walk", [&] { fail_completion(walk_no); }},
        {"flush",
         [&] {
             for (const uint32_t msgno : {upload_no, walk_no, query_no}) {
                 send(msgno);
             }
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
             for (int i = 0; i < 8; ++i) { /* reuses every context that was returned to the pool */
                 ASSERT_EQ(fwx_nat64_ipalias_upload_a(nullptr), 0u);
             }
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
            for (const uint32_t stop : {0U, 1U}) { /* whether a query or walk is to stop */
                stop_value = stop;
                SCOPED_TRACE(std::string(way.where) + " " + deed.what + " " + std::to_string(stop));
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
                answer(upload_no, 0, 36, 0, 9);
                EXPECT_EQ(calls, lines_t{"cfg 9"}) << "the binding works";
                fwx_nat64_unbind();
                ASSERT_EQ(bind(), 0u);
                pump();
                cgm_returns.clear();
            }
        }
    }
}

TEST_F(callback_test_t, a_flush_refuses_what_its_callbacks_frame_and_ends) {
    std::vector<uint32_t> refused;
    on_call = [&] { refused.push_back(fwx_nat64_ipalias_upload_a(this)); };
    send(upload_no);
    send(query_no);
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
    EXPECT_EQ(refused, std::vector<uint32_t>(2, FWX_NAT64_ERR_NOT_READY));
    EXPECT_EQ(outstanding(), 0u);

    send(upload_no);
    send(upload_no);
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

TEST_F(callback_test_t, a_completion_that_fails_after_the_answer_does_not_end_the_command_again_wherever_it_stood) {
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
    answer_too_early();
    fail_late_completion();
}

TEST_F(callback_test_t, a_completion_that_fails_late_leaves_the_command_alone_that_has_taken_its_context) {
    void *context = answer_too_early();
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(nullptr), 0u);
    ASSERT_EQ(first_context(), context);
    fail_late_completion();
    EXPECT_EQ(outstanding(), 1u);
    deliver(reply_to(received.back(), 0, 36, 8));
    EXPECT_EQ(calls.back(), "cfg 8, no context");
    EXPECT_EQ(calls.size(), 2u);
}

TEST_F(callback_test_t, a_completion_that_fails_within_its_commands_callback_does_not_end_it_again) {
    fwx_host_server_pause(server, 1);
    ASSERT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
    fwx_host_server_unregister(server);
    server = nullptr;
    once([&] { pump(); }); /* the flush's callback runs the loop, which delivers the completion */
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_EQ(live().pool_elements + live().tx_buffers, 0u);
}
