/*
 * Reconciles a server with a document: makes its actual state equal to the desired state. natctl and nat64d both use
 * it.
 *
 *     error = co_await reconciler.read();                    held() is the actual state
 *     plan_t plan(reconciler.held(), wanted);
 *     result = co_await reconciler.reconcile(plan, wanted);      held() is the new actual state
 *
 * The server counts the changes of its configuration. If the count has grown by exactly the commands of a plan, the
 * server is in sync with the document. If it has grown by more, other clients have changed something too, and the
 * configuration is read again. After a refusal, the plan is rolled back only if no other client has changed anything
 * meanwhile, because an item that the plan added could have been replaced by another client's.
 *
 * If a server does not report its configuration, the caller names a document that it is assumed to hold.
 */
#ifndef RECONCILE_RECONCILER_H
#define RECONCILE_RECONCILER_H

#include <optional>
#include <system_error>
#include <vector>

#include "reconcile/applier.h"
#include "reconcile/server_document.h"
#include "state/versions.h"

struct reconcile_result_t {
    apply_result_t applied;
    std::vector<plan_command_t> standing; /* if the plan was not completed: its commands that are still in effect */
    std::error_code unknown;              /* why the actual state is unknown; empty: it is known */
    uint64_t others = 0;                  /* changes by other clients since the server was read, if that is known */
    bool is_in_sync = false;              /* the server is in sync with the document */
};

class reconciler_t {
public:
    /** All arguments must outlive this object. */
    reconciler_t(fwx_host_loop_t *loop, fwx::nat64::client &client, rule_book_t &rules)
        : loop_(loop), client_(client), rules_(rules) {}
    reconciler_t(const reconciler_t &) = delete;
    reconciler_t &operator=(const reconciler_t &) = delete;

    /** Reads the server's configuration. The error client_errc::unreadable means that the server does not report it. */
    fwx::nat64::task<std::error_code> read();
    /** Sets the actual state without asking the server. `boot` is the server's own record, or zeros. */
    void assume(document_t held, const fwx_nat64_stats_boot_t &boot);
    /** For a server that does not report its configuration. Assumes the newest version if the server's boot id and
     * number of changes are still those of that version, or an empty configuration if the server's totals are 0.
     * @return false if neither is so: the server may hold anything. */
    fwx::nat64::task<bool> assume_known(const versions_t &versions);
    /** Updates the library's rule table to the rules that were read last, by read() or at the end of reconcile(),
     * unless that was done already. @return number of rules for which that failed. */
    fwx::nat64::task<size_t> follow_rules();
    /** True if follow_rules() has something to do. */
    bool has_new_rules() const { return has_new_rules_; }

    /** True if `held` is the actual state, as far as this client knows. */
    bool is_known() const { return is_known_; }
    const document_t &held() const { return server_.document; }
    /** The server's boot id when it held `held`; 0: the server has none. */
    uint64_t boot_id() const { return server_.boot_id; }
    /** The server's number of changes when it held `held`. */
    uint64_t changes() const { return server_.changes; }
    /** True if a server with this record still holds `held`. */
    bool is_as_known(const fwx_nat64_stats_boot_t &boot) const {
        return is_known_ && boot.boot_id == server_.boot_id && boot.changes == server_.changes;
    }

    /**
     * Carries out a plan from held() to a document, and then updates held() to the actual state.
     * @param plan       starts from held(); must outlive the task, as must `to`
     * @param rolls_back true to roll back a plan that is refused or stopped
     */
    fwx::nat64::task<reconcile_result_t> reconcile(const plan_t &plan, const document_t &to, bool rolls_back = true);
    /** Sends no further command of the present plan. */
    void stop() {
        if (applier_) applier_->stop();
    }
    /** True if all commands of the present plan were sent, so that a stop has no effect. */
    bool is_sent() const { return applier_ && applier_->is_sent(); }
    /** Number of commands of the present plan that were carried out so far. */
    size_t done() const { return applier_ ? applier_->result().done : 0; }

private:
    fwx::nat64::task<bool> is_alone(uint64_t own_changes);
    fwx::nat64::task<> look(const document_t &to, reconcile_result_t &result);

    fwx_host_loop_t *loop_;
    fwx::nat64::client &client_;
    rule_book_t &rules_;
    server_document_t server_;
    bool is_known_ = false;
    bool has_new_rules_ = false; /* the rules in `server_` were not followed yet */
    std::optional<applier_t> applier_;
};

#endif
