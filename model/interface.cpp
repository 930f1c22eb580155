/* The model's C interface, documented in fwx_nat64_model/model.h. It turns std::bad_alloc into the code 12. */
#include <new>
#include <type_traits>

#include "fwx_host/errors.h"
#include "fwx_host/smc.h"
#include "model/model.h"

namespace {

constexpr uint32_t out_of_memory = 12;

/** Calls `work`, and returns out_of_memory if it throws std::bad_alloc, because nothing may be thrown through a C
 * function. */
template <typename work_t>
uint32_t guarded(work_t work) noexcept {
    try {
        if constexpr (std::is_void_v<decltype(work())>) {
            work();
            return 0;
        } else {
            return work();
        }
    } catch (const std::bad_alloc &) {
        return out_of_memory;
    }
}

}  // namespace

extern "C" {

uint32_t fwx_nat64_model_create(fwx_host_loop_t *loop, const char *name, fwx_nat64_model_t **model) {
    if (model != nullptr) *model = nullptr;
    if (loop == nullptr || name == nullptr || model == nullptr) return FWX_HOST_ERR_BAD_ARG;
    return guarded([&]() -> uint32_t {
        *model = fwx_nat64_model_t::create(loop, name).release();
        if (*model != nullptr) return 0;
        return fwx_host_server_find(name) != nullptr ? FWX_HOST_ERR_NAME_TAKEN : out_of_memory;
    });
}
void fwx_nat64_model_destroy(fwx_nat64_model_t *model) {
    delete model;
}
void fwx_nat64_model_add_error_texts(void) {
    fwx_nat64_model_t::add_error_texts();
}

void fwx_nat64_model_fail_next(fwx_nat64_model_t *model, uint32_t code, uint32_t count) {
    model->fail_next(code, count);
}
void fwx_nat64_model_delay_set(fwx_nat64_model_t *model, uint64_t delay_ms) {
    model->delay_set(delay_ms);
}
void fwx_nat64_model_hold(fwx_nat64_model_t *model) {
    model->hold();
}
uint32_t fwx_nat64_model_release(fwx_nat64_model_t *model, uint32_t order) {
    if (order > FWX_NAT64_MODEL_SHUFFLED) return FWX_HOST_ERR_BAD_ARG;
    return guarded([&] { model->release(static_cast<reply_order_t>(order)); });
}
void fwx_nat64_model_duplicate_set(fwx_nat64_model_t *model, uint32_t copies) {
    model->duplicate_set(copies);
}
void fwx_nat64_model_silent_set(fwx_nat64_model_t *model, uint32_t silent) {
    model->silent_set(silent != 0);
}
void fwx_nat64_model_pause_set(fwx_nat64_model_t *model, uint32_t paused) {
    model->pause_set(paused != 0);
}
uint32_t fwx_nat64_model_drop_clients(fwx_nat64_model_t *model) {
    return guarded([&] { model->drop_clients(); });
}
void fwx_nat64_model_reply_limit_set(fwx_nat64_model_t *model, uint32_t bytes) {
    model->reply_limit_set(bytes);
}
void fwx_nat64_model_order_cleanup(fwx_nat64_model_t *model, uint32_t on) {
    model->order_cleanup(on != 0);
}

uint32_t fwx_nat64_model_notify(fwx_nat64_model_t *model, const void *msg, size_t size) {
    return guarded([&] { return model->notify(msg, size); });
}
uint32_t fwx_nat64_model_wakeup(fwx_nat64_model_t *model) {
    return guarded([&] { return model->wakeup(); });
}
uint32_t fwx_nat64_model_notify_record(fwx_nat64_model_t *model, uint32_t add, uint32_t word1, uint32_t word2,
                                       uint32_t word3) {
    return guarded([&] { return model->notify_record(add != 0, word1, word2, word3); });
}
uint32_t fwx_nat64_model_notify_event(fwx_nat64_model_t *model) {
    return guarded([&] { return model->notify_event(); });
}
uint32_t fwx_nat64_model_notify_mapping(fwx_nat64_model_t *model, uint32_t id, uint32_t active, uint32_t value) {
    return guarded([&] { return model->notify_mapping(id, active != 0, value); });
}
uint32_t fwx_nat64_model_notify_debug(fwx_nat64_model_t *model, uint32_t selector, uint32_t on) {
    return guarded([&] { return model->notify_debug(selector, on); });
}
uint32_t fwx_nat64_model_cgm_end_batch(uint32_t batch_id, uint32_t async, void *ctx) {
    return fwx_nat64_model_t::cgm_end_batch(batch_id, async != 0, ctx);
}
uint32_t fwx_nat64_model_cgm_update(uint32_t batch_id, const uint8_t data[24], uint32_t async, void *ctx) {
    return fwx_nat64_model_t::cgm_update(batch_id, data, async != 0, ctx);
}

uint32_t fwx_nat64_model_save(const fwx_nat64_model_t *model, fwx_nat64_model_part_fn_t part, void *arg) {
    return guarded([&] { model->save(part, arg); });
}
uint32_t fwx_nat64_model_restore(fwx_nat64_model_t *model, uint32_t op_code, const void *payload, size_t size) {
    return guarded([&] { return model->restore(op_code, payload, size); });
}

void fwx_nat64_model_counts(const fwx_nat64_model_t *model, fwx_nat64_stats_counts_t *counts) {
    *counts = model->counts();
}
void fwx_nat64_model_boot(const fwx_nat64_model_t *model, fwx_nat64_stats_boot_t *boot) {
    *boot = model->boot();
}
void fwx_nat64_model_totals(const fwx_nat64_model_t *model, fwx_nat64_stats_sys_entry_t *totals) {
    *totals = model->totals();
}
uint32_t fwx_nat64_model_sessions_generate(fwx_nat64_model_t *model, uint64_t count) {
    return guarded([&] { model->sessions_generate(count); });
}
uint32_t fwx_nat64_model_lookup(const fwx_nat64_model_t *model, const fwx_nat64_addr_t *address,
                                fwx_nat64_model_match_t *match) {
    return guarded([&] { return model->lookup(address, match) ? 0U : FWX_NAT64_MODEL_ERR_NO_ENTRY; });
}
uint32_t fwx_nat64_model_lookups(const fwx_nat64_model_t *model, uint32_t bmr_index, uint64_t *count) {
    const std::optional<uint64_t> lookups = model->lookups(bmr_index);
    if (!lookups) return FWX_NAT64_MODEL_ERR_NO_ENTRY;
    *count = *lookups;
    return 0;
}

}  // extern "C"
