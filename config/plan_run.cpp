/* The rollback walks the plan backwards. As on the way forward, no delete and no add are outstanding together. */
#include "config/plan_run.h"

#include <algorithm>

const plan_command_t *plan_run_t::next() {
    const bool has_one = is_rolled_back_ ? take_undo() : take_command();
    if (!has_one) return nullptr;
    ++outstanding_;
    find_undo();
    return &command_;
}

bool plan_run_t::take_command() {
    const bool must_wait = sent_ == plan_.delete_count() && outstanding_ != 0;
    if (is_stopped_ || is_sent() || must_wait) return false;
    ticket_ = sent_++;
    command_ = plan_.command(ticket_);
    return true;
}

bool plan_run_t::take_undo() {
    if (next_undo_ == undo_.size()) return false;
    ticket_ = plan_.size() + 2 * undo_at_ + next_undo_;
    command_ = undo_[next_undo_++];
    return true;
}

void plan_run_t::answered(size_t ticket, bool is_carried_out) {
    --outstanding_;
    if (ticket >= plan_.size()) {
        const size_t index = (ticket - plan_.size()) / 2;
        if (!is_carried_out) is_done_[index] = true; /* the undo failed */
    } else if (is_carried_out) {
        is_done_[ticket] = true;
    } else {
        refused_ = std::min(refused_, ticket);
        is_stopped_ = true;
    }
    find_undo();
}

void plan_run_t::roll_back() {
    is_rolled_back_ = true;
    find_undo();
}

/** Moves backwards to the next command that must be undone. Deletes are undone only after all adds are, because the new
 * items may have taken the place of the deleted ones. */
void plan_run_t::find_undo() {
    const bool begins = is_rolled_back_ && !is_undoing_ && outstanding_ == 0;
    if (begins) undo_at_ = sent_;
    is_undoing_ = is_undoing_ || begins;
    while (is_undoing_ && next_undo_ == undo_.size() && undo_at_ != 0) {
        const bool must_wait = undo_at_ == plan_.delete_count() && outstanding_ != 0;
        if (must_wait) return;
        --undo_at_;
        undo_.clear();
        next_undo_ = 0;
        if (!is_done_[undo_at_]) continue;
        plan_.append_undo(undo_at_, undo_);
        is_done_[undo_at_] = false;
    }
}
