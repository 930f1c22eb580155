/*
 * A client of etcd that uses its JSON gateway (etcd 3.4 and later). Keys and values are bytes.
 *
 * A request goes to the endpoint that answered last. If that does not get it, the request goes to each of the others
 * once, in order. A request that was sent but not answered is repeated at the next endpoint only if carrying it out
 * twice does no harm: reads, requests about leases, and transactions that are marked as repeatable. Any other
 * transaction ends with `no_answer`. It may have been carried out, so the caller must check.
 *
 * When the leader of several members hangs, the others accept requests and pass them on to it in vain, until they have
 * elected another one. So each of them may be silent. A request that may be repeated therefore waits at each endpoint
 * for only two fifths of the timeout, and then, in a second round, for the whole timeout.
 *
 * With a user and a password, the client fetches a token before the first request, and again when etcd does not know
 * the token any more. If etcd refuses the password, the client reads it from its file again, because an administrator
 * may have changed it.
 *
 * Coroutines may be destroyed while they wait, and so may the client, as in net/http.h. Functions throw only when
 * memory is exhausted.
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
        unreachable, /* no endpoint got the request: it was not carried out */
        no_answer,   /* no answer in time: the request may have been carried out */
        rights,      /* the user or password is wrong, or the user lacks a permission */
        quota,       /* the store is full: the request was not carried out */
        compacted,   /* the revision is no longer stored */
        malformed,   /* the answer is not one of etcd's, or is too long */
        other,       /* any other error of etcd */
    };

    kind_t kind = kind_t::none;
    std::string text; /* names the endpoint and quotes its error */

    explicit operator bool() const { return kind != kind_t::none; }
};

/** A value or an error. */
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
    int64_t lease = 0; /* the entry is deleted with this lease; 0: none */
};

struct etcd_range_t {
    std::vector<etcd_entry_t> entries;
    int64_t revision = 0; /* of the store at the time of reading; a watch starts at the next one */
};

/** A transaction: carried out as a whole, and only if every comparison is true. */
struct etcd_txn_t {
    struct compare_t {
        enum class what_t : uint8_t { value, create_revision, mod_revision };
        what_t what;
        std::string key;
        std::string value;    /* for `value` */
        int64_t revision = 0; /* for the others; 0: the key does not exist */
    };
    struct put_t {
        std::string key;
        std::string value;
        int64_t lease = 0; /* the entry is deleted with this lease; 0: none */
    };

    std::vector<compare_t> compares;
    std::vector<put_t> puts;
    std::vector<std::string> deletes; /* keys; a missing key is not an error */
    bool is_repeatable = false;       /* carrying it out twice does no harm */
};

struct etcd_txn_result_t {
    bool is_done = false; /* every comparison was true */
    int64_t revision = 0; /* of the store after the transaction */
};

struct etcd_event_t {
    bool is_delete = false;
    etcd_entry_t entry; /* a deletion has only the key and the mod_revision */
};

struct etcd_options_t {
    uint64_t timeout_ms = 5000;          /* of a request at an endpoint: longest silence (net/http.h) */
    uint64_t watch_silence_ms = 720000;  /* of a watch; etcd sends a progress notification every 10 minutes */
    size_t most_bytes = 16U << 20;       /* of one answer */
    uint32_t page = 250;                 /* greatest number of entries that one request of a list asks for */
    size_t most_entries = 1U << 18;      /* of a list */
    size_t most_list_bytes = 128U << 20; /* memory of the entries of a list */
};

class etcd_t {
public:
    template <class value_type>
    using reply_t = nat64::task<etcd_result_t<value_type>>;

    /** `loop` must outlive this object. */
    etcd_t(fwx_host_loop_t *loop, store_t store, const etcd_options_t &options = {});
    ~etcd_t();
    etcd_t(const etcd_t &) = delete;
    etcd_t &operator=(const etcd_t &) = delete;

    const store_t &store() const { return store_; }
    /** The endpoint that gets the next request first: the one that answered last. */
    const std::string &endpoint() const { return store_.endpoints[endpoint_]; }

    /** Reads the password from its file again. True if it has changed; the next request then signs in with it. */
    bool renew_password();

