/* The fault sweep. It runs each scenario once to count the calls of every platform operation, and then once for each of
 * these calls with that call failing. After each run it checks that no command is lost or reported twice, that nothing
 * is leaked, and that a new binding works. */
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <optional>

#include "platform/tbm.h"
#include "records/families.h"
#include "stage.h"
#include "tests/support/outstanding.h"
#include "tests/support/platform_watch.h"

#ifdef ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

/* GoogleTest shows a scenario by its name. */
std::ostream &operator<<(std::ostream &out, const scenario_t &scenario) {
    return out << scenario.name;
}

namespace {

constexpr uint32_t client_tag = 1;
constexpr uint64_t walk_record_bytes = 16;
constexpr uint32_t rule_tag = 96;

/** How the binding ends: its outstanding commands are reported (flush) or not (discard). */
enum class ending_t : uint8_t { flush, discard };

struct fault_t {
    fwx_host_op_t op; /* FWX_HOST_OP_COUNT: none */
    uint64_t nth;

    bool is_one_of(std::initializer_list<fwx_host_op_t> ops) const {
        return std::find(ops.begin(), ops.end(), op) != ops.end();
    }
    /* A command whose removal from the list fails is on no list. It is neither reported nor outstanding, and is freed
     * with the pool when the binding ends. */
    bool loses_a_command() const { return op == FWX_HOST_OP_LIST_REMOVE; }
    /* A context that is on no list, or on a list that cannot be emptied, is in use when the pool is destroyed, and a
     * walk's record that is freed with it stays. */
    bool loses_contexts() const { return is_one_of({FWX_HOST_OP_LIST_REMOVE, FWX_HOST_OP_LIST_HEAD}); }
    /* A query that cannot be put back on the list between two parts gets no further call. */
    bool ends_queries_silently() const { return op == FWX_HOST_OP_LIST_INSERT_TAIL; }
    /* A leaf that cannot be found or deleted during the clean-up stays in its tree. An installed rule without leaves,
     * or a rule that stays pending after a failed send, is freed by the clean-up. */
    bool leaves_leaves() const {
        return is_one_of({FWX_HOST_OP_LIST_HEAD, FWX_HOST_OP_TBM_LEAF_SIZE, FWX_HOST_OP_TBM_FIRST_LEAF,
                          FWX_HOST_OP_TBM_LEAF_DELETE});
    }
};
constexpr fault_t no_fault = {FWX_HOST_OP_COUNT, 0};

struct before_t {
    platform_watch_t watch;
    uint64_t walk_records = fwx_host_memory_blocks_tag(client_tag);
};

/** Deletes and frees the leaves in the tree of complex 0; returns their number. */
uint64_t take_leaves() {
    const uint8_t key = 0;
    uint32_t code = 0;
    uint64_t count = 0;
    tbm_t *tree = fwx_host_tbm_of_complex(0);
    for (; tree != nullptr; ++count) {
        tbm_leaf_t *leaf = tbm_first_leaf(tree, &key, 0, &code);
        if (leaf == nullptr) break;
        tbm_leaf_delete(tree, leaf, &code);
        fwx_free_named(leaf);
    }
    return count;
}

class fault_sweep_t : public testing::TestWithParam<scenario_t> {
protected:
    void TearDown() override { fwx_host_fault_reset(); }

    void run(const fault_t &fault, ending_t ending) {
#ifdef ADDRESS_SANITIZER /* cannot reach a lost walk's record, which the sweep counts instead */
        std::optional<__lsan::ScopedDisabler> no_leak_checks;
        if (fault.loses_contexts()) no_leak_checks.emplace();
#endif
        before_t before;
        own_list_heads_.clear();
        fwx_host_fault_reset();
        fwx_host_fault_arm(fault.op, static_cast<uint32_t>(fault.nth), 0);
        {
            stage_t stage;
            GetParam().play(stage);
            expect_it_goes_on(stage);
            expect_all_told(stage, fault);
            expect_all_accounted_for(stage, fault, ending);
            fwx_nat64_unbind();
            fwx_mapt_plu_cleanup();
            stage.pump();
            for (size_t op = 0; op < calls_.size(); ++op) {
                calls_[op] = fwx_host_fault_calls(static_cast<fwx_host_op_t>(op));
            }
            fwx_host_fault_reset();
            expect_nothing_left(stage, fault, before);
        }
        EXPECT_EQ(before.watch.errors().bad_frees, 0u);
    }

