#include "tools/natctl/line_joiner.h"

#include <string_view>
#include <utility>

#include "config/text_lines.h"

namespace {

constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";

}  // namespace

bool has_command(const std::string &line) {
    size_t start = line.find_first_not_of(" \t\r");
    return start != std::string::npos && line[start] != '#';
}

bool line_joiner_t::join(std::string &text) {
    const bool has_mark = ++count_ == 1 && text.compare(0, byte_order_mark.size(), byte_order_mark) == 0;
    if (has_mark) text.erase(0, byte_order_mark.size());
    const bool is_begun = !begun_.empty();
    if (!is_begun) line_ = count_;
    const bool goes_on = text_lines_t::goes_on(text, is_begun);
    if (goes_on) {
        begun_.append(text, 0, text.find_last_of('\\'));
    } else if (is_begun) {
        text = std::exchange(begun_, {}) + text;
    }
    return !goes_on;
}
