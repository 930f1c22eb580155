/* A family of configuration commands: its words, its record with its fields, how its items come, change and go. */
#ifndef RECORDS_FAMILY_H
#define RECORDS_FAMILY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "records/field.h"

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
    const char *item;   /* word of the family that the items belong to; null: this one */
    bool ends_sessions; /* a delete ends the sessions that an item has */
};

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
