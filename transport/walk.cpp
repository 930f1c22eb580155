#include "transport/walk.h"

#include "client/client.h"
#include "platform/runtime.h"

namespace {

/* One for each call of a walk's callback that has not returned, the innermost first. */
struct frame_t {
    frame_t *outer;
    const fwx_nat64_sess_walk_cb_t *walk; /* null: freed meanwhile */
};
frame_t *frames;

}  // namespace

bool walk_tell(fwx_nat64_sess_walk_cb_t *walk, void *pal_ctx, const walk_news_t &news) {
    if (walk->done != 0) return true;
    const binding_watch_t binding;
    frame_t frame = {frames, walk};
    frames = &frame;
    const uint32_t stop = walk->walk_cb(pal_ctx, news.count, news.data, news.value, news.value2, news.status);
    frames = frame.outer;
    if (frame.walk == nullptr) return false;
    if (!binding.is_same()) { /* the walk was off the list, or the list was not drained to its end */
        walk_free(walk);
        return false;
    }
    if (stop == 1) walk->done = 1;
    return true;
}

void walk_free(fwx_nat64_sess_walk_cb_t *walk) {
    for (frame_t *frame = frames; frame != nullptr; frame = frame->outer) {
        if (frame->walk == walk) frame->walk = nullptr;
    }
    fwx_free_named(walk);
}
