/*
 * Plans between random documents, carried out by the library on a server model. Each command of a plan is refused once,
 * and the rollback must restore the first document. The rule table must be in sync with the model afterwards.
 */
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <set>

#include "config/load.h"
#include "config/notation.h"
#include "config/plan_run.h"
#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "model/model.h"
#include "reconcile/rule_book.h"
#include "records/reader.h"
#include "records/value.h"
#include "records/words.h"
#include "tests/support/platform_watch.h"

namespace {

/** A server model and a client of it that carries plans out as natctl does. */
class held_server_t {
public:
    held_server_t() : loop_(fwx_host_loop_create()), model_(fwx_nat64_model_t::create(loop_, FWX_NAT64_CHANNEL_NAME)) {
        self = this;
        bind();
    }
    ~held_server_t() {
        unbind();
        model_.reset();
        fwx_host_loop_destroy(loop_);
    }
    held_server_t(const held_server_t &) = delete;
    held_server_t &operator=(const held_server_t &) = delete;

    /** Carries out a plan with up to `window` commands outstanding. The server refuses the tickets in `refused`. */
    void carry_out(plan_run_t &run, size_t window, std::set<size_t> refused = {}) {
        run_ = &run;
        while (!run.is_over()) {
            const size_t before = outstanding_.size();
            const plan_command_t *command = before < window ? run.next() : nullptr;
            if (command == nullptr) {
                ASSERT_NE(before, 0U) << "nothing may be sent, and nothing is awaited";
                pump();
                continue;
            }
            if (refused.erase(run.ticket()) != 0) {
                const plan_command_t copy = *command;
                pump(); /* so that the fault does not hit an earlier command */
                model_->fail_next(FWX_NAT64_MODEL_ERR_VALUE, 1);
                send(copy, run.ticket());
            } else {
                send(*command, run.ticket());
            }
        }
        EXPECT_EQ(run.next(), nullptr);
    }
    void hold(const document_t &document) {
        const document_t none;
        const plan_t plan(none, document);
        plan_run_t run(plan);
        carry_out(run, 64);
        EXPECT_EQ(run.refused(), plan.size()) << "all is taken";
    }

    /** The state of the server, without the indices of rules and without values that mean "absent", and the rules in
     * the rule book. */
    std::multiset<std::string> state() const {
        std::multiset<std::string> parts;
        model_->save(
            [](void *arg, uint32_t op_code, const void *payload, size_t size) {
                const std::string bytes = part_of(op_code, {static_cast<const char *>(payload), size});
                const std::string text = std::to_string(op_code) + " " + hex_digits(bytes.data(), bytes.size());
                if (!bytes.empty()) static_cast<std::multiset<std::string> *>(arg)->insert(text);
            },
            &parts);
        for (const auto &[name, rule] : book_.rules()) {
            parts.insert("rule " + hex_digits(&rule.rule, sizeof rule.rule));
            EXPECT_TRUE(is_found(rule.rule)) << "the leaf of rule " << name.first << " is missing";
        }
        return parts;
    }

    static std::string text_of(const plan_t &plan, size_t index) {
        const plan_command_t command = plan.command(index);
        return command_line(*command.family, command.op, command.record.bytes);
    }

private:
    struct sent_t {
        rule_change_t rule; /* of a basic rule, or op 0 */
        uint64_t wire_ctx;
        fwx_nat64_mapt_reply_t reply;
    };

    void bind() {
        const fwx_nat64_unsol_cbs_t unsolicited{};
        const fwx_nat64_reply_cbs_t replies{answered, nullptr, nullptr, nullptr, nullptr, nullptr};
        EXPECT_EQ(fwx_nat64_bind("PAL1", loop_, &unsolicited, &replies), 0U);
        fwx_host_tap_set(tapped, this);
        pump();
    }
    void unbind() {
        fwx_host_tap_set(nullptr, nullptr);
        fwx_nat64_unbind();
        pump();
        fwx_mapt_plu_cleanup();
        book_.emptied();
    }

    static std::string part_of(uint32_t op_code, std::string bytes) {
        if (op_code == FWX_NAT64_MODEL_SAVED_BASIC_RULE) return bytes.substr(sizeof(uint32_t));
        const bool has_absence = op_code == FWX_NAT64_CFG_TIMEOUT_SET || op_code == FWX_NAT64_CFG_INTF_SET ||
                                 op_code == FWX_NAT64_CFG_ADJ_SET || op_code == FWX_NAT64_CFG_GLOBAL_SETTINGS;
        const size_t value_at = op_code == FWX_NAT64_CFG_GLOBAL_SETTINGS ? 0 : sizeof(uint32_t);
        const bool is_absent = has_absence && bytes.find_first_not_of('\0', value_at) == std::string::npos;
        return is_absent ? "" : bytes;
    }

