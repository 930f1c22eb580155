/*
 * Keeps a server in the state that a document says: over restarts of the server, lost channels, and documents that
 * change. It looks at the server every second, and at once when something happens.
 *
 * There is the document in force, and perhaps one that is offered. One that the server refuses is taken back, and the
 * one in force stays. What the server holds as far as it has answered is in running_t; what leads from there to the
 * document is a plan. After a restart of the server, or when it is asked for, items are in doubt: they are deleted and
 * added again.
 */
#ifndef TOOLS_NAT64D_SUPERVISOR_H
#define TOOLS_NAT64D_SUPERVISOR_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fwx_host/adapter.hpp"
#include "reconcile/applier.h"
#include "reconcile/running.h"
#include "tools/nat64d/bell.h"
#include "tools/nat64d/command_meter.h"
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

    /** Reads what the server held last, which is in force until something is offered; returns what is wrong, empty when
     * nothing is. */
    std::string open();
    /** Begins to look. */
    void start();

    /** Puts a document in force as soon as that can be. */
    void offer(offer_t offered);
    /** There is one, of which no use can be made: the one in force stays. */
    void refuse(const std::string &hash, const std::string &reason);
    /** Gives the server the whole document, whatever it holds. */
    void replay();
    /** Calls `done` when a look has ended that begins after this. */
    void when_looked(std::function<void()> done) { waiting_.push_back(std::move(done)), bell_.ring(); }

    bool has_document() const { return wanted_.has_value() || offered_.has_value(); }
    const std::string &directory() const { return running_.directory(); }
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
    nat64::task<bool> doubt_all();
    nat64::task<> learn_rules();
    nat64::task<bool> bring(const offer_t &to, const char *what);
    nat64::task<> edit();
    void note_result(const apply_result_t &result);
    void note_reached();
    void put_in_force(offer_t offered);
    void fall_out(const std::string &reason);
    void lose(const std::string &reason);
    void note_kept(const std::string &error);
    nat64::handlers handlers();

    fwx_host_loop_t *loop_;
    std::function<void()> changed_;
    running_t running_;
    rule_book_t rules_;
    command_meter_t meter_;
    bell_t bell_;
    std::optional<nat64::client> client_;

    std::optional<offer_t> wanted_;  /* in force */
    std::optional<offer_t> offered_; /* not looked at yet */
    bool must_replay_ = false;
    bool is_editing_ = false; /* something else than what is in force is on its way */
    bool has_learnt_rules_ = false;
    bool was_connected_ = false;
    bool is_first_in_force_ = true; /* nothing has been brought to the server yet */
    std::string trouble_;           /* what the server refused of the last plan; empty: nothing */
    uint64_t retry_at_ms_ = 0;      /* by the platform's clock; after a refusal of what is in force */
    uint64_t pause_ms_ = 0;         /* until then */
    daemon_status_t status_;
    std::vector<std::function<void()>> waiting_;
    std::optional<nat64::task<>> run_;
};

#endif
