/*
 * Carries plans out over a binding, many commands at a time, and takes them back when one is refused. It keeps the
 * library's rule table as the server's verdicts have it.
 *
 * Who applies a plan keeps what comes of it where a crash leaves it: the plan before `apply`, each command as it is
 * carried out, and those in doubt when it has ended (running_t).
 */
#ifndef RECONCILE_APPLIER_H
#define RECONCILE_APPLIER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <system_error>
#include <vector>

#include "config/plan.h"
#include "fwx_nat64/fwx_nat64.hpp"
#include "reconcile/rule_book.h"

struct apply_refusal_t {
    plan_command_t command;
    std::error_code error; /* of the library's, the platform's and the server's category */
};

struct apply_result_t {
    size_t done = 0; /* commands of the plan that were carried out, even if they were taken back then */
    std::optional<apply_refusal_t> refusal; /* the first command of the plan that was refused */
    bool is_taken_back = false;             /* there was a refusal, and nothing of the plan stands */
    std::vector<plan_command_t> left;       /* after a refusal: what stands of the plan */

    /* Not empty: the channel or the time ran out. Nothing more was sent, and nothing taken back. */
    std::error_code lost;
    std::vector<plan_command_t> in_doubt; /* then: sent, and not answered */

    uint32_t table_code = 0; /* not 0: why the library's rule table is not what the server has */

    /** Whether the server holds what the plan leads to. */
    explicit operator bool() const { return !refusal && !lost; }
};

class applier_t {
public:
    /** Commands that are outstanding at a time. */
    static constexpr size_t window = 256;
    /** Gets each command that the server has carried out, in the order of the answers, also those that take back; a
     * delete of what was gone counts as one. Must not destroy the task. */
    using on_done_fn_t = std::function<void(const plan_command_t &command)>;
    /** Hears once that what was done is being taken back, before the first command of that. */
    using on_undo_fn_t = std::function<void()>;

    /** Both outlive the applier. */
    applier_t(fwx::nat64::client &client, rule_book_t &rules) : client_(client), rules_(rules) {}

    /**
     * Carries a plan out. Commands have the deadline that the client gives them.
     * @param plan outlives the task, as do its documents.
     * @return what came of it. Destroying the task forgets what is outstanding.
     */
    fwx::nat64::task<apply_result_t> apply(const plan_t &plan, on_done_fn_t on_done, on_undo_fn_t on_undo = {});

private:
    class flight_t;

    fwx::nat64::client &client_;
    rule_book_t &rules_;
};

#endif
