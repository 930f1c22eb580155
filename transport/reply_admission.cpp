#include "transport/reply_admission.h"

#include "client/log.h"
#include "fwx_nat64/wire.h"

fwx_nat64_client_info_t *reply_admit(const void *msg, size_t size, const char *handler) {
    if (size < FWX_NAT64_REPLY_MIN_SIZE) {
        NAT64_LOG_ERROR("\n%s reply of %zu bytes is too short", handler, size);
        return nullptr;
    }
    const uint32_t epoch = static_cast<const fwx_nat64_reply_t *>(msg)->hdr.epoch;
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr || info->epoch != epoch) {
        NAT64_LOG_WARNING("\n%s epoch(%d/%d)", handler, info != nullptr ? info->epoch : 0, epoch);
        return nullptr;
    }
    return info;
}
