#include "host/messaging/delivery.h"

delivery_t *delivery_t::innermost;

void delivery_t::end_all(const channel_t *channel) {
    for (delivery_t *delivery = innermost; delivery != nullptr; delivery = delivery->outer_) {
        if (delivery->channel_ == channel) delivery->buffer_ = nullptr;
    }
}

size_t delivery_t::bytes_behind(const void *data) const {
    if (buffer_ == nullptr) return 0;
    const size_t offset = reinterpret_cast<uintptr_t>(data) - reinterpret_cast<uintptr_t>(buffer_);
    return offset < size_ ? size_ - offset : 0;
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
