#include "model/configuration.h"

#include <cstring>
#include <iterator>

#include "wire/config_messages.h"

namespace {

/** A configuration command, or what stands for one in a saved configuration. */
struct command_t {
    uint32_t op_code;
    size_t payload_size;
    uint32_t (*carry_out)(configuration_t &configuration, const void *payload);
    /** Hands over what the command keeps over a restart, as payloads that make it again; null when it keeps nothing. */
    void (*save)(const configuration_t &configuration, uint32_t op_code, fwx_nat64_model_part_fn_t fn, void *arg);
    uint32_t kept_as; /* op code of the command that saves what this one changes; 0 when nothing has to be saved */
};

/* The member of a part that carries a command out, as the command needs it. */
template <auto member>
struct member_t;
template <typename part_t, typename record_t, uint32_t (part_t::*member)(const record_t &)>
struct member_t<member> {
    using payload_t = record_t;

    static uint32_t carry_out(configuration_t &configuration, const void *payload) {
        record_t record;
        std::memcpy(&record, payload, sizeof(record));
        return (configuration.part<part_t>().*member)(record);
    }
};

template <typename payload_t, typename fn_t>
void for_each(const std::optional<payload_t> &single, fn_t fn) {
    if (single) fn(*single);
}
template <typename key_t, typename payload_t, typename fn_t>
void for_each(const table_t<key_t, payload_t> &table, fn_t fn) {
    for (const auto &[key, payload] : table.entries) {
        fn(payload);
    }
}

/* The payloads of a part that a command keeps. */
template <auto payloads>
struct payloads_t;
template <typename part_t, typename container_t, container_t part_t::*payloads>
struct payloads_t<payloads> {
    template <typename payload_t>
    static void save(const configuration_t &configuration, uint32_t op_code, fwx_nat64_model_part_fn_t fn, void *arg) {
        for_each(configuration.part<part_t>().*payloads,
                 [&](const payload_t &payload) { fn(arg, op_code, &payload, sizeof(payload)); });
    }
};

/* A command whose payloads are kept. */
template <auto member, auto payloads>
constexpr command_t kept(uint32_t op_code) {
    using payload_t = typename member_t<member>::payload_t;
    return {op_code, sizeof(payload_t), member_t<member>::carry_out, payloads_t<payloads>::template save<payload_t>, 0};
}
/* A command that changes or takes away what another command's payloads say. */
template <auto member>
constexpr command_t kept_as(uint32_t op_code, uint32_t other_op_code) {
    return {op_code, sizeof(typename member_t<member>::payload_t), member_t<member>::carry_out, nullptr, other_op_code};
}
/* A command that is over when it has been carried out. */
template <auto member>
constexpr command_t not_kept(uint32_t op_code) {
    return kept_as<member>(op_code, 0);
}
/* A command without payload that has nothing to do. */
constexpr command_t not_kept(uint32_t op_code) {
    return {op_code, 0, [](configuration_t &, const void *) { return 0U; }, nullptr, 0};
}

/* In the order in which their payloads are saved and restored: a pool comes before its ranges. */
constexpr command_t commands[] = {
    kept<&settings_t::timeout_set, &settings_t::timeouts>(FWX_NAT64_CFG_TIMEOUT_SET),
    kept<&settings_t::limit_set, &settings_t::limits>(FWX_NAT64_CFG_LIMIT_SET),
    kept_as<&settings_t::limit_delete>(FWX_NAT64_CFG_LIMIT_DEL, FWX_NAT64_CFG_LIMIT_SET),
    kept<&settings_t::service_set, &settings_t::services>(FWX_NAT64_CFG_SERVICE_SET),
    kept<&settings_t::adjacency_set, &settings_t::adjacencies>(FWX_NAT64_CFG_ADJ_SET),
    kept<&settings_t::replication_set, &settings_t::replication>(FWX_NAT64_CFG_REPLICATION_SET),
    kept_as<&settings_t::replication_unset>(FWX_NAT64_CFG_REPLICATION_UNSET, FWX_NAT64_CFG_REPLICATION_SET),
    kept<&settings_t::global_set, &settings_t::global>(FWX_NAT64_CFG_GLOBAL_SETTINGS),
    kept<&interfaces_t::set, &interfaces_t::interfaces>(FWX_NAT64_CFG_INTF_SET),
    kept_as<&interfaces_t::nvi_enable>(FWX_NAT64_CFG_NVI_INTF_ENABLE, FWX_NAT64_CFG_INTF_SET),
    kept<&interfaces_t::prefix_set, &interfaces_t::prefixes>(FWX_NAT64_CFG_GLB_PREFIX),
    kept<&interfaces_t::prefix_kind2_set, &interfaces_t::prefixes_kind2>(FWX_NAT64_CFG_GLB_PREFIX_KIND2),
    kept<&pools_t::set, &pools_t::pools>(FWX_NAT64_CFG_POOL_ADD),
    kept_as<&pools_t::remove>(FWX_NAT64_CFG_POOL_DEL, FWX_NAT64_CFG_POOL_ADD),
    kept<&pools_t::range_add, &pools_t::ranges>(FWX_NAT64_CFG_POOL_RANGE_ADD),
    kept_as<&pools_t::range_delete>(FWX_NAT64_CFG_POOL_RANGE_DEL, FWX_NAT64_CFG_POOL_RANGE_ADD),
    kept<&mappings_t::static_add, &mappings_t::fixed>(FWX_NAT64_CFG_SMAPPING_ADD),
    kept_as<&mappings_t::static_delete>(FWX_NAT64_CFG_SMAPPING_DEL, FWX_NAT64_CFG_SMAPPING_ADD),
    kept<&mappings_t::dynamic_add, &mappings_t::dynamic>(FWX_NAT64_CFG_DMAPPING_ADD),
    kept_as<&mappings_t::dynamic_modify>(FWX_NAT64_CFG_DMAPPING_MOD, FWX_NAT64_CFG_DMAPPING_ADD),
    kept_as<&mappings_t::dynamic_delete>(FWX_NAT64_CFG_DMAPPING_DEL, FWX_NAT64_CFG_DMAPPING_ADD),
    kept<&loggings_t::add, &loggings_t::loggings>(FWX_NAT64_CFG_LOGGING_ADD),
    kept_as<&loggings_t::modify>(FWX_NAT64_CFG_LOGGING_MOD, FWX_NAT64_CFG_LOGGING_ADD),
    kept_as<&loggings_t::remove>(FWX_NAT64_CFG_LOGGING_DEL, FWX_NAT64_CFG_LOGGING_ADD),
    not_kept(FWX_NAT64_CFG_IPALIAS_UPLOAD), /* goes to the routing side, which the model has none of */
    not_kept<&sessions_t::clear>(FWX_NAT64_CFG_SESSION_CLEAR),
    not_kept<&classifier_t::end_batch>(FWX_NAT64_CFG_END_BATCH),
    not_kept<&classifier_t::update>(FWX_NAT64_CFG_CLASSIFIER_UPDATE),
    kept<&rules_t::basic_restore, &rules_t::by_index>(FWX_NAT64_MODEL_SAVED_BASIC_RULE),
    kept<&rules_t::default_restore, &rules_t::defaults>(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE),
};

constexpr const command_t *find(uint32_t op_code) {
    for (const command_t &command : commands) {
        if (command.op_code == op_code) return &command;
    }
    return nullptr;
}

constexpr bool every_message_has_its_command() {
    for (const wire_message_t &message : wire_config_messages) {
        const command_t *command = find(static_cast<uint32_t>(message.selector));
        if (command == nullptr || command->payload_size + sizeof(fwx_nat64_cfg_msg_t) != message.size) return false;
    }
    return true;
}

constexpr bool no_command_stands_twice() {
    for (const command_t &command : commands) {
        if (find(command.op_code) != &command) return false;
    }
    return true;
}

constexpr bool what_is_kept_is_saved() {
    for (const command_t &command : commands) {
        if (command.kept_as == 0) continue;
        const command_t *saving = find(command.kept_as);
        if (saving == nullptr || saving->save == nullptr) return false;
    }
    return true;
}

constexpr size_t rule_count = 2; /* kinds of rules; no configuration message makes them */

static_assert(every_message_has_its_command(), "a configuration message has no command here, or one of another size");
static_assert(no_command_stands_twice(), "two commands have the same op code");
static_assert(std::size(commands) == std::size(wire_config_messages) + rule_count, "a command has no message");
static_assert(what_is_kept_is_saved(), "a command is to be kept as one that saves nothing");

}  // namespace

uint32_t configuration_t::carry_out(uint32_t op_code, const void *payload) {
    const command_t *command = find(op_code);
    return command == nullptr ? FWX_NAT64_MODEL_ERR_UNKNOWN : command->carry_out(*this, payload);
}

void configuration_t::save(fwx_nat64_model_part_fn_t fn, void *arg) const {
    for (const command_t &command : commands) {
        if (command.save != nullptr) command.save(*this, command.op_code, fn, arg);
    }
}

uint32_t configuration_t::restore(uint32_t op_code, const void *payload, size_t size) {
    const command_t *command = find(op_code);
    const bool ok = command != nullptr && size != 0 && size == command->payload_size;
    return ok ? command->carry_out(*this, payload) : FWX_NAT64_MODEL_ERR_MALFORMED;
}
