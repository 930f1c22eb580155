/* A server with an engine that refuses some commands and needs a commit, unlike the model's engine. The tests check
 * when the server calls the engine, when answers are sent, and that a failed commit restores the configuration. */
#include <new>

#include "model_fixture.h"
#include "server/engine.h"

namespace {

constexpr uint32_t not_here = 0x7001;
constexpr uint32_t not_taken = 0x7002;

/** Refuses rules and adjacencies. Has one session. */
class slow_engine_t : public engine_t {
public:
    std::vector<uint32_t> heard;                       /* op codes */
    static constexpr uint32_t failing_timeout_s = 400; /* with this as timeout 1, a commit fails */
    bool has_session = true;
    bool has_memory = true;

    uint32_t refusal(uint32_t op_code, const void *) const override {
        return op_code >= record_kept_basic_rule || op_code == FWX_NAT64_CFG_ADJ_SET ? not_here : 0;
    }
    void changed(uint32_t op_code, const void *) noexcept override { heard.push_back(op_code); }
    bool needs_commit() const override { return true; }
    uint32_t commit() noexcept override {
        const auto timeout = config.settings.timeouts.get(1);
        const bool is_ok = !timeout || timeout->value != failing_timeout_s;
        (is_ok ? in_force : config) = is_ok ? config : in_force;
        return is_ok ? 0 : not_taken;
    }
    uint64_t session_count() const override { return has_session ? 1 : 0; }
    uint64_t session_count_of_pool(uint32_t pool_id) const override { return pool_id == 7 ? 5 : 0; }
    uint64_t session_count_of_mapping(uint32_t kind, uint32_t id) const override { return uint64_t{kind} * 100 + id; }
    uint32_t session_clear(const session_filter_t &filter) override {
        if (!has_memory) throw std::bad_alloc();
        has_session = filter.protocol != 6;
        return filter.protocol == 99 ? not_taken : 0;
    }
    found_t session_next(uint64_t from, const session_filter_t &, fwx_nat64_session_t *session,
                         uint64_t &) const override {
        if (!has_session || from > 3) return found_t::none;
        *session = {};
        session->id = 3;
        return found_t::session;
    }
    fwx_nat64_session_full_t session_in_full(const fwx_nat64_session_t &session) const override {
        fwx_nat64_session_full_t full{};
        full.id = session.id;
        full.remaining_s = 77;
        return full;
    }

private:
    configuration_t in_force;
};

class engine_fixture_t : public model_fixture_t {
protected:
    bool serve() override {
        auto engine = std::make_unique<slow_engine_t>();
        engine_ = engine.get();
        server_ = std::make_unique<nat64_server_t>(loop_, std::move(engine));
        server_->journal_set({[](void *arg, uint32_t op_code, const void *, size_t) {
                                  static_cast<engine_fixture_t *>(arg)->journal_.push_back(op_code);
                              },
                              [](void *) { return 0U; }, this});
        return server_->serve("model under test");
    }
    void end() override { server_.reset(); }

    words_t committed_results_of(const std::vector<message_t> &commands) {
        words_t results;
        for (const message_t &reply : committed_replies_to(commands, [this] { server_->commit(); })) {
            results.push_back(reply.u32(32));
        }
        return results;
    }

