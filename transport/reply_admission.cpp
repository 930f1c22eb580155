#include "transport/reply_admission.h"

#include "client/log.h"
#include "fwx_nat64/wire.h"
#include "transport/handler_table.h"

uint32_t reply_msgno(const void *msg) {
    return static_cast<const fwx_nat64_msg_hdr_t *>(msg)->type & FWX_NAT64_MSG_NUMBER_MASK;
}

reply_admission_t reply_admit(const void *msg, size_t size, const char *handler, fwx_nat64_client_info_t **info) {
    if (size < FWX_NAT64_REPLY_MIN_SIZE) {
        NAT64_LOG_ERROR("\n%s reply of %zu bytes is too short", handler, size);
        return reply_admission_t::dropped;
    }
    const auto *reply = static_cast<const fwx_nat64_reply_t *>(msg);
    fwx_nat64_client_info_t *current = fwx_nat64_client_info_get();
    if (current == nullptr || current->epoch != reply->hdr.epoch) {
        NAT64_LOG_WARNING("\n%s epoch(%d/%d)", handler, current != nullptr ? current->epoch : 0, reply->hdr.epoch);
        return reply_admission_t::dropped;
    }

    const uint32_t msgno = reply_msgno(msg);
    const fwx_nat64_msg_hndlr_t &row = msg_row(msgno);
    const bool whole = size >= (reply->result == 0 ? row.least_bytes : row.least_refusal_bytes);
    if (!whole && reply->result == 0) {
        NAT64_LOG_ERROR("\n%s reply of %zu bytes is too short for msgno=%d", handler, size, msgno);
        return reply_admission_t::dropped;
    }
    *info = current;
    return whole ? reply_admission_t::whole : reply_admission_t::failure_only;
}
