/* The model's configuration, saved and restored as a whole and by a journal of changes, and the journal's commit. */
#include <algorithm>

#include "model_fixture.h"

namespace {

using part_t = std::pair<uint32_t, bytes_t>; /* op code and payload */

/** The parts of a configuration that a server saves. */
struct kept_t {
    static void add(void *self, uint32_t op_code, const void *payload, size_t size) {
        const auto *bytes = static_cast<const uint8_t *>(payload);
        static_cast<kept_t *>(self)->parts.emplace_back(op_code, bytes_t(bytes, bytes + size));
    }
    static uint32_t commit(void *self) { return static_cast<kept_t *>(self)->commit_code; }

    std::vector<part_t> parts;
    uint32_t commit_code = 0;
};

class snapshot_t : public model_fixture_t {
protected:
    /** Commands whose payloads are saved unchanged. */
    const std::vector<message_t> settings_ = {
        config(14, 8, {1, 300}),
        config(15, 8, {1, 1024}),
        config(20, 12, {1, 1, 21}),
        config(26, 24, {13, 0, 0x0100000a}),
        config(29, 12, {7, 1, 9}),
        config(28, 16, {1, 2, 3, 0xff000004}),
        config(1, 92, {5, 1}),
        config(3, 24, {1, 0x20010db8, 0, 0, 0x60030201, 3}),
        config(27, 24, {1, 0x20010db8, 0, 0, 0x60030201, 2}),
        config(4, 24, {8, 5, 6, 8, 0x010200c0, 0xfe0200c0}),
        config(6, 44, {8, 0, 0x017100cb, 0, 0, 0, 0, 0x7f7100cb}),
        config(8, 84, {3, 0, 0, 0x0100000a}),
        config(11, 80, {4, 0, 0, 7}),
        config(23, 20, {0x090200c0, 0, 2055, 1}),
    };
    const std::vector<message_t> changes_ = {
        config(2, 92, {6, 1, 1}),
        config(11, 80, {9, 0, 0, 1}).put<uint32_t>(36 + 52, 0x55).put<uint32_t>(36 + 76, 0x66),
        config(13, 80, {9, 0, 0, 2}).put<uint32_t>(36 + 52, 4),
        basic(1, 10),
        basic(1, 11),
        basic(3, 10),
        by_default(1, 9),
    };

    /** Writes changes to journal_; each commit returns `code`. */
    void keep_journal(uint32_t code) {
        journal_.commit_code = code;
        model_->journal_set({kept_t::add, kept_t::commit, &journal_});
    }
    std::vector<message_t> committed(const std::vector<message_t> &commands) {
        return committed_replies_to(commands, [&] {
            EXPECT_EQ(model_->counts().held, commands.size());
            model_->commit();
        });
    }
    void commit_each(const std::vector<message_t> &commands) {
        for (const message_t &msg : commands) {
            const std::vector<message_t> replies = committed({msg});
            ASSERT_EQ(replies.size(), 1U);
            EXPECT_EQ(replies[0].u32(32), 0U);
        }
    }

    static uint32_t restore(fwx_nat64_model_t &model, const part_t &part, size_t size) {
        return fwx_nat64_model_restore(&model, part.first, part.second.data(), size);
    }
    static std::vector<part_t> save(const fwx_nat64_model_t &model) {
        kept_t kept;
        EXPECT_EQ(fwx_nat64_model_save(&model, kept_t::add, &kept), 0U);
        return kept.parts;
    }

    kept_t journal_;
};

TEST_F(snapshot_t, a_change_that_cannot_be_noted_for_lack_of_memory_ends_the_server) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); /* a new process, because a forked one cannot use the channel */
    model_->journal_set(
        {[](void *, uint32_t, const void *, size_t) { throw std::bad_alloc(); }, [](void *) { return 0U; }, nullptr});
    EXPECT_DEATH(replies_to(settings_[0]), "bad_alloc");
}

