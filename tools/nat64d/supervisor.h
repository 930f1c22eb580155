/*
 * Keeps a server in sync with a document, over restarts of the server, lost channels, and changes of the document. It
 * looks at the server every second, and at once after an event.
 *
 * One document is in force, and another may be offered. If the server refuses the offered one, its changes are undone
 * and the one in force stays. The actual state is read from the server (reconcile/reconciler.h): after its restart, and
 * when its count of changes is not the expected one. If others have changed items of the document, the supervisor
 * reports the drift and repairs it only on request. Items that others have added are listed and left alone.
 */
#ifndef TOOLS_NAT64D_SUPERVISOR_H
#define TOOLS_NAT64D_SUPERVISOR_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fwx_host/adapter.hpp"
#include "reconcile/reconciler.h"
#include "state/lock.h"
#include "tools/nat64d/bell.h"
#include "tools/nat64d/command_meter.h"
#include "tools/nat64d/kept_state.h"
#include "tools/nat64d/status.h"

namespace nat64 = fwx::nat64;

/** A document that can be put in force. */
struct offer_t {
    document_t document;
    std::string hash; /* of its items */
};
/** Makes an offer of a settled document. */
offer_t make_offer(document_t document);

class supervisor_t {
public:
    /** `changed` is called after each look, because the status may have changed. */
    supervisor_t(fwx_host_loop_t *loop, const std::string &server, std::string directory,
                 std::function<void()> changed);
    ~supervisor_t();
    supervisor_t(const supervisor_t &) = delete;
    supervisor_t &operator=(const supervisor_t &) = delete;

    /** Takes the lock of the server and reads the document that was in force last. It is in force until another one is
     * offered. Returns an error text, empty on success. */
    std::string open();
    /** Begins to look at the server. */
    void start();

    /** Puts a document in force as soon as possible. */
    void offer(offer_t offered);
    /** Notes that the latest document cannot be used. The one in force stays. */
    void refuse(const std::string &hash, const std::string &reason);
    /** Reads the server, and brings it in sync with the document in force. */
    void replay();
    /** Calls `done` at the end of a look that begins after this call. */
    void when_looked(std::function<void()> done) { waiting_.push_back(std::move(done)), bell_.ring(); }

    bool has_document() const { return wanted_.has_value() || offered_.has_value(); }
    const std::string &directory() const { return kept_.directory(); }
    const daemon_status_t &status() const { return status_; }
    const command_meter_t &commands() const { return meter_; }
    const rule_book_t &rules() const { return rules_; }
    /** The binding, or null. */
    nat64::client *client() { return client_ ? &*client_ : nullptr; }

private:
    nat64::task<> run();
    nat64::task<> look();
    bool bind();
    void take_boot(const fwx_nat64_stats_boot_t &boot);
    nat64::task<> keep(const fwx_nat64_stats_boot_t &boot);
    nat64::task<bool> read_server();
    nat64::task<> follow_rules();
    nat64::task<bool> reconcile(const offer_t &to, bool may_change);
    nat64::task<> edit();
    void note_result(const reconcile_result_t &result);
    void note_in_sync();
    void note_foreign(const std::vector<config_item_t> &foreign);
    void count_refusal(const std::string &hash, const std::string &reason);
    void put_in_force(offer_t offered);
    void note_out_of_sync(const std::string &reason);
    void lose(const std::string &reason);
    nat64::task<std::string> keep_version(std::string what, size_t commands);
    nat64::task<> keep_in_force(const offer_t &offer);
    nat64::handlers handlers();

    fwx_host_loop_t *loop_;
    std::function<void()> changed_;
    lock_t lock_;
    kept_state_t kept_;
    rule_book_t rules_;
    command_meter_t meter_;
    bell_t bell_;
    std::optional<nat64::client> client_;
    std::optional<reconciler_t> reconciler_; /* with the client */

    std::optional<offer_t> wanted_;  /* in force */
    std::optional<offer_t> offered_; /* not tried yet */
    bool must_reconcile_ = true;     /* the server may be out of sync with the document in force; sync it */
    bool is_replay_ = false;         /* after a restart of the server, or on request */
    bool is_editing_ = false;        /* an offered document is being applied */
    bool was_connected_ = false;
    bool has_drifted_ = false;      /* others have changed items of the document, and that has been reported */
    bool is_first_in_force_ = true; /* no document has been applied to the server yet */
    std::string refusal_;           /* the refusal of the last plan; empty: none */
    uint64_t retry_at_ms_ = 0;      /* by the platform's clock, after a refusal of the document in force */
    uint64_t pause_ms_ = 0;         /* the pause until then */
    daemon_status_t status_;
    std::vector<std::function<void()>> waiting_;
    std::optional<nat64::task<>> run_;
};

#endif
