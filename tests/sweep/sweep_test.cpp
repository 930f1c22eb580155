/* The fault sweep. It runs each scenario once to count the calls of every platform operation, and then once for each of
 * these calls with that call failing. After each run it checks that no command is lost or reported twice, that nothing
 * is leaked, and that a new binding works. */
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "records/reader.h"
#include "records/words.h"
#include "stage.h"
#include "tests/records/all_families.h"
#include "tests/support/outstanding.h"
#include "tests/support/platform_watch.h"

#ifdef ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace {

/* The scenarios are different uses of a binding. Without a fault, every command is accepted. */

constexpr uint32_t add = FWX_NAT64_OP_ADD;
constexpr uint32_t del = FWX_NAT64_OP_DEL;
constexpr uint32_t missing_leaf = 22;

/** Sends the configuration command of a line; the line is also the ticket's name. */
void configure(stage_t &stage, const char *line) {
    line_words_t words;
    record_reader_t reader;
    words.split(line);
    if (reader.read(words.words()) != record_reader_t::result_t::record) std::abort();
    stage.send(line, [&](void *ctx) { return reader.family().send(reader.verb().op, reader.record().bytes, ctx); });
}
void set_rule(stage_t &stage, uint32_t op, uint32_t id, uint8_t v4_net, uint32_t expected = 0, uint32_t verdict = 0) {
    const auto v6_net = static_cast<uint8_t>(id);
    const fwx_nat64_mapt_bmr_t rule = {id, 1, {0x20, 0x01, 0x0d, 0xb8, 0, v6_net}, 48, {192, 0, v4_net}, 24, {}};
    stage.send(
        "mapt bmr", [&](void *ctx) { return fwx_nat64_mapt_bmr_set_a(op, &rule, ctx); }, expected, verdict);
}
void walk_sessions(stage_t &stage, uint32_t count) {
    const fwx_nat64_sess_walk_filter_t filter{};
    stage.ask("session walk", answer_t::walk,
              [&](void *ctx) { return fwx_nat64_session_walk_a(count, &filter, 0, 0, 0, stage_t::walk_cb, ctx); });
}

void bind_twice(stage_t &stage) {
    stage.bind();
    fwx_nat64_unbind();
    stage.bind();
}

void change_settings(stage_t &stage) {
    stage.bind();
    for (const char *line :
         {"settings set --bytes 00000000000000000000000000000000", "adj set --type 1 --address 192.0.2.1",
          "limit add --type sessions --value 100", "service add --type alg --value 5",
          "replication set --value 1 --value2 2", "timeout set --type 1 --value 60"}) {
        configure(stage, line);
    }
    stage.send("alias upload", fwx_nat64_ipalias_upload_a);
    const fwx_nat64_session_filter_t filter{};
    stage.send("session clear", [&](void *ctx) { return fwx_nat64_session_clear_a(&filter, ctx); });
    configure(stage, "logging add --dest 192.0.2.9 --port 514");
    stage.pump();
    uint8_t reply[64];
    for (const size_t reply_size : {size_t{0}, sizeof(reply)}) {
        void *msg = nullptr;
        constexpr size_t size = 24; /* a synchronous end of batch */
        uint32_t code = fwx_nat64_client_sync_cmd_init(size, FWX_NAT64_MSG_CONFIG, &msg);
        if (code == 0) {
            const uint32_t op_code = FWX_NAT64_CFG_END_BATCH;
            std::memcpy(static_cast<uint8_t *>(msg) + sizeof(fwx_nat64_sync_hdr_t), &op_code, sizeof(op_code));
            code = reply_size == 0 ? fwx_nat64_client_sync_cmd_send(msg, size)
                                   : fwx_nat64_client_sync_cmd_rsp_send(msg, size, reply, reply_size);
        }
        stage.call("synchronous command", code);
    }
    stage.pump();
}

void change_translation(stage_t &stage) {
    stage.bind();
    for (const char *line :
         {"interface set --ifh 7 --enable 0", "nvi enable --ifh 7", "prefix add --prefix 2001:db8::/96 --kind stateful",
          "prefix mod --prefix 2001:db8::/96 --kind stateful", "prefix del --prefix 2001:db8::/96 --kind stateful",
          "smapping add --id 1 --addr1 192.0.2.1 --addr2 192.0.2.2", "dmapping add --id 2 --type 0"}) {
        configure(stage, line);
    }
    configure(stage, "pool add --id 3 --param 1 --start 192.0.2.12 --end 192.0.2.15");
    configure(stage, "range add --id 3 --start 198.51.100.1 --end 198.51.100.16");
    stage.pump();
    configure(stage, "range del --id 3 --start 198.51.100.1 --end 198.51.100.16");
    configure(stage, "pool del --id 3");
    stage.pump();
}

