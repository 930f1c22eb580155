/* Statistics queries and session walks: entries, pages, filters, and the turns in which long answers are sent. */
#include "model_fixture.h"
#include "tests/support/runtime_directory.h"

namespace {

class query_t : public model_fixture_t {
protected:
    static message_t all(uint16_t msgno, uint32_t count, uint64_t cookie = 0) {
        return command(msgno, 64).put<uint32_t>(36, 1).put<uint32_t>(44, count).put<uint64_t>(56, cookie);
    }
    static message_t walk(uint32_t count) { return command(9, 144).put<uint32_t>(48, count); }
    void add_pools(uint32_t count) {
        for (uint32_t id = 1; id <= count; ++id) {
            const uint32_t net = (id & 0xff) << 16 | (id & 0xff00); /* 192.high.low.0 */
            EXPECT_EQ(result_of(config(4, 24, {id, 1, 0, id, 0x010000c0 | net, 0x040000c0 | net})), 0u);
        }
    }
    void add_static(uint32_t id, uint32_t src, uint32_t dst) {
        EXPECT_EQ(result_of(config(8, 84, {id}).put<uint32_t>(48, src).put<uint32_t>(84, dst)), 0u);
    }
    void process_two_turns_with(const std::vector<message_t> &commands) {
        for (const message_t &msg : commands) {
            send(msg);
        }
        fwx_host_loop_process(loop_);
        fwx_host_loop_process(loop_);
    }
    uint64_t walked(const message_t &request) {
        uint64_t sessions = 0;
        for (const message_t &reply : replies_to(request)) {
            sessions += reply.u32(40);
        }
        return sessions;
    }
};

TEST_F(query_t, gives_the_totals_as_one_record) {
    add_pools(2);
    add_static(1, 1, 2);
    EXPECT_EQ(result_of(config(1, 92, {5, 1})), 0u);
    const message_t reply = reply_to(command(4, 40));
    ASSERT_EQ(reply.size(), 120u);
    EXPECT_EQ(reply.u32(40), 0u);
    EXPECT_EQ(reply.words(48, 18), (words_t{1, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 1, 0}));
}

TEST_F(query_t, counts_the_addresses_and_sessions_of_pools) {
    add_pools(2); /* four addresses each */
    message_t range = config(6, 44, {1, 1}).put<uint32_t>(60, 1);
    EXPECT_EQ(result_of(range.put<uint8_t>(59, 1).put<uint8_t>(79, 9)), 0u); /* ::1 to ::9 */
    range = config(6, 44, {1, 1}).put<uint32_t>(60, 1);
    EXPECT_EQ(result_of(range.put<uint64_t>(52, UINT64_MAX).put<uint8_t>(71, 1)), 0u); /* two, around 0:0:0:1:: */
    EXPECT_EQ(fwx_nat64_model_sessions_generate(model_.get(), 5), 0u);
    message_t pools = reply_to(all(6, 10));
    EXPECT_EQ(pools.words(64, 12), (words_t{1, 2, 4 + 9 + 2, 0, 3, 0, 2, 0, 4, 0, 2, 0}));
    EXPECT_EQ(result_of(config(6, 44, {1, 1}).put<uint32_t>(60, 1).put<uint8_t>(64, 0xff)), 0u); /* :: to ff00:: */
    pools = reply_to(all(6, 10));
    EXPECT_EQ(pools.u64(72), UINT64_MAX);
    EXPECT_EQ(result_of(config(5, 8, {2, 1})), 0u);
    EXPECT_EQ(model_->totals().sessions, 3u) << "a pool's sessions end with it";
}

TEST_F(query_t, lists_static_mappings_before_dynamic_ones) {
    add_static(9, 1, 2);
    EXPECT_EQ(result_of(config(11, 80, {4})), 0u);
    EXPECT_EQ(result_of(config(11, 80, {5})), 0u);
    model_->sessions_generate(3);
    const message_t first = reply_to(all(7, 2));
    EXPECT_EQ(first.words(64, 12), (words_t{9, 1, 1, 0, 1, 0, 4, 2, 1, 0, 2, 0}));
    const message_t second = reply_to(all(7, 2, first.u64(48)));
    EXPECT_EQ(second.words(48, 5), (words_t{0, 0, 1, 0, 5}));
    EXPECT_EQ(result_of(config(12, 8, {4, 1})), 0u);
    EXPECT_EQ(model_->totals().sessions, 2u) << "a mapping's sessions end with it";
}

TEST_F(query_t, refuses_what_it_cannot_answer_with_zero_counts) {
    const message_t cases[] = {all(6, 0),
                               all(7, 0),
                               all(7, 1).put<uint32_t>(36, 2),
                               all(6, 1).put<uint32_t>(40, 1),
                               command(8, 56).put<uint32_t>(36, 1),
                               walk(0)};
    for (const message_t &request : cases) {
        const message_t reply = reply_to(request);
        EXPECT_EQ(reply.u16(0), request.u16(0));
        EXPECT_EQ(reply.u32(32), FWX_NAT64_MODEL_ERR_VALUE);
        EXPECT_EQ(reply.u32(40), 0u);
    }
    EXPECT_EQ(model_->counts().refused, std::size(cases));
}

TEST_F(query_t, filters_walks_and_clears_by_protocol_and_address) {
    add_static(1, 0x0100000a, 0x0200000a);
    add_static(2, 0x0500000a, 0x0200000a);
    model_->sessions_generate(100);
    EXPECT_EQ(walked(walk(7)), 102u);
    EXPECT_EQ(walked(walk(7).put<uint32_t>(56, 17)), 50u);
    EXPECT_EQ(walked(walk(7).put<uint32_t>(76, 0x0100000a)), 1u);
    EXPECT_EQ(walked(walk(7).put<uint32_t>(76, 0x0900000a)), 0u);
    message_t by_ipv6 = walk(7).put<uint32_t>(72, 1).put<uint32_t>(76, 0xb80d0120).put<uint32_t>(80, 0x00006400);
    EXPECT_EQ(walked(by_ipv6.put<uint8_t>(91, 42)), 1u);

    EXPECT_EQ(result_of(config(19, 104, {17})), 0u);
    EXPECT_EQ(walked(walk(7)), 52u);
    EXPECT_EQ(result_of(config(19, 104, {0, 0, 0x0100000a})), 0u);
    EXPECT_EQ(walked(walk(7)), 51u);
    EXPECT_EQ(result_of(config(19, 104).put<uint32_t>(64, 0x0200000a)), 0u);
    EXPECT_EQ(walked(walk(7)), 50u);
    EXPECT_EQ(result_of(config(19, 104)), 0u);
    const message_t empty = reply_to(walk(7));
    EXPECT_EQ(empty.u32(40) + empty.u32(48) + empty.u32(52), 0u);
    EXPECT_EQ(model_->totals().sessions, 0u);
}

TEST_F(query_t, shows_sessions_in_full_and_finds_them_by_either_end_of_the_translation) {
    add_pools(1); /* 192.0.1.1 to 192.0.1.4 */
    EXPECT_EQ(result_of(config(14, 8, {1, 200})), 0u);
    model_->sessions_generate(9);
    fwx_host_clock_turn(50000);
    const message_t full = walk(20).put<uint32_t>(44, 1);
    message_t by_pool = full;
    const std::vector<message_t> found = {
        reply_to(full), reply_to(by_pool.put<uint32_t>(116, 0x020100c0)), /* 192.0.1.2 */
        reply_to(message_t(by_pool).put<uint16_t>(140, 1025)),            /* source or pool port */
        reply_to(message_t(full).put<uint32_t>(124, 0x030012c6)),         /* to 198.18.0.3 */
    };
    const uint32_t counts[] = {9, 2, 2, 1};
    for (size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].u32(40), counts[i]) << i;
        EXPECT_EQ(found[i].u32(64), 1u);
        EXPECT_EQ(found[i].size(), 72 + 152 * counts[i]);
    }
    const message_t &session = found[2]; /* numbers 1 and 5 */
    EXPECT_EQ(session.words(72 + 8, 2), (words_t{17, 1})) << "UDP, active";
    EXPECT_EQ(session.u32(72 + 60), 0x020100c0u) << "192.0.1.2";
    EXPECT_EQ(slice(session, 72 + 40, 16),
              (std::vector<uint8_t>{0, 0x64, 0xff, 0x9b, 0, 0, 0, 0, 0, 0, 0, 0, 198, 18, 0, 1}));
    EXPECT_EQ(session.u16(72 + 96), 1025u);
    EXPECT_EQ(session.u16(72 + 98), 1024u);
    EXPECT_EQ(session.words(72 + 104, 4), (words_t{0, 1, 50, 150})) << "mapping, pool, age, remaining";
    EXPECT_EQ(session.u16(72 + 152 + 98), 1025u);
    EXPECT_EQ(result_of(config(14, 8, {1, 0})), 0u);
    EXPECT_EQ(reply_to(message_t(by_pool).put<uint16_t>(140, 1025)).u32(72 + 116), 250u) << "a timeout of 0 is none";
    message_t clear = config(19, 104);
    EXPECT_EQ(result_of(clear.put<uint32_t>(36 + 44, 0x020100c0)), 0u);
    EXPECT_EQ(model_->totals().sessions, 7u);

    add_static(5, 0x0100000a, 0x0200000a);
    const message_t mapped = reply_to(message_t(full).put<uint32_t>(116, 0x0200000a));
    EXPECT_EQ(mapped.u32(40), 1u) << "the one of the mapping, which is translated to its second address";
    EXPECT_EQ(mapped.u32(72 + 60), 0x0200000au);
    EXPECT_EQ(slice(mapped, 72 + 76, 20), std::vector<uint8_t>(20)) << "the destination is unknown";
}

