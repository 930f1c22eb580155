/*
 * Reading, applying and the check afterwards. Long work goes to a thread or is split over turns of the loop, so that a
 * daemon stays responsive with a million rules.
 */
#include "reconcile/reconciler.h"

#include <algorithm>
#include <iterator>

#include "config/load.h"
#include "reconcile/background.h"
#include "records/families.h"

namespace nat64 = fwx::nat64;

namespace {

/** Awaitable that yields to the loop for one turn. */
class next_turn_t {
public:
    explicit next_turn_t(fwx_host_loop_t *loop) : loop_(loop) {}
    next_turn_t(const next_turn_t &) = delete;
    next_turn_t &operator=(const next_turn_t &) = delete;
    ~next_turn_t() {
        if (timer_ != 0) fwx_host_timer_cancel(loop_, timer_);
    }

    bool await_ready() const { return false; }
    void await_suspend(std::coroutine_handle<> waiting) {
        waiting_ = waiting;
        const auto resume = [](void *self) {
            static_cast<next_turn_t *>(self)->timer_ = 0;
            static_cast<next_turn_t *>(self)->waiting_.resume();
        };
        timer_ = fwx_host_timer_add(loop_, 0, resume, this);
    }
    void await_resume() const {}

private:
    fwx_host_loop_t *loop_;
    std::coroutine_handle<> waiting_;
    uint64_t timer_ = 0;
};

bool holds_nothing(const fwx_nat64_stats_sys_entry_t &totals) {
    size_t count = 0;
    const record_family_t *families = record_families(&count);
    return std::all_of(families, families + count, [&totals](const record_family_t &family) {
        return record_total_of(family, totals).value_or(0) == 0;
    });
}

}  // namespace

nat64::task<std::error_code> reconciler_t::read() {
    is_known_ = false;
    server_ = co_await read_server(loop_, client_);
    is_known_ = has_new_rules_ = !server_.error;
    co_return server_.error;
}

void reconciler_t::assume(document_t held, const fwx_nat64_stats_boot_t &boot) {
    server_ = {{}, boot.boot_id, boot.changes, std::move(held), {}};
    is_known_ = has_new_rules_ = true;
}

nat64::task<bool> reconciler_t::assume_known(const versions_t &versions) {
    const nat64::record_result<fwx_nat64_stats_boot_t> boot = co_await client_.stats_boot();
    const fwx_nat64_stats_boot_t now = boot ? boot.record : fwx_nat64_stats_boot_t{};
    std::string text;
    if (versions.is_newest(now.boot_id, now.changes) && versions.read(versions.newest()->number, text).empty()) {
        problems_t problems;
        document_t held = load_written(text, problems);
        if (problems.empty()) assume(std::move(held), now);
        co_return problems.empty();
    }
    const nat64::record_result<fwx_nat64_stats_sys_entry_t> totals = co_await client_.stats_totals();
    if (!totals || !holds_nothing(totals.record)) co_return false;
    assume({}, now);
    co_return true;
}

nat64::task<size_t> reconciler_t::follow_rules() {
    constexpr size_t rules_a_turn = 4096; /* take some milliseconds */
    if (!std::exchange(has_new_rules_, false)) co_return 0;
    const auto by_name = [](const fwx_mapt_rule_hash_elem_t &rule) { return name_of(rule.rule); };
    std::vector<fwx_mapt_rule_hash_elem_t> rules = std::move(server_.rules);
    std::ranges::stable_sort(rules, {}, by_name); /* of two with the same name the last one counts */
    std::vector<fwx_mapt_rule_hash_elem_t> gone;
    std::ranges::set_difference(rules_.rules(), rules, std::back_inserter(gone), {}, by_name, by_name);
    size_t failed = 0;
    size_t steps = 0;
    for (const fwx_mapt_rule_hash_elem_t &rule : rules) {
        if (rules_.found(rule) != 0) ++failed;
        if (++steps % rules_a_turn == 0) co_await next_turn_t(loop_);
    }
    for (const fwx_mapt_rule_hash_elem_t &rule : gone) {
        if (rules_.missed(rule.rule) != 0) ++failed;
        if (++steps % rules_a_turn == 0) co_await next_turn_t(loop_);
    }
    co_return failed;
}

nat64::task<reconcile_result_t> reconciler_t::reconcile(const plan_t &plan, const document_t &to, bool rolls_back) {
    reconcile_result_t result;
    applier_.emplace(client_, rules_, plan);
    co_await applier_->apply();
    const bool has_failed = !applier_->result() && !applier_->result().lost;
    const bool may_roll_back = has_failed && rolls_back && co_await is_alone(applier_->result().changes);
    if (may_roll_back) co_await applier_->roll_back();
    result.applied = applier_->result();
    if (!result.applied) result.standing = applier_->standing();
    applier_.reset();
    if (result.applied.lost) {
        is_known_ = false;
        result.unknown = result.applied.lost;
    } else {
        co_await look(to, result);
    }
    co_return result;
}

/** True if no other client has changed the server since it was read, and always for a server that does not count its
 * changes. */
nat64::task<bool> reconciler_t::is_alone(uint64_t own_changes) {
    if (server_.boot_id == 0) co_return true;
    const nat64::record_result<fwx_nat64_stats_boot_t> boot = co_await client_.stats_boot();
    co_return boot &&boot.record.boot_id == server_.boot_id &&boot.record.changes == server_.changes + own_changes;
}

nat64::task<> reconciler_t::look(const document_t &to, reconcile_result_t &result) {
    const apply_result_t &applied = result.applied;
    const bool is_certain = applied || applied.is_rolled_back;
    fwx_nat64_stats_boot_t boot{};
    if (server_.boot_id != 0) {
        const nat64::record_result<fwx_nat64_stats_boot_t> got = co_await client_.stats_boot();
        is_known_ = static_cast<bool>(got);
        result.unknown = got.error;
        if (!got) co_return;
        boot = got.record;
    }
    const bool is_same_run = boot.boot_id == server_.boot_id;
    const uint64_t expected = boot.boot_id == 0 ? 0 : server_.changes + applied.changes;
    if (is_same_run) result.others = boot.changes - expected;
    if (is_certain && is_same_run && result.others == 0) {
        if (applied) server_.document = to;
        server_.changes = boot.changes;
        result.is_in_sync = static_cast<bool>(applied);
        co_return;
    }
    result.unknown = co_await read();
    if (result.unknown) co_return;
    result.is_in_sync = co_await in_background(loop_, [&] { return plan_t(server_.document, to).size() == 0; });
}
