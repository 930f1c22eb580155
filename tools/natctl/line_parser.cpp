#include "tools/natctl/line_parser.h"

std::optional<command_t> line_parser_t::parse(std::string_view line) {
    const char open_quote = words_.split(line);
    if (open_quote != 0) throw usage_error_t{"", open_quote + std::string(": quote without its end")};
    const std::vector<std::string_view> &words = words_.words();
    if (words.empty()) return std::nullopt;
    switch (reader_.read(words)) {
        case record_reader_t::result_t::record:
            return command_t{reader_.command(), [this](call_t &call) {
                                 return call.pal.send(call, reader_.family(), reader_.verb().op,
                                                      reader_.record().bytes);
                             }};
        case record_reader_t::result_t::refused:
            throw usage_error_t{reader_.command(), reader_.error()};
        case record_reader_t::result_t::other:
            break;
    }
    return grammar_.parse({words.begin(), words.end()});
}
