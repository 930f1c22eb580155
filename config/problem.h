/* Errors and warnings about a configuration document, and the names of families and fields in its notation. */
#ifndef CONFIG_PROBLEM_H
#define CONFIG_PROBLEM_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "records/family.h"

/** The notation of a document, which determines the names in messages. */
enum class notation_t : uint8_t { lines, json };

struct problem_t {
    enum class kind_t : uint8_t { error, warning };

    kind_t kind;
    uint32_t line;       /* of the document, from 1; 0: none */
    std::string command; /* `pool add` in lines, `pool` in JSON; empty: none */
    std::string field;   /* `--start` in lines, `start` in JSON; empty: none */
    std::string reason;  /* begins with the field if there is one */

    bool is_error() const { return kind == kind_t::error; }
    /** The message: `line 3: pool add: --start 192.0.2.300: must be ...`. A warning has `warning: ` behind the line. */
    std::string text() const;
};

using problems_t = std::vector<problem_t>;

/** True if there is an error, and not only warnings. */
bool has_error(const problems_t &problems);
/** Sorts problems by their lines; those of one line keep their order. */
void sort_by_line(problems_t &problems);

/** The name of a field: `--start` in lines, `start` in JSON. */
std::string_view label_of(const record_field_t &field, notation_t notation);
/** The name of a family: `pool add` in lines, `pool` in JSON. */
std::string label_of(const record_family_t &family, notation_t notation);
/** The key of a record: `--rule 1 --domain 2` in lines, `rule 1 domain 2` in JSON; empty in a family without keys. */
std::string key_text(const record_family_t &family, const void *record, notation_t notation);

/** The error for a word that is not a family. */
std::string wrong_family_text(std::string_view word);

#endif
