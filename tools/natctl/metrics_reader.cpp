#include "tools/natctl/metrics_reader.h"

#include <algorithm>
#include <charconv>

#include "records/misspelt.h"

namespace {

constexpr std::string_view blanks = " \t";

bool is_name_character(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ':';
}

/** Goes along a line. */
class metric_line_t {
public:
    explicit metric_line_t(std::string_view text) : rest_(text) {}

    /** False: it is no metric. */
    bool read(metric_t &metric) {
        metric = {std::string(take_name()), {}, 0};
        const bool has_labels = !metric.name.empty() && take('{');
        while (has_labels && !take('}')) {
            if (!take_label(metric)) return false;
        }
        return !metric.name.empty() && take_value(metric.value);
    }

private:
    bool take(char c) {
        skip_blanks();
        const bool is_there = !rest_.empty() && rest_.front() == c;
        if (is_there) rest_.remove_prefix(1);
        return is_there;
    }
    void skip_blanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size())); }
    std::string_view take_name() {
        skip_blanks();
        size_t size = 0;
        while (size < rest_.size() && is_name_character(rest_[size])) {
            ++size;
        }
        const std::string_view name = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return name;
    }

    /** `name="value",`, the comma only where another follows. */
    bool take_label(metric_t &metric) {
        const std::string name(take_name());
        if (name.empty() || !take('=') || !take('"')) return false;
        std::string value;
        while (!rest_.empty() && rest_.front() != '"') {
            const bool is_escape = rest_.front() == '\\' && rest_.size() > 1;
            if (is_escape) rest_.remove_prefix(1);
            value += is_escape && rest_.front() == 'n' ? '\n' : rest_.front();
            rest_.remove_prefix(1);
        }
        metric.labels[name] = value;
        if (!take('"')) return false;
        skip_blanks();
        return take(',') || (!rest_.empty() && rest_.front() == '}');
    }

    /** A time may follow. */
    bool take_value(double &value) {
        skip_blanks();
        const std::string_view word = rest_.substr(0, rest_.find_first_of(blanks));
        const size_t sign = !word.empty() && word.front() == '+' ? 1 : 0; /* as in `+Inf` */
        const char *end = word.data() + word.size();
        const auto [stop, error] = std::from_chars(word.data() + sign, end, value);
        return error == std::errc() && stop == end;
    }

    std::string_view rest_;
};

}  // namespace

std::string metric_t::label(const std::string &label_name) const {
    const auto found = labels.find(label_name);
    return found == labels.end() ? "" : found->second;
}

std::string read_metrics(std::string_view text, std::vector<metric_t> &metrics) {
    for (size_t line = 1; !text.empty(); ++line) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view words = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (!words.empty() && words.back() == '\r') words.remove_suffix(1);
        const bool says_nothing = words.find_first_not_of(blanks) == std::string_view::npos || words.front() == '#';
        if (says_nothing) continue;
        metric_t metric;
        if (!metric_line_t(words).read(metric)) {
            return "line " + std::to_string(line) + ": " + quoted_word(words) + ": no metric";
        }
        metrics.push_back(std::move(metric));
    }
    return "";
}
