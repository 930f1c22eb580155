/* Implements top_server.h: sends the queries of a look over a binding of its own, and keeps the binding for the next
 * look unless it failed. */
#include "tools/natctl/top_server.h"

#include <iterator>

#include "fwx_nat64/server_result.h"
#include "state/time_text.h"
#include "wire/names.h"

namespace {

constexpr uint32_t most_entries = 65536; /* in a list */

std::string name_in(const wire_names_t &names, uint32_t value) {
    const char *name = names.name_of(value);
    return name == nullptr ? std::to_string(value) : name;
}

void add_refusals(top_look_t &look, const fwx_nat64_stats_system_t &system) {
#define ADD_REFUSAL(code, member, text) \
    if (system.member != 0) look.commands.push_back({"all", "refused_" #member, system.member});
    FWX_NAT64_MODEL_RESULTS(ADD_REFUSAL)
#undef ADD_REFUSAL
}

}  // namespace

nat64::task<top_server_t::answer_t> top_server_t::ask(nat64::client &client) {
    answer_t answer;
    answer.scrape = co_await scrape(client, most_entries);
    answer.system = co_await client.stats_system();
    co_return answer;
}

top_look_t top_server_t::look_of(const answer_t &answer) {
    top_look_t look;
    look.time = time_text();
    const scrape_t &got = answer.scrape;
    const fwx_nat64_stats_sys_entry_t &totals = *got.totals;
    const uint64_t values[] = {totals.sessions, totals.static_mappings, totals.dynamic_mappings,
                               totals.pools,    totals.pool_ranges,     totals.rules,
                               totals.prefixes, totals.interfaces,      totals.loggings};
    static_assert(std::size(values) == std::size(top_totals));
    for (size_t i = 0; i < std::size(values); ++i) {
        look.totals.emplace_back(top_totals[i], values[i]);
    }
    for (const fwx_nat64_stats_limit_entry_t &limit : got.limits) {
        look.limits.push_back({name_in(wire_limit_names, limit.type), limit.value, limit.in_use});
    }
    for (const fwx_nat64_stats_pool_entry_t &pool : got.pools.entries) {
        look.pools.push_back({pool.id, pool.addresses, pool.sessions});
    }
    for (const fwx_nat64_stats_mapping_entry_t &mapping : got.mappings.entries) {
        look.mappings.push_back({mapping.id, name_in(wire_mapping_kind_names, mapping.kind), mapping.sessions});
    }
    look.has_more_pools = got.pools.has_more;
    look.has_more_mappings = got.mappings.has_more;
    if (answer.system) add_refusals(look, answer.system.record);
    return look;
}

void top_server_t::begin() {
    look_ = {};
    is_ended_ = false;
    if (pal_ == nullptr) bind();
    if (pal_ == nullptr) return;
    pal_->client().deadline_set(std::chrono::milliseconds(options_.timeout_ms));
    task_.emplace(ask(pal_->client()));
    task_->start();
    process();
}

int top_server_t::fd() const {
    return pal_ == nullptr ? -1 : fwx_host_loop_fd(pal_->loop());
}

int top_server_t::timeout_ms() const {
    return pal_ == nullptr ? -1 : fwx_host_loop_next_timeout_ms(pal_->loop());
}

void top_server_t::process() {
    if (pal_ != nullptr) fwx_host_loop_run_until_idle(pal_->loop());
    const bool has_ended = task_ && task_->done();
    if (!has_ended) return;
    const answer_t answer = task_->get();
    if (answer.scrape.totals) {
        look_ = look_of(answer);
        sort_by_use(look_);
        task_.reset();
    } else {
        fail(pal_->has_lost_server() ? "the server went away" : "no answer");
    }
    is_ended_ = true;
}

std::optional<top_look_t> top_server_t::take() {
    if (!is_ended_) return std::nullopt;
    is_ended_ = false;
    look_.source = "server " + options_.connect;
    return std::move(look_);
}

void top_server_t::bind() {
    const auto ignore = [](const std::string &) {}; /* an error becomes the look's problem */
    pal_ = std::make_unique<pal_t>(options_, ignore);
    pal_->show_unsolicited([](const json_t &) {});
    const outcome_t bound = pal_->bind();
    if (bound.status == status_t::ok) return;
    fail(bound.error);
    is_ended_ = true;
}

void top_server_t::fail(const std::string &problem) {
    look_.problem = problem;
    task_.reset(); /* before the binding, whose commands it awaits */
    pal_.reset();
}
