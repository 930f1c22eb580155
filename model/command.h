/* A configuration command's part in the model: who carries it out, and what of it is kept over a restart. Each part of
 * the configuration has a table of its commands below its declaration. */
#ifndef MODEL_COMMAND_H
#define MODEL_COMMAND_H

#include <cstring>
#include <optional>

#include "model/model.h"
#include "model/table.h"

/** A configuration command, or what stands for one in a saved configuration. */
struct config_command_t {
    uint32_t op_code;
    size_t payload_size;
    uint32_t (*carry_out)(void *part, const void *payload);
    /** Hands over what the command keeps over a restart, as payloads that make it again; null when it keeps nothing. */
    void (*save)(const void *part, uint32_t op_code, fwx_nat64_model_part_fn_t fn, void *arg);
    uint32_t kept_as; /* op code of the command that saves what this one changes; 0 when nothing has to be saved */
};

/* The member of a part that carries a command out, as the command needs it. */
template <auto member>
struct member_t;
template <typename part_t, typename record_t, uint32_t (part_t::*member)(const record_t &)>
struct member_t<member> {
    using payload_t = record_t;

    static uint32_t carry_out(void *part, const void *payload) {
        record_t record;
        std::memcpy(&record, payload, sizeof(record));
        return (static_cast<part_t *>(part)->*member)(record);
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
    static void save(const void *part, uint32_t op_code, fwx_nat64_model_part_fn_t fn, void *arg) {
        for_each(static_cast<const part_t *>(part)->*payloads,
                 [&](const payload_t &payload) { fn(arg, op_code, &payload, sizeof(payload)); });
    }
};

/* A command whose payloads are kept. */
template <auto member, auto payloads>
constexpr config_command_t kept(uint32_t op_code) {
    using payload_t = typename member_t<member>::payload_t;
    return {op_code, sizeof(payload_t), member_t<member>::carry_out, payloads_t<payloads>::template save<payload_t>, 0};
}
/* A command that changes or takes away what another command's payloads say. */
template <auto member>
constexpr config_command_t kept_as(uint32_t op_code, uint32_t other_op_code) {
    return {op_code, sizeof(typename member_t<member>::payload_t), member_t<member>::carry_out, nullptr, other_op_code};
}
/* A command that is over when it has been carried out. */
template <auto member>
constexpr config_command_t not_kept(uint32_t op_code) {
    return kept_as<member>(op_code, 0);
}
/* A command without payload that has nothing to do. */
constexpr config_command_t not_kept(uint32_t op_code) {
    return {op_code, 0, [](void *, const void *) { return 0U; }, nullptr, 0};
}

#endif
