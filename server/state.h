/* The state of a server, and the functions that the server's sources share. */
#ifndef SERVER_STATE_H
#define SERVER_STATE_H

#include "server/engine.h"
#include "server/pager.h"

struct server_state_t;

/** The changes of the configuration: their number, and those that wait for commit. */
class changes_t {
public:
    changes_t(engine_t &carries_out, outbox_t &replies) : engine_(carries_out), outbox_(replies) {}

    uint64_t count() const { return count_; }
    /** Whether there are changes that a failing commit would undo. */
    bool are_pending() const { return !pending_.empty(); }
    void journal_set(const server_journal_t &journal) { journal_ = journal; }
    /** Records a change that the configuration has accepted. If the engine needs a commit or there is a journal, the
     * answer to the change, and all later answers, wait for commit. Ends the process when memory is exhausted: without
     * a note, the change would be in force until the next start, and then be lost. */
    void note(uint32_t op_code, const void *payload, size_t size) noexcept;
    /** Commits the changes and releases the answers. Changes that the engine refuses together are carried out again and
     * committed one by one, so that one that it cannot put into effect does not hold up the others. */
    void commit(server_state_t &server);

private:
    struct change_t {
        uint32_t op_code;
        std::vector<uint8_t> payload;
    };

    engine_t &engine_;
    outbox_t &outbox_;
    server_journal_t journal_{};
    uint64_t count_ = 0;
    std::vector<uint32_t> codes_;   /* results of the changes since the last commit */
    std::vector<change_t> pending_; /* not in effect yet */
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

    uint32_t armed_failures = 0; /* number of further commands to answer with `armed_code` */
    uint32_t armed_code = 0;
    uint64_t commands = 0;
    uint64_t malformed = 0;
    uint64_t refused = 0; /* well-formed messages only */
    fwx_nat64_stats_system_t causes{};

    server_refusal_fn_t refusal_fn = nullptr;
    void *refusal_arg = nullptr;
};

/** The callbacks for the messaging service. Their context is the server_state_t. */
extern const fwx_host_server_ops_t server_ops;

/** Executes a configuration command, or the pseudo command of a rule, without recording the change. */
uint32_t carry_out(server_state_t &server, uint32_t op_code, const void *payload);
/** The counter of refusals with a code. */
uint64_t &refusals_for(fwx_nat64_stats_system_t &refusals, uint32_t code);

fwx_nat64_stats_counts_t counts_of(const server_state_t &server);
fwx_nat64_stats_boot_t boot_of(const server_state_t &server);
fwx_nat64_stats_sys_entry_t totals_of(const server_state_t &server);

/** Answer a query, at once or in pages. If `code` is not 0, refuse it with that code. Return the result of the command.
 */
uint32_t answer_statistics(server_state_t &server, const request_t &request, uint32_t code);
uint32_t answer_walk(server_state_t &server, const request_t &request, uint32_t code);

/** The filter in a clear command. */
session_filter_t filter_of(const fwx_nat64_session_filter_t &record);

#endif
