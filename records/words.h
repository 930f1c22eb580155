/* The words of a line. */
#ifndef RECORDS_WORDS_H
#define RECORDS_WORDS_H

#include <string>
#include <string_view>
#include <vector>

/** Keeps the words of one line until the next; made once and used for many lines, it stops allocating. */
class line_words_t {
public:
    /**
     * Takes a line apart: words are separated by blanks, quoted with ' or " where they hold any, and end at a `#` that
     * begins a word. Returns 0, or the quote that has no end.
     */
    char split(std::string_view line);
    const std::vector<std::string_view> &words() const { return words_; }

private:
    char split_quoted(std::string_view line);

    std::string text_; /* the words behind each other, without their quotes */
    std::vector<std::string_view> words_;
};

#endif
