/* Parses the values of leaves of the standard form. */
#ifndef CONFIG_IETF_LEAF_H
#define CONFIG_IETF_LEAF_H

#include <string>

#include "config/ietf_nodes.h"
#include "config/json_tree.h"

/** Describes the allowed values of a node, for errors: `a number from 1 to 7`. */
std::string ietf_form_text(const ietf_node_t &node);

/** Converts the value of a leaf to its canonical form. False if the value is not allowed. */
bool ietf_read_leaf(const ietf_node_t &node, const json_value_t &value, std::string &text);

#endif
