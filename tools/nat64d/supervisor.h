/*
 * Keeps a server in the state that a document says: over restarts of the server, lost channels, and documents that
 * change. It looks at the server every second, and at once when something happens.
 *
 * There is the document in force, and perhaps one that is offered. One that the server refuses is taken back, and the
 * one in force stays. The server is the truth (reconcile/reconciler.h): after its restart, or when its count of changes
 * is not the expected one, it is read again. What others have changed of the document is told, and put right when that
 * is asked for. What others have added is listed and left alone.
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
    std::string hash; /* of what it says */
};
/** Makes an offer of a settled document. */
offer_t make_offer(document_t document);

class supervisor_t {
public:
    /** `changed` is called when a look has ended: the status may be another one. */
    supervisor_t(fwx_host_loop_t *loop, const std::string &server, std::string directory,
                 std::function<void()> changed);
    ~supervisor_t();
    supervisor_t(const supervisor_t &) = delete;
    supervisor_t &operator=(const supervisor_t &) = delete;

    /** Takes the lock of the server and reads the document that was in force last, which is in force until something is
     * offered; returns what is wrong, empty when nothing is. */
    std::string open();
    /** Begins to look. */
    void start();

    /** Puts a document in force as soon as that can be. */
    void offer(offer_t offered);
    /** There is one, of which no use can be made: the one in force stays. */
    void refuse(const std::string &hash, const std::string &reason);
    /** Reads the server, and brings it to the document in force. */
    void replay();
    /** Calls `done` when a look has ended that begins after this. */
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
    nat64::task<bool> bring(const offer_t &to, bool may_change);
    nat64::task<> edit();
    void note_result(const reconcile_result_t &result);
    void note_reached();
    void note_foreign(const std::vector<config_item_t> &foreign);
    void put_in_force(offer_t offered);
    void fall_out(const std::string &reason);
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
    std::optional<offer_t> offered_; /* not looked at yet */
    bool must_bring_ = true;         /* the server may lack the document in force, and is to get it */
    bool is_replay_ = false;         /* because it has restarted, or because somebody asked */
    bool is_editing_ = false;        /* something else than what is in force is on its way */
    bool was_connected_ = false;
    bool has_drifted_ = false;      /* others have changed what the document says, and that has been told */
    bool is_first_in_force_ = true; /* nothing has been brought to the server yet */
    std::string trouble_;           /* what the server refused of the last plan; empty: nothing */
    uint64_t retry_at_ms_ = 0;      /* by the platform's clock; after a refusal of what is in force */
    uint64_t pause_ms_ = 0;         /* until then */
    daemon_status_t status_;
    std::vector<std::function<void()>> waiting_;
    std::optional<nat64::task<>> run_;
};

#endif
