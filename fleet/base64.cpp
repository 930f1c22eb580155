#include "fleet/base64.h"

#include <openssl/evp.h>

#include <algorithm>

namespace {

constexpr size_t group_bytes = 3;
constexpr size_t group_digits = 4;

}  // namespace

std::string to_base64(std::string_view bytes) {
    const size_t digits = (bytes.size() + group_bytes - 1) / group_bytes * group_digits;
    std::string text(digits + 1, '\0'); /* EVP_EncodeBlock adds a terminator */
    EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text.data()),
                    reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<int>(bytes.size()));
    text.resize(digits);
    return text;
}

std::optional<std::string> from_base64(std::string_view text) {
    const size_t padding = text.size() - std::min(text.find('='), text.size());
    /* EVP_DecodeBlock accepts blanks, and padding inside of the text. */
    const bool is_whole = text.size() % group_digits == 0 && padding < group_bytes &&
                          text.find_first_not_of('=', text.size() - padding) == std::string_view::npos &&
                          text.find_first_of(" \t\r\n-") == std::string_view::npos;
    if (!is_whole) return std::nullopt;
    std::string bytes(text.size() / group_digits * group_bytes, '\0');
    const int size =
        EVP_DecodeBlock(reinterpret_cast<unsigned char *>(bytes.data()),
                        reinterpret_cast<const unsigned char *>(text.data()), static_cast<int>(text.size()));
    if (size < 0) return std::nullopt;
    bytes.resize(static_cast<size_t>(size) - padding);
    return bytes;
}
