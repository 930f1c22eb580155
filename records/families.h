/*
 * The families of configuration commands. Whatever configures the service above the library reads this one table; a
 * command more is a row with its fields in families.cpp.
 */
#ifndef RECORDS_FAMILIES_H
#define RECORDS_FAMILIES_H

#include "records/family.h"

/** All families, in the order in which they are shown; the table lives as long as the program. */
const record_family_t *record_families(size_t *count);

/** The family of a kind, of which there is one. Requires: not `other`. */
const record_family_t &record_family_of(family_kind_t kind);

/** The family and the way by which a payload that a server kept is read; both null: there is none. */
struct record_kept_t {
    const record_family_t *family;
    const record_payload_t *payload;
};
record_kept_t record_kept_as(uint32_t op_code, const uint8_t *payload, size_t size);

/** The family of that command text without a verb, `pool` or `mapt bmr`; null: there is none. */
const record_family_t *record_find_family(std::string_view text);

#endif
