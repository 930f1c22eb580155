/* Look-ups in the description of a family, and operations on its records that need only the description. */
#include "records/family.h"

#include <algorithm>
#include <cstring>

const char *record_operation_name(uint64_t op) {
    for (const record_verb_t &verb : {record_add, record_mod, record_del}) {
        if (verb.op == op) return verb.word.data();
    }
    return nullptr;
}

const record_field_t &record_field_of(const record_family_t &family, std::string_view name) {
    return *std::find_if(family.fields, family.fields + family.field_count,
                         [name](const record_field_t &field) { return field.name == name; });
}

const record_verb_t *record_find_verb(const record_family_t &family, std::string_view word) {
    const record_verb_t *end = family.verbs + family.verb_count;
    const record_verb_t *found =
        std::find_if(family.verbs, end, [word](const record_verb_t &verb) { return verb.word == word; });
    return found == end ? nullptr : found;
}

const record_verb_t *record_verb_of(const record_family_t &family, uint32_t op) {
    const record_verb_t *end = family.verbs + family.verb_count;
    const record_verb_t *found =
        std::find_if(family.verbs, end, [op](const record_verb_t &verb) { return verb.op == op; });
    return found == end ? nullptr : found;
}

std::optional<uint64_t> record_total_of(const record_family_t &family, const fwx_nat64_stats_sys_entry_t &totals) {
    if (!family.is_counted()) return std::nullopt;
    uint64_t total = 0;
    std::memcpy(&total, reinterpret_cast<const uint8_t *>(&totals) + family.total_at, sizeof total);
    return total;
}

const record_payload_t *record_payload_of(const record_family_t &family, uint32_t op, const void *record) {
    const record_payload_t *end = family.payloads + family.payload_count;
    const record_payload_t *found = std::find_if(family.payloads, end, [&](const record_payload_t &payload) {
        return payload.op == op && payload.record_word.is_in(record);
    });
    return found == end ? nullptr : found;
}

int record_compare_keys(const record_family_t &family, const void *a, const void *b) {
    if (std::memcmp(a, b, family.record_size) == 0) return 0; /* most items of two documents that are compared */
    for (const record_field_t *field = family.fields; field != family.fields + family.field_count; ++field) {
        if (!field->is_key) break; /* they come first */
        const int order = record_field_compare(*field, a, b);
        if (order != 0) return order;
    }
    return 0;
}

void record_init(const record_family_t &family, record_buffer_t &record) {
    record = {};
    if (family.initial != nullptr) std::memcpy(record.bytes, family.initial, family.record_size);
}

void record_make_absent(const record_family_t &family, record_buffer_t &record) {
    record_buffer_t absent{};
    for (size_t i = 0; i < family.field_count; ++i) {
        const record_field_t &field = family.fields[i];
        if (!field.is_key) continue;
        std::memcpy(absent.bytes + field.offset, record.bytes + field.offset, field.width);
        const bool has_length = field.length_offset != record_nowhere;
        if (has_length) absent.bytes[field.length_offset] = record.bytes[field.length_offset];
    }
    record = absent;
}

std::string record_command_text(const record_family_t &family, const record_verb_t *verb) {
    std::string text(family.group);
    text.append(text.empty() ? "" : " ").append(family.word);
    if (verb != nullptr) text.append(" ").append(verb->word);
    return text;
}
