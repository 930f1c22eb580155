/* Fuzzes the reader and the writer of the standard form. The input is a text in it, or a document. A text that was read
 * can be written without a loss and reads the same again. A text that was written with losses can be read without any.
 */
#include <string_view>

#include "config/ietf.h"
#include "config/load.h"
#include "config/notation.h"
#include "input.h"

namespace {

void check_comes_back(const std::string &text) {
    problems_t problems;
    const document_t read = read_ietf(text, ietf_loss_t::refused, problems);
    FUZZ_CHECK(!has_error(problems));
    FUZZ_CHECK(write_ietf(read, ietf_loss_t::refused, problems) == text);
    FUZZ_CHECK(!has_error(problems));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    problems_t strict;
    const document_t read = read_ietf(text, ietf_loss_t::refused, strict);
    problems_t problems;
    if (!has_error(strict)) check_comes_back(write_ietf(read, ietf_loss_t::refused, problems));
    FUZZ_CHECK(problems.empty());

    const document_t rest = read_ietf(text, ietf_loss_t::warned, problems);
    if (!has_error(problems)) check_comes_back(write_ietf(rest, ietf_loss_t::refused, problems));
    FUZZ_CHECK(has_error(strict) || !has_error(problems));

    problems.clear();
    const document_t document = load_document(text, problems);
    if (!has_error(problems)) check_comes_back(write_ietf(document, ietf_loss_t::warned, problems));
    return 0;
}
