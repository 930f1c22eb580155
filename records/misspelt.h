/* Error texts for unknown words, with a suggestion where a known word is similar. */
#ifndef RECORDS_MISSPELT_H
#define RECORDS_MISSPELT_H

#include <string>
#include <string_view>
#include <vector>

/** A word of the user for an error message. A word of more than 60 bytes is cut, at the end of a UTF-8 character. */
std::string quoted_word(std::string_view word);

/** `--tpye: did you mean --type?` if one of the known words is similar, else `--tpye: ` and `otherwise`. */
std::string wrong_word_text(std::string_view word, const std::vector<std::string_view> &known,
                            const std::string &otherwise);

#endif
