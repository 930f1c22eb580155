#include "transport/reply_admission.h"

#include "client/log.h"
#include "fwx_nat64/wire.h"

namespace {

#define END_OF(type, field) (offsetof(type, field) + sizeof(type::field))

/* Bytes that the handler of a message number reads or writes. */
constexpr size_t least_size_bytes[] = {
    END_OF(fwx_nat64_reply_t, result),           /* RESULT */
    END_OF(fwx_nat64_unsol_msg_t, event),        /* UNSOL_SETUP, not a reply */
    END_OF(fwx_nat64_reply_t, result),           /* INIT */
    END_OF(fwx_nat64_reply_t, result),           /* CONFIG */
    END_OF(fwx_nat64_stats_sys_reply_t, more),   /* STATS_SYS */
    END_OF(fwx_nat64_stats_intf_reply_t, value), /* STATS_INTF */
    END_OF(fwx_nat64_stats_all_reply_t, value2), /* STATS_POOL_ALL */
    END_OF(fwx_nat64_stats_all_reply_t, value2), /* STATS_MAPPING_ALL */
    END_OF(fwx_nat64_stats_intf_reply_t, value), /* STATS_LIMIT_ALL */
    END_OF(fwx_nat64_sess_walk_reply_t, value2), /* SESSION_WALK */
    END_OF(fwx_nat64_reply_t, result),           /* CGM_REPLY */
    END_OF(fwx_nat64_reply_t, result),           /* CGM_REPLY2 */
    END_OF(fwx_nat64_reply_t, result),           /* PAL_CMD_Q_RESUME */
    END_OF(fwx_nat64_mapt_reply_t, bmr_index),   /* MAPT_RULE */
};
static_assert(sizeof(least_size_bytes) / sizeof(least_size_bytes[0]) == FWX_NAT64_MSG_MAX,
              "one least size for each message number");

bool failure_reads_the_result_only(uint32_t msgno) {
    return msgno == FWX_NAT64_MSG_STATS_SYS || msgno == FWX_NAT64_MSG_SESSION_WALK;
}

}  // namespace

uint32_t reply_msgno(const void *msg) {
    return static_cast<const fwx_nat64_msg_hdr_t *>(msg)->type & FWX_NAT64_MSG_NUMBER_MASK;
}

reply_admission_t reply_admit(const void *msg, size_t size, const char *handler, fwx_nat64_client_info_t **info) {
    if (size < FWX_NAT64_REPLY_MIN_SIZE) {
        NAT64_LOG_ERROR("\n%s reply of %zu bytes is too short", handler, size);
        return reply_admission_t::dropped;
    }
    const auto *reply = static_cast<const fwx_nat64_reply_t *>(msg);
    const uint32_t msgno = reply_msgno(msg);
    const bool whole = msgno >= FWX_NAT64_MSG_MAX || size >= least_size_bytes[msgno] ||
                       (reply->result != 0 && failure_reads_the_result_only(msgno));
    if (!whole && reply->result == 0) {
        NAT64_LOG_ERROR("\n%s reply of %zu bytes is too short for msgno=%d", handler, size, msgno);
        return reply_admission_t::dropped;
    }

    fwx_nat64_client_info_t *current = fwx_nat64_client_info_get();
    if (current == nullptr || current->epoch != reply->hdr.epoch) {
        NAT64_LOG_WARNING("\n%s epoch(%d/%d)", handler, current != nullptr ? current->epoch : 0, reply->hdr.epoch);
        return reply_admission_t::dropped;
    }
    *info = current;
    return whole ? reply_admission_t::whole : reply_admission_t::failure_only;
}