TEST_F(query_t, counts_refusals_by_their_cause) {
    EXPECT_NE(result_of(config(5, 8, {1, 1})), 0u);
    EXPECT_NE(result_of(config(5, 8, {2, 1})), 0u);
    EXPECT_NE(result_of(config(14, 8, {9, 1})), 0u);
    model_->fail_next(77, 1);
    EXPECT_EQ(result_of(config(14, 8, {1, 1})), 77u);
    const message_t system = reply_to(command(4, 40).put<uint32_t>(32, 3));
    ASSERT_EQ(system.size(), 48u + 200);
    EXPECT_EQ(system.u32(44), 3u);
    const uint64_t causes[] = {0, 0, 2, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
    for (size_t i = 0; i < std::size(causes); ++i) {
        EXPECT_EQ(system.u64(48 + 72 + 8 * i), causes[i]) << i;
    }
}

TEST_F(query_t, answers_other_commands_during_long_walks_and_accepts_64_walks_of_a_client_at_once) {
    model_->sessions_generate(20000);
    std::vector<message_t> commands(65, walk(10).put<uint32_t>(76, 0x0900000a));
    commands.push_back(command(2, 40).put<uint32_t>(32, FWX_NAT64_INIT_CODE));
    process_two_turns_with(commands);
    EXPECT_EQ(model_->counts().refused, 1u);
    EXPECT_EQ(model_->counts().replies, 2u) << "the refusal and the other command; no walk has searched so far";
    const std::vector<message_t> replies = run();
    EXPECT_EQ(replies.size(), 66u);
    EXPECT_EQ(replies.front().u32(32), FWX_NAT64_MODEL_ERR_TOO_MANY);
}

TEST_F(query_t, answers_other_commands_while_it_collects_a_long_list_and_sends_the_complete_list) {
    add_pools(2100);
    const uint64_t before = model_->counts().replies;
    process_two_turns_with(std::vector<message_t>(65, all(6, 2050, 20)));
    EXPECT_EQ(model_->counts().replies - before, 1u) << "the refusal of the last; no list is complete so far";
    std::vector<message_t> replies = run();
    EXPECT_EQ(replies.front().words(32, 5), (words_t{FWX_NAT64_MODEL_ERR_TOO_MANY, 0, 0, 0, 0}));
    ASSERT_EQ(replies.size(), 65u);
    for (auto reply = replies.begin() + 1; reply != replies.end(); ++reply) {
        ASSERT_EQ(reply->size(), 64u + 2050 * 24);
        EXPECT_EQ(reply->words(48, 3), (words_t{2070, 0, 2050}));
        EXPECT_EQ(reply->u32(64), 20u);
        EXPECT_EQ(reply->u32(64 + 2049 * 24), 2069u);
    }
    model_->reply_limit_set(1000 * 24);
    const std::vector<message_t> pages = replies_to(all(6, 5000));
    ASSERT_EQ(pages.size(), 3u);
    EXPECT_EQ(pages[1].u32(40), 1u);
    EXPECT_EQ(pages[2].words(48, 3), (words_t{0, 0, 100}));
}

TEST_F(query_t, ends_walks_when_the_client_is_dropped_or_the_server_is_silent) {
    model_->sessions_generate(1000);
    model_->silent_set(true);
    EXPECT_TRUE(replies_to(walk(10)).empty());
    model_->silent_set(false);
    EXPECT_TRUE(run().empty());
    send(walk(10));
    fwx_host_loop_process(loop_);
    model_->drop_clients();
    run();
    EXPECT_EQ(model_->counts().clients, 0u);
    EXPECT_LT(model_->counts().replies, 100u);
}

/** A client on a loop of its own, which reaches the model over shared memory. */
class slow_reader_test : public model_fixture_t {
protected:
    bool serve() override {
        server_loop_ = fwx_host_loop_create();
        model_ = fwx_nat64_model_t::create(server_loop_, "model under test");
        return fwx_host_server_listen(fwx_host_server_find("model under test"), "alpha") == 0 &&
               fwx_host_connect_set("model under test", "alpha") == 0;
    }
    void end() override {
        fwx_host_connect_set("model under test", nullptr);
        model_.reset();
        fwx_host_loop_destroy(server_loop_);
    }

    const runtime_directory_t directory_;
    fwx_host_loop_t *server_loop_ = nullptr;
};

TEST_F(slow_reader_test, receives_a_whole_walk_that_is_longer_than_the_limit_of_queued_bytes) {
    constexpr uint64_t count = 600000; /* 90 MB, more than the limit of 64 MiB queued for a client */
    model_->sessions_generate(count);
    send(command(9, 144).put<uint32_t>(44, 1).put<uint32_t>(48, 400)); /* in full, 400 sessions a page */
    uint64_t most_bytes = 0;
    for (int turn = 0; turn < 300; ++turn) { /* the client reads nothing */
        fwx_host_loop_run_once(server_loop_, 1);
        most_bytes = std::max(most_bytes, model_->counts().queued_bytes);
    }
    EXPECT_GT(most_bytes, uint64_t{4} << 20);
    EXPECT_LT(most_bytes, uint64_t{8} << 20);
    uint64_t sessions = 0;
    for (bool is_complete = false; !is_complete && channel_errors == 0;) {
        fwx_host_loop_run_once(server_loop_, 1);
        for (const message_t &page : run()) {
            sessions += page.u32(40);
            is_complete = page.u32(48) == 0;
        }
    }
    EXPECT_EQ(channel_errors, 0u);
    EXPECT_EQ(sessions, count);
}

}  // namespace
