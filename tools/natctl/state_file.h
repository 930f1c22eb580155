/* A server model's configuration in a JSON file: the op codes and payloads that make it. */
#ifndef TOOLS_NATCTL_STATE_FILE_H
#define TOOLS_NATCTL_STATE_FILE_H

#include <string>

#include "model/model.h"

/** Sets a model up from a file; one that is not there yet stands for an empty configuration. Returns why it failed,
 * with the file's name, or an empty text; the model may then hold a part of the configuration. */
std::string state_file_read(const std::string &path, fwx_nat64_model_t *model);
/** Replaces the file as a whole, or leaves it as it is. Returns why it failed, or an empty text. */
std::string state_file_write(const std::string &path, const fwx_nat64_model_t *model);

#endif
