#include "tools/nat64d/log.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace {

constexpr const char *level_names[] = {"error", "warning", "info"};

bool is_plain(char c) {
    return c > ' ' && c != '"' && c != '=' && c != '\\' && c != 0x7f;
}

std::string value_text(const std::string &value) {
    if (!value.empty() && std::all_of(value.begin(), value.end(), is_plain)) return value;
    return nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

std::string time_text() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char text[64];
    const size_t length = strftime(text, sizeof text, "%FT%T", &utc);
    snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(now.tv_nsec / 1000000));
    return text;
}

void log_event(log_level_t level, std::string_view event, std::initializer_list<log_field_t> fields) {
    std::string line = "time=" + time_text() + " level=" + level_names[static_cast<size_t>(level)] + " event=";
    line += event;
    for (const auto &[key, value] : fields) {
        line.append(" ").append(key).append("=").append(value_text(value));
    }
    line += '\n';
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) return;
}
