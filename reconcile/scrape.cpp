/* Sends one query for each list and does not follow its cookie, so that the cost is limited on a server with many
 * entries. */
#include "reconcile/scrape.h"

#include <algorithm>
#include <memory>

namespace nat64 = fwx::nat64;

namespace {

/** Awaitable of one query of a list. Does not follow the cookie to further pages. */
template <class entry_type, class ask_type>
class [[nodiscard]] first_entries_t {
public:
    first_entries_t(nat64::client &client, uint32_t most, ask_type ask)
        : client_(client), ask_(ask), share_(std::make_shared<share_t>(most)) {}
    first_entries_t(const first_entries_t &) = delete;
    ~first_entries_t() { share_->waiting = nullptr; }

    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> waiting) {
        share_->waiting = waiting;
        const auto on_page = [share = share_](const nat64::page &page) { return share->take(page); };
        const auto on_end = [share = share_](const nat64::result &end) {
            if (!end) share->got = {};
            if (share->waiting) share->waiting.resume();
        };
        const auto ask = [ask = ask_, most = share_->most](void *pal_ctx, uint64_t, uint64_t) {
            return ask(pal_ctx, most);
        };
        return static_cast<bool>(client_.query(ask, on_page, on_end));
    }
    counted_list_t<entry_type> await_resume() { return std::move(share_->got); }

private:
    /** State of the query, shared with its callbacks, because the query can outlive the awaiting task. */
    struct share_t {
        explicit share_t(uint32_t limit) : most(limit) {}
        nat64::list_step take(const nat64::page &page) {
            if (page.bytes / sizeof(entry_type) < page.count) return nat64::list_step::too_short;
            const auto *entries = static_cast<const entry_type *>(page.data);
            const size_t wanted = std::min<size_t>(page.count, most - got.entries.size());
            got.entries.insert(got.entries.end(), entries, entries + wanted);
            got.has_more = page.cookie != 0 || wanted < page.count;
            return page.more ? nat64::list_step::next : nat64::list_step::enough;
        }

        uint32_t most;
        counted_list_t<entry_type> got;
        std::coroutine_handle<> waiting;
    };

    nat64::client &client_;
    ask_type ask_;
    std::shared_ptr<share_t> share_;
};

}  // namespace

nat64::task<scrape_t> scrape(nat64::client &client, uint32_t most) {
    const auto ask_pools = [](void *pal_ctx, uint32_t count) {
        return fwx_nat64_stats_pool_all_query_a(0, nullptr, count, 0, pal_ctx);
    };
    const auto ask_mappings = [](void *pal_ctx, uint32_t count) {
        return fwx_nat64_stats_mapping_all_query_a(0, nullptr, count, 0, pal_ctx);
    };
    scrape_t got;
    const nat64::record_result<fwx_nat64_stats_sys_entry_t> totals = co_await client.stats_totals();
    if (totals) got.totals = totals.record;
    got.pools = co_await first_entries_t<fwx_nat64_stats_pool_entry_t, decltype(ask_pools)>(client, most, ask_pools);
    got.mappings =
        co_await first_entries_t<fwx_nat64_stats_mapping_entry_t, decltype(ask_mappings)>(client, most, ask_mappings);
    nat64::list<fwx_nat64_stats_limit_entry_t> limits = co_await client.stats_limits();
    if (limits) got.limits = std::move(limits.entries);
    co_return got;
}
