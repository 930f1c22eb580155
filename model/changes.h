/* What has changed since the start, and whether it is kept. */
#ifndef MODEL_CHANGES_H
#define MODEL_CHANGES_H

#include <utility>

#include "model/outbox.h"

class changes_t {
public:
    explicit changes_t(outbox_t &replies) : outbox_(replies) {}

    uint64_t count() const { return count_; }
    /** Returns as commit, which comes first. */
    uint64_t journal_set(const fwx_nat64_model_journal_t &journal) {
        const uint64_t unsaved = commit();
        journal_ = journal;
        return unsaved;
    }

    /** Notes a change that was carried out. If there is a journal, its answer, and all after it, wait for commit. */
    void note(uint32_t op_code, const void *payload, size_t size) {
        ++count_;
        if (journal_.changed == nullptr) return;
        journal_.changed(journal_.arg, op_code, payload, size);
        is_uncommitted_ = true;
        outbox_.hold_unsaved();
    }
    /** Lets the answers out that wait, with what comes of keeping the changes. Returns how many of them say that it
     * failed. */
    uint64_t commit() {
        return std::exchange(is_uncommitted_, false) ? outbox_.release_unsaved(journal_.commit(journal_.arg)) : 0;
    }

private:
    outbox_t &outbox_;
    fwx_nat64_model_journal_t journal_{};
    uint64_t count_ = 0;
    bool is_uncommitted_ = false;
};

#endif
