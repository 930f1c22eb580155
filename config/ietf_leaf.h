/* Values of leaves of the standard form. */
#ifndef CONFIG_IETF_LEAF_H
#define CONFIG_IETF_LEAF_H

#include <string>

#include "config/ietf_nodes.h"
#include "config/json_tree.h"

/** What the value of a node must be. */
std::string ietf_form_text(const ietf_node_t &node);

/** Reads the value of a leaf in its canonical form; false: it is none. */
bool ietf_read_leaf(const ietf_node_t &node, const json_value_t &value, std::string &text);

#endif
