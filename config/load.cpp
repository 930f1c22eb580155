#include "config/load.h"

#include <algorithm>

#include "config/check.h"
#include "config/notation.h"

namespace {

constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";

notation_t notation_of(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    const bool is_json = first != std::string_view::npos && (text[first] == '{' || text[first] == '[');
    return is_json ? notation_t::json : notation_t::lines;
}

}  // namespace

document_t load_document(std::string_view text, problems_t &problems) {
    document_t document;
    problems_t found;
    if (text.substr(0, byte_order_mark.size()) == byte_order_mark) text.remove_prefix(byte_order_mark.size());
    const size_t zero = text.find('\0');
    if (zero != std::string_view::npos) {
        const auto line = 1 + std::count(text.data(), text.data() + zero, '\n');
        problems.push_back(
            {problem_t::kind_t::error, static_cast<uint32_t>(line), {}, {}, "zero byte: a document must be text"});
        return document;
    }
    const notation_t notation = notation_of(text);
    const auto read = notation == notation_t::json ? read_json : read_lines;
    if (read(text, document, found)) {
        document.settle(notation, found);
        check_document(document, notation, found);
    }
    sort_by_line(found);
    problems.insert(problems.end(), found.begin(), found.end());
    return document;
}

document_t load_written(std::string_view text, problems_t &problems) {
    document_t document;
    if (read_lines(text, document, problems)) document.settle(notation_t::lines, problems);
    return document;
}
