/* JSON as a tree that keeps numbers as they are written, for input that is small and whose sender is not trusted: depth
 * and number of values are bounded, and a name that stands twice in an object is refused. */
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
    std::string name;                  /* within an object; else empty */
    std::string text;                  /* of what is neither array nor object; a number's digits as they stand */
    std::vector<json_value_t> members; /* of an array or object, in their order */
};

/** Adds to the problems what is wrong with the text; true: `root` is all of it. */
bool read_json_tree(std::string_view text, json_value_t &root, problems_t &problems);

#endif
