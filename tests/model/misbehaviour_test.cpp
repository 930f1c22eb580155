/* The model's misbehaviour: failing, delayed, held, duplicated and missing replies, and dropped clients. */
#include <algorithm>
#include <map>

#include "model_fixture.h"
#include "server/configuration.h"

namespace {

using contexts_t = std::vector<uint64_t>;

class misbehaviour_t : public model_fixture_t {
protected:
    /** Sends commands with the contexts `first` to `last`, and returns the contexts of the replies received. */
    contexts_t send_numbered(uint64_t last, uint64_t first = 1) {
        for (uint64_t i = first; i <= last; ++i) {
            send(config(17, 0).put<uint64_t>(16, i));
        }
        return contexts();
    }
    contexts_t contexts() {
        contexts_t found;
        for (const message_t &reply : run()) {
            found.push_back(reply.u64(16));
        }
        return found;
    }
    contexts_t contexts_after(uint64_t ms) {
        fwx_host_clock_turn(ms);
        return contexts();
    }
};

TEST_F(misbehaviour_t, fails_the_next_commands_without_executing_them) {
    fwx_nat64_model_fail_next(model_.get(), 0x1234, 3);
    EXPECT_EQ(result_of(config(14, 8, {3, 300})), 0x1234u);
    EXPECT_EQ(ask(sync_command(2, 24).put<uint32_t>(16, 0x00010090)).u32(16), 0x1234u);
    const message_t rule = reply_to(basic(1, 8, 9));
    EXPECT_EQ(rule.u32(32), 0x1234u);
    EXPECT_EQ(rule.words(40, 6), (words_t{8, 9, 0, 1, 0, 0}));
    EXPECT_EQ(model_->timeout(3), std::nullopt);
    EXPECT_EQ(model_->totals().rules, 0u);
    EXPECT_EQ(result_of(config(14, 8, {3, 300})), 0u);
    EXPECT_EQ(model_->counts().refused, 3u);
}

TEST_F(misbehaviour_t, delays_answers_by_the_platforms_clock) {
    fwx_host_clock_turn(0);
    fwx_nat64_model_delay_set(model_.get(), 50);
    EXPECT_EQ(send_numbered(1), contexts_t{});
    EXPECT_EQ(model_->counts().held, 1u);
    fwx_nat64_model_delay_set(model_.get(), 20);
    EXPECT_EQ(send_numbered(2, 2), contexts_t{});
    EXPECT_EQ(contexts_after(20), contexts_t{2});
    EXPECT_EQ(contexts_after(29), contexts_t{});
    EXPECT_EQ(contexts_after(1), contexts_t{1});
    EXPECT_EQ(model_->counts().held, 0u);
}

TEST_F(misbehaviour_t, releases_held_replies_in_the_order_asked_for) {
    const contexts_t sent = {1, 2, 3, 4, 5, 6};
    std::map<uint32_t, contexts_t> released;
    for (const uint32_t order : {FWX_NAT64_MODEL_IN_ORDER, FWX_NAT64_MODEL_REVERSE, FWX_NAT64_MODEL_SHUFFLED}) {
        fwx_nat64_model_hold(model_.get());
        EXPECT_EQ(send_numbered(6), contexts_t{});
        EXPECT_EQ(model_->counts().held, 6u);
        EXPECT_EQ(fwx_nat64_model_release(model_.get(), 3), FWX_HOST_ERR_BAD_ARG);
        EXPECT_EQ(fwx_nat64_model_release(model_.get(), order), 0u);
        EXPECT_EQ(model_->counts().held, 0u);
        released[order] = contexts();
    }
    EXPECT_EQ(released[FWX_NAT64_MODEL_IN_ORDER], sent);
    EXPECT_EQ(released[FWX_NAT64_MODEL_REVERSE], contexts_t(sent.rbegin(), sent.rend()));
    contexts_t &shuffled = released[FWX_NAT64_MODEL_SHUFFLED];
    EXPECT_NE(shuffled, sent);
    std::sort(shuffled.begin(), shuffled.end());
    EXPECT_EQ(shuffled, sent);
    EXPECT_EQ(send_numbered(1), contexts_t{1}) << "replies are not held any more";
}

TEST_F(misbehaviour_t, repeats_replies) {
    fwx_nat64_model_duplicate_set(model_.get(), 3);
    EXPECT_EQ(send_numbered(2), (contexts_t{1, 1, 1, 2, 2, 2}));
    EXPECT_EQ(model_->counts().replies, 6u);
}

TEST_F(misbehaviour_t, executes_commands_without_answering_them) {
    fwx_nat64_model_silent_set(model_.get(), 1);
    EXPECT_TRUE(replies_to(config(14, 8, {3, 300})).empty());
    EXPECT_TRUE(ask(sync_command(3, 24).put<uint32_t>(16, 21).put<uint32_t>(20, 7)).empty());
    EXPECT_EQ(model_->timeout(3), 300u);
    EXPECT_EQ(model_->config().classifier.batch_id, 7u);
    fwx_nat64_model_silent_set(model_.get(), 0);
    EXPECT_EQ(send_numbered(1), contexts_t{1});
}

TEST_F(misbehaviour_t, drops_its_clients_and_what_was_held_for_them) {
    open();
    fwx_nat64_model_hold(model_.get());
    send_numbered(2);
    EXPECT_EQ(model_->counts().clients, 2u);
    fwx_nat64_model_drop_clients(model_.get());
    run();
    EXPECT_EQ(channel_errors, 2u);
    EXPECT_EQ(model_->counts().clients, 0u);
    EXPECT_EQ(model_->counts().held, 0u);
    fwx_nat64_model_release(model_.get(), FWX_NAT64_MODEL_IN_ORDER);
    chan_ = open();
    EXPECT_EQ(send_numbered(1), contexts_t{1});
}

}  // namespace
