/* The WIRE_ words of the document templates, and their values. Printing a template replaces every word by its value. */
#ifndef WIRE_DOCUMENTS_WORDS_H
#define WIRE_DOCUMENTS_WORDS_H

#include <map>
#include <string>

#include "wire/messages.h"

using words_t = std::map<std::string, std::string>;

/** Returns `text` with its words replaced. Throws std::runtime_error for a word without a value. */
std::string filled(const std::string &text, const words_t &words);

/** Returns `value` in hexadecimal, with at least `digits` digits. */
std::string hex(uint32_t value, int digits = 1);

/** Returns the values with their names: `1 add, 2 modify`. */
std::string value_list(const wire_names_t &names);

/** Words for sizes and offsets of headers and records, and for constants. */
words_t layout_words();
/** Words for the tables of the dissector, as Lua. */
words_t dissector_words();
/** Words for the tables of the protocol page, as Markdown. */
words_t page_words(const words_t &layout);

/** Returns the texts of all entries of a table, joined by `separator`; `text_of` gives the text of one entry. */
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
