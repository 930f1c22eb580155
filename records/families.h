/*
 * The table of all families of configuration commands. natctl, nat64d, the server model, the Python binding and the
 * generated documents all read it. A new command needs one more row, with its fields and payloads, in families.cpp.
 */
#ifndef RECORDS_FAMILIES_H
#define RECORDS_FAMILIES_H

#include "records/family.h"

/** All families, in the order in which help shows them. The table is static. */
const record_family_t *record_families(size_t *count);

/** The one family of that kind. Requires: the kind is not `other`. */
const record_family_t &record_family_of(family_kind_t kind);

/** The family of a stored payload, and the row that converts it to a record. Both are null if no family has such a
 * payload. */
struct record_kept_t {
    const record_family_t *family;
    const record_payload_t *payload;
};
record_kept_t record_kept_as(uint32_t op_code, const uint8_t *payload, size_t size);

/** The family with that command text, `pool` or `mapt bmr` without a verb, or null. */
const record_family_t *record_find_family(std::string_view text);

#endif
