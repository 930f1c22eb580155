#include "host/messaging/delivery.h"

delivery_t *delivery_t::innermost;

void delivery_t::end_all(const channel_t *channel) {
    for (delivery_t *delivery = innermost; delivery != nullptr; delivery = delivery->outer_) {
        if (delivery->channel_ == channel) delivery->end_ = delivery->begin_;
    }
}

size_t delivery_t::bytes_behind(const void *data) const {
    const auto at = reinterpret_cast<uintptr_t>(data);
    const auto begin = reinterpret_cast<uintptr_t>(begin_);
    const auto end = reinterpret_cast<uintptr_t>(end_);
    return at >= begin && at < end ? end - at : 0;
}

extern "C" {

const void *fwx_host_smc_head(size_t *size) {
    const delivery_t *delivery = delivery_t::innermost;
    *size = delivery == nullptr ? 0 : delivery->head_size();
    return delivery == nullptr ? nullptr : delivery->head();
}

size_t fwx_host_smc_bytes_behind(const void *data) {
    const delivery_t *delivery = delivery_t::innermost;
    return delivery == nullptr ? 0 : delivery->bytes_behind(data);
}

}  // extern "C"
