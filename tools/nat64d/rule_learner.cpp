#include "tools/nat64d/rule_learner.h"

#include <memory>
#include <set>
#include <vector>

#include "fwx_nat64/mapt.h"
#include "fwx_nat64/server_result.h"
#include "records/families.h"

namespace nat64 = fwx::nat64;

namespace {

constexpr size_t window = 256; /* commands that are outstanding at a time */

class lesson_t : public std::enable_shared_from_this<lesson_t> {
public:
    lesson_t(nat64::client &client, rule_book_t &rules, const document_t &document)
        : client_(client), rules_(rules), document_(document) {
        const record_family_t &family = record_family_of(family_kind_t::basic_rule);
        next_ = document.begin_of(family);
        end_ = document.end_of(family);
    }

    void fill() {
        while (next_ != end_ && outstanding_ < window && !is_abandoned_) {
            const config_item_t item = document_.item(next_++);
            rule_change_t change{FWX_NAT64_OP_ADD, *reinterpret_cast<const fwx_nat64_mapt_bmr_t *>(item.record), {}};
            rules_.adding(change);
            const auto send = [&change](void *pal_ctx) {
                return fwx_nat64_mapt_bmr_set_a(FWX_NAT64_OP_ADD, &change.rule, pal_ctx);
            };
            const auto on_answer = [self = weak_from_this().lock(), index = next_ - 1](const nat64::rule_result &got) {
                self->arrived(index, got);
            };
            if (client_.configure_rule(send, on_answer)) {
                ++outstanding_;
            } else {
                rules_.failed(change);
                ++failed_;
            }
        }
    }
    bool is_over() const { return next_ == end_ && outstanding_ == 0; }
    void resume_when_over(std::coroutine_handle<> waiting) { waiting_ = waiting; }
    void abandon() { is_abandoned_ = true; }
    size_t failed() const { return failed_; }

private:
    void arrived(size_t index, const nat64::rule_result &got) {
        if (is_abandoned_) return;
        const std::shared_ptr<lesson_t> keep = weak_from_this().lock(); /* the task may end below */
        --outstanding_;
        const config_item_t item = document_.item(index);
        const rule_change_t change{FWX_NAT64_OP_ADD, *reinterpret_cast<const fwx_nat64_mapt_bmr_t *>(item.record), {}};
        const bool is_held = got.has_verdict && (got || got.code() == FWX_NAT64_MODEL_ERR_EXISTS);
        const uint32_t code = is_held ? rules_.done(change, static_cast<uint32_t>(got.table.value()), got.bmr_index)
                                      : rules_.failed(change);
        if (!is_held || code != 0) ++failed_;
        fill();
        if (is_over() && waiting_) std::exchange(waiting_, nullptr).resume();
    }

    nat64::client &client_;
    rule_book_t &rules_;
    const document_t &document_;
    size_t next_ = 0; /* items of the document */
    size_t end_ = 0;
    size_t outstanding_ = 0;
    size_t failed_ = 0;
    std::coroutine_handle<> waiting_;
    bool is_abandoned_ = false;
};

}  // namespace

nat64::task<size_t> learn_rules(nat64::client &client, rule_book_t &rules, const document_t &document) {
    struct over_t {
        std::shared_ptr<lesson_t> lesson;
        explicit over_t(std::shared_ptr<lesson_t> of) : lesson(std::move(of)) {}
        over_t(const over_t &) = delete;
        ~over_t() { lesson->abandon(); }
        bool await_ready() const {
            lesson->fill();
            return lesson->is_over();
        }
        void await_suspend(std::coroutine_handle<> waiting) const { lesson->resume_when_over(waiting); }
        size_t await_resume() const { return lesson->failed(); }
    };
    co_return co_await over_t(std::make_shared<lesson_t>(client, rules, document));
}

void prune_rules(rule_book_t &rules, const document_t &document) {
    const record_family_t &family = record_family_of(family_kind_t::basic_rule);
    std::set<rule_name_t> names;
    for (size_t i = document.begin_of(family); i < document.end_of(family); ++i) {
        names.insert(name_of(*reinterpret_cast<const fwx_nat64_mapt_bmr_t *>(document.item(i).record)));
    }
    std::vector<rule_change_t> stale;
    for (const auto &[name, rule] : rules.rules()) {
        if (names.count(name) == 0) stale.push_back({FWX_NAT64_OP_DEL, rule.rule, {}});
    }
    for (rule_change_t &change : stale) {
        fwx_mapt_plu_del_rule(&change.rule);
        rules.deleting(change);
    }
}
