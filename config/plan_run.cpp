#include "config/plan_run.h"

#include <algorithm>

const plan_command_t *plan_run_t::next() {
    const plan_command_t *command = is_refused_ ? next_undo() : next_of_plan();
    if (command != nullptr) ++outstanding_;
    return command;
}

const plan_command_t *plan_run_t::next_of_plan() {
    const bool must_wait = sent_ == plan_.delete_count() && outstanding_ != 0;
    if (sent_ == plan_.size() || must_wait) return nullptr;
    ticket_ = sent_++;
    command_ = plan_.command(ticket_);
    return &command_;
}

/** Goes back from the last command that was sent; what was deleted comes when all is gone that came instead. */
const plan_command_t *plan_run_t::next_undo() {
    if (!is_undoing_) {
        if (outstanding_ != 0) return nullptr;
        is_undoing_ = true;
        undo_at_ = sent_;
    }
    while (next_undo_ == undo_.size()) {
        if (undo_at_ == 0) return nullptr;
        const bool must_wait = undo_at_ == plan_.delete_count() && outstanding_ != 0;
        if (must_wait) return nullptr;
        --undo_at_;
        undo_.clear();
        next_undo_ = 0;
        const bool has_more = undo_at_ != 0 && is_done_[undo_at_ - 1] && plan_.is_undone_with_previous(undo_at_);
        if (is_done_[undo_at_] && !has_more) plan_.append_undo(undo_at_, undo_);
    }
    ticket_ = plan_.size() + undo_at_;
    return &undo_[next_undo_++];
}

void plan_run_t::answered(size_t ticket, bool is_carried_out) {
    --outstanding_;
    if (ticket < plan_.size()) {
        is_done_[ticket] = is_carried_out;
        if (is_carried_out) return;
        refused_ = is_refused_ ? std::min(refused_, ticket) : ticket;
        is_refused_ = true;
        return;
    }
    const bool is_left = !is_carried_out && (left_.empty() || left_.back() != ticket - plan_.size());
    if (is_left) left_.push_back(ticket - plan_.size());
}
