#include "transport/walk.h"

#include "client/client.h"
#include "platform/runtime.h"

namespace {

walk_watch_t *innermost; /* of those on the stack */

}  // namespace

walk_watch_t::walk_watch_t(const fwx_nat64_sess_walk_cb_t *walk) : outer_(innermost), walk_(walk) {
    innermost = this;
}

walk_watch_t::~walk_watch_t() {
    innermost = outer_;
}

bool walk_tell(fwx_nat64_sess_walk_cb_t *walk, void *pal_ctx, const walk_news_t &news) {
    if (walk->done != 0) return true;
    const binding_watch_t binding;
    const walk_watch_t watch(walk);
    const uint32_t stop = walk->walk_cb(pal_ctx, news.count, news.data, news.value, news.value2, news.status);
    if (watch.is_gone()) return false;
    if (!binding.is_same()) { /* the walk was off the list, or the list was not drained to its end */
        walk_free(walk);
        return false;
    }
    if (stop == 1) walk->done = 1;
    return true;
}

void walk_free(fwx_nat64_sess_walk_cb_t *walk) {
    for (walk_watch_t *watch = innermost; watch != nullptr; watch = watch->outer_) {
        if (watch->walk_ == walk) watch->walk_ = nullptr;
    }
    fwx_free_named(walk);
}
