/* Bytes as hexadecimal digits. */
#ifndef TOOLS_HEX_H
#define TOOLS_HEX_H

#include <cstddef>
#include <cstdint>
#include <string>

/** Two lower-case digits a byte. */
std::string hex_digits(const void *bytes, size_t size);
/** Reads exactly `bytes` bytes; false when the text is anything else. */
bool parse_hex(const std::string &text, uint8_t *out, size_t bytes);

#endif
