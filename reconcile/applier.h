/*
 * Carries plans out over a binding, many commands at a time, and takes them back when that is asked for. It keeps the
 * library's rule table as the server's verdicts have it.
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
    std::error_code error; /* of the library's, the platform's and the server's category */
};

struct apply_result_t {
    size_t done = 0;      /* commands of the plan that the server has carried out, also those taken back since */
    uint64_t changes = 0; /* the same and those that took them back: so many more changes the server counts */
    std::optional<apply_refusal_t> refusal; /* the first command of the plan that was refused */
    bool is_stopped = false;                /* `stop` came before the last command was sent */
    bool is_taken_back = false;             /* `take_back` has ended, and nothing of the plan stands */

    /* Not empty: the channel or the time ran out. Nothing more was sent, and nothing taken back. */
    std::error_code lost;
    size_t unanswered = 0; /* then: commands that may have been carried out */

    uint32_t table_code = 0; /* not 0: why the library's rule table is not what the server has */

    /** Whether the server has carried out all of the plan. */
    explicit operator bool() const { return !refusal && !is_stopped && !lost; }
};

/** One plan on its way. Destroying it forgets what is outstanding, and so does destroying a task of it. */
class applier_t {
public:
    /** Commands that are outstanding at a time. */
    static constexpr size_t window = 256;

    /** All outlive the applier, the documents of the plan too. */
    applier_t(fwx::nat64::client &client, rule_book_t &rules, const plan_t &plan);
    ~applier_t();
    applier_t(const applier_t &) = delete;
    applier_t &operator=(const applier_t &) = delete;

    /** Carries the plan out until it has ended, a command is refused, it is stopped, or the server is lost, and what is
     * under way has been answered. Commands have the deadline that the client gives them. */
    fwx::nat64::task<> apply();
    /** Sends nothing more of the plan. May be called at any time. */
    void stop();
    /** Takes back what was carried out; after `apply`, if the server was not lost. */
    fwx::nat64::task<> take_back();

    const apply_result_t &result() const;
    /** Commands of the plan that were carried out, and not taken back. */
    std::vector<plan_command_t> standing() const;

private:
    class flight_t;
    fwx::nat64::task<> run();

    std::shared_ptr<flight_t> flight_; /* callbacks share it, so that a late one finds it */
};

#endif
