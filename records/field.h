/*
 * Fields of records: name, offset, type and allowed values. The options of natctl, the names in JSON and the help texts
 * are all made from these descriptions. The functions below read, write and compare the value of one field.
 */
#ifndef RECORDS_FIELD_H
#define RECORDS_FIELD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fwx_nat64/config.h"
#include "wire/names.h"

enum class record_kind_t : uint8_t {
    number,      /* 1, 2, 4 or 8 bytes */
    numbers,     /* 16-bit numbers, separated by commas */
    address,     /* a fwx_nat64_addr_t */
    ipv4,        /* a fwx_nat64_addr_t that takes IPv4 only */
    ipv4_prefix, /* the first bytes in network byte order; the length is at `length_offset` */
    ipv6_prefix, /* likewise */
    bytes,       /* as hexadecimal digits */
};

/* Sets of operations, FWX_NAT64_OP_. */
constexpr uint8_t record_on(uint32_t op) {
    return static_cast<uint8_t>(1U << op);
}
constexpr uint8_t record_on_any = 0xff;
constexpr uint8_t record_not_on_delete = record_on_any & ~record_on(FWX_NAT64_OP_DEL);

constexpr uint16_t record_nowhere = UINT16_MAX;

struct record_field_t {
    std::string_view option; /* `--id`; without dashes: a positional argument */
    std::string_view also;   /* an alias of the option, or empty */
    const char *name;        /* in JSON: the words of the option */
    const char *member;      /* in C and Python, and formerly in JSON; the same as `name` by default */
    const char *meaning;     /* for help */
    uint64_t min;            /* of a number, or of each number of several */
    uint64_t max;            /* likewise; of a prefix: its greatest length in bits */
    uint16_t offset;         /* in the record */
    uint16_t width;          /* bytes */
    uint16_t length_offset;  /* of the byte with a prefix's length */
    uint16_t valid_offset;   /* of the 32-bit flag that the field is set, or record_nowhere */
    uint16_t time_unit_ms;   /* unit of a number that may also be written as `5m` or `2h4m`; 0: not a time */
    record_kind_t kind;
    uint8_t taken_on;          /* operations that take the field */
    uint8_t required_on;       /* operations that need it */
    bool is_key;               /* identifies the item, together with the other keys */
    bool is_fixed;             /* a modify cannot change it: the item must be deleted and added again */
    bool is_spelling;          /* another notation of other fields; written only where they cannot express the value */
    bool embeds_ipv4;          /* a prefix in which IPv4 addresses are embedded */
    const wire_names_t *names; /* of values, or null */

    /* Defined before its callers, because clang 14 cannot evaluate a template that is defined after them. */
    template <typename type_t, typename value_t>
    constexpr record_field_t with(type_t record_field_t::*of, value_t value) const {
        record_field_t field = *this;
        field.*of = static_cast<type_t>(value);
        return field;
    }

    /* Modifiers with which a row of a table departs from the defaults of record_field. */
    constexpr record_field_t from(uint64_t least) const { return with(&record_field_t::min, least); }
    constexpr record_field_t within(uint64_t least, uint64_t greatest) const {
        return from(least).with(&record_field_t::max, greatest);
    }
    constexpr record_field_t length_at(size_t at) const { return with(&record_field_t::length_offset, at); }
    constexpr record_field_t marked_at(size_t at) const { return with(&record_field_t::valid_offset, at); }
    constexpr record_field_t on(uint8_t operations) const { return with(&record_field_t::taken_on, operations); }
    constexpr record_field_t required(uint8_t operations = record_on_any) const {
        return with(&record_field_t::required_on, operations);
    }
    constexpr record_field_t key() const { return required().with(&record_field_t::is_key, true); }
    constexpr record_field_t fixed() const { return with(&record_field_t::is_fixed, true); }
    constexpr record_field_t known_as(std::string_view other) const { return with(&record_field_t::also, other); }
    constexpr record_field_t in_c(const char *other) const { return with(&record_field_t::member, other); }
    constexpr record_field_t named(const wire_names_t &values) const { return with(&record_field_t::names, &values); }
    constexpr record_field_t in_seconds() const { return with(&record_field_t::time_unit_ms, 1000); }
    constexpr record_field_t in_milliseconds() const { return with(&record_field_t::time_unit_ms, 1); }
    constexpr record_field_t spelling() const { return with(&record_field_t::is_spelling, true); }
    constexpr record_field_t embedding() const { return with(&record_field_t::embeds_ipv4, true); }

    constexpr bool is_taken_on(uint32_t op) const { return (taken_on & record_on(op)) != 0; }
    constexpr bool is_required_on(uint32_t op) const { return (taken_on & required_on & record_on(op)) != 0; }
};

/** Largest value of a field of that kind and width. */
constexpr uint64_t record_field_max(record_kind_t kind, size_t width) {
    if (kind == record_kind_t::number) return UINT64_MAX >> (64 - 8 * width);
    return kind == record_kind_t::numbers ? UINT16_MAX : 8 * width;
}

constexpr record_field_t record_field(std::string_view option, const char *name, record_kind_t kind, size_t offset,
                                      size_t width, const char *meaning) {
    return {option,
            {},
            name,
            name,
            meaning,
            0,
            record_field_max(kind, width),
            static_cast<uint16_t>(offset),
            static_cast<uint16_t>(width),
            record_nowhere,
            record_nowhere,
            0,
            kind,
            record_on_any,
            0,
            false,
            false,
            false,
            false,
            nullptr};
}

/** Describes a field that is a member of a struct. */
#define RECORD_FIELD(option, name, kind, struct_, member, meaning) \
    record_field(option, name, record_kind_t::kind, offsetof(struct_, member), sizeof(struct_::member), meaning)
/** Describes a field that is a member of type fwx_nat64_prefix_t. */
#define RECORD_PREFIX_FIELD(option, name, struct_, member, meaning)          \
    RECORD_FIELD(option, name, ipv6_prefix, struct_, member.prefix, meaning) \
        .length_at(offsetof(struct_, member.prefix_len))

/** True if two fields share bytes of the record. A command can have only one of them. */
constexpr bool record_fields_overlap(const record_field_t &a, const record_field_t &b) {
    return a.offset < b.offset + b.width && b.offset < a.offset + a.width;
}

/**
 * Parses the text of a field into a record, and sets the field's flag if it has one.
 * @return an empty text, or an error such as `--type 9: must be 1 to 7`. After an error the record is undefined.
 */
std::string record_field_read(const record_field_t &field, std::string_view text, void *record);
/** Formats the field of a record as record_field_read parses it. */
std::string record_field_text(const record_field_t &field, const void *record);
/** Appends the same to `out`. */
void record_field_append(const record_field_t &field, const void *record, std::string &out);
/** Compares a field of two records by value. The result is less than, equal to or more than 0, as with memcmp. */
int record_field_compare(const record_field_t &field, const void *a, const void *b);
/** True if the field is set. Only a field with a flag can be unset. */
bool record_field_is_given(const record_field_t &field, const void *record);
/** The allowed values, as help shows them: `1 to 7`, or `1 to 7, or udp, tcp-est`. */
std::string record_field_form(const record_field_t &field);
/** The error for a wrong value of an option. */
std::string record_field_error(std::string_view option, std::string_view value, const std::string &allowed);

#endif
