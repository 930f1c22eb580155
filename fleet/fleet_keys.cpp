#include "fleet/fleet_keys.h"

bool is_gateway_name(std::string_view name) {
    constexpr size_t most_bytes = 64;
    constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    return !name.empty() && name.size() <= most_bytes && name.find_first_not_of(allowed) == std::string_view::npos;
}
