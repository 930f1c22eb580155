/* The families of commands, and the verbs and fields of a family, as ranges. */
#ifndef TESTS_RECORDS_ALL_FAMILIES_H
#define TESTS_RECORDS_ALL_FAMILIES_H

#include <span>

#include "records/families.h"

inline std::span<const record_family_t> all_families() {
    size_t count = 0;
    const record_family_t *families = record_families(&count);
    return {families, count};
}
inline std::span<const record_verb_t> verbs_of(const record_family_t &family) {
    return {family.verbs, family.verb_count};
}
inline std::span<const record_field_t> fields_of(const record_family_t &family) {
    return {family.fields, family.field_count};
}

#endif
