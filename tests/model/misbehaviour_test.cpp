/* The model's misbehaviour: failing, delayed, held, duplicated and missing replies, and dropped clients. */
#include <algorithm>
#include <map>

#include "model_fixture.h"
#include "server/configuration.h"

namespace {

class misbehaviour_t : public model_fixture_t {
protected:
    /** Sends commands with the contexts 1 to `count`, and returns the contexts of the replies received. */
    std::vector<uint64_t> send_numbered(uint64_t count) {
        received.clear();
        for (uint64_t i = 1; i <= count; ++i) {
            send(config(17, 0).put<uint64_t>(16, i));
        }
        return contexts(run());
    }
    static std::vector<uint64_t> contexts(const std::vector<message_t> &replies) {
        std::vector<uint64_t> found;
        found.reserve(replies.size());
        for (const message_t &reply : replies) {
            found.push_back(reply.u64(16));
        }
        return found;
    }
};

using contexts_t = std::vector<uint64_t>;

TEST_F(misbehaviour_t, fails_the_next_commands_without_executing_them) {
    model_->fail_next(0x1234, 3);
    EXPECT_EQ(result_of(config(14, 8, {3, 300})), 0x1234u);
    EXPECT_EQ(ask(sync_command(2, 24).put<uint32_t>(16, 0x00010090)).u32(16), 0x1234u);
    const message_t rule = reply_to(command(13, 80).put<uint32_t>(36, 1).put<uint32_t>(40, 8).put<uint32_t>(44, 9));
    EXPECT_EQ(rule.u32(32), 0x1234u);
    EXPECT_EQ(rule.words(40, 6), (words_t{8, 9, 0, 1, 0, 0}));
    EXPECT_EQ(model_->timeout(3), std::nullopt);
    EXPECT_EQ(model_->totals().rules, 0u);
    EXPECT_EQ(result_of(config(14, 8, {3, 300})), 0u);
    EXPECT_EQ(model_->counts().refused, 3u);
}

TEST_F(misbehaviour_t, delays_answers_by_the_platforms_clock) {
    fwx_host_clock_turn(0);
    model_->delay_set(50);
    EXPECT_EQ(send_numbered(1), contexts_t{});
    EXPECT_EQ(model_->counts().held, 1u);
    model_->delay_set(20);
    send(config(17, 0).put<uint64_t>(16, 2));
    fwx_host_clock_turn(0);
    EXPECT_EQ(contexts(run()), contexts_t{});
    fwx_host_clock_turn(20);
    EXPECT_EQ(contexts(run()), contexts_t{2});
    fwx_host_clock_turn(29);
    EXPECT_EQ(contexts(run()), contexts_t{});
    fwx_host_clock_turn(1);
    EXPECT_EQ(contexts(run()), contexts_t{1});
    EXPECT_EQ(model_->counts().held, 0u);
}

TEST_F(misbehaviour_t, releases_held_replies_in_the_order_asked_for) {
    const contexts_t sent = {1, 2, 3, 4, 5, 6};
    std::map<fwx_nat64_model_order_t, contexts_t> released;
    for (const auto order :
         {fwx_nat64_model_order_t::in_order, fwx_nat64_model_order_t::reverse, fwx_nat64_model_order_t::shuffled}) {
        model_->hold();
        EXPECT_EQ(send_numbered(6), contexts_t{});
        EXPECT_EQ(model_->counts().held, 6u);
        model_->release(order);
        EXPECT_EQ(model_->counts().held, 0u);
        released[order] = contexts(run());
    }
    EXPECT_EQ(released[fwx_nat64_model_order_t::in_order], sent);
    EXPECT_EQ(released[fwx_nat64_model_order_t::reverse], contexts_t(sent.rbegin(), sent.rend()));
    contexts_t &shuffled = released[fwx_nat64_model_order_t::shuffled];
    EXPECT_NE(shuffled, sent);
    std::sort(shuffled.begin(), shuffled.end());
    EXPECT_EQ(shuffled, sent);
    EXPECT_EQ(send_numbered(1), contexts_t{1}) << "replies are not held any more";
}

TEST_F(misbehaviour_t, repeats_replies) {
    model_->duplicate_set(3);
    EXPECT_EQ(send_numbered(2), (contexts_t{1, 1, 1, 2, 2, 2}));
    EXPECT_EQ(model_->counts().replies, 6u);
}

TEST_F(misbehaviour_t, executes_commands_without_answering_them) {
    model_->silent_set(true);
    EXPECT_TRUE(replies_to(config(14, 8, {3, 300})).empty());
    EXPECT_TRUE(ask(sync_command(3, 24).put<uint32_t>(16, 21).put<uint32_t>(20, 7)).empty());
    EXPECT_EQ(model_->timeout(3), 300u);
    EXPECT_EQ(model_->config().classifier.batch_id, 7u);
    model_->silent_set(false);
    EXPECT_EQ(send_numbered(1), contexts_t{1});
}

TEST_F(misbehaviour_t, drops_its_clients_and_what_was_held_for_them) {
    open();
    model_->hold();
    send_numbered(2);
    EXPECT_EQ(model_->counts().clients, 2u);
    model_->drop_clients();
    run();
    EXPECT_EQ(channel_errors, 2u);
    EXPECT_EQ(model_->counts().clients, 0u);
    EXPECT_EQ(model_->counts().held, 0u);
    model_->release(fwx_nat64_model_order_t::in_order);
    chan_ = open();
    EXPECT_EQ(send_numbered(1), contexts_t{1});
}

}  // namespace
