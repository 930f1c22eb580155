/*
 * The table of configuration commands. Each row has a command's op code and payload size, the member function that
 * executes it, and how its effect is saved: a command either has a table of payloads that are saved under its op code,
 * or changes the payloads of another command, or changes nothing that is saved. Static assertions check the rows
 * against the message description.
 */
#include "server/configuration.h"

#include <algorithm>
#include <iterator>
#include <type_traits>

#include "server/record.h"
#include "wire/config_messages.h"

namespace {

/** A configuration command, or a pseudo command for a rule in a saved configuration. */
struct config_command_t {
    uint32_t op_code;
    size_t payload_size;
    uint32_t (*carry_out)(configuration_t &config, const void *payload);
    /** Makes a cursor over the payloads that are saved under this op code; null when there are none. */
    std::unique_ptr<item_cursor_t> (*read)(const configuration_t &config, uint32_t op_code);
    uint32_t kept_as; /* op code under which the payloads that this command changes are saved; else 0 */
};

template <typename part_t, typename config_t>
auto &part_of(config_t &config) {
    const auto parts = std::tie(config.settings, config.interfaces, config.pools, config.mappings, config.loggings,
                                config.classifier, config.rules);
    return std::get<std::conditional_t<std::is_const_v<config_t>, const part_t, part_t> &>(parts);
}

/* Adapts the member function of a part that executes a command to config_command_t. */
template <auto member>
struct setter_t;
template <typename part_t, typename record_t, uint32_t (part_t::*member)(const record_t &)>
struct setter_t<member> {
    static constexpr size_t payload_size = sizeof(record_t);

