/* Puts the lines of a file together: one that ends with a backslash goes on with the next. */
#ifndef TOOLS_NATCTL_LINE_JOINER_H
#define TOOLS_NATCTL_LINE_JOINER_H

#include <cstdint>
#include <string>

/** Whether a line is more than blanks and a comment. */
bool has_command(const std::string &line);

class line_joiner_t {
public:
    /** Takes the next line that was read; false when it goes on, otherwise `text` is all of it. */
    bool join(std::string &text);
    /** What was begun and never ended, or an empty text. */
    const std::string &rest() const { return begun_; }
    /** The number, from 1, of the line in which the latest text began. */
    uint32_t line() const { return line_; }
    /** Lines taken so far. */
    uint32_t count() const { return count_; }

private:
    std::string begun_;
    uint32_t count_ = 0;
    uint32_t line_ = 0;
};

#endif
