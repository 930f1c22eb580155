/* Parses documents in lines (config/notation.h), one line at a time, and reports the errors of all lines. */
#include <algorithm>
#include <vector>

#include "config/notation.h"
#include "config/text_lines.h"
#include "records/families.h"
#include "records/misspelt.h"
#include "records/reader.h"
#include "records/words.h"

namespace {

class line_reader_t {
public:
    line_reader_t(document_t &document, problems_t &problems) : document_(document), problems_(problems) {}

    void take(std::string_view line, uint32_t number) {
        number_ = number;
        const char open_quote = words_.split(line);
        if (open_quote != 0) return refuse({}, {}, std::string(1, open_quote) + ": quote without its end");
        if (words_.words().empty()) return take_comment(line);
        is_empty_ = false;
        switch (reader_.read(words_.words())) {
            case record_reader_t::result_t::record:
                return take_record();
            case record_reader_t::result_t::refused:
                for (const record_error_t &error : reader_.errors()) {
                    refuse(reader_.command(), error.field, error.text);
                }
                return;
            case record_reader_t::result_t::other:
                return refuse({}, {}, strange_text());
        }
    }

    /** To be called after the last line. False if the text is not a document of this version. */
    bool end() {
        if (!version_error_.reason.empty()) {
            problems_ = {version_error_}; /* other errors mean nothing in an unknown version */
            return false;
        }
        number_ = 0;
        if (is_empty_) {
            refuse({}, {},
                   "neither a command nor `" + std::string(version_mark) + std::to_string(document_version) +
                       "`: this is not a document");
        }
        return !is_empty_;
    }

private:
    void take_record() {
        if (reader_.verb().op == FWX_NAT64_OP_ADD) {
            document_.add(reader_.family(), reader_.record().bytes, number_);
            return;
        }
        refuse(reader_.command(), {},
               "a document describes a state: must be " + label_of(reader_.family(), notation_t::lines));
    }

    void take_comment(std::string_view line) {
        const size_t start = std::min(line.find_first_not_of(" \t\r"), line.size());
        line.remove_prefix(start);
        if (line.substr(0, version_mark.size()) != version_mark) return;
        line.remove_prefix(version_mark.size());
        const std::string_view version = line.substr(0, line.find_last_not_of(" \t\r") + 1);
        is_empty_ = false;
        const std::string known = std::to_string(document_version);
        if (version == known || !version_error_.reason.empty()) return;
        version_error_ = {
            problem_t::kind_t::error, number_, {}, "version", "version " + quoted_word(version) + ": must be " + known};
    }

    /** The error for a line that is not a configuration command, or has options that only natctl's own parser knows. */
    std::string strange_text() const {
        const std::vector<std::string_view> &words = words_.words();
        std::string begun(words.front());
        if (is_group(begun) && words.size() > 1) begun.append(" ").append(words[1]);
        const bool is_family = record_find_family(begun) != nullptr;
        return is_family ? begun + ": --help, -- and ++ are not allowed in a document" : wrong_family_text(begun);
    }

    static bool is_group(std::string_view word) {
        size_t count = 0;
        const record_family_t *families = record_families(&count);
        return std::any_of(families, families + count,
                           [word](const record_family_t &family) { return family.group == word; });
    }

    void refuse(std::string command, std::string field, std::string reason) {
        problems_.push_back(
            {problem_t::kind_t::error, number_, std::move(command), std::move(field), std::move(reason)});
    }

    document_t &document_;
    problems_t &problems_;
    line_words_t words_;
    record_reader_t reader_;
    uint32_t number_ = 0;
    bool is_empty_ = true;
    problem_t version_error_{};
};

}  // namespace

bool read_lines(std::string_view text, document_t &document, problems_t &problems) {
    line_reader_t reader(document, problems);
    text_lines_t lines(text);
    while (lines.next()) {
        reader.take(lines.line(), lines.number());
    }
    return reader.end();
}
