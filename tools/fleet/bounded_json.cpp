#include "tools/fleet/bounded_json.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr size_t most_levels = 16;

bool is_control(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

bool is_flat(std::string_view text) {
    size_t level = 0;
    bool is_within_text = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            is_within_text = !is_within_text;
        } else if (is_within_text) {
            if (c == '\\') ++i;
        } else if (c == '{' || c == '[') {
            if (++level > most_levels) return false;
        } else if ((c == '}' || c == ']') && level > 0) {
            --level;
        }
    }
    return true;
}

}  // namespace

nlohmann::json parse_json(std::string_view text) {
    if (!is_flat(text)) return nlohmann::json(nlohmann::json::value_t::discarded);
    return nlohmann::json::parse(text, nullptr, false);
}

std::string clean_line(std::string_view text, size_t most_bytes) {
    size_t end = std::min(text.size(), most_bytes);
    while (end < text.size() && end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80) {
        --end; /* not within a character */
    }
    std::string line(text.substr(0, end));
    std::replace_if(line.begin(), line.end(), is_control, ' ');
    return line;
}

json_members_t::json_members_t(const nlohmann::json &object) : object_(object) {
    if (!object.is_object()) fail("must be an object");
}

void json_members_t::fail(const std::string &reason) {
    if (fault_.empty()) fault_ = reason;
}

const nlohmann::json *json_members_t::find(const char *name) const {
    const auto at = object_.is_object() ? object_.find(name) : object_.end();
    return at == object_.end() ? nullptr : &*at;
}

uint64_t json_members_t::number(const char *name, uint64_t least, uint64_t most) {
    const nlohmann::json *member = find(name);
    const auto *value = member == nullptr ? nullptr : member->get_ptr<const nlohmann::json::number_unsigned_t *>();
    const bool is_within = value != nullptr && *value >= least && *value <= most;
    if (is_within) return *value;
    fail(std::string(name) + ": must be " + std::to_string(least) + " to " + std::to_string(most));
    return 0;
}

std::string json_members_t::text(const char *name, size_t most_bytes, size_t least_bytes) {
    const nlohmann::json *member = find(name);
    const auto *value = member == nullptr ? nullptr : member->get_ptr<const std::string *>();
    const bool is_good = value != nullptr && value->size() >= least_bytes && value->size() <= most_bytes;
    if (is_good) return *value;
    fail(std::string(name) + ": must be a text of " + std::to_string(least_bytes) + " to " +
         std::to_string(most_bytes) + " bytes");
    return "";
}

std::string json_members_t::line(const char *name, size_t most_bytes) {
    std::string value = text(name, most_bytes);
    if (std::any_of(value.begin(), value.end(), is_control)) fail(std::string(name) + ": must be one line");
    return value;
}

bool json_members_t::flag(const char *name) {
    const nlohmann::json *member = find(name);
    const bool is_flag = member != nullptr && member->is_boolean();
    if (!is_flag) fail(std::string(name) + ": must be true or false");
    return is_flag && member->get<bool>();
}

int64_t json_members_t::int64(const char *name) {
    const nlohmann::json *member = find(name);
    if (member == nullptr) return 0;
    if (member->is_number_integer() && !member->is_number_unsigned()) return member->get<int64_t>();
    const std::string digits = member->is_number_unsigned() ? std::to_string(member->get<uint64_t>())
                               : member->is_string()        ? member->get<std::string>()
                                                            : "";
    int64_t value = 0;
    const char *const end = digits.data() + digits.size();
    const auto [rest, failed] = std::from_chars(digits.data(), end, value);
    const bool is_number = failed == std::errc() && rest == end;
    if (is_number) return value;
    fail(std::string(name) + ": must be a number");
    return 0;
}
