#include "fleet/manifest_watch.h"

etcd_t::reply_t<manifest_read_t> manifest_watch_t::next() {
    etcd_result_t<manifest_read_t> result;
    if (!watch_) {
        result = co_await read_manifest(etcd_, keys_);
        const bool is_read = !result.error || result.value.mod_revision != 0;
        if (is_read) watch_.emplace(etcd_, keys_.manifest(), result.value.revision + 1);
        co_return result;
    }
    etcd_result_t<std::vector<etcd_event_t>> events = co_await watch_->next();
    result.error = std::move(events.error);
    if (result.error) co_return result;
    etcd_event_t &last = events.value.back();
    if (!last.is_delete) take_manifest(std::move(last.entry), result);
    result.value.revision = last.entry.mod_revision;
    co_return result;
}
