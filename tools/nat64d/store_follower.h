/*
 * Follows this gateway's document in a store that many gateways share: reads it, watches for the next one, and starts
 * over when the store was away or has compacted the history that the watch needs. Errors of the store or of its data
 * change nothing on the server.
 *
 * A silent watch may be broken, because its member of the store hangs or is cut off from the others. The follower
 * therefore asks the store at intervals for the revision at which the manifest was put. Only if the watch reported the
 * same revision does the store confirm that this gateway has the right document.
 *
 * The last document in force is stored on disk. A start without the store uses it, and its chunks are not fetched
 * again.
 */
#ifndef TOOLS_NAT64D_STORE_FOLLOWER_H
#define TOOLS_NAT64D_STORE_FOLLOWER_H

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "fleet/document_store.h"
#include "fleet/etcd.h"
#include "fleet/manifest_watch.h"
#include "tools/nat64d/store_status.h"

/** The result of handing over a text. */
struct taken_t {
    std::string hash;   /* the supervisor's hash of the document; empty: the text is not a document */
    std::string reason; /* why not */
};

class store_follower_t {
public:
    struct handlers_t {
        /** Takes a document's text, which outlives the task. `name` is for messages. */
        std::function<nat64::task<taken_t>(const std::string &text, std::string name)> take;
        /** Called for a document that can never come into force. */
        std::function<void(const std::string &name, const std::string &reason)> refuse;
        /** Called when a document has been handed over or refused, or the store has none to give now. */
        std::function<void()> settled;
    };

    /** `loop` and `etcd` must outlive it. The last document in force is stored in `directory`. */
    store_follower_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string gateway, const std::string &directory,
                     handlers_t on);

    /** Begins. `hash` is the supervisor's hash of the document in force. */
    void start(const std::string &hash);
    /** Reads the document again, and hands it over even if it is the same. */
    void reload();
    /** Call it when the supervisor has put that document in force. */
    void in_force(const std::string &hash);
    /** Call it when the server has refused that document. */
    void refused(const std::string &hash, const std::string &reason);
    /** Call it with the result of each other request to the store, every few seconds. The follower also does its checks
     * here. */
    void asked(const etcd_error_t &error);

    store_status_t status() const;
    /** The document in force; its version is 0 if it is not from the store. */
    const fleet_document_t &held() const { return held_; }

private:
    struct offer_t {
        fleet_document_t document;
        std::string hash; /* the supervisor's */
        std::string text; /* empty: it is on disk */
    };

    void begin();
    nat64::task<> run();
    nat64::task<etcd_error_t> follow();
    nat64::task<> check();
    void reopen(const std::string &reason);
    nat64::task<etcd_error_t> fetch(fleet_document_t document);
    void lose(const std::string &reason);
    nat64::task<> read_kept();
    nat64::task<> offer(fleet_document_t document, std::string text);
    nat64::task<> keep(fleet_document_t document, std::string hash, std::string text) const;
    void refuse(const fleet_document_t &document, const std::string &reason);
    bool note_refused(const fleet_document_t &document, const std::string &reason);
    void confirm();

    fwx_host_loop_t *loop_;
    etcd_t &etcd_;
    const fleet_keys_t keys_;
    const std::string gateway_;
    const std::string kept_path_;
    const handlers_t on_;
    std::map<std::string, std::string> fetched_; /* chunks of an incomplete document, by hash */
    std::string in_force_at_start_;              /* the supervisor's hash; empty: none */
    std::optional<offer_t> offered_;             /* the last one handed over, accepted or not */
    fleet_document_t held_;
    store_status_t status_;
    bool must_hand_over_ = false;
    bool is_watching_ = false;     /* the watch is open */
    bool is_fetching_ = false;     /* a document is being fetched or handed over; the watch is not read meanwhile */
    uint32_t failures_ = 0;        /* consecutive ones of other requests */
    int64_t watched_revision_ = 0; /* of the last manifest that the watch reported; 0: none */
    uint64_t check_at_ms_ = 0;     /* by the platform's clock */
    uint64_t answered_at_ms_ = 0;  /* when another request was answered last, or the manifest confirmed */
    std::optional<manifest_watch_t> watch_;
    std::optional<nat64::task<>> check_; /* in progress, or the last one */
    std::optional<nat64::task<>> keep_;  /* likewise */
    std::optional<nat64::task<>> run_;
};

#endif
