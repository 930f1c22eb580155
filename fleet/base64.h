/* Bytes as JSON carries them. */
#ifndef FLEET_BASE64_H
#define FLEET_BASE64_H

#include <optional>
#include <string>
#include <string_view>

/** Of at most 1 GiB. */
std::string to_base64(std::string_view bytes);
/** Nothing when the text is none. */
std::optional<std::string> from_base64(std::string_view text);

#endif
