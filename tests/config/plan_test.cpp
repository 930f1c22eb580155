/*
 * Plans between random documents, carried out on a server model by the applier, as natctl and nat64d do. Each command
 * of a plan is refused once, and the rollback must restore the first document. The rule table must be in sync with the
 * model afterwards.
 */
#include <cstring>
#include <random>
#include <set>

#include "config/notation.h"
#include "reconcile/applier.h"
#include "records/value.h"
#include "tests/config/loaded.h"
#include "tests/config/text_cases.h"
#include "tests/cxx/cxx_fixture.h"

namespace {

std::string text_of(const plan_command_t &command) {
    return command_line(*command.family, command.op, command.record.bytes);
}

class plan_test : public cxx_fixture_t {
protected:
    /** Replaces the server by one that holds the document. */
    void hold(const document_t &document) {
        client.reset();
        fwx_mapt_plu_cleanup();
        book_.emptied();
        restart_model();
        bind();
        const plan_t plan(none_, document);
        applier_t applier(*client, book_, plan);
        run(applier.apply());
        ASSERT_TRUE(applier.result());
    }
    /** Runs a task of an applier. The server answers when nothing more is sent without its answers; returns how many
     * times it did. It refuses the command of that index, with later ones outstanding. */
    size_t run_in_turns(fwx::nat64::task<> task, size_t refused = SIZE_MAX) {
        struct countdown_t {
            fwx_nat64_model_t &model;
            size_t left;
            void step() {
                if (left-- == 0) model.fail_next(FWX_NAT64_MODEL_ERR_VALUE, 1);
            }
        } countdown = {*model, refused};
        countdown.step();
        model->journal_set({[](void *arg, uint32_t, const void *, size_t) { static_cast<countdown_t *>(arg)->step(); },
                            [](void *) -> uint32_t { return 0; }, &countdown});
        task.start();
        pump();
        size_t turns = 0;
        while (!task.done() && turns < 3) {
            ++turns;
            model->commit();
            pump();
        }
        EXPECT_TRUE(task.done());
        model->journal_set({});
        return turns;
    }

    /** The state of the server, without the indices of rules and without values that mean "absent", and the rules in
     * the rule book. */
    std::multiset<std::string> state() const {
        std::multiset<std::string> parts;
        model->save(
            [](void *arg, uint32_t op_code, const void *payload, size_t size) {
                const std::string bytes = part_of(op_code, {static_cast<const char *>(payload), size});
                const std::string text = std::to_string(op_code) + " " + hex_digits(bytes.data(), bytes.size());
                if (!bytes.empty()) static_cast<std::multiset<std::string> *>(arg)->insert(text);
            },
            &parts);
        for (const auto &[rule, index] : book_.rules()) {
            parts.insert("rule " + hex_digits(&rule, sizeof rule));
            EXPECT_TRUE(is_found(rule)) << "the leaf of rule " << rule.rule_id << " is missing";
        }
        return parts;
    }

    const document_t none_{};
    rule_book_t book_;

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
        return model->lookup(&v4, &match) && match.prefix_len == rule.v4_prefix_len && model->lookup(&v6, &match) &&
               match.prefix_len == rule.v6_prefix_len;
    }
};

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
        return loaded(text_);
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

TEST_F(plan_test, a_plan_makes_of_one_configuration_the_other_and_after_a_refusal_the_first_again) {
    random_documents_t documents(64);
    for (int round = 0; round < 60 && !HasFailure(); ++round) {
        const document_t from = documents.next();
        const document_t to = documents.next();
        SCOPED_TRACE(write_lines(from) + write_lines(to));
        hold(to);
        const std::multiset<std::string> wanted = state();
        hold(from);
        const std::multiset<std::string> before = state();
        EXPECT_EQ(plan_t(from, from).size(), 0U);
        const plan_t plan(from, to);
        for (size_t refused = documents.below(4); refused < plan.size(); refused += 1 + documents.below(8)) {
            SCOPED_TRACE(text_of(plan.command(refused)) + " is refused");
            applier_t applier(*client, book_, plan);
            run_in_turns(applier.apply(), refused);
            ASSERT_TRUE(applier.result().refusal);
            EXPECT_EQ(text_of(applier.result().refusal->command), text_of(plan.command(refused)));
            run(applier.roll_back());
            EXPECT_TRUE(applier.result().is_rolled_back);
            EXPECT_EQ(applier.result().table_code, 0U);
            ASSERT_EQ(state(), before);
        }
        const size_t turns = (plan.delete_count() != 0 ? 1U : 0U) + (plan.delete_count() != plan.size() ? 1U : 0U);
        applier_t applier(*client, book_, plan);
        EXPECT_EQ(run_in_turns(applier.apply()), turns) << "all deletes are answered before anything is added";
        ASSERT_EQ(applier.result().done, plan.size());
        ASSERT_EQ(state(), wanted);
        EXPECT_EQ(run_in_turns(applier.roll_back()), turns);
        ASSERT_EQ(state(), before);
    }
}

TEST_F(plan_test, commands_come_in_an_order_that_a_server_takes) {
    for (const text_case_t &each : read_text_cases(TEST_DIR "/plan_orders.txt", 3)) {
        SCOPED_TRACE(each.name);
        const document_t from = loaded(each.parts[0]);
        const document_t to = loaded(each.parts[1]);
        const plan_t plan(from, to);
        std::string commands;
        for (size_t i = 0; i < plan.size(); ++i) {
            commands += i == plan.delete_count() ? "then\n" : "";
            commands += text_of(plan.command(i)) + (plan.command(i).ends_sessions ? " ends sessions\n" : "\n");
        }
        EXPECT_EQ(commands, each.parts[2]);
    }
}

TEST_F(plan_test, a_failed_undo_is_reported) {
    const document_t to = loaded("limit add --type 1 --value 1\nservice add --type 1 --value 2\nnvi enable --ifh 3");
    const plan_t plan(none_, to);
    applier_t applier(*client, book_, plan);
    run_in_turns(applier.apply(), 2);
    EXPECT_EQ(applier.standing().size(), 2U);
    run_in_turns(applier.roll_back(), 0);
    EXPECT_FALSE(applier.result().is_rolled_back);
    ASSERT_EQ(applier.standing().size(), 1U);
    EXPECT_EQ(text_of(applier.standing()[0]), "service add --type alg --value 2");
    const std::multiset<std::string> left = state();
    hold(loaded("service add --type 1 --value 2"));
    EXPECT_EQ(left, state());
}

}  // namespace