TEST_F(snapshot_t, restored_into_a_new_model_gives_the_whole_configuration_and_so_does_the_journal) {
    keep_journal(0);
    commit_each(settings_);
    commit_each(changes_);
    const std::vector<part_t> parts = save(*model_);
    EXPECT_EQ(parts.size(), 18U);
    const auto expect_part = [&](const message_t &msg) {
        const part_t part{msg.u32(32), slice(msg, 36, msg.size() - 40)};
        EXPECT_NE(std::find(parts.begin(), parts.end(), part), parts.end()) << "op code " << part.first;
    };
    std::for_each(settings_.begin(), settings_.end(), expect_part);
    /* A modify command carries no extension, so the added one stays. */
    expect_part(config(11, 80, {9, 0, 0, 2}).put<uint32_t>(36 + 52, 0x55).put<uint32_t>(36 + 76, 0x66));

    const auto fresh = fwx_nat64_model_t::create(loop_, "another model");
    for (const part_t &part : parts) {
        const size_t size = part.second.size();
        EXPECT_EQ(restore(*fresh, part, size), 0U) << part.first;
        EXPECT_EQ(restore(*fresh, part, size - 1), FWX_NAT64_MODEL_ERR_MALFORMED) << part.first;
        EXPECT_EQ(restore(*fresh, part, size + 1), FWX_NAT64_MODEL_ERR_MALFORMED) << part.first;
    }
    EXPECT_EQ(save(*fresh), parts);
    EXPECT_EQ(fwx_nat64_model_restore(fresh.get(), 99, "", 0), FWX_NAT64_MODEL_ERR_MALFORMED);

    const std::vector<message_t> more = {
        basic(1, 12), /* gets the index that was freed */
        by_default(2, 9).put<uint32_t>(44, 7),
        by_default(1, 8),
        by_default(3, 8),
        config(16, 8, {1, 0}),
    };
    commit_each(more);
    EXPECT_EQ(journal_.parts.size(), settings_.size() + changes_.size() + more.size());
    const auto from_journal = fwx_nat64_model_t::create(loop_, "a third model");
    for (const part_t &part : journal_.parts) {
        EXPECT_EQ(restore(*from_journal, part, part.second.size()), 0U) << part.first;
    }
    EXPECT_EQ(save(*from_journal), save(*model_));
    EXPECT_EQ(model_->boot().changes, journal_.parts.size());
    EXPECT_EQ(from_journal->boot().changes, 0U);
    EXPECT_NE(from_journal->boot().boot_id, model_->boot().boot_id);

    journal_.parts.clear();
    EXPECT_EQ(reply_to(command(4, 40)).u32(32), 0U) << "a query needs no commit";
    EXPECT_EQ(result_of(config(16, 8, {1, 0})), FWX_NAT64_MODEL_ERR_NO_ENTRY);
    EXPECT_EQ(journal_.parts.size(), 0U) << "neither a query nor a refusal is a change";
}

TEST_F(snapshot_t, neither_the_answer_to_a_change_nor_a_later_one_is_sent_before_the_commit) {
    keep_journal(0);
    std::vector<message_t> replies = committed({config(14, 8, {1, 300}), command(4, 40)});
    ASSERT_EQ(replies.size(), 2U);
    EXPECT_EQ(replies[0].u32(32), 0U);
    EXPECT_EQ(replies[1].size(), 120U);

    keep_journal(FWX_NAT64_MODEL_ERR_NOT_SAVED);
    replies = committed({config(14, 8, {1, 400}), command(4, 40), config(16, 8, {1, 0})});
    ASSERT_EQ(replies.size(), 3U);
    EXPECT_EQ(replies[0].u32(32), 0x600bU);
    EXPECT_EQ(replies[1].u32(32), 0U);
    EXPECT_EQ(replies[2].u32(32), FWX_NAT64_MODEL_ERR_NO_ENTRY);
    EXPECT_EQ(model_->timeout(1), 400U) << "the change is not undone";

    keep_journal(0);
    model_->silent_set(true);
    send(config(14, 8, {1, 500}));
    run();
    model_->commit();
    EXPECT_EQ(run().size(), 0U);
}

TEST_F(snapshot_t, a_single_high_index_costs_no_memory_and_no_index_is_allocated_twice) {
    const auto rule = [this](uint32_t index, uint32_t rule_id) {
        const uint32_t payload[9] = {index, rule_id, 1};
        return fwx_nat64_model_restore(model_.get(), FWX_NAT64_MODEL_SAVED_BASIC_RULE, payload, sizeof payload);
    };
    const auto index_of = [this](uint32_t op, uint32_t rule_id) {
        const message_t reply = reply_to(basic(op, rule_id));
        EXPECT_EQ(reply.u32(32), 0U);
        return reply.u32(60);
    };
    EXPECT_EQ(rule(UINT32_MAX, 1), 0U);
    EXPECT_EQ(rule(3, 2), 0U);
    EXPECT_EQ(rule(3, 3), FWX_NAT64_MODEL_ERR_VALUE);
    EXPECT_EQ(rule(0, 3), FWX_NAT64_MODEL_ERR_VALUE);
    EXPECT_EQ(rule(9, 2), FWX_NAT64_MODEL_ERR_EXISTS);
    const message_t again = reply_to(basic(1, 2, 1));
    EXPECT_EQ(again.u32(32), FWX_NAT64_MODEL_ERR_EXISTS);
    EXPECT_EQ(again.u32(60), 3U) << "its index";
    for (const uint32_t index : {1U, 2U, 4U, 5U}) {
        EXPECT_EQ(index_of(1, 10 + index), index);
    }
    for (const uint32_t index : {2U, 5U, 4U}) {
        EXPECT_EQ(index_of(3, 10 + index), index);
    }
    for (const uint32_t index : {2U, 4U, 5U, 6U}) {
        EXPECT_EQ(index_of(1, 20 + index), index);
    }
}

}  // namespace
