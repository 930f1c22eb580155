/*
 * Conversion between the payload of a configuration message, which is what a server stores, and the record of the same
 * command. Each record_payload_t converts the payloads of one op code. Most payloads contain the record unchanged, and
 * record_copied describes them. The others have converters in payload.cpp.
 */
#ifndef RECORDS_PAYLOAD_H
#define RECORDS_PAYLOAD_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "fwx_nat64/fwx_nat64.h"

/* Op codes of our own for stored MAP-T rules, because rules have messages without a configuration op code. The payload
 * is a kept_rule_t or a fwx_nat64_mapt_dmr_t. A stored delete does not use the index and the prefixes of a basic rule.
 */
constexpr uint32_t record_kept_basic_rule = 0x10000;
constexpr uint32_t record_kept_default_rule = 0x10001;
constexpr uint32_t record_kept_basic_rule_del = 0x10002;
constexpr uint32_t record_kept_default_rule_mod = 0x10003;
constexpr uint32_t record_kept_default_rule_del = 0x10004;

/** A stored basic rule. Clients identify an installed rule by the index. */
struct kept_rule_t {
    uint32_t index;
    fwx_nat64_mapt_bmr_t rule;
};

/** A 32-bit word at an offset in a payload or record. It distinguishes two rows that are otherwise equal. */
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

/** How to convert one payload. If a modify has the payload of an add, a stored payload is read as an add, because the
 * add's row comes first. */
struct record_payload_t {
    uint32_t op_code; /* FWX_NAT64_CFG_ or record_kept_ */
    uint32_t op;      /* FWX_NAT64_OP_ */
    size_t size;
    void (*to_record)(const uint8_t *payload, uint8_t *record);
    void (*to_payload)(const uint8_t *record, uint8_t *payload); /* into zeros; the caller then writes `word` */
    record_word_t word{};                                        /* in every payload of this row */
    record_word_t record_word{}; /* in every record of this row; such rows come before those without one */

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

/** The rule in an add command. The message has prefixes with the last byte first, the rule in network byte order. */
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
/** The message that adds a rule. */
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

/** Converts an address record, if it is IPv4, between host order (in records) and network order (in payloads). */
void record_swap_address(uint8_t *address);

/** A payload that contains the record unchanged at offset `at`, apart from the byte order of the address records at the
 * offsets `addresses` of the record. */
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

/** A delete whose payload has the identifier only, which is the first word of the record. */
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
