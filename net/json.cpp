/* JSON values, their writer, and the checks of input from outside. Only this file includes the parser. */
#include "net/json.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

namespace {

constexpr size_t most_levels = 16;
constexpr size_t most_members = 256; /* each name is compared with all others of its object */

bool is_ascii(char c) {
    return c >= ' ' && c <= '~';
}

struct character_t {
    uint32_t code;
    size_t bytes; /* 0: no character of UTF-8 */
};

/** The first character of a text. Requires: the text is not empty. */
character_t first_of(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) return {lead, 1};
    const size_t bytes = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || text.size() < bytes) return {0, 0};
    uint32_t code = lead & (0x7fU >> bytes);
    for (size_t i = 1; i < bytes; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xc0U) != 0x80) return {0, 0};
        code = code << 6U | (next & 0x3fU);
    }
    constexpr uint32_t least_of[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = code >= 0xd800 && code <= 0xdfff;
    return code < least_of[bytes] || code > 0x10ffff || is_surrogate ? character_t{0, 0} : character_t{code, bytes};
}

/** True if a character could have an effect on a terminal other than being displayed. */
bool is_control(uint32_t code) {
    const bool is_c0_or_c1 = code < ' ' || (code >= 0x7f && code <= 0x9f);
    const bool turns_direction = code == 0x61c || code == 0x200e || code == 0x200f ||
                                 (code >= 0x202a && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
    return is_c0_or_c1 || turns_direction || code == 0x2028 || code == 0x2029;
}

std::string clean(std::string_view text, std::string_view kept) {
    if (std::all_of(text.begin(), text.end(), is_ascii)) return std::string(text);
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const auto [code, bytes] = first_of(text);
        const bool is_kept = kept.find(text[0]) != std::string_view::npos;
        if (bytes == 0) {
            shown += '?';
        } else if (is_control(code) && !is_kept) {
            shown += ' ';
        } else {
            shown.append(text, 0, bytes);
        }
        text.remove_prefix(std::max<size_t>(bytes, 1));
    }
    return shown;
}

/** True if a text nests no deeper than most_levels, and no object has more than most_members. Checked before parsing,
 * because value_of is recursive, and the parser takes quadratic time for the members of an object. */
bool is_small(std::string_view text) {
    size_t level = 0;
    size_t members[most_levels + 1] = {}; /* by level */
    bool is_within_text = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            is_within_text = !is_within_text;
        } else if (is_within_text) {
            if (c == '\\') ++i;
        } else if (c == '{' || c == '[') {
            if (++level > most_levels) return false;
            members[level] = 0;
        } else if (c == ':') {
            if (++members[level] > most_members) return false;
        } else if ((c == '}' || c == ']') && level > 0) {
            --level;
        }
    }
    return true;
}

/** True if JSON needs no escapes for the text and no byte has to be replaced. */
bool is_plain(const std::string &text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return is_ascii(c) && c != '"' && c != '\\'; });
}

void write_text(const std::string &text, std::string &out) {
    if (is_plain(text)) {
        out.append("\"").append(text).append("\"");
    } else {
        const std::string dumped = nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        for (std::string_view rest = dumped; !rest.empty();) {
            const auto [code, bytes] = first_of(rest);
            if (is_control(code)) {
                char escaped[8];
                out.append(escaped, static_cast<size_t>(std::snprintf(escaped, sizeof escaped, "\\u%04x", code)));
            } else {
                out.append(rest, 0, bytes);
            }
            rest.remove_prefix(bytes);
        }
    }
}

json_t value_of(const nlohmann::ordered_json &read) {
    switch (read.type()) {
        case nlohmann::json::value_t::boolean:
            return read.get<bool>();
        case nlohmann::json::value_t::number_integer:
            return read.get<int64_t>();
        case nlohmann::json::value_t::number_unsigned:
            return read.get<uint64_t>();
        case nlohmann::json::value_t::number_float:
            return read.get<double>();
        case nlohmann::json::value_t::string:
            return read.get_ref<const std::string &>();
        case nlohmann::json::value_t::array: {
            json_t array = json_t::array();
            for (const nlohmann::ordered_json &element : read) {
                array.push_back(value_of(element));
            }
            return array;
        }
        case nlohmann::json::value_t::object: {
            json_t object = json_t::object();
            for (const auto &[name, value] : read.items()) {
                object[name] = value_of(value);
            }
            return object;
        }
        default:
            return nullptr;
    }
}

