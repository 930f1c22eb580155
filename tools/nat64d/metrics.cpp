/* Implements metrics.h: collects families of metrics from the daemon's status, the command counts and a scrape of the
 * server. While the server is away, the families that need the scrape have no values. */
#include "tools/nat64d/metrics.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include "fwx_host/tbm.h"
#include "tools/nat64d/process_usage.h"
#include "wire/names.h"

namespace {

using labels_t = std::vector<prometheus::ClientMetric::Label>;

class families_t {
public:
    /** Begins a family; the values that follow belong to it. */
    families_t &gauge(const char *name, const char *help) { return begin(name, help, prometheus::MetricType::Gauge); }
    families_t &counter(const char *name, const char *help) {
        return begin(name, help, prometheus::MetricType::Counter);
    }
    families_t &value(double value, labels_t labels = {}) {
        prometheus::ClientMetric metric;
        metric.label = std::move(labels);
        metric.counter.value = value;
        metric.gauge.value = value;
        families_.back().metric.push_back(std::move(metric));
        return *this;
    }
    families_t &value(uint64_t number, labels_t labels = {}) {
        return value(static_cast<double>(number), std::move(labels));
    }
    families_t &value(bool is_so) { return value(is_so ? 1.0 : 0.0); }
    void histogram(const char *name, const char *help, const command_meter_t::times_t &times) {
        begin(name, help, prometheus::MetricType::Histogram);
        prometheus::ClientMetric metric;
        uint64_t count = 0;
        for (size_t i = 0; i < command_meter_t::bounds.size(); ++i) {
            count += times.counts[i];
            metric.histogram.bucket.push_back({count, command_meter_t::bounds[i]});
        }
        metric.histogram.sample_count = times.count;
        metric.histogram.sample_sum = times.sum;
        families_.back().metric.push_back(std::move(metric));
    }
    std::string text() const { return prometheus::TextSerializer().prometheus::Serializer::Serialize(families_); }

private:
    families_t &begin(const char *name, const char *help, prometheus::MetricType type) {
        families_.push_back({name, help, type, {}});
        return *this;
    }

