/*
 * The progress of a plan: the next command that may be sent, the results so far, and the rollback. The sender can use
 * any event loop and have any number of commands outstanding. After a refusal no further command of the plan is sent.
 * The sender then decides whether to roll back.
 *
 *     while (const plan_command_t *command = run.next()) send(*command, run.ticket());   until enough are outstanding
 *     run.answered(ticket, is_carried_out);                                              with each answer
 *
 * A command that cannot be sent counts as refused. If the server carries out a command and only fails to save it, the
 * sender reports it as carried out and then stops the plan. A command without an answer stays outstanding for ever.
 */
#ifndef CONFIG_PLAN_RUN_H
#define CONFIG_PLAN_RUN_H

#include <cstddef>
#include <vector>

#include "config/plan.h"

class plan_run_t {
public:
    /** The plan must outlive this object. */
    explicit plan_run_t(const plan_t &plan) : plan_(plan), is_done_(plan.size(), false), refused_(plan.size()) {}

    /** The next command to send, valid until the next call. Null at the end, and while answers must come first. */
    const plan_command_t *next();
    /** Identifies the command that `next` returned last. A command of the plan has its index in the plan, one of the
     * rollback has a greater number. */
    size_t ticket() const { return ticket_; }
    /** Reports the answer to the command with that ticket. */
    void answered(size_t ticket, bool is_carried_out);
    /** Sends no further command of the plan, as after a refusal. */
    void stop() { is_stopped_ = true; }
    /** True if all commands of the plan were sent. */
    bool is_sent() const { return sent_ == plan_.size(); }
    /** Starts the rollback, also if the whole plan was carried out. */
    void roll_back();

    /** True if no command is outstanding and none is left to send. */
    bool is_over() const {
        if (outstanding_ != 0) return false;
        return is_rolled_back_ ? is_all_undone() : is_stopped_ || is_sent();
    }
    /** True if the rollback has started or ended. */
    bool is_rolled_back() const { return is_rolled_back_; }
    /** True if a command of the plan was carried out, and not undone since. */
    bool is_done(size_t index) const { return is_done_[index]; }
    /** Lowest index of the commands of the plan that were refused; `plan.size()`: none. */
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
    size_t undo_at_ = 0; /* index of the command that is undone now; those before it come next */
    size_t next_undo_ = 0;
    bool is_stopped_ = false;
    bool is_rolled_back_ = false;
    bool is_undoing_ = false; /* the rollback sends commands, because no command of the plan is outstanding */
};

#endif
