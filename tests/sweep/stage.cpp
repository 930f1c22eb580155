#include "stage.h"

#include "tests/support/outstanding.h"

namespace {

ticket_t &ticket_of(void *ctx) {
    return *static_cast<ticket_t *>(ctx);
}

void verdict_cb(fwx_nat64_cmd_result_t *result) {
    ticket_of(result->pal_ctx).verdict = result->result;
    ticket_of(result->pal_ctx).called(true);
}
uint32_t sys_cb(void *ctx, uint32_t more, void *) {
    return ticket_of(ctx).called(more == 0);
}
uint32_t intf_cb(void *ctx, uint32_t more, uint32_t, void *) {
    return ticket_of(ctx).called(more == 0);
}
uint32_t all_cb(void *ctx, uint32_t more, uint64_t, uint32_t, void *) {
    const bool is_notification = ctx == nullptr;
    return is_notification ? 0 : ticket_of(ctx).called(more == 0);
}

constexpr fwx_nat64_reply_cbs_t reply_cbs = {verdict_cb, sys_cb, intf_cb, all_cb, intf_cb, all_cb};
constexpr fwx_nat64_unsol_cbs_t unsol_cbs = {nullptr, [](uint32_t, const void *) {}, [] {}};

}  // namespace

/* Enables all logging, into a sink that ignores it, because log lines must also work when operations fail. */
stage_t::stage_t() : loop_(fwx_host_loop_create()) {
    model = fwx_nat64_model_t::create(loop_, FWX_NAT64_CHANNEL_NAME);
    debug_flags_set(1, 1);
    fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
    fwx_host_cgm_observe(
        [](void *, uint32_t, void *ctx, uint32_t result) {
            ticket_of(ctx).verdict = result;
            ticket_of(ctx).called(true);
        },
        nullptr);
}

stage_t::~stage_t() {
    fwx_host_cgm_observe(nullptr, nullptr);
    fwx_host_debug_sink_set(nullptr, nullptr);
    debug_flags_set(0, 0);
    model.reset();
    fwx_host_loop_destroy(loop_);
}

void stage_t::bind() {
    call("bind", fwx_nat64_bind("PAL1", loop_, &unsol_cbs, &reply_cbs));
    pump();
}

uint64_t stage_t::open() const {
    uint64_t count = 0;
    for (const ticket_t &ticket : tickets) {
        count += ticket.is_open() ? 1 : 0;
    }
    return count;
}

uint32_t stage_t::walk_cb(void *ctx, uint32_t, void *, uint64_t, uint32_t, uint32_t status) {
    return ticket_of(ctx).called(status != FWX_NAT64_WALK_MORE);
}
