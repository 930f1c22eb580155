/* The drill's record of every command: open, answered, failed or refused. Reports contradictions to standard error. */
#ifndef TESTS_DRILL_LEDGER_H
#define TESTS_DRILL_LEDGER_H

#include <cstdint>
#include <cstdio>
#include <unordered_map>
#include <vector>

#include "fwx_nat64/fwx_nat64.h"
#include "platform/runtime.h"
#include "tests/drill/view.h"
#include "transport/context.h"

/** A command's number is its context. Commands are of three kinds with different answers, so that an answer to the
 * wrong command is detected. The server records the numbers of the commands that it refuses in the view that it shares
 * with the drill, so that both can be compared. */
class ledger_t {
public:
    explicit ledger_t(server_view_t &view) : view_(view) {}

    /** Sends the next command, whose kind depends on its number. Returns false when the send was refused. */
    bool send_next() {
        const uint64_t number = ++last_;
        const auto kind = static_cast<kind_t>(number % 3);
        open_.emplace(number, kind); /* before the send, because a callback may come during it */
        view_.refusals_of(number) = 0;
        const bool is_sent = send(kind, number) == 0;
        (is_sent ? sent : refused) += 1;
        if (!is_sent && open_.erase(number) == 0) fault("called back although its send failed", number);
        return is_sent;
    }
    /** Must be called by the reply callbacks, as statistics(). */
    void verdict(void *pal_ctx, uint32_t result) {
        const auto found = open_.find(number_of(pal_ctx));
        const bool is_failure = result == FWX_NAT64_ERR_AGAIN;
        const uint32_t expected = found != open_.end() && found->second == kind_t::GOOD ? 0 : code_of_no_entry;
        const bool is_verdict = found != open_.end() && found->second != kind_t::QUERY;
        if (is_verdict && result == code_of_no_entry) answered_refusals_.push_back(number_of(pal_ctx));
        const bool was_taken = view_.refusals_of(number_of(pal_ctx)) != 0;
        if (is_failure && was_taken) failed_in_turn += 1;
        close(pal_ctx, is_verdict && (is_failure || result == expected), !is_failure);
    }
    void statistics(void *pal_ctx, const void *data) {
        const auto found = open_.find(number_of(pal_ctx));
        close(pal_ctx, found != open_.end() && found->second == kind_t::QUERY, data != nullptr);
    }
    /** Compares the library's list of outstanding commands with the open ones. */
    void compare_with(const fwx_nat64_client_info_t &info) {
        auto unseen = open_;
        void *head = nullptr;
        fwx_list_head(info.clnt_ctx_list, &head);
        for (auto *link = static_cast<fwx_list_link_t *>(head); link != nullptr; link = link->next) {
            const auto *ctx = reinterpret_cast<const fwx_nat64_clnt_ctx_t *>(link);
            const bool is_initial_command = ctx->pal_ctx == nullptr;
            if (is_initial_command) continue;
            if (unseen.erase(number_of(ctx->pal_ctx)) == 0) fault("outstanding, but not open", number_of(ctx->pal_ctx));
        }
        for (const auto &[number, kind] : unseen) {
            fault("without callback, and not outstanding", number);
        }
    }
    /** Number of refusals received that the server has not recorded. Checks the recorded ones and removes them. The
     * server records a command after answering it, so a living server catches up, and a dead one has missed at most
     * one. */
    uint64_t unnoted() {
        std::vector<uint64_t> left;
        for (const uint64_t number : answered_refusals_) {
            const uint8_t noted = view_.refusals_of(number);
            if (noted == 0) left.push_back(number);
            if (noted > 1) fault("taken by the server more than once", number);
        }
        answered_refusals_ = std::move(left);
        return answered_refusals_.size();
    }
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
    static constexpr uint32_t code_of_no_entry = 0x6003; /* the model's code FWX_NAT64_MODEL_ERR_NO_ENTRY */

    static uint64_t number_of(void *pal_ctx) { return reinterpret_cast<uintptr_t>(pal_ctx); }
    static uint32_t send(kind_t kind, uint64_t number) {
        void *pal_ctx = reinterpret_cast<void *>(number);
        const fwx_nat64_timeout_t timeout = {1, 300};
        fwx_nat64_smapping_t absent{};
        absent.id = static_cast<uint32_t>(number);
        if (kind == kind_t::GOOD) return fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &timeout, pal_ctx);
        if (kind == kind_t::BAD) return fwx_nat64_smapping_set_a(FWX_NAT64_OP_DEL, &absent, pal_ctx);
        return fwx_nat64_stats_sys_query_a(0, pal_ctx);
    }
    /** Removes a command from the open ones, because its callback was called. */
    void close(void *pal_ctx, bool is_of_kind, bool is_answer) {
        const uint64_t number = number_of(pal_ctx);
        if (open_.erase(number) == 0) {
            fault("called back, but not open", number);
        } else if (!is_of_kind) {
            fault("got another command's answer", number);
        }
        (is_answer ? answered : failed) += 1;
    }
    void fault(const char *what, uint64_t number) {
        faults += 1;
        fprintf(stderr, "command %llu: %s\n", static_cast<unsigned long long>(number), what);
    }

    server_view_t &view_;
    std::unordered_map<uint64_t, kind_t> open_;
    std::vector<uint64_t> answered_refusals_;
    uint64_t last_ = 0;
};

#endif
