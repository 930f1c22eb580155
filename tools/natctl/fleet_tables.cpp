/* Implements the tables of fleet_run.h: the state of the gateways, and the stored versions. */
#include "fleet/document_store.h"
#include "fleet/fleet_view.h"
#include "state/time_text.h"
#include "tools/natctl/fleet_run.h"

namespace {

json_t age_json(const std::string &time) {
    const std::optional<uint64_t> age_s = seconds_since(time);
    return age_s ? json_t(*age_s) : json_t();
}

json_t gateway_json(const gateway_view_t &gateway, const json_t &lease_s, const manifest_t &manifest) {
    const fleet_document_t &wanted = manifest.document_for(gateway.name);
    return {{"gateway", gateway.name},
            {"alive", gateway.is_alive},
            {"in_step", gateway.holds(wanted)},
            {"version", gateway.state.version},
            {"wanted", wanted.version},
            {"age_s", age_json(gateway.state.time)},
            {"lease_s", lease_s},
            {"server", gateway.state.server},
            {"reason", lag_text(gateway, wanted)}};
}

json_t version_json(const fleet_document_t &document, const std::optional<stage_t> &stage, uint64_t in_force) {
    return {{"version", document.version},
            {"in_force", document.version == in_force},
            {"pushed_at", document.pushed_at},
            {"pushed_by", document.pushed_by},
            {"items", document.items},
            {"bytes", document.bytes},
            {"stage", stage ? stage_text(*stage) : ""},
            {"note", document.note}};
}

/** Reads the stored versions. A version that cannot be read has the reason as its note. */
nat64::task<etcd_error_t> read_history(etcd_t &etcd, const fleet_keys_t &keys, uint64_t in_force, json_t &rows) {
    const etcd_result_t<etcd_range_t> history = co_await etcd.list(keys.history(), true);
    for (const etcd_entry_t &entry : history.value.entries) {
        std::string fault;
        const std::optional<manifest_t> version = read_manifest(entry.value, manifest_place_t::history, fault);
        if (version) {
            rows.push_back(version_json(version->document, version->stage, in_force));
            continue;
        }
        fleet_document_t unread;
        unread.note = entry.key + ": cannot be read: " + fault;
        rows.push_back(version_json(unread, std::nullopt, in_force));
    }
    co_return history.error;
}

}  // namespace

void fleet_status(call_t &call, const store_t &store_place) {
    fleet_store_t store(call.pal, store_place);
    const etcd_result_t<manifest_read_t> read = store.run(read_manifest(store.etcd(), store.keys()));
    if (read.error) return refuse(call.outcome, read.error);
    const etcd_result_t<std::vector<gateway_view_t>> view = store.run(read_gateways(store.etcd(), store.keys()));
    if (view.error) return refuse(call.outcome, view.error);
    call.outcome.data = json_t::array();
    for (const gateway_view_t &gateway : view.value) {
        json_t lease_s;
        if (gateway.lease != 0) {
            const etcd_result_t<uint32_t> left = store.run(store.etcd().lease_left(gateway.lease));
            if (left.error) return refuse(call.outcome, left.error);
            lease_s = left.value;
        }
        call.outcome.data.push_back(gateway_json(gateway, lease_s, read.value.manifest.value_or(manifest_t{})));
    }
    if (!read.value.manifest) call.pal.note("natctl: nothing has been pushed yet");
}

void fleet_history(call_t &call, const store_t &store_place) {
    fleet_store_t store(call.pal, store_place);
    const etcd_result_t<manifest_read_t> read = store.run(read_manifest(store.etcd(), store.keys()));
    const bool is_faulty = read.error && read.value.mod_revision != 0;
    if (is_faulty) call.pal.note("natctl: the manifest in force cannot be read: " + read.error.text);
    if (read.error && !is_faulty) return refuse(call.outcome, read.error);
    const uint64_t in_force = read.value.manifest ? read.value.manifest->document.version : 0;
    json_t rows = json_t::array();
    const etcd_error_t error = store.run(read_history(store.etcd(), store.keys(), in_force, rows));
    if (error) return refuse(call.outcome, error);
    call.outcome.data = std::move(rows);
}
