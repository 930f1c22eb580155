/*
 * A server under a channel name. It checks requests, holds the configuration, and sends replies. An engine puts the
 * configuration into effect. This header hides the server's parts, because tools and tests include it.
 *
 * A server runs on the loop that it was created with. Members that allocate may throw std::bad_alloc. The server drops
 * a client that it cannot serve because memory is exhausted, but ends the process when that happens to a change that it
 * has made and not yet noted.
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

/** Receives one part of the configuration: an op code and the payload that sets it, which is valid during the call. */
using server_part_fn_t = void (*)(void *arg, uint32_t op_code, const void *payload, size_t size);

/** Stores the changes of the configuration. The owner of a server supplies it. Both functions are called from the loop.
 * There is no journal when `changed` is null. */
struct server_journal_t {
    server_part_fn_t changed;      /* receives a part that repeats the change when restored after all earlier parts */
    uint32_t (*commit)(void *arg); /* makes these parts durable; returns 0 or FWX_NAT64_MODEL_ERR_NOT_SAVED */
    void *arg;
};
/** Called for each message that is answered with a code other than 0, except for codes of commit. `msg` is valid during
 * the call. */
using server_refusal_fn_t = void (*)(void *arg, const fwx_host_peer_t *peer, const void *msg, size_t size,
                                     uint32_t code);

/** The order in which held replies are sent. The shuffle is the same in every run. */
enum class reply_order_t : uint8_t { in_order, reverse, shuffled };

class nat64_server_t {
public:
    nat64_server_t(fwx_host_loop_t *loop, std::unique_ptr<engine_t> engine);
    /** Closes the channels of its clients. */
    ~nat64_server_t();
    nat64_server_t(const nat64_server_t &) = delete;
    nat64_server_t &operator=(const nat64_server_t &) = delete;

    /** Registers the server under a channel name. Returns false when that fails, for example because the name is taken.
     */
    bool serve(const char *name);
    /** Adds the texts of the server's codes to xerr_strerror; serve does this too. */
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

    /** Sends an unsolicited message to the clients that have asked for them. Like the functions below, returns 0, the
     * messaging service's code, or FWX_HOST_ERR_CHANNEL_DOWN when there is no such client. */
    uint32_t notify(const void *msg, size_t size);
    uint32_t wakeup();
    uint32_t notify_record(bool add, uint32_t word1, uint32_t word2, uint32_t word3);
    uint32_t notify_event();
    uint32_t notify_mapping(uint32_t id, bool active, uint32_t value);
    uint32_t notify_debug(uint32_t selector, uint32_t on);

    /** Calls `part` with each part of the configuration, in an order in which the parts can be restored. */
    void save(server_part_fn_t part, void *arg) const;
    /** Restores one part. The journal does not receive it. If the engine needs a commit, the caller must call the
     * engine's commit itself. Returns 0, FWX_NAT64_MODEL_ERR_MALFORMED when the size does not match the op code, or the
     * code with which a command would be refused. */
    uint32_t restore(uint32_t op_code, const void *payload, size_t size);
    /** Writes every change from now on to a journal. The asynchronous answer to a change, and all later answers, are
     * sent only after commit. If commit fails, the answers to changes have its code. */
    void journal_set(const server_journal_t &journal);
    /** Commits the changes of a turn and releases their answers. Must be called after each turn of the loop if there is
     * a journal or the engine needs a commit. Changes by synchronous commands are not written to the journal. */
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