    static uint32_t carry_out(configuration_t &config, const void *payload) {
        return (part_of<part_t>(config).*member)(read_record<record_t>(payload));
    }
};

/* A cursor over a table of payloads. It remembers the last key, so that the table may change between two calls. */
template <typename key_t, typename payload_t>
class table_cursor_t : public item_cursor_t {
public:
    table_cursor_t(const table_t<key_t, payload_t> &table, uint32_t op_code) : table_(table), op_code_(op_code) {}
    bool give(const item_fn_t &take) override {
        const auto &entries = table_.entries;
        for (auto at = latest_ ? entries.upper_bound(*latest_) : entries.begin(); at != entries.end(); ++at) {
            if (!take(op_code_, &at->second, sizeof at->second)) return false;
            latest_ = at->first;
        }
        return true;
    }

private:
    const table_t<key_t, payload_t> &table_;
    const uint32_t op_code_;
    std::optional<key_t> latest_;
};

template <typename payload_t>
class single_cursor_t : public item_cursor_t {
public:
    single_cursor_t(const std::optional<payload_t> &single, uint32_t op_code) : single_(single), op_code_(op_code) {}
    bool give(const item_fn_t &take) override { return !single_ || take(op_code_, &*single_, sizeof *single_); }

private:
    const std::optional<payload_t> &single_;
    const uint32_t op_code_;
};

template <typename key_t, typename payload_t>
std::unique_ptr<item_cursor_t> cursor_of(const table_t<key_t, payload_t> &table, uint32_t op_code) {
    return std::make_unique<table_cursor_t<key_t, payload_t>>(table, op_code);
}
template <typename payload_t>
std::unique_ptr<item_cursor_t> cursor_of(const std::optional<payload_t> &single, uint32_t op_code) {
    return std::make_unique<single_cursor_t<payload_t>>(single, op_code);
}

template <auto member>
struct payloads_t;
template <typename part_t, typename container_t, container_t part_t::*member>
struct payloads_t<member> {
    static std::unique_ptr<item_cursor_t> read(const configuration_t &config, uint32_t op_code) {
        return cursor_of(part_of<part_t>(config).*member, op_code);
    }
};

/* A command whose payloads are saved under its op code. */
template <auto member, auto payloads>
constexpr config_command_t kept(uint32_t op_code) {
    return {op_code, setter_t<member>::payload_size, setter_t<member>::carry_out, payloads_t<payloads>::read, 0};
}
/* A command that changes or removes payloads of another command. */
template <auto member>
constexpr config_command_t kept_as(uint32_t op_code, uint32_t other_op_code) {
    return {op_code, setter_t<member>::payload_size, setter_t<member>::carry_out, nullptr, other_op_code};
}
/* A command that changes nothing that is saved. */
template <auto member>
constexpr config_command_t not_kept(uint32_t op_code) {
    return kept_as<member>(op_code, 0);
}
/* A command that the configuration ignores. */
constexpr config_command_t not_kept(uint32_t op_code, size_t payload_size) {
    return {op_code, payload_size, [](configuration_t &, const void *) { return 0U; }, nullptr, 0};
}

/* The order of saving and restoring, so a pool comes before its ranges. */
constexpr config_command_t commands[] = {
    kept<&settings_t::timeout_set, &settings_t::timeouts>(FWX_NAT64_CFG_TIMEOUT_SET),
    kept<&settings_t::limit_set, &settings_t::limits>(FWX_NAT64_CFG_LIMIT_SET),
    kept_as<&settings_t::limit_delete>(FWX_NAT64_CFG_LIMIT_DEL, FWX_NAT64_CFG_LIMIT_SET),
    kept<&settings_t::service_set, &settings_t::services>(FWX_NAT64_CFG_SERVICE_SET),
    kept<&settings_t::adjacency_set, &settings_t::adjacencies>(FWX_NAT64_CFG_ADJ_SET),
    kept<&settings_t::replication_set, &settings_t::replication>(FWX_NAT64_CFG_REPLICATION_SET),
    kept_as<&settings_t::replication_unset>(FWX_NAT64_CFG_REPLICATION_UNSET, FWX_NAT64_CFG_REPLICATION_SET),
    kept<&settings_t::global_set, &settings_t::global>(FWX_NAT64_CFG_GLOBAL_SETTINGS),
    not_kept(FWX_NAT64_CFG_IPALIAS_UPLOAD, 0), /* for a routing component, which this server does not have */
    not_kept(FWX_NAT64_CFG_SESSION_CLEAR, sizeof(fwx_nat64_session_filter_t)), /* executed by the engine */
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
    not_kept<&classifier_t::end_batch>(FWX_NAT64_CFG_END_BATCH),
    not_kept<&classifier_t::update>(FWX_NAT64_CFG_CLASSIFIER_UPDATE),
    kept<&rules_t::basic_restore, &rules_t::by_index>(record_kept_basic_rule),
    kept_as<&rules_t::basic_remove>(record_kept_basic_rule_del, record_kept_basic_rule),
    kept<&rules_t::default_add, &rules_t::defaults>(record_kept_default_rule),
    kept_as<&rules_t::default_modify>(record_kept_default_rule_mod, record_kept_default_rule),
    kept_as<&rules_t::default_remove>(record_kept_default_rule_del, record_kept_default_rule),
};

constexpr const config_command_t *find(uint32_t op_code) {
    const auto *found = std::find_if(std::begin(commands), std::end(commands),
                                     [op_code](const config_command_t &command) { return command.op_code == op_code; });
    return found == std::end(commands) ? nullptr : found;
}

constexpr bool has_command(const wire_message_t &message) {
    const config_command_t *command = find(static_cast<uint32_t>(message.selector));
    return command != nullptr && command->payload_size + sizeof(fwx_nat64_cfg_msg_t) == message.size;
}

constexpr bool is_unique(const config_command_t &command) {
    return find(command.op_code) == &command;
}

constexpr bool is_saved_if_kept(const config_command_t &command) {
    if (command.kept_as == 0) return true;
    const config_command_t *saving = find(command.kept_as);
    return saving != nullptr && saving->read != nullptr;
}

constexpr size_t rule_command_count = 5; /* pseudo commands for rules, which are not configuration messages */

static_assert(std::all_of(std::begin(wire_config_messages), std::end(wire_config_messages), has_command),
              "a configuration message has no command here, or one of another size");
static_assert(std::all_of(std::begin(commands), std::end(commands), is_unique), "two commands have the same op code");
static_assert(std::size(commands) == std::size(wire_config_messages) + rule_command_count, "a command has no message");
static_assert(std::all_of(std::begin(commands), std::end(commands), is_saved_if_kept),
              "a command is to be kept as one that saves nothing");

}  // namespace

uint32_t configuration_t::carry_out(uint32_t op_code, const void *payload) {
    const config_command_t *command = find(op_code);
    return command != nullptr ? command->carry_out(*this, payload) : FWX_NAT64_MODEL_ERR_UNKNOWN;
}

size_t configuration_t::payload_size(uint32_t op_code) {
    const config_command_t *command = find(op_code);
    return command != nullptr ? command->payload_size : 0;
}

size_t configuration_t::kept_size(uint32_t op_code) {
    const config_command_t *command = find(op_code);
    return command != nullptr && (command->read != nullptr || command->kept_as != 0) ? command->payload_size : 0;
}

void configuration_t::save(server_part_fn_t fn, void *arg) const {
    configuration_reader_t(*this).give([&](uint32_t op_code, const void *payload, size_t size) {
        fn(arg, op_code, payload, size);
        return true;
    });
}

bool configuration_reader_t::give(const item_fn_t &take) {
    for (; row_ < std::size(commands); ++row_) {
        const config_command_t &command = commands[row_];
        if (command.read == nullptr) continue;
        if (!cursor_) cursor_ = command.read(config_, command.op_code);
        if (!cursor_->give(take)) return false;
        cursor_.reset();
    }
    return true;
}
