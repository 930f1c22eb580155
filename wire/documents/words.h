/* What stands in the templates of the documents: every WIRE_ word of a template is replaced by its value. */
#ifndef WIRE_DOCUMENTS_WORDS_H
#define WIRE_DOCUMENTS_WORDS_H

#include <map>
#include <string>

#include "wire/messages.h"

using words_t = std::map<std::string, std::string>;

/** `text` with its words replaced. Throws std::runtime_error for a word that has no value. */
std::string filled(const std::string &text, const words_t &words);

/** `value` in hexadecimal, of at least so many digits. */
std::string hex(uint32_t value, int digits = 1);

/** `1 add, 2 modify`. */
std::string value_list(const wire_names_t &names);

/** Sizes and offsets of headers and records, and constants. */
words_t layout_words();
/** Tables of the dissector, as Lua. */
words_t dissector_words();
/** Tables of the protocol page, as Markdown. */
words_t page_words(const words_t &layout);

/** The entries of a table one after the other; `text_of` gives the text of one. */
template <typename entry_t, typename text_of_t>
std::string joined(const entry_t *entries, size_t count, const char *separator, text_of_t text_of) {
    std::string text;
    for (const entry_t *entry = entries; entry != entries + count; ++entry) {
        if (entry != entries) text += separator;
        text += text_of(*entry);
    }
    return text;
}

#endif
