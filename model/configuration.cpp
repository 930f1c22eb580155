#include "model/configuration.h"

#include <iterator>

#include "wire/config_messages.h"

namespace {

/** A part of the configuration with its commands. */
struct part_t {
    const config_command_t *commands;
    size_t count;
    void *(*of)(configuration_t &configuration);
};

template <auto member, size_t n>
constexpr part_t part(const config_command_t (&commands)[n]) {
    return {commands, n, [](configuration_t &configuration) -> void * { return &(configuration.*member); }};
}

/* In the order in which they are saved and restored. */
constexpr part_t parts[] = {
    part<&configuration_t::settings>(settings_commands),     part<&configuration_t::interfaces>(interfaces_commands),
    part<&configuration_t::pools>(pools_commands),           part<&configuration_t::mappings>(mappings_commands),
    part<&configuration_t::loggings>(loggings_commands),     part<&configuration_t::sessions>(sessions_commands),
    part<&configuration_t::classifier>(classifier_commands), part<&configuration_t::rules>(rules_commands),
};

struct found_t {
    const part_t *part;
    const config_command_t *command; /* null: there is none */
};

constexpr found_t find(uint32_t op_code) {
    for (const part_t &part : parts) {
        for (const config_command_t *command = part.commands; command != part.commands + part.count; ++command) {
            if (command->op_code == op_code) return {&part, command};
        }
    }
    return {nullptr, nullptr};
}

template <typename predicate_t>
constexpr bool all_commands(predicate_t holds) {
    for (const part_t &part : parts) {
        for (const config_command_t *command = part.commands; command != part.commands + part.count; ++command) {
            if (!holds(*command)) return false;
        }
    }
    return true;
}

constexpr bool every_message_has_its_command() {
    for (const wire_message_t &message : wire_config_messages) {
        const config_command_t *command = find(static_cast<uint32_t>(message.selector)).command;
        if (command == nullptr || command->payload_size + sizeof(fwx_nat64_cfg_msg_t) != message.size) return false;
    }
    return true;
}

constexpr size_t command_count() {
    size_t count = 0;
    for (const part_t &part : parts) {
        count += part.count;
    }
    return count;
}

constexpr bool stands_once(const config_command_t &command) {
    return find(command.op_code).command == &command;
}

constexpr bool is_saved_if_kept(const config_command_t &command) {
    if (command.kept_as == 0) return true;
    const config_command_t *saving = find(command.kept_as).command;
    return saving != nullptr && saving->save != nullptr;
}

constexpr size_t rule_command_count = 5; /* what stands for the commands of rules, which are messages of their own */

static_assert(every_message_has_its_command(), "a configuration message has no command here, or one of another size");
static_assert(all_commands(stands_once), "two commands have the same op code");
static_assert(command_count() == std::size(wire_config_messages) + rule_command_count, "a command has no message");
static_assert(all_commands(is_saved_if_kept), "a command is to be kept as one that saves nothing");

}  // namespace

uint32_t configuration_t::carry_out(uint32_t op_code, const void *payload) {
    const found_t found = find(op_code);
    if (found.command == nullptr) return FWX_NAT64_MODEL_ERR_UNKNOWN;
    return found.command->carry_out(found.part->of(*this), payload);
}

size_t configuration_t::kept_size(uint32_t op_code) {
    const config_command_t *command = find(op_code).command;
    const bool is_kept = command != nullptr && (command->save != nullptr || command->kept_as != 0);
    return is_kept ? command->payload_size : 0;
}

void configuration_t::save(fwx_nat64_model_part_fn_t fn, void *arg) const {
    for (const part_t &part : parts) {
        const void *own = part.of(const_cast<configuration_t &>(*this));
        for (const config_command_t *command = part.commands; command != part.commands + part.count; ++command) {
            if (command->save != nullptr) command->save(own, command->op_code, fn, arg);
        }
    }
}

uint32_t configuration_t::restore(uint32_t op_code, const void *payload, size_t size) {
    const config_command_t *command = find(op_code).command;
    const bool ok = command != nullptr && size != 0 && size == command->payload_size;
    return ok ? carry_out(op_code, payload) : FWX_NAT64_MODEL_ERR_MALFORMED;
}
