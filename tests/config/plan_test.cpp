/*
 * Plans between random documents, carried out by the library on a server model. Each command of a plan is refused once,
 * and the rollback must restore the first document. The rule table must be in sync with the model afterwards.
 */
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>

#include "config/load.h"
#include "config/notation.h"
#include "config/plan_run.h"
#include "fwx_host/adapter.hpp"
#include "model/model.h"
#include "reconcile/rule_book.h"
#include "records/reader.h"
#include "records/value.h"
#include "records/words.h"
#include "tests/config/text_cases.h"
#include "tests/support/platform_watch.h"

namespace {

/** A server model and a client of it that carries plans out as natctl does. */
class held_server_t {
public:
    held_server_t() { pump(); }
    ~held_server_t() {
        client_.reset();
        pump();
        fwx_mapt_plu_cleanup();
    }
    held_server_t(const held_server_t &) = delete;
    held_server_t &operator=(const held_server_t &) = delete;

    /** Carries out a plan with up to `window` commands outstanding. The server refuses the tickets in `refused`. */
    void carry_out(plan_run_t &run, size_t window, std::set<size_t> refused = {}) {
        run_ = &run;
        while (!run.is_over()) {
            const size_t before = outstanding_;
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

    void pump() const { fwx_host_loop_run_until_idle(loop_); }

    void send(const plan_command_t &command, size_t ticket) {
        ++outstanding_;
        const auto send_it = [&command](void *pal_ctx) {
            return command.family->send(command.op, command.record.bytes, pal_ctx);
        };
        const auto judge = [this, ticket](const std::error_code &error) {
            --outstanding_;
            run_->answered(ticket, !error);
        };
        if (command.family->kind == family_kind_t::basic_rule) {
            rule_change_t change{command.op, {}, {}};
            std::memcpy(&change.rule, command.record.bytes, sizeof change.rule);
            EXPECT_TRUE(command.op != FWX_NAT64_OP_ADD || book_.adding(change));
            const auto [place, is_only_one] = changes_.emplace(name_of(change.rule), change);
            EXPECT_TRUE(is_only_one) << "two commands of a rule at a time";
            const auto answered = [this, place = place, judge](const fwx::nat64::rule_result &answer) {
                EXPECT_EQ(book_.answered(place->second, answer).table_code, 0U);
                changes_.erase(place);
                judge(answer.error);
            };
            EXPECT_TRUE(client_->configure_rule(send_it, answered));
            EXPECT_EQ(command.op == FWX_NAT64_OP_DEL ? book_.deleting(place->second) : 0, 0U);
        } else if (command.family->is_rule()) {
            EXPECT_TRUE(client_->configure_rule(
                send_it, [judge](const fwx::nat64::rule_result &answer) { judge(answer.error); }));
        } else {
            EXPECT_TRUE(
                client_->configure(send_it, [judge](const fwx::nat64::result &answer) { judge(answer.error); }));
        }
    }

    fwx::host::loop loop_;
    std::unique_ptr<fwx_nat64_model_t> model_ = fwx_nat64_model_t::create(loop_, FWX_NAT64_CHANNEL_NAME);
    std::optional<fwx::nat64::client> client_{std::in_place, "PAL1", loop_.get(), fwx::nat64::handlers{},
                                              fwx::host::adapter};
    rule_book_t book_;
    std::map<rule_name_t, rule_change_t> changes_; /* outstanding ones */
    size_t outstanding_ = 0;
    plan_run_t *run_ = nullptr;
};

document_t document_of_lines(const std::string &text) {
    problems_t problems;
    document_t document = load_document(first_line + text, problems);
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
        return document_of_lines(text_);
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
    for (const text_case_t &each : read_text_cases(TEST_DIR "/plan_orders.txt", 3)) {
        SCOPED_TRACE(each.name);
        const document_t from = document_of_lines(each.parts[0]);
        const document_t to = document_of_lines(each.parts[1]);
        const plan_t plan(from, to);
        std::string commands;
        for (size_t i = 0; i < plan.size(); ++i) {
            commands += i == plan.delete_count() ? "then\n" : "";
            commands += held_server_t::text_of(plan, i) + (plan.command(i).ends_sessions ? " ends sessions\n" : "\n");
        }
        EXPECT_EQ(commands, each.parts[2]);
    }
}

TEST(plan_test, a_failed_undo_is_reported) {
    const document_t none;
    const document_t to =
        document_of_lines("limit add --type 1 --value 1\nservice add --type 1 --value 2\nnvi enable --ifh 3");
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
    server.hold(document_of_lines("service add --type 1 --value 2"));
    EXPECT_EQ(left, server.state());
}

}  // namespace
