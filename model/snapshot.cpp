/* The configuration as the commands that make it. */
#include <algorithm>
#include <cstring>
#include <tuple>

#include "model/state.h"
#include "wire/messages.h"

namespace {

struct saved_rule_t {
    uint32_t index;
    uint32_t rule_id;
    uint32_t domain_id;
};

class writer_t {
public:
    writer_t(fwx_nat64_model_part_fn_t part, void *arg) : part_(part), arg_(arg) {}

    template <typename payload_t>
    void write(uint32_t op_code, const payload_t &payload) const {
        part_(arg_, op_code, &payload, sizeof(payload));
    }
    template <typename table_t>
    void write_entries(uint32_t op_code, const table_t &table) const {
        for (const auto &[key, payload] : table.entries) {
            write(op_code, payload);
        }
    }

private:
    fwx_nat64_model_part_fn_t part_;
    void *arg_;
};

void save_settings(const settings_t &settings, const writer_t &writer) {
    for (const auto &[type, value] : settings.timeouts.entries) {
        writer.write(FWX_NAT64_CFG_TIMEOUT_SET, fwx_nat64_timeout_t{type, value});
    }
    for (const auto &[type, value] : settings.limits.entries) {
        writer.write(FWX_NAT64_CFG_LIMIT_SET, fwx_nat64_limit_t{type, value});
    }
    for (const auto &[type, value] : settings.services.entries) {
        writer.write(FWX_NAT64_CFG_SERVICE_SET, fwx_nat64_service_payload_t{1, {type, value}});
    }
    for (const auto &[type, address] : settings.adjacencies.entries) {
        writer.write(FWX_NAT64_CFG_ADJ_SET, fwx_nat64_adj_t{type, address});
    }
    if (settings.replication) writer.write(FWX_NAT64_CFG_REPLICATION_SET, *settings.replication);
    writer.write(FWX_NAT64_CFG_GLOBAL_SETTINGS, settings.global);
}

void save_interfaces(const interfaces_t &interfaces, const writer_t &writer) {
    writer.write_entries(FWX_NAT64_CFG_INTF_SET, interfaces.interfaces);
    for (const auto &[bytes, length, kind] : interfaces.prefixes) {
        fwx_nat64_glb_prefix_payload_t payload{1, {{}, {}, length, kind}};
        std::copy(bytes.begin(), bytes.end(), payload.prefix.prefix);
        writer.write(kind == 2 ? FWX_NAT64_CFG_GLB_PREFIX_KIND2 : FWX_NAT64_CFG_GLB_PREFIX, payload);
    }
}

uint32_t ipv4_word(const address_t &address) {
    uint32_t word = 0;
    std::memcpy(&word, address.bytes.data(), sizeof(word));
    return word;
}

void save_pools(const pools_t &pools, const writer_t &writer) {
    for (const auto &[id, pool] : pools.pools.entries) {
        writer.write(FWX_NAT64_CFG_POOL_ADD,
                     fwx_nat64_pool_payload_t{id, 1, 0, id, ipv4_word(pool.own.first), ipv4_word(pool.own.second)});
        for (const auto &[first, last] : pool.ranges) {
            writer.write(FWX_NAT64_CFG_POOL_RANGE_ADD, fwx_nat64_pool_range_t{id, record_of(first), record_of(last)});
        }
    }
}

void save_rules(const rules_t &rules, const writer_t &writer) {
    for (const auto &[index, key] : rules.by_index) {
        writer.write(FWX_NAT64_MODEL_SAVED_BASIC_RULE, saved_rule_t{index, key.first, key.second});
    }
    writer.write_entries(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE, rules.defaults);
}

/* Length of the payload that belongs to an op code; 0 for one that is none. */
size_t payload_size(uint32_t op_code) {
    if (op_code == FWX_NAT64_MODEL_SAVED_BASIC_RULE) return sizeof(saved_rule_t);
    if (op_code == FWX_NAT64_MODEL_SAVED_DEFAULT_RULE) return sizeof(fwx_nat64_mapt_dmr_t);
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    const wire_message_t *found = std::find_if(messages, messages + count, [op_code](const wire_message_t &message) {
        return message.direction == wire_direction_t::to_server && message.form == wire_form_t::async &&
               message.msgno == FWX_NAT64_MSG_CONFIG && static_cast<uint32_t>(message.selector) == op_code;
    });
    return found == messages + count ? 0 : found->size - sizeof(fwx_nat64_cfg_msg_t);
}

template <typename record_t>
record_t read(const void *payload) {
    record_t record;
    std::memcpy(&record, payload, sizeof(record));
    return record;
}

}  // namespace

void fwx_nat64_model_save(const fwx_nat64_model_t *model, fwx_nat64_model_part_fn_t part, void *arg) {
    const writer_t writer(part, arg);
    save_settings(model->settings, writer);
    save_interfaces(model->interfaces, writer);
    save_pools(model->pools, writer);
    writer.write_entries(FWX_NAT64_CFG_SMAPPING_ADD, model->mappings.fixed);
    writer.write_entries(FWX_NAT64_CFG_DMAPPING_ADD, model->mappings.dynamic);
    writer.write_entries(FWX_NAT64_CFG_LOGGING_ADD, model->loggings.loggings);
    save_rules(model->rules, writer);
}

uint32_t fwx_nat64_model_restore(fwx_nat64_model_t *model, uint32_t op_code, const void *payload, size_t size) {
    if (size == 0 || size != payload_size(op_code)) return FWX_NAT64_MODEL_ERR_MALFORMED;
    switch (op_code) {
        case FWX_NAT64_MODEL_SAVED_BASIC_RULE: {
            const auto rule = read<saved_rule_t>(payload);
            return model->rules.basic_restore({rule.rule_id, rule.domain_id}, rule.index);
        }
        case FWX_NAT64_MODEL_SAVED_DEFAULT_RULE:
            return model->rules.default_set(FWX_NAT64_OP_ADD, read<fwx_nat64_mapt_dmr_t>(payload));
        default:
            return configure(*model, op_code, static_cast<const uint8_t *>(payload));
    }
}
