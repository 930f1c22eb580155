#include "tools/nat64d/log.h"

#include <algorithm>
#include <cstdlib>

#include "net/json.h"
#include "net/log_writer.h"
#include "state/time_text.h"

namespace {

struct level_t {
    const char *name;
    const char *journal_prefix; /* systemd's journal reads the priority from it */
};
constexpr level_t levels[] = {{"error", "<3>"}, {"warning", "<4>"}, {"info", "<6>"}};

bool is_plain(char c) {
    return c > ' ' && c <= '~' && c != '"' && c != '=' && c != '\\';
}

std::string value_text(const std::string &value) {
    if (!value.empty() && std::all_of(value.begin(), value.end(), is_plain)) return value;
    return json_t(value).dump();
}

std::string head_of(log_level_t level, std::string_view event) {
    static const bool is_for_journal = std::getenv("JOURNAL_STREAM") != nullptr;
    const level_t &of = levels[static_cast<size_t>(level)];
    return (is_for_journal ? of.journal_prefix : "") + ("time=" + time_text()) + " level=" + of.name +
           " event=" + std::string(event);
}

std::string left_out_text(uint64_t count) {
    return head_of(log_level_t::warning, "lines_left_out") + " lines=" + std::to_string(count);
}

}  // namespace

void log_event(log_level_t level, std::string_view event, std::initializer_list<log_field_t> fields) {
    static log_writer_t writer(left_out_text);
    std::string line = head_of(level, event);
    for (const auto &[key, value] : fields) {
        line.append(" ").append(key).append("=").append(value_text(value));
    }
    writer.write(event.data(), std::move(line));
}