    slow_engine_t *engine_ = nullptr;
    std::unique_ptr<nat64_server_t> server_;
    words_t journal_;
};

TEST_F(engine_fixture_t, refuses_commands_with_its_own_code_and_the_configuration_does_not_change) {
    EXPECT_EQ(result_of(config(26, 24, {13, 0, 0x0100000a})), not_here);
    EXPECT_EQ(result_of(basic(1, 10)), not_here);
    EXPECT_EQ(result_of(by_default(1, 9)), not_here);
    EXPECT_EQ(server_->restore(FWX_NAT64_CFG_ADJ_SET, words_t(6, 1).data(), 24), not_here);
    EXPECT_EQ(server_->totals().rules, 0U);
    EXPECT_TRUE(server_->config().settings.adjacencies.entries.empty());
    EXPECT_EQ(server_->counts().refused, 3U);
    EXPECT_EQ(engine_->heard, words_t{});
}

TEST_F(engine_fixture_t, is_told_each_accepted_change_and_answers_are_held_until_its_commit) {
    EXPECT_EQ(committed_results_of({config(14, 8, {1, 300}), config(14, 8, {9, 300}), config(15, 8, {1, 10})}),
              (words_t{0, FWX_NAT64_MODEL_ERR_VALUE, 0}));
    EXPECT_EQ(engine_->heard, (words_t{14, 15}));
    EXPECT_EQ(journal_, (words_t{14, 15}));
    EXPECT_EQ(server_->boot().changes, 2U);
    EXPECT_EQ(reply_to(command(4, 40)).u32(32), 0U) << "nothing is held when nothing has changed";
}

TEST_F(engine_fixture_t, a_change_that_fails_at_commit_is_undone_and_leaves_the_others_of_its_turn) {
    const message_t failing = config(14, 8, {1, slow_engine_t::failing_timeout_s});
    EXPECT_EQ(committed_results_of({config(14, 8, {1, 300})}), words_t{0});
    EXPECT_EQ(committed_results_of({failing}), words_t{not_taken});
    EXPECT_EQ(committed_results_of({failing, command(4, 40), config(15, 8, {1, 10}), config(14, 8, {2, 200})}),
              (words_t{not_taken, 0, 0, 0}));
    EXPECT_EQ(server_->config().settings.timeouts.get(1)->value, 300U);
    EXPECT_EQ(server_->config().settings.limits.get(1)->value, 10U);
    EXPECT_EQ(journal_, (words_t{14, 15, 14}));
    EXPECT_EQ(server_->boot().changes, 3U);
    EXPECT_EQ(server_->counts().refused, 2U);

    std::vector<message_t> commands(16, failing);
    commands.push_back(config(14, 8, {2, 201}));
    EXPECT_EQ(committed_results_of(commands), words_t(17, not_taken)) << "an engine that fails is not tried for long";
    EXPECT_EQ(server_->config().settings.timeouts.get(2)->value, 200U);
    EXPECT_EQ(journal_.size(), 3U);
}

TEST_F(engine_fixture_t, the_configuration_is_listed_without_changes_that_may_still_be_undone) {
    EXPECT_EQ(committed_results_of({config(14, 8, {1, 300})}), words_t{0});
    send(config(14, 8, {1, slow_engine_t::failing_timeout_s}));
    send(command(4, 40).put<uint32_t>(32, 4));
    for (int turn = 0; turn < 3; ++turn) {
        fwx_host_loop_process(loop_);
    }
    server_->commit();
    const std::vector<message_t> replies = run();
    ASSERT_EQ(replies.size(), 2U);
    EXPECT_EQ(replies[0].u32(32), not_taken);
    EXPECT_EQ(replies[1].words(replies[1].size() - 8, 2), (words_t{1, 300})) << "the payload of the only entry";
}

TEST_F(engine_fixture_t, a_client_that_memory_is_too_short_to_answer_loses_its_channel) {
    engine_->has_memory = false;
    EXPECT_EQ(replies_to(config(19, 104, {6})).size(), 0U);
    EXPECT_EQ(channel_errors, 1U);
    EXPECT_EQ(server_->counts().clients, 0U);
}

TEST_F(engine_fixture_t, has_the_sessions_counted_walked_and_cleared_by_the_engine) {
    EXPECT_EQ(committed_results_of({config(4, 24, {7, 1, 0, 7, 0x010000c0, 0x040000c0}), config(11, 80, {4})}),
              (words_t{0, 0}));
    const auto all = [](uint16_t msgno) { return command(msgno, 64).put<uint32_t>(36, 1).put<uint32_t>(44, 9); };
    EXPECT_EQ(reply_to(all(6)).words(64, 6), (words_t{7, 0, 4, 0, 5, 0}));
    EXPECT_EQ(reply_to(all(7)).words(64, 6), (words_t{4, 2, 1, 0, 204, 0}));
    const message_t walk = command(9, 144).put<uint32_t>(48, 9).put<uint32_t>(44, 1);
    const message_t page = reply_to(walk);
    EXPECT_EQ(page.u32(40), 1U);
    EXPECT_EQ(page.u64(72), 3U) << "identifier";
    EXPECT_EQ(server_->totals().sessions, 1U);

    EXPECT_EQ(result_of(config(19, 104, {99})), not_taken);
    EXPECT_EQ(result_of(config(19, 104, {6})), 0U);
    EXPECT_EQ(reply_to(walk).u32(40), 0U);
}

}  // namespace
