#include "tools/natctl/hex.h"

#include <charconv>

std::string hex_digits(const void *bytes, size_t size) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        const uint8_t byte = static_cast<const uint8_t *>(bytes)[i];
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

bool parse_hex(const std::string &text, uint8_t *out, size_t bytes) {
    if (text.size() != 2 * bytes) return false;
    for (size_t i = 0; i < bytes; ++i) {
        const char *digits = text.data() + 2 * i;
        auto [stop, error] = std::from_chars(digits, digits + 2, out[i], 16);
        if (error != std::errc() || stop != digits + 2) return false;
    }
    return true;
}
