/*
 * Sends the commands of a plan over a binding, with many outstanding at a time, and can roll the plan back. It keeps
 * the library's rule table in sync with the server's answers.
 */
#ifndef RECONCILE_APPLIER_H
#define RECONCILE_APPLIER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

#include "config/plan.h"
#include "fwx_nat64/fwx_nat64.hpp"
#include "reconcile/rule_book.h"

struct apply_refusal_t {
    plan_command_t command;
    std::error_code error; /* of the category of the library, the platform or the server */
};

struct apply_result_t {
    size_t done = 0;      /* commands of the plan that were carried out, including those that were undone later */
    uint64_t changes = 0; /* `done` and the commands that undid them: the server's count of changes grew by this */
    std::optional<apply_refusal_t> refusal; /* the first command of the plan that was refused */
    bool is_stopped = false;                /* `stop` was called before the last command was sent */
    bool is_rolled_back = false;            /* the rollback is complete */

    /* Set if the channel was lost or a command timed out. No further command was sent, not even for a rollback. */
    std::error_code lost;
    size_t unanswered = 0; /* commands without an answer, which may have been carried out */

    uint32_t table_code = 0; /* not 0: why the library's rule table is not in sync with the server */

    /** True if the server has carried out the whole plan. */
    explicit operator bool() const { return !refusal && !is_stopped && !lost; }
};

/** Carries out one plan. Destroying it, or a task of it, sends nothing more and ignores the outstanding answers. */
class applier_t {
public:
    /** Greatest number of outstanding commands. */
    static constexpr size_t window = 256;

    /** All arguments, and the documents of the plan, must outlive the applier. */
    applier_t(fwx::nat64::client &client, rule_book_t &rules, const plan_t &plan);
    ~applier_t();
    applier_t(const applier_t &) = delete;
    applier_t &operator=(const applier_t &) = delete;

    /** Sends the commands until all are sent, one is refused, `stop` is called or the server is lost, and then waits
     * for all outstanding answers. Commands have the client's deadline. */
    fwx::nat64::task<> apply();
    /** Sends no further command of the plan. May be called at any time. */
    void stop();
    /** True if all commands of the plan were sent, so that a stop has no effect. */
    bool is_sent() const;
    /** Rolls the plan back. To be called after `apply`, unless the server was lost. */
    fwx::nat64::task<> roll_back();

    const apply_result_t &result() const;
    /** The commands of the plan that were carried out and not undone. */
    std::vector<plan_command_t> standing() const;

private:
    class execution_t;
    fwx::nat64::task<> run();

    std::shared_ptr<execution_t>
        execution_; /* shared with the callbacks, which can come after the applier is destroyed */
};

#endif
