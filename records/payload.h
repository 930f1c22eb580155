/*
 * How a server keeps a configuration command: the payload of a message, by its op code, and the record that says the
 * same. Most payloads hold the record as it is, and a family says so with record_copied; the others have converters.
 */
#ifndef RECORDS_PAYLOAD_H
#define RECORDS_PAYLOAD_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "fwx_nat64/fwx_nat64.h"

/* What stands for commands of MAP-T rules among the op codes, since rules have messages of their own: a command's
 * payload is a kept_rule_t or fwx_nat64_mapt_dmr_t. The index under which a rule is deleted does not matter, nor do its
 * prefixes. */
constexpr uint32_t record_kept_basic_rule = 0x10000;
constexpr uint32_t record_kept_default_rule = 0x10001;
constexpr uint32_t record_kept_basic_rule_del = 0x10002;
constexpr uint32_t record_kept_default_rule_mod = 0x10003;
constexpr uint32_t record_kept_default_rule_del = 0x10004;

/** A basic rule as it is kept. Clients know an installed rule by the index. */
struct kept_rule_t {
    uint32_t index;
    fwx_nat64_mapt_bmr_t rule;
};

/** A 32-bit word at an offset that tells apart what is otherwise alike. */
struct record_word_t {
    static constexpr size_t none = SIZE_MAX;
    size_t at = none;
    uint32_t value = 0;

    bool is_in(const void *bytes) const {
        uint32_t word = value;
        if (at != none) std::memcpy(&word, static_cast<const uint8_t *>(bytes) + at, sizeof word);
        return word == value;
    }
    void put(uint8_t *bytes) const {
        if (at != none) std::memcpy(bytes + at, &value, sizeof value);
    }
};

/** A modify that travels as an add is read as that: the row of the add comes first. */
struct record_payload_t {
    uint32_t op_code; /* FWX_NAT64_CFG_ or record_kept_ */
    uint32_t op;      /* FWX_NAT64_OP_ */
    size_t size;
    void (*to_record)(const uint8_t *payload, uint8_t *record);
    void (*to_payload)(const uint8_t *record, uint8_t *payload); /* which is zeros, and gets `word` besides */
    record_word_t word{};                                        /* that such a payload has */
    record_word_t record_word{}; /* that the record of such a command has; rows with one come first */

    constexpr record_payload_t with(size_t at, uint32_t value) const {
        record_payload_t row = *this;
        row.word = {at, value};
        return row;
    }
    constexpr record_payload_t when(size_t at, uint32_t value) const {
        record_payload_t row = *this;
        row.record_word = {at, value};
        return row;
    }
};

/** The rule that a command names; its prefixes have their first byte first. */
inline fwx_nat64_mapt_bmr_t rule_of(const fwx_nat64_bmr_msg_t &command) {
    fwx_nat64_mapt_bmr_t rule{};
    rule.rule_id = command.rule_id;
    rule.domain_id = command.domain_id;
    std::reverse_copy(std::begin(command.v6_prefix), std::end(command.v6_prefix), rule.v6_prefix);
    rule.v6_prefix_len = command.v6_prefix_len;
    std::reverse_copy(std::begin(command.v4_prefix), std::end(command.v4_prefix), rule.v4_prefix);
    rule.v4_prefix_len = command.v4_prefix_len;
    std::copy(std::begin(command.rule_params), std::end(command.rule_params), rule.rule_params);
    return rule;
}
/** The command that adds a rule. */
inline fwx_nat64_bmr_msg_t command_of(const fwx_nat64_mapt_bmr_t &rule) {
    fwx_nat64_bmr_msg_t command{};
    command.rule_type = FWX_NAT64_MAPT_RULE_BMR;
    command.op = FWX_NAT64_OP_ADD;
    command.rule_id = rule.rule_id;
    command.domain_id = rule.domain_id;
    std::reverse_copy(std::begin(rule.v6_prefix), std::end(rule.v6_prefix), command.v6_prefix);
    command.v6_prefix_len = rule.v6_prefix_len;
    std::reverse_copy(std::begin(rule.v4_prefix), std::end(rule.v4_prefix), command.v4_prefix);
    command.v4_prefix_len = rule.v4_prefix_len;
    std::copy(std::begin(rule.rule_params), std::end(rule.rule_params), command.rule_params);
    return command;
}

/** Swaps an IPv4 address record between host order, as records have it, and network order, as payloads do. */
void record_swap_address(uint8_t *address);

/** A payload that holds the record as it is, from `at` on, but for address records at offsets of the record. */
template <typename payload_t, typename record_t = payload_t, size_t at = 0, size_t... addresses>
constexpr record_payload_t record_copied(uint32_t op_code, uint32_t op) {
    return {op_code, op, sizeof(payload_t),
            [](const uint8_t *payload, uint8_t *record) {
                std::memcpy(record, payload + at, sizeof(record_t));
                (record_swap_address(record + addresses), ...);
            },
            [](const uint8_t *record, uint8_t *payload) {
                std::memcpy(payload + at, record, sizeof(record_t));
                (record_swap_address(payload + at + addresses), ...);
            }};
}

/** A delete that says the identifier alone, which is the first word of the record. */
constexpr record_payload_t record_deleted_by_id(uint32_t op_code) {
    return record_copied<fwx_nat64_delete_payload_t, uint32_t>(op_code, FWX_NAT64_OP_DEL)
        .with(offsetof(fwx_nat64_delete_payload_t, one), 1);
}

extern const record_payload_t record_interface_payloads[1];
extern const record_payload_t record_nvi_payloads[1];
extern const record_payload_t record_pool_payloads[3];
extern const record_payload_t record_dmapping_payloads[3];
extern const record_payload_t record_logging_payloads[3];

#endif
