/*
 * Follows the document that this gateway is to hold, in a store that many gateways share: reads it, watches for the
 * next, and begins anew when the store was away or has forgotten what the watch would need. Whatever is wrong with the
 * store, or with what stands there, changes nothing here.
 *
 * A watch that is silent may be deaf: its member of the store hangs, or has lost the others. So the store is asked now
 * and then at which revision the manifest was put. Only an answer that equals what the watch has told confirms that
 * this gateway knows what it is to hold.
 *
 * The last document that came into force is kept on disk. It is what a start without the store begins with, and chunks
 * that it has are not fetched again.
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

/** What became of a text that was handed over. */
struct taken_t {
    std::string hash;   /* of what it says, as the supervisor calls it; empty: it is no document */
    std::string reason; /* why not */
};

class store_follower_t {
public:
    struct handlers_t {
        /** Takes a document's text, which outlives the task; `name` is for people. */
        std::function<nat64::task<taken_t>(const std::string &text, std::string name)> take;
        /** Hears of what can never be in force. */
        std::function<void(const std::string &name, const std::string &reason)> refuse;
        /** Hears that a document has been handed over or refused, or that the store gives none now. */
        std::function<void()> settled;
    };

    /** `loop` and `etcd` must outlive it. `directory` is for the document that is kept. */
    store_follower_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string gateway, const std::string &directory,
                     handlers_t on);

    /** `hash` is that of the document in force, as the supervisor calls it. */
    void start(const std::string &hash);
    /** Reads it again, and hands it over whatever it is. */
    void reload();
    /** The supervisor has that document in force. */
    void in_force(const std::string &hash);
    /** It has refused one. */
    void refused(const std::string &hash, const std::string &reason);
    /** Somebody else has asked the store for something, and this came of it. To be called every few seconds. */
    void asked(const etcd_error_t &error);

    const store_status_t &status() const { return status_; }
    /** In force; its version is 0 when it is none of the store's. */
    const fleet_document_t &held() const { return held_; }

private:
    struct offer_t {
        fleet_document_t document;
        std::string hash; /* as the supervisor calls it */
        std::string text; /* empty: it is on disk */
    };

    void begin();
    nat64::task<> run();
    nat64::task<etcd_error_t> follow();
    nat64::task<> check();
    void reopen(const std::string &reason);
    nat64::task<etcd_error_t> bring(fleet_document_t document);
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
    std::map<std::string, std::string> fetched_; /* chunks of a document that is not whole yet, by their hashes */
    std::optional<offer_t> offered_;             /* handed over last, whatever became of it */
    fleet_document_t held_;
    store_status_t status_;
    bool must_hand_over_ = false;
    bool is_watching_ = false;  /* the store tells of the next document */
    bool is_bringing_ = false;  /* a document is fetched or handed over; the watch is not read meanwhile */
    uint32_t failures_ = 0;     /* of others' requests, one behind the other */
    int64_t told_revision_ = 0; /* of the manifest that the watch told of last; 0: there is none */
    uint64_t check_at_ms_ = 0;  /* by the platform's clock */
    std::optional<manifest_watch_t> watch_;
    std::optional<nat64::task<>> check_; /* on its way, or the last one */
    std::optional<nat64::task<>> keep_;  /* likewise */
    std::optional<nat64::task<>> run_;
};

#endif
