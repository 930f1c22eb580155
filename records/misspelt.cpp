#include "records/misspelt.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr size_t longest_quote = 60;

/** How many characters must come, go or change to make one word of the other. */
size_t distance(std::string_view from, std::string_view to) {
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

/** The first of the words that differ least, or an empty one when all differ much. */
std::string_view nearest(std::string_view word, const std::vector<std::string_view> &known) {
    std::string_view found;
    if (word.size() > longest_quote) return found;
    size_t least = std::max<size_t>(word.size() / 3, 1) + 1;
    for (const std::string_view candidate : known) {
        const size_t differences = distance(word, candidate);
        if (differences < least) {
            least = differences;
            found = candidate;
        }
    }
    return found;
}

}  // namespace

std::string quoted_word(std::string_view word) {
    if (word.empty()) return "''";
    if (word.size() <= longest_quote) return std::string(word);
    size_t end = longest_quote;
    auto is_inside_character = [word](size_t at) { return (static_cast<unsigned char>(word[at]) & 0xc0U) == 0x80; };
    while (end > 0 && is_inside_character(end)) {
        --end;
    }
    return std::string(word.substr(0, end)) + "...";
}

std::string wrong_word_text(std::string_view word, const std::vector<std::string_view> &known,
                            const std::string &otherwise) {
    const std::string_view meant = nearest(word.substr(0, word.find('=')), known);
    const std::string text = quoted_word(word) + ": ";
    return meant.empty() ? text + otherwise : text + "did you mean " + std::string(meant) + "?";
}
