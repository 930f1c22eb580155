/* Records what happens to each command, and reports contradictions to standard error. */
#include "tests/drill/ledger.h"

#include <cstdio>

#include "platform/runtime.h"
#include "transport/context.h"

namespace {

constexpr uint32_t code_of_no_entry = 0x6003; /* the model's code FWX_NAT64_MODEL_ERR_NO_ENTRY */

uint64_t number_of(void *pal_ctx) {
    return reinterpret_cast<uintptr_t>(pal_ctx);
}

}  // namespace

void ledger_t::send_next() {
    const uint64_t number = ++last_;
    void *pal_ctx = reinterpret_cast<void *>(number);
    const auto kind = static_cast<kind_t>(number % 3);
    open_.emplace(number, kind); /* before the send, because a callback may come during it */
    view_.refusals_of(number) = 0;
    const uint32_t code = send(kind, static_cast<uint32_t>(number), pal_ctx);
    if (code == 0) {
        sent += 1;
        return;
    }
    refused += 1;
    if (open_.erase(number) == 0) fault("called back although its send failed", number);
}

uint32_t ledger_t::send(kind_t kind, uint32_t number, void *pal_ctx) {
    const fwx_nat64_timeout_t timeout = {1, 300};
    fwx_nat64_smapping_t absent{};
    absent.id = number;
    switch (kind) {
        case kind_t::GOOD:
            return fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &timeout, pal_ctx);
        case kind_t::BAD:
            return fwx_nat64_smapping_set_a(FWX_NAT64_OP_DEL, &absent, pal_ctx);
        default:
            return fwx_nat64_stats_sys_query_a(0, pal_ctx);
    }
}

void ledger_t::verdict(void *pal_ctx, uint32_t result) {
    const auto found = open_.find(number_of(pal_ctx));
    const bool is_failure = result == FWX_NAT64_ERR_AGAIN;
    const uint32_t expected = found != open_.end() && found->second == kind_t::GOOD ? 0 : code_of_no_entry;
    const bool is_verdict = found != open_.end() && found->second != kind_t::QUERY;
    if (is_verdict && result == code_of_no_entry) answered_refusals_.push_back(number_of(pal_ctx));
    const bool was_taken = view_.refusals_of(number_of(pal_ctx)) != 0;
    if (is_failure && was_taken) failed_in_turn += 1;
    close(pal_ctx, is_verdict && (is_failure || result == expected), !is_failure);
}

void ledger_t::statistics(void *pal_ctx, const void *data) {
    const auto found = open_.find(number_of(pal_ctx));
    close(pal_ctx, found != open_.end() && found->second == kind_t::QUERY, data != nullptr);
}

void ledger_t::close(void *pal_ctx, bool is_of_kind, bool is_answer) {
    const uint64_t number = number_of(pal_ctx);
    if (open_.erase(number) == 0) {
        fault("called back, but not open", number);
    } else if (!is_of_kind) {
        fault("got another command's answer", number);
    }
    (is_answer ? answered : failed) += 1;
}

void ledger_t::compare_with(const fwx_nat64_client_info_t &info) {
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

uint64_t ledger_t::unnoted() {
    std::vector<uint64_t> left;
    for (const uint64_t number : answered_refusals_) {
        const uint8_t noted = view_.refusals_of(number);
        if (noted == 0) left.push_back(number);
        if (noted > 1) fault("taken by the server more than once", number);
    }
    answered_refusals_ = std::move(left);
    return answered_refusals_.size();
}

void ledger_t::fault(const char *what, uint64_t number) {
    faults += 1;
    fprintf(stderr, "command %llu: %s\n", static_cast<unsigned long long>(number), what);
}
