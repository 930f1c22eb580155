/* Splits a text in memory into lines. A line that ends with a backslash is joined with the next one. */
#ifndef CONFIG_TEXT_LINES_H
#define CONFIG_TEXT_LINES_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

/** Iterates over the lines of a text. */
class text_lines_t {
public:
    /** The text must outlive this object. */
    explicit text_lines_t(std::string_view text) : rest_(text) {}

    /** Moves to the next line. False at the end. */
    bool next() {
        if (rest_.empty()) return false;
        joined_.clear();
        number_ = count_ + 1;
        bool is_begun = false;
        for (line_ = take(); goes_on(line_, is_begun); line_ = take()) {
            joined_.append(line_, 0, line_.find_last_of('\\'));
            is_begun = true;
            if (!rest_.empty()) continue;
            line_ = {};
            break;
        }
        if (is_begun) line_ = joined_.append(line_);
        return true;
    }
    /** The current line, valid until the next call of `next`. */
    std::string_view line() const { return line_; }
    /** Number of the current line in the text, from 1. A joined line has the number of its first part. */
    uint32_t number() const { return number_; }

    /** True if a line ends with a backslash and is joined with the next one. `is_begun`: the line continues a line
     * itself. A comment is never joined, unless it continues a line. */
    static bool goes_on(std::string_view line, bool is_begun) {
        const size_t last = line.find_last_not_of('\r');
        const bool has_mark = last != std::string_view::npos && line[last] == '\\';
        return has_mark && (is_begun || line[line.find_first_not_of(" \t\r")] != '#');
    }

private:
    std::string_view take() {
        const std::string_view line = rest_.substr(0, rest_.find('\n'));
        rest_.remove_prefix(std::min(line.size() + 1, rest_.size()));
        ++count_;
        return line;
    }

    std::string_view rest_;
    std::string_view line_;
    std::string joined_;
    uint32_t count_ = 0;
    uint32_t number_ = 0;
};

#endif
