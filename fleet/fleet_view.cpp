#include "fleet/fleet_view.h"

#include <algorithm>

namespace {

constexpr std::string_view alive_end = "/state";
constexpr std::string_view seen_end = "/seen";

/** The gateway's name in a key with that end; empty if it is another key. */
std::string name_of(std::string_view key, std::string_view end) {
    if (!key.ends_with(end)) return "";
    const std::string_view name = key.substr(0, key.size() - end.size());
    return is_gateway_name(name) ? std::string(name) : "";
}

}  // namespace

etcd_t::reply_t<std::vector<gateway_view_t>> read_gateways(etcd_t &etcd, fleet_keys_t keys) {
    etcd_result_t<std::vector<gateway_view_t>> result;
    const etcd_result_t<etcd_range_t> got = co_await etcd.list(keys.gateways(), true);
    result.error = got.error;
    for (const etcd_entry_t &entry : got.value.entries) {
        const std::string_view key = std::string_view(entry.key).substr(keys.gateways().size());
        const std::string alive = name_of(key, alive_end);
        const std::string name = alive.empty() ? name_of(key, seen_end) : alive;
        if (name.empty()) continue;
        const bool is_new = result.value.empty() || result.value.back().name != name;
        if (is_new) result.value.emplace_back().name = name;
        gateway_view_t &gateway = result.value.back();
        gateway.is_alive = gateway.is_alive || !alive.empty();
        if (!alive.empty()) gateway.lease = entry.lease;
        const bool is_last_word = !alive.empty() || !gateway.is_alive;
        if (!is_last_word) continue;
        std::string fault;
        std::optional<gateway_state_t> state = read_gateway_state(entry.value, fault);
        const bool is_other = state && state->gateway != name;
        if (is_other) fault = "gateway: must be " + name;
        gateway.fault = fault;
        gateway.state = fault.empty() ? *std::move(state) : gateway_state_t{};
    }
    std::sort(result.value.begin(), result.value.end(),
              [](const gateway_view_t &a, const gateway_view_t &b) { return a.name < b.name; });
    co_return result;
}

std::string lag_text(const gateway_view_t &gateway, const fleet_document_t &document) {
    const gateway_state_t &state = gateway.state;
    if (!gateway.is_alive) return "gone";
    if (!gateway.fault.empty()) return "its status cannot be read: " + gateway.fault;
    if (gateway.holds(document)) return "";
    if (gateway.has_refused(document)) {
        return "refused version " + std::to_string(state.refused_version) + ": " + state.refused_reason;
    }
    const std::string held = state.version == 0 ? "holds nothing" : "holds version " + std::to_string(state.version);
    if (state.document != document.hash) return held + (state.reason.empty() ? "" : ": " + state.reason);
    return state.reason.empty() ? "not in step" : state.reason;
}
