/*
 * The window of commands of an applier. Each answer settles one command, lets plan_run_t name the next ones, and
 * resumes the waiting task when nothing is outstanding.
 */
#include "reconcile/applier.h"

#include <memory>
#include <unordered_map>

#include "config/plan_run.h"
#include "fwx_nat64/server_result.h"
#include "reconcile/no_server.h"

namespace nat64 = fwx::nat64;

namespace {

/** True if the error means that a sent command has ended without an answer. */
bool is_unanswered(const std::error_code &error) {
    return error == nat64::client_errc::connection_lost || error == std::errc::timed_out ||
           error == nat64::nat64_error(FWX_NAT64_ERR_NOT_READY);
}

}  // namespace

/** The state of a plan that is being carried out. */
class applier_t::execution_t : public std::enable_shared_from_this<execution_t> {
public:
    execution_t(nat64::client &client, rule_book_t &rules, const plan_t &plan)
        : client_(client), rules_(rules), plan_(plan), run_(plan) {}

    /** Sends commands until the window is full, the channel is throttled or answers must come first. */
    void fill() {
        while (!result_.lost && sent_.size() < window) {
            const bool must_wait = client_.is_throttled() && !sent_.empty();
            const plan_command_t *command = must_wait ? nullptr : run_.next();
            if (command == nullptr) return;
            send(*command, run_.ticket());
        }
    }
    bool is_over() const { return sent_.empty() && (result_.lost || run_.is_over()); }
    void resume_when_over(std::coroutine_handle<> waiting) { waiting_ = waiting; }
    /** Ignores all answers from now on. */
    void abandon() {
        is_abandoned_ = true;
        waiting_ = nullptr;
    }

    void stop() {
        result_.is_stopped = result_.is_stopped || (!run_.is_sent() && !result_.refusal);
        run_.stop();
        end_if_over();
    }
    bool is_sent() const { return run_.is_sent(); }
    void roll_back() { run_.roll_back(); }
    void note_rolled_back() { result_.is_rolled_back = !result_.lost && standing().empty(); }
    const apply_result_t &result() const { return result_; }
    std::vector<plan_command_t> standing() const {
        std::vector<plan_command_t> commands;
        for (size_t i = 0; i < plan_.size(); ++i) {
            if (run_.is_done(i)) commands.push_back(plan_.command(i));
        }
        return commands;
    }

private:
    struct sent_t {
        plan_command_t command;
        std::optional<rule_change_t> rule;
        std::optional<default_change_t> default_rule;
    };

    void send(const plan_command_t &command, size_t ticket) {
        sent_t &sent = sent_.emplace(ticket, sent_t{command, {}, {}}).first->second;
        const auto send_it = [&sent](void *pal_ctx) {
            return sent.command.family->send(sent.command.op, sent.command.record.bytes, pal_ctx);
        };
        if (!command.family->is_rule()) {
            const nat64::result got =
                client_.configure(send_it, [self = shared_from_this(), ticket](const nat64::result &answer) {
                    self->arrived(ticket, nat64::rule_result{answer});
                });
            if (!got) settle(ticket, got.error, is_no_server(got.code()));
            return;
        }
        const void *record = command.record.bytes;
        if (command.family->kind == family_kind_t::basic_rule) {
            sent.rule = rule_change_t{command.op, *static_cast<const fwx_nat64_mapt_bmr_t *>(record), {}};
        } else {
            sent.default_rule = default_change_t{command.op, *static_cast<const fwx_nat64_mapt_dmr_t *>(record)};
        }
        const bool is_new = sent.rule && command.op == FWX_NAT64_OP_ADD && rules_.adding(*sent.rule);
        const nat64::result got = client_.configure_rule(
            send_it,
            [self = shared_from_this(), ticket](const nat64::rule_result &answer) { self->arrived(ticket, answer); });
        if (sent.rule && command.op == FWX_NAT64_OP_DEL) note_table(rules_.deleting(*sent.rule));
        if (got) return;
        const bool must_correct = sent.rule && (is_new || command.op == FWX_NAT64_OP_DEL);
        if (must_correct) note_table(rules_.failed(*sent.rule));
        settle(ticket, got.error, is_no_server(got.code()));
    }

