/*
 * A client of etcd, by its JSON gateway (etcd 3.4 and later). Keys and values are bytes.
 *
 * Endpoints are taken in turn: a request goes to the one that answered last, and when that has not got it, to the next,
 * each once. One that was sent, and whose answer did not come, is repeated elsewhere if nothing is lost when it is
 * carried out twice: reads, leases, and transactions that say so. Of any other transaction the result is `no_answer`,
 * which means that it may have been carried out: who sent it has to look.
 *
 * With a user and a password a token is fetched before the first request, and again when etcd does not know it any
 * more. A password that etcd refuses is read from its file again, because an administrator may have changed it.
 *
 * Coroutines may be destroyed while they wait, and so may the client, as in http.h. Nothing here throws but when memory
 * is out.
 */
#ifndef FLEET_ETCD_H
#define FLEET_ETCD_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fleet/store_url.h"
#include "fwx_nat64/cxx/task.hpp"
#include "net/http.h"

namespace nat64 = fwx::nat64;

struct etcd_error_t {
    enum class kind_t : uint8_t {
        none,
        unreachable, /* no endpoint took the request: nothing has happened */
        no_answer,   /* in time: it may have been carried out */
        rights,      /* the user may not, or is not known */
        quota,       /* the store is full: nothing has happened */
        compacted,   /* the revision is no longer there */
        malformed,   /* the answer is none of etcd's, or is longer than it may be */
        other,       /* what etcd says */
    };

    kind_t kind = kind_t::none;
    std::string text; /* names the endpoint, and what it said */

    explicit operator bool() const { return kind != kind_t::none; }
};

/** A value, or the error that stands for it. */
template <class value_type>
struct etcd_result_t {
    value_type value{};
    etcd_error_t error;
};

struct etcd_entry_t {
    std::string key;
    std::string value;
    int64_t create_revision = 0;
    int64_t mod_revision = 0;
    int64_t lease = 0; /* that it goes with; 0: it stays */
};

struct etcd_range_t {
    std::vector<etcd_entry_t> entries;
    int64_t revision = 0; /* of the store when it was read: a watch that goes on from here begins one later */
};

/** Carried out as a whole, if every comparison holds. */
struct etcd_txn_t {
    struct compare_t {
        enum class what_t : uint8_t { value, create_revision, mod_revision };
        what_t what;
        std::string key;
        std::string value;    /* of `value` */
        int64_t revision = 0; /* of the others; 0: there is no such key */
    };
    struct put_t {
        std::string key;
        std::string value;
        int64_t lease = 0; /* it goes with that lease; 0: it stays */
    };

    std::vector<compare_t> compares;
    std::vector<put_t> puts;
    std::vector<std::string> deletes; /* keys; one that is not there is as good as deleted */
    bool is_repeatable = false;       /* nothing is lost when it is carried out twice */
};

struct etcd_txn_result_t {
    bool is_done = false; /* every comparison held */
    int64_t revision = 0; /* of the store behind it */
};

struct etcd_event_t {
    bool is_delete = false;
    etcd_entry_t entry; /* of a deletion the key and the mod_revision */
};

struct etcd_options_t {
    uint64_t timeout_ms = 5000;          /* longest silence of one request at one endpoint (http.h) */
    uint64_t watch_silence_ms = 720000;  /* of a watch: etcd tells of its progress every 10 minutes */
    size_t most_bytes = 16U << 20;       /* of one answer */
    uint32_t page = 250;                 /* most entries of a list that are asked for at once */
    size_t most_entries = 1U << 18;      /* of a list */
    size_t most_list_bytes = 128U << 20; /* of the memory that its entries take */
};

class etcd_t {
public:
    template <class value_type>
    using reply_t = nat64::task<etcd_result_t<value_type>>;

    /** `loop` must outlive it. */
    etcd_t(fwx_host_loop_t *loop, store_t store, const etcd_options_t &options = {});
    ~etcd_t();
    etcd_t(const etcd_t &) = delete;
    etcd_t &operator=(const etcd_t &) = delete;

    const store_t &store() const { return store_; }
    /** That answered last, or is asked next. */
    const std::string &endpoint() const { return store_.endpoints[endpoint_]; }

