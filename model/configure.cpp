/* Configuration commands by op code. */
#include "model/state.h"

namespace {

template <typename payload_t>
payload_t read(const uint8_t *payload) {
    payload_t record;
    std::memcpy(&record, payload, sizeof(record));
    return record;
}

uint32_t pool_delete(fwx_nat64_model_t &model, const fwx_nat64_delete_payload_t &payload) {
    const uint32_t result = model.pools.remove(payload);
    if (result == 0) model.sessions.close_of_pool(payload.id);
    return result;
}

uint32_t static_add(fwx_nat64_model_t &model, const fwx_nat64_smapping_t &mapping) {
    const uint32_t result = model.mappings.static_add(mapping);
    if (result == 0) model.sessions.open_static(mapping);
    return result;
}

uint32_t static_delete(fwx_nat64_model_t &model, const fwx_nat64_delete_payload_t &payload) {
    const uint32_t result = model.mappings.static_delete(payload);
    if (result == 0) model.sessions.close_static(payload.id);
    return result;
}

uint32_t dynamic_delete(fwx_nat64_model_t &model, const fwx_nat64_delete_payload_t &payload) {
    const uint32_t result = model.mappings.dynamic_delete(payload);
    if (result == 0) model.sessions.close_of_mapping(payload.id);
    return result;
}

uint32_t session_clear(fwx_nat64_model_t &model, const fwx_nat64_session_filter_t &filter) {
    model.sessions.clear(filter_of(filter));
    return 0;
}

uint32_t global_settings_set(fwx_nat64_model_t &model, const fwx_nat64_global_settings_t &settings) {
    model.settings.global = settings;
    return 0;
}

uint32_t end_batch(fwx_nat64_model_t &model, uint32_t batch_id) {
    model.classifier.batch_id = batch_id;
    ++model.classifier.batches;
    return 0;
}

uint32_t classifier_update(fwx_nat64_model_t &model, const fwx_nat64_classifier_update_t &update) {
    std::memcpy(model.classifier.data, update.data, sizeof(update.data));
    model.classifier.batch_id = update.batch_id;
    ++model.classifier.updates;
    return 0;
}

}  // namespace

uint32_t configure(fwx_nat64_model_t &model, uint32_t op_code, const uint8_t *payload) {
    switch (op_code) {
        case FWX_NAT64_CFG_INTF_SET:
            return model.interfaces.set(read<fwx_nat64_intf_payload_t>(payload));
        case FWX_NAT64_CFG_NVI_INTF_ENABLE:
            return model.interfaces.nvi_enable(read<fwx_nat64_intf_payload_t>(payload));
        case FWX_NAT64_CFG_GLB_PREFIX:
            return model.interfaces.prefix_set(read<fwx_nat64_glb_prefix_payload_t>(payload), false);
        case FWX_NAT64_CFG_GLB_PREFIX_KIND2:
            return model.interfaces.prefix_set(read<fwx_nat64_glb_prefix_payload_t>(payload), true);
        case FWX_NAT64_CFG_POOL_ADD:
            return model.pools.set(read<fwx_nat64_pool_payload_t>(payload));
        case FWX_NAT64_CFG_POOL_DEL:
            return pool_delete(model, read<fwx_nat64_delete_payload_t>(payload));
        case FWX_NAT64_CFG_POOL_RANGE_ADD:
            return model.pools.range_add(read<fwx_nat64_pool_range_t>(payload));
        case FWX_NAT64_CFG_POOL_RANGE_DEL:
            return model.pools.range_delete(read<fwx_nat64_pool_range_del_payload_t>(payload));
        case FWX_NAT64_CFG_SMAPPING_ADD:
            return static_add(model, read<fwx_nat64_smapping_t>(payload));
        case FWX_NAT64_CFG_SMAPPING_DEL:
            return static_delete(model, read<fwx_nat64_delete_payload_t>(payload));
        case FWX_NAT64_CFG_DMAPPING_ADD:
            return model.mappings.dynamic_add(read<fwx_nat64_dmapping_payload_t>(payload));
        case FWX_NAT64_CFG_DMAPPING_DEL:
            return dynamic_delete(model, read<fwx_nat64_delete_payload_t>(payload));
        case FWX_NAT64_CFG_DMAPPING_MOD:
            return model.mappings.dynamic_modify(read<fwx_nat64_dmapping_payload_t>(payload));
        case FWX_NAT64_CFG_TIMEOUT_SET:
            return model.settings.timeout_set(read<fwx_nat64_timeout_t>(payload));
        case FWX_NAT64_CFG_LIMIT_SET:
            return model.settings.limit_set(read<fwx_nat64_limit_t>(payload));
        case FWX_NAT64_CFG_LIMIT_DEL:
            return model.settings.limit_delete(read<fwx_nat64_limit_t>(payload));
        case FWX_NAT64_CFG_IPALIAS_UPLOAD:
            return 0; /* goes to the routing side, which the model has none of */
        case FWX_NAT64_CFG_SESSION_CLEAR:
            return session_clear(model, read<fwx_nat64_session_filter_t>(payload));
        case FWX_NAT64_CFG_SERVICE_SET:
            return model.settings.service_set(read<fwx_nat64_service_payload_t>(payload));
        case FWX_NAT64_CFG_END_BATCH:
            return end_batch(model, read<uint32_t>(payload));
        case FWX_NAT64_CFG_CLASSIFIER_UPDATE:
            return classifier_update(model, read<fwx_nat64_classifier_update_t>(payload));
        case FWX_NAT64_CFG_LOGGING_ADD:
            return model.loggings.add(read<fwx_nat64_logging_payload_t>(payload));
        case FWX_NAT64_CFG_LOGGING_MOD:
            return model.loggings.modify(read<fwx_nat64_logging_payload_t>(payload));
        case FWX_NAT64_CFG_LOGGING_DEL:
            return model.loggings.remove(read<fwx_nat64_logging_payload_t>(payload));
        case FWX_NAT64_CFG_ADJ_SET:
            return model.settings.adjacency_set(read<fwx_nat64_adj_t>(payload));
        case FWX_NAT64_CFG_GLOBAL_SETTINGS:
            return global_settings_set(model, read<fwx_nat64_global_settings_t>(payload));
        case FWX_NAT64_CFG_REPLICATION_SET:
            return model.settings.replication_set(read<fwx_nat64_replication_t>(payload));
        case FWX_NAT64_CFG_REPLICATION_UNSET:
            return model.settings.replication_unset(read<fwx_nat64_replication_t>(payload));
        default:
            return FWX_NAT64_MODEL_ERR_UNKNOWN;
    }
}