    std::vector<prometheus::MetricFamily> families_;
};

void add_process(families_t &to) {
    const process_usage_t usage = process_usage();
    to.gauge("nat64_build_info", "This nat64d, by its version.").value(1.0, {{"version", NAT64D_VERSION}});
    to.counter("process_cpu_seconds_total", "Processor time of user and system.").value(usage.cpu_s);
    to.gauge("process_start_time_seconds", "When the process started.").value(usage.start_s);
    to.gauge("process_resident_memory_bytes", "Resident memory.").value(usage.resident_bytes);
    to.gauge("process_virtual_memory_bytes", "Virtual memory.").value(usage.virtual_bytes);
    to.gauge("process_open_fds", "Descriptors that are open.").value(usage.open_fds);
    to.gauge("process_max_fds", "Limit of open descriptors.").value(usage.most_fds);
}

void add_document(families_t &to, const daemon_status_t &status) {
    to.gauge("nat64_server_up", "Whether the server answers.").value(status.is_server_up);
    to.counter("nat64_server_reconnections_total", "Channels to the server that were opened after the first.")
        .value(status.reconnections);
    to.counter("nat64_server_restarts_total", "Restarts of the server that nat64d noticed.").value(status.restarts);
    to.gauge("nat64_document_info", "The document in force, by its hash.");
    if (!status.document.empty()) to.value(1.0, {{"document", status.document}});
    to.gauge("nat64_document_items", "Items of the document in force.").value(status.items);
    to.gauge("nat64_document_in_step", "Whether the server is in sync with the document in force.")
        .value(status.is_in_step);
    to.gauge("nat64_document_in_step_changed_timestamp_seconds", "Time of the last change of nat64_document_in_step.")
        .value(status.since_s);
    to.gauge("nat64_document_refused", "Whether the latest document was refused.")
        .value(!status.refused_reason.empty());
    to.gauge("nat64_foreign_items", "Items of the server that others have added and nat64d leaves alone.")
        .value(status.foreign_count);
    to.counter("nat64_document_edits_total", "Documents that came into force in place of another.").value(status.edits);
    to.counter("nat64_document_refusals_total", "Documents that were refused.").value(status.refusals);
    to.counter("nat64_document_replays_total",
               "Times that the server got what it lacked, after a restart or on request.")
        .value(status.replays);
}

void add_store(families_t &to, const store_status_t &store) {
    to.gauge("nat64_store_up", "Whether the store answers, and has confirmed which document this gateway is to hold.")
        .value(store.is_up);
    to.gauge("nat64_store_version", "Version of the document in force, 0 if it is not from the store.")
        .value(store.version);
    to.gauge("nat64_store_confirmed_timestamp_seconds",
             "When the store last confirmed which document this gateway is to hold, 0 when it has not since the start.")
        .value(store.confirmed_s);
}

void add_commands(families_t &to, const metrics_source_t &source) {
    to.counter("nat64_commands_total", "Configuration commands by kind and result.");
    for (const auto &[key, count] : source.commands.counts()) {
        to.value(count, {{"kind", key.first}, {"result", end_name(key.second)}});
    }
    to.histogram("nat64_command_duration_seconds", "Times from a configuration command to its answer.",
                 source.commands.times());
    to.gauge("nat64_commands_outstanding", "Outstanding configuration commands.")
        .value(uint64_t{source.commands.outstanding()});
    to.gauge("nat64_throttled", "Whether the channel to the server is full.").value(source.is_throttled);
}

void add_table(families_t &to, size_t rules) {
    fwx_host_tbm_counts_t counts{};
    const struct tbm *tree = fwx_host_tbm_of_complex(0);
    if (tree != nullptr) fwx_host_tbm_counts_get(tree, &counts);
    to.gauge("nat64_lookup_rules", "Basic mapping rules in the lookup table.").value(uint64_t{rules});
    to.gauge("nat64_lookup_tree_bytes", "Memory of the lookup tree's nodes.").value(counts.bytes);
}

void add_totals(families_t &to, const fwx_nat64_stats_sys_entry_t &totals) {
    to.gauge("nat64_interfaces", "Interfaces that the server has.").value(totals.interfaces);
    to.gauge("nat64_prefixes", "Global prefixes that the server has.").value(totals.prefixes);
    to.gauge("nat64_pools", "Pools that the server has.").value(totals.pools);
    to.gauge("nat64_pool_ranges", "Ranges of pools that the server has.").value(totals.pool_ranges);
    to.gauge("nat64_mappings", "Mappings that the server has, by kind.")
        .value(totals.static_mappings, {{"kind", "static"}})
        .value(totals.dynamic_mappings, {{"kind", "dynamic"}});
    to.gauge("nat64_rules", "MAP-T rules that the server has.").value(totals.rules);
    to.gauge("nat64_sessions", "Sessions that are open.").value(totals.sessions);
}

std::string limit_name(uint32_t type) {
    const char *name = wire_limit_names.name_of(type);
    return name == nullptr ? std::to_string(type) : name;
}

void add_lists(families_t &to, const scrape_t &server) {
    to.gauge("nat64_pool_addresses", "Addresses of a pool and its ranges.");
    for (const fwx_nat64_stats_pool_entry_t &pool : server.pools.entries) {
        to.value(pool.addresses, {{"pool", std::to_string(pool.id)}});
    }
    to.gauge("nat64_pool_sessions", "Open sessions with addresses of a pool.");
    for (const fwx_nat64_stats_pool_entry_t &pool : server.pools.entries) {
        to.value(pool.sessions, {{"pool", std::to_string(pool.id)}});
    }
    to.gauge("nat64_mapping_sessions", "Open sessions of a mapping.");
    for (const fwx_nat64_stats_mapping_entry_t &mapping : server.mappings.entries) {
        const char *kind = wire_mapping_kind_names.name_of(mapping.kind);
        to.value(mapping.sessions,
                 {{"mapping", std::to_string(mapping.id)}, {"kind", kind == nullptr ? "unknown" : kind}});
    }
    to.gauge("nat64_series_left_out", "Whether some pools or mappings have no series.")
        .value(server.pools.has_more ? 1.0 : 0.0, {{"of", "pools"}})
        .value(server.mappings.has_more ? 1.0 : 0.0, {{"of", "mappings"}});
    to.gauge("nat64_limit", "Maximum that a limit allows.");
    for (const fwx_nat64_stats_limit_entry_t &limit : server.limits) {
        to.value(uint64_t{limit.value}, {{"type", limit_name(limit.type)}});
    }
    to.gauge("nat64_limit_used", "Current use of a limit.");
    for (const fwx_nat64_stats_limit_entry_t &limit : server.limits) {
        to.value(limit.in_use, {{"type", limit_name(limit.type)}});
    }
}

}  // namespace

std::string metrics_text(const metrics_source_t &source) {
    families_t families;
    add_process(families);
    add_document(families, source.status);
    if (source.store) add_store(families, *source.store);
    add_commands(families, source);
    add_table(families, source.installed_rules);
    if (source.server.totals) add_totals(families, *source.server.totals);
    add_lists(families, source.server);
    return families.text();
}
