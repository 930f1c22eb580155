/*
 * A family of configuration commands, for example `pool add`, `pool mod` and `pool del`. Its description has the
 * family's words, its record with the fields, the operations that add, change and delete its items, the counter of its
 * items in the server's statistics, and the payloads in which a server stores its commands.
 */
#ifndef RECORDS_FAMILY_H
#define RECORDS_FAMILY_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "records/field.h"
#include "records/payload.h"

struct record_verb_t {
    std::string_view word;
    uint32_t op;       /* FWX_NAT64_OP_ */
    const char *title; /* for help, in front of the family's noun: `Adds` an address pool */
};
constexpr record_verb_t record_add = {"add", FWX_NAT64_OP_ADD, "Adds"};
constexpr record_verb_t record_mod = {"mod", FWX_NAT64_OP_MOD, "Modifies"};
constexpr record_verb_t record_del = {"del", FWX_NAT64_OP_DEL, "Deletes"};

/** The word of an operation, such as `add`, or null if `op` is not an operation. */
const char *record_operation_name(uint64_t op);

/** Calls the setter of the library and returns its result. The setter does not change the record. */
using record_send_fn_t = uint32_t (*)(uint32_t op, const void *record, void *pal_ctx);

/** Identifies the families that need code of their own. Code compares kinds, because words are only for users. */
enum class family_kind_t : uint8_t {
    other, /* needs no code of its own */
    timeout,
    limit,
    interface,
    nvi, /* makes an interface a NAT virtual interface */
    prefix,
    smapping,
    dmapping,
    pool,
    pool_range,
    logging,
    basic_rule,
    default_rule,
};

struct record_family_t {
    std::string_view group; /* the word in front, such as `mapt`, or empty */
    std::string_view word;  /* `pool` */
    const char *summary;
    const char *noun; /* completes a verb's title: `an address pool` */
    const record_verb_t *verbs;
    size_t verb_count;
    const record_field_t *fields;
    size_t field_count;
    size_t record_size;
    const void *initial; /* the default values; null: all zeros */
    record_send_fn_t send;
    uint32_t modify_op; /* FWX_NAT64_OP_ that changes an item in place; 0: it must be deleted and added again */
    uint8_t rank;       /* items of a lower rank are added first, and deleted last */
    family_kind_t kind;
    family_kind_t item;     /* the family that the items belong to; other: this one */
    bool ends_sessions;     /* a delete ends the sessions of the item */
    uint16_t total_at;      /* offset of the counter in fwx_nat64_stats_sys_entry_t; record_nowhere: there is none */
    const char *unmodelled; /* why the standard data models cannot express some or all of the items */
    const record_payload_t *payloads; /* in which a server stores the commands */
    size_t payload_count;

    bool is_rule() const { return kind == family_kind_t::basic_rule || kind == family_kind_t::default_rule; }
    /** True if a server's system totals count the items. A total of 0 then means that there are none. */
    bool is_counted() const { return total_at != record_nowhere; }
};

/** The server's count of the items, or nothing if it does not count them. Some families share a counter. */
std::optional<uint64_t> record_total_of(const record_family_t &family, const fwx_nat64_stats_sys_entry_t &totals);

/** The payload in which a server stores a command, or null if it does not store it. */
const record_payload_t *record_payload_of(const record_family_t &family, uint32_t op, const void *record);

/** Large enough for the record of any family. */
struct alignas(8) record_buffer_t {
    uint8_t bytes[96];
};
/** No family has more fields. */
constexpr size_t record_max_fields = 9;

/** The field of that name. Requires: the family has it. */
const record_field_t &record_field_of(const record_family_t &family, std::string_view name);

/** The verb with that word, or null. */
const record_verb_t *record_find_verb(const record_family_t &family, std::string_view word);
/** The verb of an operation, or null. */
const record_verb_t *record_verb_of(const record_family_t &family, uint32_t op);

/** Compares the keys of two records of a family. The result is less than, equal to or more than 0, as with memcmp. */
int record_compare_keys(const record_family_t &family, const void *a, const void *b);

/** Sets a record to the default values of its family. */
void record_init(const record_family_t &family, record_buffer_t &record);
/**
 * Zeroes all fields of a record but its key. In a family without a delete, such a record removes the item: it turns an
 * interface off, without prefixes and MTU, and gives anything else the server's default.
 */
void record_make_absent(const record_family_t &family, record_buffer_t &record);

/** The words of a command, such as `mapt bmr add`. Without the verb if it is null. */
std::string record_command_text(const record_family_t &family, const record_verb_t *verb);

#endif
