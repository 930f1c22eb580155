/* Joins lines of a file: a backslash at the end of a line joins the next line to it. */
#ifndef TOOLS_NATCTL_LINE_JOINER_H
#define TOOLS_NATCTL_LINE_JOINER_H

#include <cstdint>
#include <string>

/** True if a line has more than blanks and a comment. */
bool has_command(const std::string &line);

class line_joiner_t {
public:
    /** Takes the next line. True: `text` is now the complete joined line. False: the line continues. */
    bool join(std::string &text);
    /** The incomplete line at the end of the input, or an empty text. */
    const std::string &rest() const { return begun_; }
    /** The number, from 1, of the line at which the latest joined line began. */
    uint32_t line() const { return line_; }
    /** Lines taken so far. */
    uint32_t count() const { return count_; }

private:
    std::string begun_;
    uint32_t count_ = 0;
    uint32_t line_ = 0;
};

#endif