    /** Takes the server's answer; only that to a command for a rule has more than the error. */
    void arrived(size_t ticket, const nat64::rule_result &answer) {
        if (is_abandoned_) return;
        const std::shared_ptr<execution_t> keep = shared_from_this(); /* the resumed task may destroy the applier */
        const sent_t &sent = sent_.at(ticket);
        const bool is_lost = is_unanswered(answer.error);
        if (answer.orders_cleanup) rules_.emptied();
        if (sent.rule) {
            const bool is_known_gone = sent.rule->op == FWX_NAT64_OP_DEL && is_lost;
            if (!is_known_gone) note_table(rules_.answered(*sent.rule, answer).table_code);
        } else if (sent.default_rule) {
            rules_.answered(*sent.default_rule, answer);
        }
        if (is_lost) {
            ++result_.unanswered;
            result_.lost = answer.error;
            sent_.erase(ticket);
        } else {
            settle(ticket, answer.error, is_no_server(answer.code()));
        }
        fill();
        end_if_over();
    }
    void end_if_over() {
        if (is_over() && waiting_) std::exchange(waiting_, nullptr).resume();
    }

    /** Records the result of a command. `is_lost`: no server was there to take it. */
    void settle(size_t ticket, std::error_code error, bool is_lost) {
        const plan_command_t command = sent_.at(ticket).command;
        sent_.erase(ticket);
        const bool is_unsaved = error == nat64::nat64_error(FWX_NAT64_MODEL_ERR_NOT_SAVED);
        const bool is_done = !error || is_unsaved;
        const bool is_of_plan = ticket < plan_.size();
        if (is_lost) {
            result_.lost = error;
            return;
        }
        if (is_done) ++result_.changes;
        if (is_done && is_of_plan) ++result_.done;
        run_.answered(ticket, is_done);
        const bool is_refused = is_of_plan && error;
        if (is_refused) run_.stop();
        const bool is_first = is_refused && (!result_.refusal || ticket < refused_);
        if (!is_first) return;
        result_.refusal = apply_refusal_t{command, error};
        refused_ = ticket;
    }

    void note_table(uint32_t code) {
        if (result_.table_code == 0) result_.table_code = code;
    }

    nat64::client &client_;
    rule_book_t &rules_;
    const plan_t &plan_;
    plan_run_t run_;
    std::unordered_map<size_t, sent_t> sent_; /* by ticket */
    apply_result_t result_;
    size_t refused_ = 0; /* ticket of the refusal */
    std::coroutine_handle<> waiting_;
    bool is_abandoned_ = false;
};

applier_t::applier_t(nat64::client &client, rule_book_t &rules, const plan_t &plan)
    : execution_(std::make_shared<execution_t>(client, rules, plan)) {}

applier_t::~applier_t() {
    execution_->abandon();
}

nat64::task<> applier_t::run() {
    class over_t {
    public:
        explicit over_t(std::shared_ptr<execution_t> execution) : execution_(std::move(execution)) {}
        over_t(const over_t &) = delete;
        ~over_t() {
            if (!execution_->is_over()) execution_->abandon(); /* the task is destroyed while it waits */
        }
        bool await_ready() const {
            execution_->fill();
            return execution_->is_over();
        }
        void await_suspend(std::coroutine_handle<> waiting) const { execution_->resume_when_over(waiting); }
        void await_resume() const {}

    private:
        const std::shared_ptr<execution_t> execution_; /* the applier may be destroyed before the task */
    };
    co_await over_t(execution_);
}

nat64::task<> applier_t::apply() {
    co_await run();
}

nat64::task<> applier_t::roll_back() {
    execution_->roll_back();
    co_await run();
    execution_->note_rolled_back();
}

void applier_t::stop() {
    execution_->stop();
}

bool applier_t::is_sent() const {
    return execution_->is_sent();
}

const apply_result_t &applier_t::result() const {
    return execution_->result();
}

std::vector<plan_command_t> applier_t::standing() const {
    return execution_->standing();
}
