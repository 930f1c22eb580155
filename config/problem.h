/* What is wrong with a configuration document, or worth knowing of it. */
#ifndef CONFIG_PROBLEM_H
#define CONFIG_PROBLEM_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "records/family.h"

/** How a document is written, and so what its fields are called. */
enum class notation_t : uint8_t { lines, json };

struct problem_t {
    enum class kind_t : uint8_t { error, warning };

    kind_t kind;
    uint32_t line;       /* of the document, from 1; 0 when it is none's */
    std::string command; /* `pool add` of a line, `pool` of JSON; empty when it is none's */
    std::string field;   /* `--start`, or its name in JSON; empty when it is none's */
    std::string reason;  /* begins with the field where there is one */

    /** `line 3: pool add: --start 192.0.2.300: must be ...`; a warning says that it is one. */
    std::string text() const;
};

using problems_t = std::vector<problem_t>;

/** Whether they are more than warnings. */
bool has_error(const problems_t &problems);
/** Puts them in the order of their lines. */
void sort_by_line(problems_t &problems);

/** `--start`, or `start`. */
std::string_view label_of(const record_field_t &field, notation_t notation);
/** `pool add`, or `pool`. */
std::string label_of(const record_family_t &family, notation_t notation);
/** The key of a record, `--rule 1 --domain 2` or `rule 1 domain 2`; empty in a family of one item. */
std::string key_text(const record_family_t &family, const void *record, notation_t notation);

/** What to say of a word that should be a family's. */
std::string wrong_family_text(std::string_view word);

#endif