    bool is_found(const fwx_nat64_mapt_bmr_t &rule) const {
        fwx_nat64_addr_t v4{FWX_NAT64_FAMILY_IPV4, {}};
        fwx_nat64_addr_t v6{1, {}};
        std::memcpy(v4.addr, rule.v4_prefix, sizeof rule.v4_prefix);
        std::memcpy(v6.addr, rule.v6_prefix, sizeof rule.v6_prefix);
        fwx_nat64_model_match_t match{};
        return model_->lookup(&v4, &match) && match.prefix_len == rule.v4_prefix_len && model_->lookup(&v6, &match) &&
               match.prefix_len == rule.v6_prefix_len;
    }

    void pump() { fwx_host_loop_run_until_idle(loop_); }

    void send(const plan_command_t &command, size_t ticket) {
        sent_t &sent = outstanding_[ticket + 1];
        sent = {};
        sending_ = &sent;
        const bool is_rule = command.family->kind == family_kind_t::basic_rule;
        if (is_rule) {
            std::memcpy(&sent.rule.rule, command.record.bytes, sizeof sent.rule.rule);
            sent.rule.op = command.op;
            for (const auto &[other, each] : outstanding_) {
                const bool is_under_way =
                    &each != &sent && each.rule.op != 0 && name_of(each.rule.rule) == name_of(sent.rule.rule);
                EXPECT_FALSE(is_under_way) << "two commands of a rule at a time";
            }
            EXPECT_TRUE(command.op != FWX_NAT64_OP_ADD || book_.adding(sent.rule));
        }
        EXPECT_EQ(command.family->send(command.op, command.record.bytes, reinterpret_cast<void *>(ticket + 1)), 0U);
        const bool is_delete = is_rule && command.op == FWX_NAT64_OP_DEL;
        EXPECT_EQ(is_delete ? book_.deleting(sent.rule) : 0, 0U);
    }

    void judge(size_t ticket, uint32_t table_code) {
        const sent_t sent = outstanding_.at(ticket);
        outstanding_.erase(ticket);
        const bool is_done = sent.reply.reply.result == 0;
        if (sent.rule.op != 0) {
            EXPECT_EQ(is_done ? book_.done(sent.rule, table_code, sent.reply.bmr_index) : book_.failed(sent.rule), 0U);
        }
        run_->answered(ticket - 1, is_done);
    }

    static void answered(fwx_nat64_cmd_result_t *result) {
        self->judge(reinterpret_cast<size_t>(result->pal_ctx), result->result);
    }

    /** Gets the server's result for a rule's command, which the library does not report. */
    static void tapped(void *arg, fwx_host_direction_t direction, const void *msg, size_t size) {
        auto &server = *static_cast<held_server_t *>(arg);
        fwx_nat64_mapt_reply_t reply{};
        std::memcpy(&reply, msg, std::min(size, sizeof reply));
        const uint64_t ctx = reply.reply.hdr.clnt_ctx;
        if (direction == FWX_HOST_SENT && server.sending_ != nullptr) {
            server.sending_->wire_ctx = ctx;
            server.sending_ = nullptr;
        }
        for (auto &[ticket, sent] : server.outstanding_) {
            if (direction == FWX_HOST_RECEIVED && sent.wire_ctx == ctx) sent.reply = reply;
        }
    }

    static inline held_server_t *self;
    fwx_host_loop_t *loop_;
    std::unique_ptr<fwx_nat64_model_t> model_;
    rule_book_t book_;
    std::map<size_t, sent_t> outstanding_; /* by ticket plus 1 */
    sent_t *sending_ = nullptr;
    plan_run_t *run_ = nullptr;
};

document_t load(const std::string &text) {
    problems_t problems;
    document_t document = load_document("# nat64 configuration version 1\n" + text, problems);
    for (const problem_t &problem : problems) {
        EXPECT_EQ(problem.kind, problem_t::kind_t::warning) << problem.text() << '\n' << text;
    }
    return document;
}

/** Random documents of few keys and values, so that two of them often share items. */
class random_documents_t {
public:
    explicit random_documents_t(uint64_t seed) : random_(seed) {}

