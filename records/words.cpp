#include "records/words.h"

#include <algorithm>

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

}  // namespace

char line_words_t::split(std::string_view line) {
    words_.clear();
    const bool has_quotes = line.find('"') != std::string_view::npos || line.find('\'') != std::string_view::npos;
    if (has_quotes) return split_quoted(line);
    text_.assign(line);
    const char *end = text_.data() + text_.size();
    for (const char *word = text_.data();;) {
        word = std::find_if_not(word, end, is_blank);
        if (word == end || *word == '#') return 0;
        const char *begin = word;
        word = std::find_if(word, end, is_blank);
        words_.emplace_back(begin, static_cast<size_t>(word - begin));
    }
}

char line_words_t::split_quoted(std::string_view line) {
    text_.resize(line.size()); /* large enough for all words, so text_ does not move */
    char *word = text_.data();
    char *end = word;
    bool is_in_word = false;
    char quote = 0;
    for (const char c : line) {
        if (quote == 0 && !is_in_word && c == '#') break;
        if (quote == 0 && is_blank(c)) {
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
