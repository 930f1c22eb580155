/* Decodes the server's unsolicited commands: it checks their length by event, passes records, events and mapping
 * changes to the PAL's callbacks, and switches debug flags. */
#include "client/log.h"
#include "fwx_nat64/client.h"
#include "fwx_nat64/config.h"
#include "fwx_nat64/debug.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"
#include "notify/notify.h"
#include "platform/runtime.h"

namespace {

/* The record that `record_cb` gets. */
struct record_t {
    uint32_t word1;
    uint32_t word2;
    uint32_t word3;
};
static_assert(sizeof(record_t) == 12, "the PAL reads three words");

constexpr size_t least_size_bytes(uint32_t event) {
    switch (event) {
        case FWX_NAT64_UNSOL_RECORD:
            return FWX_NAT64_UNSOL_RECORD_MIN_SIZE;
        case FWX_NAT64_UNSOL_MAPPING:
            return FWX_NAT64_UNSOL_MAPPING_MIN_SIZE;
        case FWX_NAT64_UNSOL_DEBUG:
            return sizeof(fwx_nat64_unsol_debug_msg_t);
        default:
            return sizeof(fwx_nat64_unsol_msg_t);
    }
}

void hand_on_record(const fwx_nat64_client_info_t *info, const void *msg) {
    if (info == nullptr || info->unsol_cb.record_cb == nullptr) return;
    const auto *record = static_cast<const fwx_nat64_unsol_record_msg_t *>(msg);
    const record_t words = {record->word1, record->word2, record->word3};
    info->unsol_cb.record_cb(record->add != 0 ? FWX_NAT64_OP_ADD : FWX_NAT64_OP_DEL, &words);
}

void hand_on_mapping(const fwx_nat64_client_info_t *info, const void *msg) {
    if (info == nullptr || info->reply_cb.mapping_stats_cb == nullptr) return;
    const auto *mapping = static_cast<const fwx_nat64_unsol_mapping_msg_t *>(msg);
    fwx_nat64_stats_mapping_entry_t record = {};
    record.id = mapping->id;
    record.active = mapping->inactive == 0 ? 1 : 0;
    record.sessions = mapping->value;
    info->reply_cb.mapping_stats_cb(nullptr, 0, 0, 1, &record);
}

uint32_t fwx_nat64_unsol_dbg_level_set(uint32_t selector, uint32_t on) {
    switch (selector) {
        case 0:
            return FWX_NAT64_ERR_INVALID;
        case FWX_NAT64_UNSOL_DEBUG_INFO:
            fwx_nat64_dbg_info_set(on);
            return 0;
        case FWX_NAT64_UNSOL_DEBUG_TRACE:
            fwx_nat64_dbg_trace_set(on);
            return 0;
        case FWX_NAT64_UNSOL_DEBUG_WARNING:
            fwx_nat64_dbg_warning_set(on);
            return 0;
        case FWX_NAT64_UNSOL_DEBUG_ERROR:
            fwx_nat64_dbg_error_set(on);
            return 0;
        case FWX_NAT64_UNSOL_DEBUG_ALL:
            fwx_nat64_dbg_info_set(on);
            fwx_nat64_dbg_trace_set(on);
            fwx_nat64_dbg_warning_set(on);
            fwx_nat64_dbg_error_set(on);
            return 0;
        default:
            fwx_printf("\nFWX NAT64 CLIENT: Invalid debug level");
            return 0;
    }
}

void set_debug_flags(const void *msg, const char *caller) {
    const auto *debug = static_cast<const fwx_nat64_unsol_debug_msg_t *>(msg);
    const uint32_t rc = fwx_nat64_unsol_dbg_level_set(debug->selector, debug->on);
    if (rc != 0) NAT64_LOG_ERROR("\n%s NAT64 CLIENT LIB debugs not enabled - %s", caller, xerr_strerror(rc));
}

}  // namespace

void fwx_nat64_unsol_cmd(void *msg, size_t size) {
    if (size < sizeof(fwx_nat64_unsol_msg_t)) {
        NAT64_LOG_ERROR("\n%s command of %zu bytes is too short", __func__, size);
        return;
    }
    const uint32_t event = static_cast<const fwx_nat64_unsol_msg_t *>(msg)->event;
    NAT64_LOG_INFO("\n%s command %d size %zu", __func__, event, size);
    if (size < least_size_bytes(event)) {
        NAT64_LOG_ERROR("\n%s command %d of %zu bytes is too short", __func__, event, size);
        return;
    }
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    switch (event) {
        case FWX_NAT64_UNSOL_RECORD:
            hand_on_record(info, msg);
            break;
        case FWX_NAT64_UNSOL_EVENT:
            if (info != nullptr && info->unsol_cb.event_cb != nullptr) info->unsol_cb.event_cb();
            break;
        case FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP: /* answered before it gets here */
            break;
        case FWX_NAT64_UNSOL_MAPPING:
            hand_on_mapping(info, msg);
            break;
        case FWX_NAT64_UNSOL_DEBUG:
            set_debug_flags(msg, __func__);
            break;
        default:
            NAT64_LOG_WARNING("\n%s unsupported cmd %d sz %zu - ignoring", __func__, event, size);
            break;
    }
}
