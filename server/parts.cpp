/* The commands of the smaller parts of the configuration: settings, interfaces, mappings, logging, classifier. */
#include <algorithm>
#include <iterator>

#include "records/embedding.h"
#include "server/configuration.h"

namespace {

bool is_between_1_and(uint32_t last, uint32_t type) {
    return type >= 1 && type <= last;
}

bool length_ok(const fwx_nat64_prefix_t &prefix) {
    return is_embedding_length(prefix.prefix_len);
}

bool prefix_ok(uint32_t valid, const fwx_nat64_prefix_t &prefix) {
    return valid == 0 || length_ok(prefix);
}

uint32_t set_in(table_t<prefix_key_t, fwx_nat64_glb_prefix_payload_t> &prefixes,
                const fwx_nat64_glb_prefix_payload_t &payload) {
    const fwx_nat64_prefix_t &prefix = payload.prefix;
    prefix_key_t key{{}, prefix.prefix_len, prefix.kind};
    std::copy(std::begin(prefix.prefix), std::end(prefix.prefix), std::get<0>(key).begin());
    if (payload.add > 1) return FWX_NAT64_MODEL_ERR_VALUE;
    if (payload.add == 0) return prefixes.erase(key);
    return length_ok(prefix) ? prefixes.set(key, payload) : FWX_NAT64_MODEL_ERR_PREFIX_LEN;
}

bool is_acceptable(const fwx_nat64_dmapping_payload_t &payload) {
    return payload.map.id != 0 && payload.map.type <= FWX_NAT64_DMAPPING_TYPE_MAX;
}

bool is_acceptable(const fwx_nat64_logging_payload_t &payload) {
    return payload.dest != 0 && payload.dest_port != 0 && payload.mode == FWX_NAT64_LOGGING_MODE;
}

std::pair<uint32_t, uint16_t> key_of(const fwx_nat64_logging_payload_t &payload) {
    return {payload.dest, payload.dest_port};
}

}  // namespace

