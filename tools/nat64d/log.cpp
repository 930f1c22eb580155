#include "tools/nat64d/log.h"

#include <unistd.h>

#include <algorithm>

#include "net/json.h"
#include "state/time_text.h"

namespace {

constexpr const char *level_names[] = {"error", "warning", "info"};

bool is_plain(char c) {
    return c > ' ' && c != '"' && c != '=' && c != '\\' && c != 0x7f;
}

std::string value_text(const std::string &value) {
    if (!value.empty() && std::all_of(value.begin(), value.end(), is_plain)) return value;
    return json_t(value).dump();
}

}  // namespace

void log_event(log_level_t level, std::string_view event, std::initializer_list<log_field_t> fields) {
    std::string line = "time=" + time_text() + " level=" + level_names[static_cast<size_t>(level)] + " event=";
    line += event;
    for (const auto &[key, value] : fields) {
        line.append(" ").append(key).append("=").append(value_text(value));
    }
    line += '\n';
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) return;
}
