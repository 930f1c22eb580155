/* A family of configuration commands: its words, its record with its fields, how its items come, change and go, where a
 * server counts and keeps them. */
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
    const char *title; /* with the family's noun it says what the verb does */
};
constexpr record_verb_t record_add = {"add", FWX_NAT64_OP_ADD, "Adds"};
constexpr record_verb_t record_mod = {"mod", FWX_NAT64_OP_MOD, "Modifies"};
constexpr record_verb_t record_del = {"del", FWX_NAT64_OP_DEL, "Deletes"};

/** `add`, or null for a number that is no operation. */
const char *record_operation_name(uint64_t op);

/** Calls the library's setter; the record is only read. Results are the setter's. */
using record_send_fn_t = uint32_t (*)(uint32_t op, const void *record, void *pal_ctx);

/** The families that some code treats in a way of its own. It asks for the kind, because names are for users alone. */
enum class family_kind_t : uint8_t {
    other, /* treated by its fields alone */
    timeout,
    limit,
    interface,
    nvi, /* makes an interface a virtual one */
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
    std::string_view group; /* `mapt`, the word before it; empty for a family that stands alone */
    std::string_view word;  /* `pool` */
    const char *summary;
    const char *noun; /* completes a verb's title: `an address pool` */
    const record_verb_t *verbs;
    size_t verb_count;
    const record_field_t *fields;
    size_t field_count;
    size_t record_size;
    const void *initial; /* the record before any field is read; null: zeros */
    record_send_fn_t send;
    uint32_t modify_op; /* FWX_NAT64_OP_ that changes an item in place; 0: it must be deleted and added again */
    uint8_t rank;       /* items of a lower rank are added first, and deleted last */
    family_kind_t kind;
    family_kind_t item; /* the family that the items belong to; other: this one */
    bool ends_sessions; /* a delete ends the sessions that an item has */
    uint16_t total_at;  /* of the counter in fwx_nat64_stats_sys_entry_t, or record_nowhere: a server does not count */
    const char *unmodelled;           /* why items, or some of them, have no place in the standard data models */
    const record_payload_t *payloads; /* how a server keeps what the commands say */
    size_t payload_count;

    bool is_rule() const { return kind == family_kind_t::basic_rule || kind == family_kind_t::default_rule; }
    /** Whether a server's system totals count the items, so that totals of 0 say that there are none. */
    bool is_counted() const { return total_at != record_nowhere; }
};

/** How many items a server says that it holds, which some families share; nothing: it does not count them. */
std::optional<uint64_t> record_total_of(const record_family_t &family, const fwx_nat64_stats_sys_entry_t &totals);

/** How a server keeps a command; null: not at all. */
const record_payload_t *record_payload_of(const record_family_t &family, uint32_t op, const void *record);

/** Room for the record of any family. */
struct alignas(8) record_buffer_t {
    uint8_t bytes[96];
};
/** No family has more fields. */
constexpr size_t record_max_fields = 9;

/** The verb with that word, or null. */
const record_verb_t *record_find_verb(const record_family_t &family, std::string_view word);
/** The verb of an operation, or null. */
const record_verb_t *record_verb_of(const record_family_t &family, uint32_t op);

/** Orders the records of a family by their keys; less than 0, 0 or more than 0 as memcmp. */
int record_compare_keys(const record_family_t &family, const void *a, const void *b);

/** Makes the record of a family as it is before any field is read. */
void record_init(const record_family_t &family, record_buffer_t &record);
/**
 * Leaves of a record its key, and zeros. In a family without a delete, setting what is left takes the item away: an
 * interface is off, without prefixes and MTU; anything else has the server's default.
 */
void record_make_absent(const record_family_t &family, record_buffer_t &record);

/** `mapt bmr add`; without the verb if it is null. */
std::string record_command_text(const record_family_t &family, const record_verb_t *verb);

#endif