bool is_member(const json_t &element) {
    return element.is_array() && element.size() == 2 && element[size_t{0}].is_string();
}

}  // namespace

json_t::json_t(std::string text) : kind_(kind_t::text), branches_(new branches_t{std::move(text), {}, {}}) {}

json_t::json_t(std::initializer_list<json_t> elements) {
    if (!std::all_of(elements.begin(), elements.end(), is_member)) {
        *this = array(elements);
        return;
    }
    *this = object();
    for (const json_t &member : elements) {
        (*this)[member[size_t{0}].text()] = member[size_t{1}];
    }
}

json_t::json_t(const json_t &other)
    : kind_(other.kind_),
      bits_(other.bits_),
      branches_(other.branches_ == nullptr ? nullptr : new branches_t(*other.branches_)) {}

json_t &json_t::operator=(const json_t &other) {
    if (this != &other) *this = json_t(other);
    return *this;
}

json_t json_t::array(std::initializer_list<json_t> elements) {
    json_t made;
    made.kind_ = kind_t::array;
    made.branches().values = elements;
    return made;
}

json_t json_t::object() {
    json_t made;
    made.kind_ = kind_t::object;
    made.branches();
    return made;
}

void json_t::set_real(double value) {
    kind_ = kind_t::real;
    std::memcpy(&bits_, &value, sizeof value);
}

double json_t::real() const {
    double value = static_cast<double>(bits_);
    if (kind_ == kind_t::real) std::memcpy(&value, &bits_, sizeof value);
    return value;
}

json_t::branches_t &json_t::branches() {
    if (branches_ == nullptr) branches_ = std::make_unique<branches_t>();
    return *branches_;
}

const json_t::branches_t &json_t::read_branches() const {
    static const branches_t none;
    return branches_ == nullptr ? none : *branches_;
}
const std::string &json_t::text() const {
    return read_branches().text;
}
const std::vector<std::string> &json_t::names() const {
    return read_branches().names;
}
const std::vector<json_t> &json_t::values() const {
    return read_branches().values;
}
std::vector<json_t> &json_t::elements() {
    return branches().values;
}

size_t json_t::size() const {
    return is_array() || is_object() ? values().size() : is_null() ? 0 : 1;
}

const json_t *json_t::find(std::string_view name) const {
    const auto at = std::find(names().begin(), names().end(), name);
    return at == names().end() ? nullptr : &values()[static_cast<size_t>(at - names().begin())];
}

const json_t &json_t::operator[](std::string_view name) const {
    static const json_t none;
    const json_t *member = find(name);
    return member == nullptr ? none : *member;
}

json_t &json_t::operator[](std::string_view name) {
    if (const json_t *member = find(name)) return const_cast<json_t &>(*member);
    if (!is_object()) *this = object();
    branches().names.emplace_back(name);
    return branches().values.emplace_back();
}

void json_t::push_back(json_t value) {
    if (!is_array()) *this = array();
    branches().values.push_back(std::move(value));
}

void json_t::erase(std::string_view name) {
    const json_t *member = find(name);
    if (member == nullptr) return;
    const auto index = member - values().data();
    branches().names.erase(branches().names.begin() + index);
    branches().values.erase(branches().values.begin() + index);
}

void json_t::update(const json_t &object) {
    for (const auto &[name, value] : object.items()) {
        (*this)[name] = value;
    }
}

