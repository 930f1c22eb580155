/* Parses a line of a batch or of the shell, which has no options of natctl itself. */
#ifndef TOOLS_NATCTL_LINE_PARSER_H
#define TOOLS_NATCTL_LINE_PARSER_H

#include <optional>
#include <string_view>

#include "records/reader.h"
#include "records/words.h"
#include "tools/natctl/grammar.h"

/** Configuration lines are parsed by the table of records, without the grammar, so that long files are fast. */
class line_parser_t {
public:
    /** The command of a line; none for an empty one. Start it before parsing the next line. Throws like
     * grammar_t::parse. */
    std::optional<command_t> parse(std::string_view line);
    const command_spec_t &root() const { return root_; }

private:
    line_words_t words_;
    record_reader_t reader_{show_verb};
    command_spec_t root_;
    grammar_t grammar_{root_};
};

#endif