uint32_t settings_t::timeout_set(const fwx_nat64_timeout_t &timeout) {
    const bool ok = is_between_1_and(FWX_NAT64_TIMEOUT_TYPE_MAX, timeout.type);
    return ok ? timeouts.set(timeout.type, timeout) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t settings_t::limit_set(const fwx_nat64_limit_t &limit) {
    return limit.type == FWX_NAT64_LIMIT_TYPE ? limits.set(limit.type, limit) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t settings_t::limit_delete(const fwx_nat64_limit_t &limit) {
    return limit.type == FWX_NAT64_LIMIT_TYPE ? limits.erase(limit.type) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t settings_t::service_set(const fwx_nat64_service_payload_t &payload) {
    const uint32_t type = payload.service.type;
    if (type != FWX_NAT64_SERVICE_TYPE || payload.add > 1) return FWX_NAT64_MODEL_ERR_VALUE;
    return payload.add == 0 ? services.erase(type) : services.set(type, payload);
}

uint32_t settings_t::adjacency_set(const fwx_nat64_adj_t &adjacency) {
    const bool ok = is_between_1_and(FWX_NAT64_ADJ_TYPE_MAX, adjacency.type);
    return ok ? adjacencies.set(adjacency.type, adjacency) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t settings_t::replication_set(const fwx_nat64_replication_t &record) {
    if (record.set == 0) return FWX_NAT64_MODEL_ERR_VALUE;
    replication = record;
    return 0;
}

uint32_t settings_t::replication_unset(const fwx_nat64_replication_t &record) {
    if (record.set != 0) return FWX_NAT64_MODEL_ERR_VALUE;
    replication.reset();
    return 0;
}

uint32_t settings_t::global_set(const fwx_nat64_global_settings_t &record) {
    global = record;
    return 0;
}

uint32_t interfaces_t::set(const fwx_nat64_intf_payload_t &payload) {
    const bool prefixes_ok = prefix_ok(payload.sless_prefix_valid, payload.sless_prefix) &&
                             prefix_ok(payload.sful_prefix_valid, payload.sful_prefix) &&
                             prefix_ok(payload.sless_prefix_v6v4_valid, payload.sless_prefix_v6v4);
    return prefixes_ok ? interfaces.set(payload.ifh, payload) : FWX_NAT64_MODEL_ERR_PREFIX_LEN;
}

uint32_t interfaces_t::nvi_enable(const fwx_nat64_intf_payload_t &payload) {
    fwx_nat64_intf_payload_t &interface = interfaces.entries[payload.ifh];
    interface.ifh = payload.ifh;
    interface.enable = payload.enable;
    interface.nvi = payload.nvi;
    return 0;
}

uint32_t interfaces_t::prefix_set(const fwx_nat64_glb_prefix_payload_t &payload) {
    const uint32_t kind = payload.prefix.kind;
    const bool ok = kind >= 1 && kind <= FWX_NAT64_PREFIX_KIND_MAX && kind != FWX_NAT64_PREFIX_KIND2;
    return ok ? set_in(prefixes, payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t interfaces_t::prefix_kind2_set(const fwx_nat64_glb_prefix_payload_t &payload) {
    const bool ok = payload.prefix.kind == FWX_NAT64_PREFIX_KIND2;
    return ok ? set_in(prefixes_kind2, payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t prefix_count(const fwx_nat64_intf_payload_t &interface) {
    const uint32_t valid_flags[] = {interface.sless_prefix_valid, interface.sful_prefix_valid,
                                    interface.sless_prefix_v6v4_valid};
    return static_cast<uint32_t>(
        std::count_if(std::begin(valid_flags), std::end(valid_flags), [](uint32_t valid) { return valid != 0; }));
}

uint32_t mappings_t::static_add(const fwx_nat64_smapping_t &mapping) {
    return fixed.add(mapping.id, mapping);
}

uint32_t mappings_t::static_delete(const fwx_nat64_delete_payload_t &payload) {
    if (payload.one != 1) return FWX_NAT64_MODEL_ERR_VALUE;
    return fixed.erase(payload.id);
}

uint32_t mappings_t::dynamic_add(const fwx_nat64_dmapping_payload_t &payload) {
    return is_acceptable(payload) ? dynamic.add(payload.map.id, payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t mappings_t::dynamic_modify(const fwx_nat64_dmapping_payload_t &payload) {
    if (!is_acceptable(payload)) return FWX_NAT64_MODEL_ERR_VALUE;
    const auto present = dynamic.get(payload.map.id);
    if (!present) return FWX_NAT64_MODEL_ERR_NO_ENTRY;
    fwx_nat64_dmapping_payload_t modified = *present;
    modified.map = payload.map;
    std::copy(std::begin(present->map.ext), std::end(present->map.ext), modified.map.ext);
    modified.map.ext_arg = present->map.ext_arg;
    return dynamic.set(payload.map.id, modified);
}

uint32_t mappings_t::dynamic_delete(const fwx_nat64_delete_payload_t &payload) {
    if (payload.one != 1) return FWX_NAT64_MODEL_ERR_VALUE;
    return dynamic.erase(payload.id);
}

uint32_t loggings_t::add(const fwx_nat64_logging_payload_t &payload) {
    return is_acceptable(payload) ? loggings.add(key_of(payload), payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t loggings_t::modify(const fwx_nat64_logging_payload_t &payload) {
    return is_acceptable(payload) ? loggings.modify(key_of(payload), payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t loggings_t::remove(const fwx_nat64_logging_payload_t &payload) {
    return is_acceptable(payload) ? loggings.erase(key_of(payload)) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t classifier_t::end_batch(const uint32_t &id) {
    batch_id = id;
    ++batches;
    return 0;
}

uint32_t classifier_t::update(const fwx_nat64_classifier_update_t &record) {
    std::copy(std::begin(record.data), std::end(record.data), data);
    batch_id = record.batch_id;
    ++updates;
    return 0;
}
