/* What became of each command: the books of the drill. */
#ifndef TESTS_DRILL_LEDGER_H
#define TESTS_DRILL_LEDGER_H

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "fwx_nat64/fwx_nat64.h"
#include "tests/drill/view.h"

/** Commands are told apart by their number, which is their context. They are of three kinds, so that an answer that
 * went to the wrong one shows; what the server refuses it notes by that number, so that its view can be compared. */
class ledger_t {
public:
    explicit ledger_t(server_view_t &view) : view_(view) {}

    /** Sends the next command; the number of commands that were sent decides about its kind. */
    void send_next();
    /** To be called by the reply callbacks. */
    void verdict(void *pal_ctx, uint32_t result);
    void statistics(void *pal_ctx, const void *data);
    /** Compares the library's list of outstanding commands with the open ones. */
    void compare_with(const fwx_nat64_client_info_t &info);
    /** Of the commands that the server refused and the PAL heard of, how many the server has not noted; the others are
     * compared and taken off. It notes a command after it has answered it, so a living server catches up, and a dead
     * one has missed one at most. */
    uint64_t unnoted();
    /** Leaves the rest of them. */
    void forget_unnoted() { answered_refusals_.clear(); }

    uint64_t open_count() const { return open_.size(); }

    uint64_t sent = 0; /* handed over */
    uint64_t answered = 0;
    uint64_t failed = 0;         /* not counted as taken by a server */
    uint64_t failed_in_turn = 0; /* of these, in the turn of a server that died before it counted the turn as taken */
    uint64_t refused = 0;        /* their send returned a code */
    uint64_t faults = 0;         /* each of them reported on standard error */

private:
    enum class kind_t : uint8_t { GOOD, BAD, QUERY };
    static uint32_t send(kind_t kind, uint32_t number, void *pal_ctx);
    /** Takes a command off the books when its callback was called. */
    void close(void *pal_ctx, bool is_of_kind, bool is_answer);
    void fault(const char *what, uint64_t number);

    server_view_t &view_;
    std::unordered_map<uint64_t, kind_t> open_;
    std::vector<uint64_t> answered_refusals_;
    uint64_t last_ = 0;
};

#endif
