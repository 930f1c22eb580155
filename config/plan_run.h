/*
 * A plan on its way to a server: which command may be sent next, and what takes back those that were carried out.
 * Whoever sends them does so in any event loop, with as many outstanding as it likes. After a refusal nothing more of
 * the plan is sent, and whoever sends decides whether it is taken back.
 *
 *     while (const plan_command_t *command = run.next()) send(*command, run.ticket());   until enough are outstanding
 *     run.answered(ticket, is_carried_out);                                              with each answer
 *
 * A command that could not be sent is answered as refused. One that was carried out and failed all the same, because
 * the server could not keep it, is answered as carried out, and then the plan is stopped. What became of one that is
 * never answered is unknown: the run waits for it.
 */
#ifndef CONFIG_PLAN_RUN_H
#define CONFIG_PLAN_RUN_H

#include <cstddef>
#include <vector>

#include "config/plan.h"

class plan_run_t {
public:
    /** The plan outlives it. */
    explicit plan_run_t(const plan_t &plan) : plan_(plan), is_done_(plan.size(), false), refused_(plan.size()) {}

    /** The next command to be sent, until the next call; null while answers have to come first, and at the end. */
    const plan_command_t *next();
    /** Of the command that `next` gave last: what its answer is told with. No two have the same; of a command of the
     * plan it is the index there. */
    size_t ticket() const { return ticket_; }
    void answered(size_t ticket, bool is_carried_out);
    /** Sends no more of the plan, as after a refusal. */
    void stop() { is_stopped_ = true; }
    /** Takes back what was carried out, also when all was. */
    void take_back();

    /** Nothing is awaited, and nothing left to be sent. */
    bool is_over() const {
        if (outstanding_ != 0) return false;
        return is_taken_back_ ? is_all_undone() : is_stopped_ || sent_ == plan_.size();
    }
    /** Whether what was carried out is taken back, or has been. */
    bool is_taken_back() const { return is_taken_back_; }
    /** Whether a command of the plan was carried out, and not taken back since. */
    bool is_done(size_t index) const { return is_done_[index]; }
    /** The first command of the plan that was refused, by its index; `plan.size()`: none was. */
    size_t refused() const { return refused_; }

private:
    bool is_all_undone() const { return is_undoing_ && undo_at_ == 0 && next_undo_ == undo_.size(); }
    bool take_command();
    bool take_undo();
    void find_undo();

    const plan_t &plan_;
    std::vector<bool> is_done_; /* by command of the plan */
    plan_command_t command_{};
    std::vector<plan_command_t> undo_; /* of the command at undo_at_ */
    size_t refused_;
    size_t sent_ = 0; /* of the plan */
    size_t ticket_ = 0;
    size_t outstanding_ = 0;
    size_t undo_at_ = 0; /* command of the plan; those before it are still to be looked at */
    size_t next_undo_ = 0;
    bool is_stopped_ = false;
    bool is_taken_back_ = false;
    bool is_undoing_ = false; /* what was under way has been answered */
};

#endif
