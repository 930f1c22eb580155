/*
 * The families of configuration commands. Whatever configures the service above the library reads this one table; a
 * command more is a row with its fields in families.cpp.
 */
#ifndef RECORDS_FAMILIES_H
#define RECORDS_FAMILIES_H

#include "records/family.h"

/** All families, in the order in which they are shown; the table lives as long as the program. */
const record_family_t *record_families(size_t *count);

/** The family of that command text without a verb, `pool` or `mapt bmr`; null: there is none. */
const record_family_t *record_find_family(std::string_view text);

#endif
