#include "transport/walk.h"

#include "client/client.h"
#include "platform/runtime.h"

namespace {

walk_watch_t *innermost; /* of the watches on the stack */

}  // namespace

walk_watch_t::walk_watch_t(const fwx_nat64_sess_walk_cb_t *walk) : outer_(innermost), walk_(walk) {
    innermost = this;
}

walk_watch_t::~walk_watch_t() {
    innermost = outer_;
}

void walk_report(fwx_nat64_sess_walk_cb_t *walk, void *pal_ctx, const walk_report_t &report) {
    if (walk->done != 0) return;
    const binding_watch_t binding;
    const walk_watch_t watch(walk);
    const uint32_t stop = walk->walk_cb(pal_ctx, report.count, report.data, report.value, report.value2, report.status);
    if (watch.is_gone()) return;
    if (!binding.is_same()) return walk_free(walk); /* left over: going down failed to drain the list */
    if (stop == 1) walk->done = 1;
}

void walk_free(fwx_nat64_sess_walk_cb_t *walk) {
    for (walk_watch_t *watch = innermost; watch != nullptr; watch = watch->outer_) {
        if (watch->walk_ == walk) watch->walk_ = nullptr;
    }
    fwx_free_named(walk);
}
