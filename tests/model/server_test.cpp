/* Frames and replies: the type and size of each reply, and the codes for malformed and unknown messages. */
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

}  // namespace
