/* Commands as lines of a batch or of the shell: without the options of natctl itself. */
#ifndef TOOLS_NATCTL_LINE_PARSER_H
#define TOOLS_NATCTL_LINE_PARSER_H

#include <optional>
#include <string_view>

#include "records/reader.h"
#include "records/words.h"
#include "tools/natctl/grammar.h"

/** Configuration is read by the table of records alone, which is what makes long files short work. */
class line_parser_t {
public:
    /** The command of a line, to be started before the next line is parsed; none for an empty one. Throws as
     * grammar_t's parse. */
    std::optional<command_t> parse(std::string_view line);
    const command_spec_t &root() const { return root_; }

private:
    line_words_t words_;
    record_reader_t reader_{"show"};
    command_spec_t root_;
    grammar_t grammar_{root_};
};

#endif
