/* Splits a line into words, as a shell does with quotes and comments. */
#ifndef RECORDS_WORDS_H
#define RECORDS_WORDS_H

#include <string>
#include <string_view>
#include <vector>

/** Has the words of one line until the next split. Use one object for many lines: it then soon stops allocating. */
class line_words_t {
public:
    /**
     * Splits a line. Blanks separate words; a word with blanks is quoted with ' or ". A word that begins with `#`
     * starts a comment, which extends to the end of the line.
     * @return 0, or the quote character that is not closed.
     */
    char split(std::string_view line);
    const std::vector<std::string_view> &words() const { return words_; }

private:
    char split_quoted(std::string_view line);

    std::string text_; /* the words without quotes; words_ points into it */
    std::vector<std::string_view> words_;
};

#endif
