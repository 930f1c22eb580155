/* Base64, in which etcd's JSON has keys and values. */
#ifndef FLEET_BASE64_H
#define FLEET_BASE64_H

#include <optional>
#include <string>
#include <string_view>

/** Encodes at most 1 GiB. */
std::string to_base64(std::string_view bytes);
/** Decodes a text. Nothing if it is not valid base64. */
std::optional<std::string> from_base64(std::string_view text);

#endif
