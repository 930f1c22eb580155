#include "tools/natctl/callbacks.h"

#include <cstring>

#include "records/family.h"
#include "tools/natctl/decode.h"
#include "tools/natctl/pal.h"

namespace {

pal_t *attached = nullptr;

void configured(fwx_nat64_cmd_result_t *result) {
    if (attached != nullptr) attached->answered(result->pal_ctx, result->result);
}

/** One reply of a query. Without entries to look at the query failed. */
uint32_t queried(void *ctx, const page_t &page) {
    if (attached == nullptr) return 1;
    if (page.entries == nullptr) {
        attached->query_failed(ctx);
        return 1;
    }
    return attached->paged(ctx, page) ? 0 : 1;
}

uint32_t system_stats(void *ctx, uint32_t more, void *data) {
    return queried(ctx, {reply_described(FWX_NAT64_MSG_STATS_SYS), data, 1, more != 0, 0});
}

uint32_t interface_stats(void *ctx, uint32_t more, uint32_t count, void *data) {
    return queried(ctx, {reply_described(FWX_NAT64_MSG_STATS_INTF), data, count, more != 0, 0});
}

uint32_t limit_stats(void *ctx, uint32_t more, uint32_t count, void *data) {
    return queried(ctx, {reply_described(FWX_NAT64_MSG_STATS_LIMIT_ALL), data, count, more != 0, 0});
}

uint32_t pool_stats(void *ctx, uint32_t more, uint64_t cookie, uint32_t count, void *data) {
    return queried(ctx, {reply_described(FWX_NAT64_MSG_STATS_POOL_ALL), data, count, more != 0, cookie});
}

void mapping_notified(const void *data) {
    fwx_nat64_stats_mapping_entry_t mapping;
    std::memcpy(&mapping, data, sizeof mapping);
    attached->notified("mapping id=" + std::to_string(mapping.id) + " active=" + std::to_string(mapping.active) +
                       " sessions=" + std::to_string(mapping.sessions));
}

uint32_t mapping_stats(void *ctx, uint32_t more, uint64_t cookie, uint32_t count, void *data) {
    bool is_unsolicited = ctx == nullptr && data != nullptr && attached != nullptr;
    if (!is_unsolicited)
        return queried(ctx, {reply_described(FWX_NAT64_MSG_STATS_MAPPING_ALL), data, count, more != 0, cookie});
    mapping_notified(data);
    return 0;
}

void record_notified(uint32_t op, const void *record) {
    uint32_t words[3];
    std::memcpy(words, record, sizeof words);
    if (attached == nullptr) return;
    attached->notified(std::string("record ") + record_operation_name(op == FWX_NAT64_OP_ADD ? op : FWX_NAT64_OP_DEL) +
                       " word1=" + std::to_string(words[0]) + " word2=" + std::to_string(words[1]) +
                       " word3=" + std::to_string(words[2]));
}

void event_notified() {
    if (attached != nullptr) attached->notified("event");
}

constexpr fwx_nat64_reply_cbs_t reply_callbacks = {configured, system_stats, interface_stats,
                                                   pool_stats, limit_stats,  mapping_stats};
constexpr fwx_nat64_unsol_cbs_t unsolicited_callbacks = {nullptr, record_notified, event_notified};

}  // namespace

void pal_callbacks_attach(pal_t *pal) {
    attached = pal;
}
const fwx_nat64_reply_cbs_t *pal_reply_callbacks() {
    return &reply_callbacks;
}
const fwx_nat64_unsol_cbs_t *pal_unsolicited_callbacks() {
    return &unsolicited_callbacks;
}

uint32_t pal_walk_callback(void *ctx, uint32_t count, void *data, uint64_t cookie, uint32_t value2, uint32_t status) {
    return queried(
        ctx, {reply_described(FWX_NAT64_MSG_SESSION_WALK, value2), data, count, status == FWX_NAT64_WALK_MORE, cookie});
}
