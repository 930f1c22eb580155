/*
 * Parses JSON into a tree that keeps the texts of real numbers as they were written. It is for input from an untrusted
 * sender: depth and number of values are limited, and an object with a name twice is refused.
 */
#ifndef CONFIG_JSON_TREE_H
#define CONFIG_JSON_TREE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/problem.h"

constexpr size_t json_max_depth = 24;
constexpr size_t json_max_values = size_t{1} << 22;

enum class json_kind_t : uint8_t { null, boolean, number, text, array, object };

struct json_value_t {
    json_kind_t kind = json_kind_t::null;
    std::string name;                  /* of a member of an object; else empty */
    std::string text;                  /* of a scalar */
    std::vector<json_value_t> members; /* of an array or object, in their order */
};

/** Parses the text into `root`. False on an error, which is appended to `problems`. */
bool read_json_tree(std::string_view text, json_value_t &root, problems_t &problems);

#endif
