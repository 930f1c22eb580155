/* Frames and replies: the type and size of each reply, and the codes for malformed and unknown messages. Then the
 * model's misbehaviour: failing, delayed, held, duplicated and missing replies, and dropped clients. */
#include <algorithm>
#include <map>

#include "model_fixture.h"
#include "server/configuration.h"

namespace {

using server_t = model_fixture_t;

TEST_F(server_t, answers_each_command_with_its_type) {
    const struct {
        message_t command;
        uint16_t type;
        size_t size;
    } cases[] = {
        {command(1, 32), 0xc000, 40},
        {command(2, 40).put<uint32_t>(32, 0x00010090), 0xc000, 40},
        {command(12, 32), 0xc000, 40},
        {config(17, 0), 0xc000, 40},
        {config(21, 4, {7}), 0xc00a, 40},
        {config(22, 28), 0xc00b, 40},
        {command(4, 40), 0xc004, 120},
        {command(5, 32), 0xc005, 48},
        {command(6, 64).put<uint32_t>(36, 1).put<uint32_t>(44, 10), 0xc006, 64},
        {command(7, 64).put<uint32_t>(36, 1).put<uint32_t>(44, 10), 0xc007, 64},
        {command(8, 56).put<uint32_t>(36, 1).put<uint32_t>(48, 10), 0xc008, 48},
        {command(9, 144).put<uint32_t>(48, 10), 0xc009, 72},
        {by_default(1, 5), 0xc00d, 64},
    };
    for (const auto &[sent, type, size] : cases) {
        const message_t reply = reply_to(sent);
        EXPECT_EQ(reply.u16(0), type);
        EXPECT_EQ(reply.size(), size) << "type " << type;
        EXPECT_EQ(slice(reply, 2, 30), slice(sent, 2, 30)) << "type " << type;
        EXPECT_EQ(reply.u32(32), 0u) << "type " << type;
    }
    EXPECT_EQ(model_->counts().commands, std::size(cases));
    EXPECT_EQ(model_->counts().replies, std::size(cases));
    EXPECT_EQ(model_->counts().refused, 0u);
}

TEST_F(server_t, refuses_malformed_and_unknown_messages) {
    const struct {
        const char *what;
        message_t command;
        uint16_t type;
        uint32_t result;
    } cases[] = {
        {"a byte too long", config(14, 9, {3, 300}), 0xc000, FWX_NAT64_MODEL_ERR_MALFORMED},
        {"a byte too short", config(14, 7, {3}), 0xc000, FWX_NAT64_MODEL_ERR_MALFORMED},
        {"without op code", command(3, 35), 0xc000, FWX_NAT64_MODEL_ERR_MALFORMED},
        {"another domain", config(14, 8, {3, 300}).put<uint16_t>(2, 97), 0xc000, FWX_NAT64_MODEL_ERR_MALFORMED},
        {"op code 10", config(10, 8), 0xc000, FWX_NAT64_MODEL_ERR_UNKNOWN},
        {"op code 32", config(32, 8), 0xc000, FWX_NAT64_MODEL_ERR_UNKNOWN},
        {"message number 14", command(14, 32), 0xc000, FWX_NAT64_MODEL_ERR_UNKNOWN},
        {"message number 0", command(0, 40), 0xc000, FWX_NAT64_MODEL_ERR_UNKNOWN},
        {"a short query", command(6, 63), 0xc006, FWX_NAT64_MODEL_ERR_MALFORMED},
        {"a short system query", command(4, 39), 0xc004, FWX_NAT64_MODEL_ERR_MALFORMED},
        {"a short walk", command(9, 143), 0xc009, FWX_NAT64_MODEL_ERR_MALFORMED},
        {"a basic rule of a default rule's length", command(13, 68), 0xc00d, FWX_NAT64_MODEL_ERR_MALFORMED},
        {"rule type 2", command(13, 80).put<uint32_t>(32, 2), 0xc00d, FWX_NAT64_MODEL_ERR_UNKNOWN},
    };
    fwx_host_peers_t before, after;
    fwx_host_peers_get(&before);
    for (const auto &[what, sent, type, result] : cases) {
        const message_t reply = reply_to(sent);
        EXPECT_EQ(reply.u16(0), type) << what;
        EXPECT_EQ(reply.u64(16), 0x1122334455667788u) << what;
        EXPECT_EQ(reply.u32(32), result) << what;
    }
    const fwx_nat64_stats_counts_t counts = model_->counts();
    fwx_host_peers_get(&after);
    EXPECT_EQ(counts.malformed, std::size(cases));
    EXPECT_EQ(after.malformed - before.malformed, std::size(cases)) << "a client that sends too many is dropped";
    EXPECT_EQ(counts.commands, 0u);
    EXPECT_EQ(model_->timeout(3), std::nullopt);
}

TEST_F(server_t, answers_control_commands_at_once) {
    const message_t end = ask(sync_command(3, 24).put<uint32_t>(16, 21).put<uint32_t>(20, 7));
    EXPECT_EQ(end, (std::vector<uint8_t>{0x03, 0x80, 0x60, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    const message_t update = sync_command(3, 48).put<uint32_t>(16, 22).put<uint8_t>(20, 0xab).put<uint32_t>(44, 9);
    EXPECT_EQ(ask(update).u32(16), 0u);
    const classifier_t &classifier = model_->config().classifier;
    EXPECT_EQ(classifier.batches, 1u);
    EXPECT_EQ(classifier.updates, 1u);
    EXPECT_EQ(classifier.batch_id, 9u);
    EXPECT_EQ(classifier.data[0], 0xab);
}

TEST_F(server_t, refuses_malformed_synchronous_messages_and_any_init_code_but_one) {
    const uint32_t malformed = FWX_NAT64_MODEL_ERR_MALFORMED, unknown = FWX_NAT64_MODEL_ERR_UNKNOWN;
    const std::pair<message_t, uint32_t> cases[] = {
        {sync_command(3, 25).put<uint32_t>(16, 21), malformed}, {sync_command(3, 18), malformed},
        {sync_command(2, 24).put<uint16_t>(2, 1), malformed},   {config(14, 8, {3, 300}), malformed},
        {sync_command(3, 28).put<uint32_t>(16, 14), unknown},   {sync_command(4, 20), unknown},
    };
    for (const auto &[sent, result] : cases) {
        EXPECT_EQ(ask(sent).u32(16), result);
    }
    EXPECT_EQ(model_->counts().malformed, std::size(cases));
    EXPECT_EQ(model_->counts().refused, 0u);
    EXPECT_EQ(ask(sync_command(2, 24).put<uint32_t>(16, 0x00010091)).u32(16), FWX_NAT64_MODEL_ERR_VALUE);
    EXPECT_EQ(result_of(command(2, 40).put<uint32_t>(32, 0x00010091)), FWX_NAT64_MODEL_ERR_VALUE);
    EXPECT_EQ(ask(sync_command(2, 24).put<uint32_t>(16, 0x00010090)).u32(16), 0u);
    EXPECT_EQ(model_->counts().refused, 2u);
}

TEST_F(server_t, wakes_only_clients_that_have_asked) {
    EXPECT_EQ(model_->wakeup(), FWX_HOST_ERR_CHANNEL_DOWN);
    open();
    EXPECT_EQ(result_of(command(1, 32)), 0u);
    EXPECT_EQ(model_->wakeup(), 0u);
    EXPECT_EQ(run().size(), 1u) << "the second client has not asked";
}

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
