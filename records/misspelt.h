/* What is said of words that are wrong. */
#ifndef RECORDS_MISSPELT_H
#define RECORDS_MISSPELT_H

#include <string>
#include <string_view>
#include <vector>

/** A word of the user as an error quotes it: a long one is cut. */
std::string quoted_word(std::string_view word);

/** `--tpye: did you mean --type?` if one of the words is nearly the same, else `--tpye: ` and `otherwise`. */
std::string wrong_word_text(std::string_view word, const std::vector<std::string_view> &known,
                            const std::string &otherwise);

#endif