    void expect_a_binding_works() {
        before_t before;
        stage_t stage;
        stage.bind();
        const fwx_nat64_mapt_bmr_t rule = {9, 1, {0x20, 0x01, 0x0d, 0xb8, 9}, 48, {203, 0, 113}, 24, {}};
        stage.send("rule", [&](void *ctx) { return fwx_nat64_mapt_bmr_set_a(FWX_NAT64_OP_ADD, &rule, ctx); });
        stage.pump();
        expect_all_accepted(stage);
        EXPECT_EQ(stage.open(), 0u);
        fwx_nat64_model_match_t match{};
        const fwx_nat64_addr_t address = {0, {203, 0, 113, 7}};
        EXPECT_TRUE(stage.model->lookup(&address, &match));
        EXPECT_EQ(match.rule_id, 9u);
        fwx_nat64_unbind();
        fwx_mapt_plu_cleanup();
        stage.pump();
        expect_nothing_left(stage, no_fault, before);
    }

    std::array<uint64_t, FWX_HOST_OP_COUNT> calls_{};
    std::vector<uint64_t>
        own_list_heads_; /* numbers of the calls of FWX_HOST_OP_LIST_HEAD that the sweep itself makes */

private:
    uint64_t outstanding() {
        own_list_heads_.push_back(fwx_host_fault_calls(FWX_HOST_OP_LIST_HEAD) + 1);
        return outstanding_commands();
    }

    void expect_all_accepted(const stage_t &stage) {
        for (const result_t &result : stage.results) {
            EXPECT_EQ(result.code, 0u) << result.what;
        }
        for (const ticket_t &ticket : stage.tickets) {
            EXPECT_EQ(ticket.code, ticket.expected) << ticket.what;
            if (!GetParam().is_answered) continue;
            EXPECT_FALSE(ticket.is_open()) << ticket.what;
            EXPECT_EQ(ticket.verdict, ticket.expected_verdict) << ticket.what;
        }
    }

    /* Sends two commands, because the fault can make only one of them fail. */
    static void expect_it_goes_on(stage_t &stage) {
        stage.send("alias upload", fwx_nat64_ipalias_upload_a);
        stage.send("alias upload", fwx_nat64_ipalias_upload_a);
        const bool is_one_sent = stage.tickets.back().is_sent() || stage.tickets[stage.tickets.size() - 2].is_sent();
        EXPECT_EQ(is_one_sent, fwx_nat64_client_info_get() != nullptr);
        stage.pump();
    }

    /* No command is reported whose send failed, and none is reported twice. */
    void expect_all_told(const stage_t &stage, const fault_t &fault) {
        for (const ticket_t &ticket : stage.tickets) {
            EXPECT_EQ(ticket.is_sent() ? 0u : ticket.calls, 0u) << ticket.what;
            EXPECT_LE(ticket.ends, 1u) << ticket.what;
        }
        if (fault.op == FWX_HOST_OP_COUNT) expect_all_accepted(stage);
    }

    void expect_all_accounted_for(const stage_t &stage, const fault_t &fault, ending_t ending) {
        uint64_t lost = fault.loses_a_command() ? 1 : 0;
        if (fault.ends_queries_silently()) {
            for (const ticket_t &ticket : stage.tickets) {
                lost += ticket.answer == answer_t::query && ticket.is_open() && ticket.calls != 0 ? 1 : 0;
            }
            EXPECT_LE(lost, 1u);
        }
        EXPECT_LE(stage.open(), outstanding() + lost);
        if (ending == ending_t::discard) return;
        const uint32_t code = fwx_nat64_clnt_cleanup();
        const uint64_t rest = outstanding();
        EXPECT_TRUE(code != 0 || rest == 0);
        EXPECT_LE(stage.open(), rest + lost);
        expect_all_told(stage, fault);
        fwx_mapt_plu_cleanup();
        fwx_host_live_t live;
        fwx_host_live_get(&live);
        EXPECT_LE(live.pool_elements, rest + lost) << "contexts that belong to no command";
    }

