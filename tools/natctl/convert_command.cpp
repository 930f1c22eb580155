/* `natctl convert`: converts documents to the standard data models for NAT and back (config/ietf.h). */

#include "config/ietf.h"
#include "config/notation.h"
#include "tools/natctl/document_input.h"
#include "tools/natctl/grammar.h"

namespace {

struct conversion_t {
    std::string file = "-";
    uint32_t reads = 0;  /* not 0: reads the standard form */
    uint32_t writes = 0; /* not 0: writes the standard form */
    bool is_lossy = false;
    bool is_json = false;
};

/** Answers with the converted text, or with the problems. */
void answer(call_t &call, std::string text, const problems_t &problems) {
    if (has_error(problems)) {
        call.outcome.data = {{"problems", problems_json(problems)}};
        return;
    }
    if (call.pal.options().format != format_t::text) call.outcome.data = json_t::parse(text);
    call.outcome.text = std::move(text);
}

void read_standard(call_t &call, const conversion_t &request, ietf_loss_t loss) {
    std::string text;
    const std::string error = read_text(request.file, text, ietf_max_bytes);
    if (!error.empty()) return refuse(call.outcome, status_t::usage, 0, error);
    problems_t problems;
    const document_t document = read_ietf(text, loss, problems);
    judge(call, request.file, problems);
    const bool is_json = request.is_json || call.pal.options().format != format_t::text;
    answer(call, is_json ? write_json(document) : write_lines(document), problems);
}

void write_standard(call_t &call, const conversion_t &request, ietf_loss_t loss) {
    document_t document;
    problems_t problems;
    if (!read_document(call, request.file, document, problems)) {
        call.outcome.data = {{"problems", problems_json(problems)}};
        return;
    }
    problems.clear(); /* only warnings, which have been shown */
    std::string text = write_ietf(document, loss, problems);
    judge(call, request.file, problems);
    answer(call, std::move(text), problems);
}

uint32_t convert(call_t &call, const conversion_t &request) {
    const ietf_loss_t loss = request.is_lossy ? ietf_loss_t::warned : ietf_loss_t::refused;
    if (request.reads != 0) {
        read_standard(call, request, loss);
    } else if (request.writes != 0) {
        write_standard(call, request, loss);
    } else {
        refuse(call.outcome, status_t::usage, 0, "needs --from ietf-nat or --to ietf-nat");
    }
    return 0;
}

}  // namespace

void add_convert_command(grammar_t &grammar) {
    auto request = grammar.record<conversion_t>();
    command_spec_t &app = grammar.local("convert", "Converts a document from or to the standard form (RFC 8512)",
                                        [request](call_t &call) { return convert(call, *request); });
    const std::vector<choice_t> forms = {{"ietf-nat", 1}};
    const option_spec_t &from =
        choice_field(app, "--from", request->reads, forms, "converts from this form to a document");
    choice_field(app, "--to", request->writes, forms, "converts a document to this form").excludes(from);
    word_field(app, "file", request->file, "the file to convert, by default or with - standard input", "FILE");
    flag_field(app, "--lossy", request->is_lossy,
               "only warns of parts that have no place in the other form, and writes the rest");
    flag_field(app, "--as-json", request->is_json, "writes the document as JSON");
}
