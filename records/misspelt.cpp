/* Finds the known word that a user may have meant, by edit distance, and cuts long words for messages. */
#include "records/misspelt.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr size_t longest_quote = 60;

/** The Damerau-Levenshtein distance in its restricted form: insertions, deletions, substitutions, and swaps of two
 * adjacent characters. */
size_t distance(std::string_view from, std::string_view to) {
    std::vector<size_t> before_last(to.size() + 1);
    std::vector<size_t> last(to.size() + 1);
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 1; i <= from.size(); ++i) {
        before_last.swap(last);
        last.swap(row);
        row[0] = i;
        for (size_t j = 1; j <= to.size(); ++j) {
            row[j] = std::min({last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1), last[j] + 1, row[j - 1] + 1});
            const bool is_swapped = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
            if (is_swapped) row[j] = std::min(row[j], before_last[j - 2] + 1);
        }
    }
    return row.back();
}

/** The known word with the smallest distance, or an empty one if all are too different. Of words with the same distance
 * it prefers one of the same length, then the first. */
std::string_view nearest(std::string_view word, const std::vector<std::string_view> &known) {
    std::string_view found;
    if (word.size() > longest_quote) return found;
    size_t least = std::max<size_t>(word.size() / 3, 1) + 1;
    for (const std::string_view candidate : known) {
        const size_t differences = distance(word, candidate);
        const bool is_as_long = candidate.size() == word.size() && found.size() != word.size();
        const bool is_nearer = differences < least || (differences == least && !found.empty() && is_as_long);
        if (is_nearer) {
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