/* Queries with replies in several parts, and a page that is longer than the first receive buffer. */
void query_and_walk(stage_t &stage) {
    stage.bind();
    for (const char *line :
         {"pool add --id 1 --param 1 --start 192.0.2.4 --end 192.0.2.7",
          "pool add --id 2 --param 1 --start 192.0.2.8 --end 192.0.2.11",
          "pool add --id 3 --param 1 --start 192.0.2.12 --end 192.0.2.15", "dmapping add --id 1 --type 0",
          "dmapping add --id 2 --type 0", "dmapping add --id 3 --type 0"}) {
        configure(stage, line);
    }
    stage.pump();
    stage.model->sessions_generate(80);
    walk_sessions(stage, 70);
    walk_sessions(stage, 30);
    stage.model->reply_limit_set(1);
    stage.ask("system query", answer_t::query, [](void *ctx) { return fwx_nat64_stats_sys_query_a(0, ctx); });
    stage.ask("interface query", answer_t::query, fwx_nat64_stats_intf_query_a);
    stage.ask("pool query", answer_t::query,
              [](void *ctx) { return fwx_nat64_stats_pool_all_query_a(0, nullptr, 9, 0, ctx); });
    stage.ask("mapping query", answer_t::query,
              [](void *ctx) { return fwx_nat64_stats_mapping_all_query_a(0, nullptr, 9, 0, ctx); });
    stage.ask("limit query", answer_t::query, [](void *ctx) { return fwx_nat64_stats_limit_all_query_a(0, 9, ctx); });
}

/* A channel ends with commands in its queue and commands at the server. The next command opens another channel. */
void lose_the_channel(stage_t &stage) {
    stage.bind();
    stage.model->sessions_generate(9);
    for (int round = 0; round < 2; ++round) {
        stage.model->hold();
        configure(stage, "timeout set --type 1 --value 60");
        stage.ask("system query", answer_t::query, [](void *ctx) { return fwx_nat64_stats_sys_query_a(0, ctx); });
        walk_sessions(stage, 3);
        stage.model->pause_set(true);
        configure(stage, "timeout set --type 2 --value 60");
        walk_sessions(stage, 3);
        set_rule(stage, add, 1 + static_cast<uint32_t>(round), 2);
        stage.model->drop_clients();
        stage.pump();
        stage.model->pause_set(false);
        configure(stage, "timeout set --type 3 --value 60");
        stage.pump();
        stage.model->release(fwx_nat64_model_order_t::reverse);
        stage.pump();
    }
}

void notify(stage_t &stage) {
    stage.bind();
    const uint8_t update[24] = {1, 2, 3};
    stage.call("synchronous end of batch", fwx_nat64_model_t::cgm_end_batch(1, false, nullptr));
    stage.call("synchronous update", fwx_nat64_model_t::cgm_update(2, update, false, nullptr));
    stage.send("end of batch", [](void *ctx) { return fwx_nat64_model_t::cgm_end_batch(3, true, ctx); });
    stage.send("update", [&](void *ctx) { return fwx_nat64_model_t::cgm_update(4, update, true, ctx); });
    stage.pump();
    stage.model->wakeup();
    stage.model->notify_record(true, 1, 2, 3);
    stage.model->notify_event();
    stage.model->notify_mapping(1, true, 2);
    stage.model->notify_debug(5, 1);
    stage.pump();
}

/* Deleting the first of two rules with the same IPv4 prefix removes their leaf. Deleting the second then fails. */
void share_a_prefix(stage_t &stage) {
    stage.bind();
    set_rule(stage, add, 1, 2);
    set_rule(stage, add, 2, 2);
    set_rule(stage, add, 3, 3);
    stage.pump();
    configure(stage, "mapt dmr add --id 1");
    set_rule(stage, del, 1, 2);
    set_rule(stage, del, 2, 2, missing_leaf);
    set_rule(stage, del, 3, 3);
    set_rule(stage, add, 4, 4);
    set_rule(stage, del, 4, 4); /* while it is pending */
    stage.pump();
}

/* When the last rule is deleted, the server orders the client to empty the whole table, including a pending rule. */
void empty_the_table(stage_t &stage) {
    stage.model->order_cleanup(true);
    stage.bind();
    set_rule(stage, add, 1, 2);
    set_rule(stage, add, 2, 3);
    stage.pump();
    set_rule(stage, del, 1, 2);
    set_rule(stage, del, 2, 3);
    stage.model->hold();
    stage.pump();
    set_rule(stage, add, 3, 4, 0, FWX_NAT64_ERR_INVALID);
    stage.model->release(fwx_nat64_model_order_t::in_order);
    stage.pump();
}

struct scenario_t {
    const char *name;
    void (*play)(stage_t &stage);
    bool is_answered; /* without a fault, every command is answered */
};
std::ostream &operator<<(std::ostream &out, const scenario_t &scenario) {
    return out << scenario.name;
}

const scenario_t scenarios[] = {
    {"bind_and_unbind", bind_twice, true},
    {"settings", change_settings, true},
    {"translation", change_translation, true},
    {"queries_and_walks", query_and_walk, true},
    {"a_lost_channel", lose_the_channel, false},
    {"notifications", notify, true},
    {"rules_that_share_a_prefix", share_a_prefix, true},
    {"the_clean_up_that_the_server_asks_for", empty_the_table, true},
};

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
        EXPECT_TRUE(before.watch.errors().destroyed_in_use == 0 || fault.loses_contexts());
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
        EXPECT_LE(live().pool_elements, rest + lost) << "contexts that belong to no command";
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
    for (const scenario_t &scenario : scenarios) {
        stage_t stage;
        scenario.play(stage);
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
    for (const record_family_t &family : all_families()) {
        const std::string name = record_command_text(family, nullptr);
        EXPECT_NE(sent.find("\n" + name + " "), std::string::npos) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(scenario, fault_sweep_t, testing::ValuesIn(scenarios),
                         [](const auto &scenario) { return std::string(scenario.param.name); });

}  // namespace
