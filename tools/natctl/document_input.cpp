#include "tools/natctl/document_input.h"

#include <algorithm>
#include <iostream>
#include <optional>

#include "config/load.h"

std::string read_text(const std::string &file, std::string &text, size_t most) {
    std::string error;
    std::optional<std::string> read =
        file == "-" ? read_stream(std::cin, "standard input", error, most) : read_file(file, error, most);
    if (read) text = std::move(*read);
    return error;
}

bool judge(call_t &call, const std::string &file, const problems_t &problems) {
    for (const problem_t &problem : problems) {
        call.pal.note("natctl: " + file + ": " + problem.text());
    }
    const auto count =
        std::count_if(problems.begin(), problems.end(), [](const problem_t &problem) { return problem.is_error(); });
    if (count == 0) return true;
    refuse(call.outcome, status_t::usage, 0, file + ": " + count_text(static_cast<uint64_t>(count), "error"));
    return false;
}

bool read_document(call_t &call, const std::string &file, document_t &document, problems_t &problems) {
    std::string text;
    const std::string error = read_text(file, text);
    if (!error.empty()) {
        refuse(call.outcome, status_t::usage, 0, error);
        return false;
    }
    document = load_document(text, problems);
    return judge(call, file, problems);
}

json_t problems_json(const problems_t &problems) {
    json_t list = json_t::array();
    for (const problem_t &problem : problems) {
        list.push_back({{"kind", problem.is_error() ? "error" : "warning"},
                        {"line", problem.line},
                        {"command", problem.command},
                        {"field", problem.field},
                        {"reason", problem.reason}});
    }
    return list;
}