    /** Reads one key, now or at a revision. Gives no entry if the key does not exist. */
    reply_t<etcd_range_t> get(std::string key, int64_t revision = 0);
    /** The revision of the last change of a key; 0: the key does not exist. Does not transfer the value. */
    reply_t<int64_t> mod_revision_of(std::string key);
    /** Reads several keys at one revision. Gives the entries of the existing ones, in the order of `keys`. Requires: at
     * most 100 keys and an answer of at most 3 MB, because etcd allows no more. */
    reply_t<etcd_range_t> get_all(std::vector<std::string> keys);
    /** Reads all keys with a prefix at one revision, sorted. Without values, the values are empty. After an error there
     * are no entries. */
    reply_t<etcd_range_t> list(std::string prefix, bool with_values);
    /** Carries out a transaction. */
    reply_t<etcd_txn_result_t> txn(etcd_txn_t txn);

    /** Creates a lease and gives its id. */
    reply_t<int64_t> grant_lease(uint32_t ttl_s);
    /** Renews a lease. Gives its time to live in seconds; 0: the lease has ended. */
    reply_t<uint32_t> keep_lease(int64_t lease);
    /** The seconds that a lease has left, without renewing it; 0: the lease has ended. */
    reply_t<uint32_t> lease_left(int64_t lease);
    /** Ends a lease, which deletes its keys. A lease that has ended already is not an error. */
    reply_t<bool> revoke_lease(int64_t lease);

private:
    friend class etcd_watch_t;
    struct call_t;
    struct answer_t;

    nat64::task<answer_t> call(call_t call);
    reply_t<etcd_range_t> get_range(std::string key, std::string body);
    nat64::task<etcd_error_t> sign_in();
    nat64::task<etcd_error_t> fetch_token();
    http_request_t request_of(const call_t &call, bool has_whole_timeout) const;
    http_request_t watch_request_of(const std::string &key, int64_t revision, bool has_whole_timeout) const;
    /** Texts that must not appear in errors. */
    std::vector<std::string> secrets() const { return {store_.password, token_}; }
    void turn() { endpoint_ = (endpoint_ + 1) % store_.endpoints.size(); }

    store_t store_;
    etcd_options_t options_;
    size_t endpoint_ = 0;      /* index of the endpoint that gets the next request first */
    std::string token_;        /* empty: none */
    uint64_t token_count_ = 0; /* number of tokens fetched so far */
    http_t http_;
};

/**
 * A watch: the events of a key from a revision on. Any error ends the watch. The caller then reads the key again and
 * starts a new watch:
 *
 *     auto now = co_await etcd.get(key);
 *     etcd_watch_t watch(etcd, key, now.value.revision + 1);
 *     for (;;) {
 *         auto events = co_await watch.next();
 *         if (events.error) break;
 *
 * A dead connection ends the watch within half a minute, and so does a member of the cluster that has lost the leader.
 * A member that hangs ends it only after `watch_silence_ms`. A caller that must notice this sooner has to send other
 * requests now and then.
 */
class etcd_watch_t {
public:
    /** `etcd` must not be destroyed while a coroutine waits for an event. */
    etcd_watch_t(etcd_t &etcd, std::string key, int64_t revision)
        : etcd_(etcd), key_(std::move(key)), revision_(revision) {}
    etcd_watch_t(const etcd_watch_t &) = delete;
    etcd_watch_t &operator=(const etcd_watch_t &) = delete;

    /** Gives the next events, at least one. Events come in order, without gaps and duplicates. */
    etcd_t::reply_t<std::vector<etcd_event_t>> next();
    /** True if etcd has confirmed the watch and no error has ended it. */
    bool is_open() const { return is_open_; }
    /** The endpoint at which the watch is open. */
    const std::string &endpoint() const { return endpoint_; }

private:
    nat64::task<etcd_error_t> open();
    nat64::task<etcd_error_t> read(std::vector<etcd_event_t> &events);
    etcd_error_t take(const std::string &line, std::vector<etcd_event_t> &events);

    etcd_t &etcd_;
    std::string key_;
    int64_t revision_;
    std::string endpoint_; /* at which the watch is open */
    std::optional<http_t::stream_t> stream_;
    etcd_error_t end_; /* the error that has ended the watch */
    bool is_open_ = false;
    bool should_try_next_endpoint_ = false; /* after an error: worth a try at another endpoint */
    bool is_token_unknown_ = false;         /* after an error: perhaps etcd does not know the token any more */
};

#endif
