/* The drill's record of every command: open, answered, failed or refused. */
#ifndef TESTS_DRILL_LEDGER_H
#define TESTS_DRILL_LEDGER_H

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "fwx_nat64/fwx_nat64.h"
#include "tests/drill/view.h"

/** A command's number is its context. Commands are of three kinds with different answers, so that an answer to the
 * wrong command is detected. The server records the numbers of the commands that it refuses in the view that it shares
 * with the drill, so that both can be compared. */
class ledger_t {
public:
    explicit ledger_t(server_view_t &view) : view_(view) {}

    /** Sends the next command. Its kind depends on its number. */
    void send_next();
    /** Must be called by the reply callbacks. */
    void verdict(void *pal_ctx, uint32_t result);
    void statistics(void *pal_ctx, const void *data);
    /** Compares the library's list of outstanding commands with the open ones. */
    void compare_with(const fwx_nat64_client_info_t &info);
    /** Number of refusals received that the server has not recorded. Checks the recorded ones and removes them. The
     * server records a command after answering it, so a living server catches up, and a dead one has missed at most
     * one. */
    uint64_t unnoted();
    /** Forgets the refusals that the server has not recorded. */
    void forget_unnoted() { answered_refusals_.clear(); }

    uint64_t open_count() const { return open_.size(); }

    uint64_t sent = 0; /* commands whose send succeeded */
    uint64_t answered = 0;
    uint64_t failed = 0;         /* completed as not taken by a server */
    uint64_t failed_in_turn = 0; /* failed commands that a server handled in a turn that it did not finish */
    uint64_t refused = 0;        /* commands whose send returned an error */
    uint64_t faults = 0;         /* contradictions, each reported on standard error */

private:
    enum class kind_t : uint8_t { GOOD, BAD, QUERY };
    static uint32_t send(kind_t kind, uint32_t number, void *pal_ctx);
    /** Removes a command from the open ones, because its callback was called. */
    void close(void *pal_ctx, bool is_of_kind, bool is_answer);
    void fault(const char *what, uint64_t number);

    server_view_t &view_;
    std::unordered_map<uint64_t, kind_t> open_;
    std::vector<uint64_t> answered_refusals_;
    uint64_t last_ = 0;
};

#endif
