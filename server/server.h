/*
 * A server behind a channel name: it checks requests, holds the configuration, and answers by replies and pages. An
 * engine carries the configuration out. This header keeps the server's parts out of sight, since tools and tests
 * include it.
 *
 * Everything happens on the loop that a server was made with. Members that allocate throw when memory is out; the
 * server drops a client that it cannot serve then.
 */
#ifndef SERVER_SERVER_H
#define SERVER_SERVER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "fwx_host/loop.h"
#include "fwx_host/smc.h"
#include "fwx_nat64/wire.h"

class engine_t;
struct configuration_t;
struct server_state_t;

/** Gets one part of the configuration: an op code and the payload that sets it, which lives during the call. */
using server_part_fn_t = void (*)(void *arg, uint32_t op_code, const void *payload, size_t size);

/** Keeps the changes of the configuration. The owner of a server supplies it. Both functions are called from the loop;
 * null `changed`: changes are not kept. */
struct server_journal_t {
    server_part_fn_t changed;      /* gets what, restored behind all that came before, makes the change again */
    uint32_t (*commit)(void *arg); /* makes all that durable; returns 0 or FWX_NAT64_MODEL_ERR_NOT_SAVED */
    void *arg;
};
/** Hears of each message that was answered with a code other than 0, but for codes of commit. `msg` lives during the
 * call. */
using server_refusal_fn_t = void (*)(void *arg, const fwx_host_peer_t *peer, const void *msg, size_t size,
                                     uint32_t code);

/** Order in which held replies are sent; a shuffle is the same in each run. */
enum class reply_order_t : uint8_t { in_order, reverse, shuffled };

class nat64_server_t {
public:
    nat64_server_t(fwx_host_loop_t *loop, std::unique_ptr<engine_t> engine);
    /** Closes the channels of its clients. */
    ~nat64_server_t();
    nat64_server_t(const nat64_server_t &) = delete;
    nat64_server_t &operator=(const nat64_server_t &) = delete;

    /** Serves a channel name. False when the name is taken. */
    bool serve(const char *name);
    /** Gives xerr_strerror the texts of the server's codes; serve does it too. */
    static void add_error_texts();

    /** Misbehaviour for tests of a client, as in fwx_nat64_model/model.h. */
    void fail_next(uint32_t code, uint32_t count);
    void delay_set(uint64_t delay_ms);
    void hold();
    void release(reply_order_t order);
    void duplicate_set(uint32_t copies);
    void silent_set(bool silent);
    void pause_set(bool paused);
    void drop_clients();
    void reply_limit_set(uint32_t bytes);

    /** Sends an unsolicited message to the clients that have asked for them. Each of these returns 0, the messaging
     * service's code, or FWX_HOST_ERR_CHANNEL_DOWN without such a client. */
    uint32_t notify(const void *msg, size_t size);
    uint32_t wakeup();
    uint32_t notify_record(bool add, uint32_t word1, uint32_t word2, uint32_t word3);
    uint32_t notify_event();
    uint32_t notify_mapping(uint32_t id, bool active, uint32_t value);
    uint32_t notify_debug(uint32_t selector, uint32_t on);

    /** Hands the whole configuration over, in an order in which it can be restored. */
    void save(server_part_fn_t part, void *arg) const;
    /** Sets one part again. A change that waits for the engine's commit is the caller's to commit there, and the
     * journal does not get it. Returns 0, FWX_NAT64_MODEL_ERR_MALFORMED for a size that is not the op code's, else as a
     * command. */
    uint32_t restore(uint32_t op_code, const void *payload, size_t size);
    /** Keeps every change from now on in a journal. No asynchronous answer to a change, nor any behind it, goes out
     * before commit has returned; if that fails, the answers to changes say so. */
    void journal_set(const server_journal_t &journal);
    /** To be called after each turn of the loop while there is a journal or an engine that brings changes into force by
     * commit: commits what the turn has changed, and lets its answers out. What synchronous commands change is not
     * kept. */
    void commit();
    void observe_refusals(server_refusal_fn_t fn, void *arg);

    fwx_nat64_stats_counts_t counts() const;
    fwx_nat64_stats_boot_t boot() const;
    fwx_nat64_stats_sys_entry_t totals() const;
    const configuration_t &config() const;

protected:
    engine_t &engine();

private:
    std::unique_ptr<server_state_t> state_;
};

#endif
