/* Messages as bytes. Tests build and read them by offset, and never use the library's structs, so that they check the
 * layout too. */
#ifndef TESTS_SUPPORT_BYTES_H
#define TESTS_SUPPORT_BYTES_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using bytes_t = std::vector<uint8_t>;

template <typename number_t>
number_t get(const bytes_t &bytes, size_t offset) {
    number_t value{};
    if (offset + sizeof(value) <= bytes.size()) memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

template <typename number_t>
void put(bytes_t &bytes, size_t offset, number_t value) {
    memcpy(bytes.data() + offset, &value, sizeof(value));
}

inline bytes_t slice(const bytes_t &bytes, size_t offset, size_t size) {
    const auto at = [&](size_t i) { return bytes.begin() + static_cast<std::ptrdiff_t>(std::min(i, bytes.size())); };
    return {at(offset), at(offset + size)};
}

/** The bytes as "01 02 ff", for comparison with literals and for readable failures. */
inline std::string hex(const bytes_t &bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        if (!text.empty()) text += ' ';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

#endif
