/*
 * Brings a server to a document: the one way by which natctl and nat64d do it.
 *
 *     error = co_await reconciler.read();                    what the server holds is in held()
 *     plan_t plan(reconciler.held(), wanted);
 *     result = co_await reconciler.bring(plan, wanted);      held() is what it holds now
 *
 * The server is the truth. It counts the changes of its configuration, so when a plan has been carried out and the
 * count has grown by just its commands, the server holds the document. If it has grown by more, others have changed
 * something, and it is read again. What is taken back after a refusal is what this plan did, and only if nobody else
 * has changed anything meanwhile: else an item that the plan added could be somebody else's by now.
 *
 * A server that does not tell its configuration is assumed to hold a document that the caller names.
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
    std::vector<plan_command_t> standing; /* of a plan that was not carried out as a whole: what the server has of it */
    std::error_code unknown;              /* why it is not known what the server holds now; none: it is known */
    uint64_t others = 0;     /* changes that others have made since the server was read, if that is known */
    bool is_in_sync = false; /* the server holds the document */
};

class reconciler_t {
public:
    /** All outlive it. */
    reconciler_t(fwx_host_loop_t *loop, fwx::nat64::client &client, rule_book_t &rules)
        : loop_(loop), client_(client), rules_(rules) {}
    reconciler_t(const reconciler_t &) = delete;
    reconciler_t &operator=(const reconciler_t &) = delete;

    /** Asks the server what it holds. client_errc::unreadable: it does not tell. */
    fwx::nat64::task<std::error_code> read();
    /** What the server holds, as the caller knows; `boot` is what the server says of itself, or zeros. */
    void assume(document_t held, const fwx_nat64_stats_boot_t &boot);
    /** After a `read` of a server that does not tell: assumes that it holds the newest of these versions, if it says of
     * itself what it said then, or nothing, if it says so. False: it may hold anything. */
    fwx::nat64::task<bool> assume_known(const versions_t &versions);
    /** Has the library's rule table follow the rules that were read. The result says how many did not fit in. */
    fwx::nat64::task<size_t> follow_rules();

    /** Whether `held` is what the server holds, as far as anybody here knows. */
    bool is_known() const { return is_known_; }
    const document_t &held() const { return server_.document; }
    /** Of the server when it held that; 0: it does not say. */
    uint64_t boot_id() const { return server_.boot_id; }
    uint64_t changes() const { return server_.changes; }
    /** Whether the server that says this of itself still holds `held`. */
    bool is_as_known(const fwx_nat64_stats_boot_t &boot) const {
        return is_known_ && boot.boot_id == server_.boot_id && boot.changes == server_.changes;
    }

    /**
     * Carries a plan out that leads from `held` to a document, and finds out what the server holds then.
     * @param plan      from held(); outlives the task, as does `to`.
     * @param takes_back whether a plan that is refused or stopped is taken back.
     */
    fwx::nat64::task<reconcile_result_t> bring(const plan_t &plan, const document_t &to, bool takes_back = true);
    /** Sends nothing more of the plan that is on its way. */
    void stop() {
        if (applier_) applier_->stop();
    }
    /** Commands of it that have been carried out so far. */
    size_t done() const { return applier_ ? applier_->result().done : 0; }

private:
    fwx::nat64::task<bool> is_alone(uint64_t own_changes);
    fwx::nat64::task<> look(const document_t &to, reconcile_result_t &result);

    fwx_host_loop_t *loop_;
    fwx::nat64::client &client_;
    rule_book_t &rules_;
    server_document_t server_;
    bool is_known_ = false;
    std::optional<applier_t> applier_;
};

#endif