    /** Reads the password from its file; true: it is another one, with which the next request signs in. */
    bool renew_password();

    /** One key, as it is now or was at a revision: no entry when it is not there. */
    reply_t<etcd_range_t> get(std::string key, int64_t revision = 0);
    /** The revision at which a key was put last; 0: there is no such key. Its value does not come. */
    reply_t<int64_t> mod_revision_of(std::string key);
    /** Several keys, all at one revision; entries for those that are there, in the order of the keys. At most 100 keys,
     * and an answer of at most 3 MB, as etcd takes no more. */
    reply_t<etcd_range_t> get_all(std::vector<std::string> keys);
    /** All keys that begin so, all at one revision, in their order. Without values they are empty. */
    reply_t<etcd_range_t> list(std::string prefix, bool with_values);
    reply_t<etcd_txn_result_t> txn(etcd_txn_t txn);

    /** Makes a lease; its id. */
    reply_t<int64_t> grant_lease(uint32_t ttl_s);
    /** Lets a lease live on; the seconds that it has, 0 when it is gone. */
    reply_t<uint32_t> keep_lease(int64_t lease);
    /** The seconds that a lease has left, 0 when it is gone; it is not kept by that. */
    reply_t<uint32_t> lease_left(int64_t lease);
    /** Ends a lease and deletes its keys; one that is gone is as good as ended. */
    reply_t<bool> revoke_lease(int64_t lease);

private:
    friend class etcd_watch_t;
    struct call_t;
    struct answer_t;

    nat64::task<answer_t> call(call_t call);
    reply_t<etcd_range_t> get_range(std::string body);
    nat64::task<etcd_error_t> sign_in();
    nat64::task<etcd_error_t> fetch_token();
    http_request_t request_of(const call_t &call) const;
    http_request_t watch_request_of(const std::string &key, int64_t revision) const;
    /** What no error may show. */
    std::vector<std::string> secrets() const { return {store_.password, token_}; }
    void turn() { endpoint_ = (endpoint_ + 1) % store_.endpoints.size(); }

    store_t store_;
    etcd_options_t options_;
    size_t endpoint_ = 0;      /* that is asked first */
    std::string token_;        /* empty: none */
    uint64_t token_count_ = 0; /* that were fetched */
    http_t http_;
};

/**
 * What happens to a key from a revision on. It ends with the first error, whatever that is; then the key is to be read
 * again and watched anew from there:
 *
 *     auto now = co_await etcd.get(key);
 *     etcd_watch_t watch(etcd, key, now.value.revision + 1);
 *     for (;;) {
 *         auto events = co_await watch.next();
 *         if (events.error) break;
 *
 * A connection that has silently died ends it within half a minute, and so does a member of the store that has lost the
 * others. A member that stands still does not end it for `watch_silence_ms`. A caller that needs to know sooner asks
 * the store for something now and then.
 */
class etcd_watch_t {
public:
    /** `etcd` must not be destroyed while something waits here. */
    etcd_watch_t(etcd_t &etcd, std::string key, int64_t revision)
        : etcd_(etcd), key_(std::move(key)), revision_(revision) {}
    etcd_watch_t(const etcd_watch_t &) = delete;
    etcd_watch_t &operator=(const etcd_watch_t &) = delete;

    /** Awaits the next events, which are some; in their order, none twice, none left out. */
    etcd_t::reply_t<std::vector<etcd_event_t>> next();
    /** Whether etcd watches: it has said so, and no error has come. */
    bool is_open() const { return is_open_; }
    /** At which it is open. */
    const std::string &endpoint() const { return endpoint_; }

private:
    nat64::task<etcd_error_t> open();
    nat64::task<etcd_error_t> read(std::vector<etcd_event_t> &events);
    etcd_error_t take(const std::string &line, std::vector<etcd_event_t> &events);

    etcd_t &etcd_;
    std::string key_;
    int64_t revision_;
    std::string endpoint_; /* that it is open at */
    std::optional<http_t::stream_t> stream_;
    etcd_error_t end_; /* that it ended with */
    bool is_open_ = false;
    bool is_elsewhere_worth_ = false; /* after an error: another endpoint may do better */
    bool is_token_unknown_ = false;   /* likewise: what etcd means may be that the token is old */
};

#endif
