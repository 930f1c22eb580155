/* The whole state of a server, and what its sources do with it. */
#ifndef SERVER_STATE_H
#define SERVER_STATE_H

#include "server/engine.h"
#include "server/pager.h"

/** What has changed since the start, and whether it is in force and kept. */
class changes_t {
public:
    changes_t(engine_t &carries_out, outbox_t &replies) : engine_(carries_out), outbox_(replies) {}

    uint64_t count() const { return count_; }
    /** Whether `count` and the configuration may still go back to what they were. */
    bool are_pending() const { return !pending_.empty(); }
    void journal_set(const server_journal_t &journal) { journal_ = journal; }
    /** Notes a change that the configuration has accepted. If the engine needs a commit or there is a journal, its
     * answer, and all after it, wait for commit. */
    void note(uint32_t op_code, const void *payload, size_t size);
    /** Lets the answers out that wait, those of changes with `code` unless it is 0. Returns how many those are. */
    uint64_t commit(uint32_t &code);

private:
    struct change_t {
        uint32_t op_code;
        std::vector<uint8_t> payload;
    };

    engine_t &engine_;
    outbox_t &outbox_;
    server_journal_t journal_{};
    uint64_t count_ = 0;
    bool is_uncommitted_ = false;
    std::vector<change_t> pending_; /* not in force */
};

struct server_state_t {
    server_state_t(fwx_host_loop_t *loop, std::unique_ptr<engine_t> carries_out);
    ~server_state_t() { fwx_host_server_unregister(server); }
    server_state_t(const server_state_t &) = delete;
    server_state_t &operator=(const server_state_t &) = delete;

    fwx_host_loop_t *loop;
    fwx_host_server_t *server = nullptr;
    clients_t clients;
    outbox_t outbox;
    std::unique_ptr<engine_t> engine;
    configuration_t &config;
    pager_t pager;
    changes_t changes;
    const uint64_t boot_id; /* random, not 0 */

    uint32_t armed_failures = 0; /* commands that are still to be answered with `armed_code` */
    uint32_t armed_code = 0;
    uint64_t commands = 0;
    uint64_t malformed = 0;
    uint64_t refused = 0; /* well-formed ones */
    fwx_nat64_stats_system_t causes{};

    server_refusal_fn_t refusal_fn = nullptr;
    void *refusal_arg = nullptr;
};

/** What the messaging service calls; its context is the state. */
extern const fwx_host_server_ops_t server_ops;

/** Carries out a configuration command, or what stands for one of a rule, without noting the change. */
uint32_t carry_out(server_state_t &server, uint32_t op_code, const void *payload);
/** Where refusals with a code are counted. */
uint64_t &refusals_for(fwx_nat64_stats_system_t &refusals, uint32_t code);

fwx_nat64_stats_counts_t counts_of(const server_state_t &server);
fwx_nat64_stats_boot_t boot_of(const server_state_t &server);
fwx_nat64_stats_sys_entry_t totals_of(const server_state_t &server);

/** Each answers a query, with `code` when it is not 0, at once or by pages. Returns the result of the command. */
uint32_t answer_statistics(server_state_t &server, const request_t &request, uint32_t code);
uint32_t answer_walk(server_state_t &server, const request_t &request, uint32_t code);

/** The filter that a clear command carries. */
session_filter_t filter_of(const fwx_nat64_session_filter_t &record);

#endif