    document_t next() {
        text_.clear();
        for (const char *type : {"udp", "tcp-est", "icmp"}) {
            maybe("timeout set --type " + std::string(type) + " --value " + any(3));
            maybe("adj set --type inside --address " + one_of({"192.0.2.1", "2001:db8::1", "0.0.0.0"}), type[0] == 'u');
        }
        maybe("limit add --type sessions --value " + any(3));
        maybe("service add --type alg --value " + any(3));
        maybe("replication set --value " + any(2) + " --value2 " + any(2));
        maybe("settings set --bytes 0" + any(3) + std::string(30, '0'));
        for (const char *dest : {"192.0.2.1 --port 1", "192.0.2.1 --port 2", "192.0.2.2 --port 1"}) {
            maybe(std::string("logging add --dest ") + dest + " --template " + any(2));
        }
        add_pools();
        for (const char *prefix : {"64:ff9b::/96", "2001:db8::/32"}) {
            maybe(std::string("prefix add --prefix ") + prefix + " --kind " + one_of({"1", "2", "3", "4"}));
        }
        for (const char *id : {"1", "2", "3"}) {
            maybe(std::string("smapping add --addr2 192.0.2.1 --id ") + id + " --addr1 2001:db8::" + any(2));
            maybe(std::string("dmapping add --id ") + id + " --type " + any(2) + " --ext-arg " + any(2));
            maybe(std::string("mapt dmr add --id ") + id + " --prefix 2001:db8:" + any(2) + "::/64");
            add_interface(id);
            for (const char *domain : {"1", "2"}) {
                maybe(std::string("mapt bmr add --rule ") + id + " --domain " + domain + " --v6 2001:db8:" + any(3) +
                      "::/48 --v4 192.0." + any(3) + ".0/24 --ea-len " + any(2));
            }
        }
        return load(text_);
    }
    size_t below(size_t count) { return random_() % count; }

private:
    std::string any(size_t count) { return std::to_string(below(count)); }
    std::string one_of(const std::vector<std::string> &texts) { return texts[below(texts.size())]; }
    void maybe(const std::string &line, bool is_wanted = true) {
        if (is_wanted && below(3) != 0) text_ += line + "\n";
    }

    /** Pools and ranges use only eight blocks of addresses, so that two documents often use the same ones. */
    void add_pools() {
        std::vector<std::string> blocks = {"0", "1", "2", "3", "4", "5", "6", "7"};
        std::shuffle(blocks.begin(), blocks.end(), random_);
        auto next_block = [&](const std::string &half) {
            const std::string begin = "10.0." + blocks.back();
            blocks.pop_back();
            return " --start " + begin + ".0 --end " + begin + half;
        };
        for (const char *id : {"1", "2", "3", "4"}) {
            if (below(4) == 0) continue;
            text_ += std::string("pool add --param 1 --id ") + id + next_block(one_of({".127", ".255"})) + "\n";
            maybe(std::string("range add --id ") + id + next_block(".255"));
        }
    }

    void add_interface(const std::string &id) {
        const std::string prefix = one_of({"", " --sful 64:ff9b::/96", " --sless 2001:db8::/32 --mtu 1400"});
        const size_t kind = below(4);
        if (kind == 0) return;
        if (kind != 1) text_ += "interface set --ifh " + id + (kind == 3 ? " --enable 0" : "") + prefix + "\n";
        if (kind != 3) maybe("nvi enable --ifh " + id);
    }