    static void expect_nothing_left(const stage_t &stage, const fault_t &fault, before_t &before) {
        const uint64_t leaves = take_leaves();
        EXPECT_TRUE(leaves == 0 || fault.leaves_leaves()) << leaves;
        EXPECT_EQ(fwx_host_memory_blocks_tag(rule_tag), 0u);
        std::string lost;
        const uint64_t walks = fwx_host_memory_blocks_tag(client_tag) - before.walk_records;
        if (fault.loses_contexts() && walks != 0) {
            const auto may_be_lost = [](const ticket_t &t) {
                return t.answer == answer_t::walk && t.is_sent() && !t.released;
            };
            EXPECT_LE(static_cast<std::ptrdiff_t>(walks),
                      std::count_if(stage.tickets.begin(), stage.tickets.end(), may_be_lost));
            lost = std::to_string(walks) + " memory blocks, " + std::to_string(walks * walk_record_bytes) +
                   " memory bytes";
        }
        if (fault.loses_contexts()) before.watch.expect_destroyed_in_use(before.watch.errors().destroyed_in_use);
        EXPECT_EQ(before.watch.left(), lost);
    }
};

uint64_t injected_in_all = 0;

TEST_P(fault_sweep_t, no_single_fault_loses_repeats_or_leaks_anything) {
    uint64_t injected = 0;
    for (const ending_t ending : {ending_t::flush, ending_t::discard}) {
        run(no_fault, ending);
        ASSERT_FALSE(HasFailure()) << "without a fault";
        const auto calls = calls_;
        const std::vector<uint64_t> own = own_list_heads_;
        for (size_t op = 0; op < calls.size(); ++op) {
            const auto failing = static_cast<fwx_host_op_t>(op);
            for (uint64_t nth = 1; nth <= calls[op]; ++nth) {
                const bool is_own = std::find(own.begin(), own.end(), nth) != own.end();
                if (failing == FWX_HOST_OP_LIST_HEAD && is_own) continue;
                SCOPED_TRACE(std::string(fwx_host_op_name(failing)) + " " + std::to_string(nth) +
                             (ending == ending_t::flush ? ", flushed" : ", discarded"));
                run({failing, nth}, ending);
                EXPECT_GE(calls_[op], nth) << "the fault did not strike";
                expect_a_binding_works();
                ASSERT_FALSE(HasFailure());
                ++injected;
            }
        }
    }
    injected_in_all += injected;
    std::printf("%" PRIu64 " single faults (%" PRIu64 " so far)\n", injected, injected_in_all);
}

/* Makes sure that the sweep covers every operation and every family of commands. */
TEST(scenarios_t, call_every_operation_that_can_be_made_to_fail_and_send_a_command_of_every_family) {
    fwx_host_fault_reset();
    std::string sent;
    for (size_t i = 0; i < scenario_count; ++i) {
        stage_t stage;
        scenarios[i].play(stage);
        fwx_nat64_unbind();
        fwx_mapt_plu_cleanup();
        for (const ticket_t &ticket : stage.tickets) {
            sent.append("\n").append(ticket.what).append(" ");
        }
    }
    for (int number = 0; number < FWX_HOST_OP_COUNT; ++number) {
        const auto op = static_cast<fwx_host_op_t>(number);
        EXPECT_NE(fwx_host_fault_calls(op), 0u) << fwx_host_op_name(op);
    }
    size_t count = 0;
    const record_family_t *families = record_families(&count);
    for (const record_family_t *family = families; family != families + count; ++family) {
        const std::string name = record_command_text(*family, nullptr);
        EXPECT_NE(sent.find("\n" + name + " "), std::string::npos) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(scenario, fault_sweep_t, testing::ValuesIn(scenarios, scenarios + scenario_count),
                         [](const auto &scenario) { return std::string(scenario.param.name); });

}  // namespace