bool json_t::operator==(const json_t &other) const {
    if (kind_ != other.kind_ || bits_ != other.bits_) return false;
    if (branches_ == nullptr || other.branches_ == nullptr) return branches_ == other.branches_;
    return branches_->text == other.branches_->text && branches_->names == other.branches_->names &&
           branches_->values == other.branches_->values;
}

std::string json_t::dump() const {
    std::string out;
    write(out);
    return out;
}

void json_t::write(std::string &out) const {
    switch (kind_) {
        case kind_t::null:
            out += "null";
            return;
        case kind_t::boolean:
            out += bits_ != 0 ? "true" : "false";
            return;
        case kind_t::integer:
            out += std::to_string(static_cast<int64_t>(bits_));
            return;
        case kind_t::number:
            out += std::to_string(bits_);
            return;
        case kind_t::real:
            out += nlohmann::json(real()).dump();
            return;
        case kind_t::text:
            return write_text(text(), out);
        case kind_t::array:
        case kind_t::object:
            break;
    }
    out += is_array() ? '[' : '{';
    for (size_t i = 0; i < values().size(); ++i) {
        if (i != 0) out += ',';
        if (is_object()) {
            write_text(names()[i], out);
            out += ':';
        }
        values()[i].write(out);
    }
    out += is_array() ? ']' : '}';
}

json_t json_t::parse(std::string_view text) {
    if (!is_small(text)) return nullptr;
    const auto read = nlohmann::ordered_json::parse(text, nullptr, false);
    return read.is_discarded() ? json_t() : value_of(read);
}

std::string clean_line(std::string_view text, size_t most_bytes) {
    size_t end = std::min(text.size(), most_bytes);
    while (end < text.size() && end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80) {
        --end; /* do not cut within a character */
    }
    return clean(text.substr(0, end), "");
}

std::string clean_text(std::string_view text) {
    return clean(text, "\n\t");
}

json_members_t::json_members_t(const json_t &object) : object_(object) {
    if (!object.is_object()) fail("must be an object");
}

void json_members_t::fail(const std::string &reason) {
    if (fault_.empty()) fault_ = reason;
}

uint64_t json_members_t::number(const char *name, uint64_t least, uint64_t most) {
    const json_t *member = find(name);
    const bool is_number = member != nullptr && member->is_number();
    const uint64_t value = is_number ? member->get<uint64_t>() : 0;
    if (is_number && value >= least && value <= most) return value;
    fail(std::string(name) + ": must be " + std::to_string(least) + " to " + std::to_string(most));
    return 0;
}

std::string json_members_t::text(const char *name, size_t most_bytes, size_t least_bytes) {
    const json_t *member = find(name);
    const bool is_text = member != nullptr && member->is_string();
    std::string value = is_text ? member->get<std::string>() : "";
    if (is_text && value.size() >= least_bytes && value.size() <= most_bytes) return value;
    fail(std::string(name) + ": must be a text of " + std::to_string(least_bytes) + " to " +
         std::to_string(most_bytes) + " bytes");
    return "";
}

std::string json_members_t::line(const char *name, size_t most_bytes) {
    std::string value = text(name, most_bytes);
    if (clean_line(value) != value) fail(std::string(name) + ": must be one line");
    return value;
}

bool json_members_t::flag(const char *name) {
    const json_t *member = find(name);
    const bool is_flag = member != nullptr && member->is_boolean();
    if (!is_flag) fail(std::string(name) + ": must be true or false");
    return is_flag && member->get<bool>();
}

int64_t json_members_t::int64(const char *name) {
    const json_t *member = find(name);
    if (member == nullptr) return 0;
    if (member->is_integer()) return member->get<int64_t>();
    const std::string digits = member->is_number()   ? std::to_string(member->get<uint64_t>())
                               : member->is_string() ? member->get<std::string>()
                                                     : "";
    int64_t value = 0;
    const char *const end = digits.data() + digits.size();
    const auto [rest, failed] = std::from_chars(digits.data(), end, value);
    const bool is_number = failed == std::errc() && rest == end;
    if (is_number) return value;
    fail(std::string(name) + ": must be a number");
    return 0;
}
