#include "records/words.h"

char line_words_t::split(std::string_view line) {
    words_.clear();
    text_.resize(line.size()); /* words are no longer than what they were read from: they never move */
    char *word = text_.data();
    char *end = word;
    bool is_in_word = false;
    char quote = 0;
    for (const char c : line) {
        const bool is_blank = c == ' ' || c == '\t' || c == '\r';
        if (quote == 0 && !is_in_word && c == '#') break;
        if (quote == 0 && is_blank) {
            if (is_in_word) words_.emplace_back(word, end - word);
            is_in_word = false;
            continue;
        }
        if (!is_in_word) word = end;
        is_in_word = true;
        const bool is_quote_mark = quote == 0 ? c == '\'' || c == '"' : c == quote;
        if (is_quote_mark) {
            quote = quote == 0 ? c : '\0';
        } else {
            *end++ = c;
        }
    }
    if (is_in_word) words_.emplace_back(word, end - word);
    return quote;
}
