#include <poll.h>

#include <iterator>

#include "fwx_nat64/server_result.h"
#include "tools/natctl/pal.h"
#include "tools/natctl/top_source.h"
#include "tools/pal/scrape.h"
#include "tools/pal/time_text.h"
#include "wire/names.h"

namespace {

constexpr uint32_t most_entries = 65536; /* of a list */

struct answer_t {
    scrape_t scrape;
    nat64::record_result<fwx_nat64_stats_system_t> system;
};

nat64::task<answer_t> ask(nat64::client &client) {
    answer_t answer;
    answer.scrape = co_await scrape(client, most_entries);
    answer.system = co_await client.stats_system();
    co_return answer;
}

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

top_look_t look_of(const answer_t &answer) {
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

/** Binds anew after each look that failed. */
class server_source_t : public top_source_t {
public:
    explicit server_source_t(const options_t &options) : options_(options) {}

    void begin() override {
        look_ = {};
        is_ended_ = false;
        if (pal_ == nullptr) bind();
        if (pal_ == nullptr) return;
        pal_->client().deadline_set(std::chrono::milliseconds(options_.timeout_ms));
        task_.emplace(ask(pal_->client()));
        task_->start();
        process();
    }

    wait_t wait() const override {
        if (pal_ == nullptr) return {-1, 0, -1};
        return {fwx_host_loop_fd(pal_->loop()), POLLIN, fwx_host_loop_next_timeout_ms(pal_->loop())};
    }

    void process() override {
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

    std::optional<top_look_t> take() override {
        if (!is_ended_) return std::nullopt;
        is_ended_ = false;
        look_.source = "server " + options_.connect;
        return std::move(look_);
    }

private:
    void bind() {
        const auto ignore = [](const std::string &) {}; /* a failure is told as the look's problem */
        pal_ = std::make_unique<pal_t>(options_, ignore);
        pal_->show_unsolicited([](const json_t &) {});
        const outcome_t bound = pal_->bind();
        if (bound.status == status_t::ok) return;
        fail(bound.error);
        is_ended_ = true;
    }

    void fail(const std::string &problem) {
        look_.problem = problem;
        task_.reset(); /* it awaits what the binding ends */
        pal_.reset();
    }

    options_t options_;
    std::unique_ptr<pal_t> pal_; /* null: not bound */
    std::optional<nat64::task<answer_t>> task_;
    top_look_t look_;
    bool is_ended_ = false;
};

}  // namespace

std::unique_ptr<top_source_t> top_server(const options_t &options) {
    return std::make_unique<server_source_t>(options);
}