    std::mt19937_64 random_;
    std::string text_;
};

TEST(plan_test, a_plan_makes_of_one_configuration_the_other_and_after_a_refusal_the_first_again) {
    const platform_watch_t watch;
    random_documents_t documents(64);
    for (int round = 0; round < 60 && !testing::Test::HasFailure(); ++round) {
        const document_t from = documents.next();
        const document_t to = documents.next();
        SCOPED_TRACE(write_lines(from) + write_lines(to));
        std::multiset<std::string> wanted;
        {
            held_server_t fresh;
            fresh.hold(to);
            wanted = fresh.state();
        }
        held_server_t server;
        server.hold(from);
        const std::multiset<std::string> before = server.state();
        EXPECT_EQ(plan_t(from, from).size(), 0U);
        const plan_t plan(from, to);
        for (size_t refused = documents.below(4); refused < plan.size(); refused += 1 + documents.below(8)) {
            SCOPED_TRACE(held_server_t::text_of(plan, refused) + " is refused");
            plan_run_t run(plan);
            const size_t window = 1 + documents.below(64);
            server.carry_out(run, window, {refused});
            EXPECT_EQ(run.refused(), refused);
            EXPECT_FALSE(run.is_done(refused));
            run.roll_back();
            server.carry_out(run, window);
            for (size_t i = 0; i < plan.size(); ++i) {
                EXPECT_FALSE(run.is_done(i)) << "what stands of it";
            }
            ASSERT_EQ(server.state(), before);
        }
        plan_run_t run(plan);
        server.carry_out(run, 1 + documents.below(64));
        ASSERT_EQ(run.refused(), plan.size()) << "all is taken";
        ASSERT_EQ(server.state(), wanted);
        run.roll_back();
        server.carry_out(run, 8);
        ASSERT_EQ(server.state(), before);
    }
    EXPECT_EQ(watch.left(), "");
    EXPECT_EQ(watch.faults(), "");
}

TEST(plan_test, commands_come_in_an_order_that_a_server_takes) {
    struct case_t {
        const char *from, *to, *commands;
    };
    const case_t cases[] = {
        /* Items that others depend on are deleted last and added first. */
        {"pool add --id 1 --param 1 --start 10.0.0.0 --end 10.0.0.9\nrange add --id 1 --start 10.0.1.0 --end 10.0.1.9\n"
         "timeout set --type udp --value 5\ninterface set --ifh 1 --mtu 5",
         "range add --id 2 --start 10.0.1.0 --end 10.0.1.9\npool add --id 2 --param 1 --start 10.0.0.0 --end 10.0.0.9",
         "interface set --ifh 1 --enable 0\nrange del --id 1 --start 10.0.1.0 --end 10.0.1.9\npool del --id 1 ends "
         "sessions\ntimeout set --type udp --value 0\n--\npool add --id 2 --param 1 --start 10.0.0.0 --end 10.0.0.9\n"
         "range add --id 2 --start 10.0.1.0 --end 10.0.1.9\n"},
        /* Each pool needs the addresses of the next one, so the last one changes first. */
        {"pool add --id 1 --param 1 --start 10.0.0.0 --end 10.0.0.9\npool add --id 2 --param 1 --start 10.0.0.10 --end "
         "10.0.0.19\npool add --id 3 --param 1 --start 10.0.0.20 --end 10.0.0.29",
         "pool add --id 1 --param 1 --start 10.0.0.5 --end 10.0.0.14\npool add --id 2 --param 1 --start 10.0.0.15 "
         "--end 10.0.0.24\npool add --id 3 --param 1 --start 10.0.0.25 --end 10.0.0.34",
         "--\npool mod --id 3 --param 1 --start 10.0.0.25 --end 10.0.0.34\npool mod --id 2 --param 1 --start 10.0.0.15 "
         "--end 10.0.0.24\npool mod --id 1 --param 1 --start 10.0.0.5 --end 10.0.0.14\n"},
        /* A pool needs only the last address of one pool and the first of another. */
        {"pool add --id 1 --param 1 --start 10.0.2.0 --end 10.0.2.9\npool add --id 2 --param 1 --start 10.0.0.0 --end "
         "10.0.0.9\npool add --id 3 --param 1 --start 10.0.0.18 --end 10.0.0.19",
         "pool add --id 1 --param 1 --start 10.0.0.9 --end 10.0.0.18\npool add --id 2 --param 1 --start 10.0.3.0 --end "
         "10.0.3.9\npool add --id 3 --param 1 --start 10.0.4.0 --end 10.0.4.9",
         "--\npool mod --id 2 --param 1 --start 10.0.3.0 --end 10.0.3.9\npool mod --id 3 --param 1 --start 10.0.4.0 "
         "--end 10.0.4.9\npool mod --id 1 --param 1 --start 10.0.0.9 --end 10.0.0.18\n"},
        /* Two pairs of pools swap their addresses: one of each is deleted first, with its range. */
        {"pool add --id 1 --param 1 --start 10.0.0.0 --end 10.0.0.9\npool add --id 2 --param 1 --start 10.0.0.10 --end "
         "10.0.0.19\npool add --id 3 --param 1 --start 10.0.0.20 --end 10.0.0.29\npool add --id 4 --param 1 --start "
         "10.0.0.30 --end 10.0.0.39\nrange add --id 1 --start 10.0.1.0 --end 10.0.1.9\nrange add --id 2 --start "
         "10.0.2.0 --end 10.0.2.9\nrange add --id 3 --start 10.0.3.0 --end 10.0.3.9",
         "pool add --id 2 --param 1 --start 10.0.0.0 --end 10.0.0.9\npool add --id 1 --param 1 --start 10.0.0.10 --end "
         "10.0.0.19\npool add --id 4 --param 1 --start 10.0.0.20 --end 10.0.0.29\npool add --id 3 --param 1 --start "
         "10.0.0.30 --end 10.0.0.39\nrange add --id 1 --start 10.0.1.0 --end 10.0.1.9\nrange add --id 2 --start "
         "10.0.2.0 --end 10.0.2.9\nrange add --id 3 --start 10.0.3.0 --end 10.0.3.9",
         "range del --id 3 --start 10.0.3.0 --end 10.0.3.9\nrange del --id 1 --start 10.0.1.0 --end 10.0.1.9\npool del "
         "--id 3 ends sessions\npool del --id 1 ends sessions\n--\npool mod --id 2 --param 1 --start 10.0.0.0 --end "
         "10.0.0.9\npool add --id 1 --param 1 --start 10.0.0.10 --end 10.0.0.19\npool mod --id 4 --param 1 --start "
         "10.0.0.20 --end 10.0.0.29\npool add --id 3 --param 1 --start 10.0.0.30 --end 10.0.0.39\nrange add --id 1 "
         "--start 10.0.1.0 --end 10.0.1.9\nrange add --id 3 --start 10.0.3.0 --end 10.0.3.9\n"},
        /* Changes in place, and those that need a delete and an add. */
        {"dmapping add --id 1 --type 0\ndmapping add --id 2 --type 0\nlimit add --type 1 --value 1\nnvi enable --ifh "
         "1\ninterface set --ifh 2\nnvi enable --ifh 3\n"
         "mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24",
         "dmapping add --id 1 --type 1\ndmapping add --id 2 --type 0 --ext-arg 1\nlimit add --type 1 --value 2\n"
         "interface set --ifh 1\nnvi enable --ifh 2\nnvi enable --ifh 3\ninterface set --ifh 3 --mtu 5\n"
         "mapt bmr add --rule 1 --domain 1 --v6 2001:db8::/41 --v4 192.0.2.0/24",
         "mapt bmr del --rule 1 --domain 1\ndmapping del --id 2 ends sessions\n--\nlimit mod --type sessions --value "
         "2\ndmapping mod --id 1 --type address-dependent\ndmapping add --id 2 --type endpoint-independent --ext-arg "
         "1\nmapt bmr add --rule 1 --domain 1 --v6 2001:db8::/41 --v4 192.0.2.0/24\ninterface set --ifh 1\nnvi enable "
         "--ifh 2\ninterface set --ifh 3 --mtu 5\nnvi enable --ifh 3\n"},
    };
    for (const case_t &each : cases) {
        const document_t from = load(each.from);
        const document_t to = load(each.to);
        const plan_t plan(from, to);
        std::string commands;
        for (size_t i = 0; i < plan.size(); ++i) {
            commands += i == plan.delete_count() ? "--\n" : "";
            commands += held_server_t::text_of(plan, i) + (plan.command(i).ends_sessions ? " ends sessions\n" : "\n");
        }
        EXPECT_EQ(commands, each.commands);
    }
}

TEST(plan_test, a_failed_undo_is_reported) {
    const document_t none;
    const document_t to = load("limit add --type 1 --value 1\nservice add --type 1 --value 2\nnvi enable --ifh 3");
    const plan_t plan(none, to);
    std::multiset<std::string> left;
    {
        held_server_t server;
        plan_run_t run(plan);
        server.carry_out(run, 1, {2});
        EXPECT_TRUE(run.is_done(0) && run.is_done(1));
        run.roll_back();
        server.carry_out(run, 1, {3 + 2 * 1});
        EXPECT_EQ(std::vector<bool>({run.is_done(0), run.is_done(1), run.is_done(2)}),
                  std::vector<bool>({false, true, false}));
        left = server.state();
    }
    held_server_t server;
    server.hold(load("service add --type 1 --value 2"));
    EXPECT_EQ(left, server.state());
}

}  // namespace
