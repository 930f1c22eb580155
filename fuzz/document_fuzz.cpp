/* Fuzzes the document reader and the plan. The input is two documents with a zero byte in between. A document that was
 * read and then written reads the same again. Running the plan turns the first document's state into the second's. When
 * a command of the plan is refused, the rollback restores the first. */
#include <string_view>

#include "config/load.h"
#include "config/notation.h"
#include "config/plan_run.h"
#include "input.h"

namespace {

void check_reads_alike(const document_t &document, const std::string &text) {
    problems_t problems;
    const document_t again = load_document(text, problems);
    FUZZ_CHECK(!has_error(problems));
    FUZZ_CHECK(write_lines(again) == write_lines(document));
    FUZZ_CHECK(plan_t(document, again).size() == 0);
}

/** Runs a plan on the state `held`, refusing the command number `refused` and accepting all others at once. A refusal
 * is followed by the rollback. Refuses no command if `refused` is the plan's size. Returns the resulting state. */
document_t carry_out(const plan_t &plan, document_t held, size_t refused) {
    plan_run_t run(plan);
    const auto send_all = [&] {
        while (const plan_command_t *command = run.next()) {
            const bool is_refused = run.ticket() == refused;
            if (!is_refused) held.carry_out(*command->family, command->op, command->record.bytes);
            run.answered(run.ticket(), !is_refused);
        }
        FUZZ_CHECK(run.is_over());
    };
    send_all();
    FUZZ_CHECK(run.refused() == refused);
    if (refused != plan.size()) {
        run.roll_back();
        send_all();
        FUZZ_CHECK(run.is_rolled_back());
    }
    held.settle();
    return held;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const size_t middle = std::min(text.find('\0'), size);
    problems_t problems;
    const document_t from = load_document(text.substr(0, middle), problems);
    if (has_error(problems)) return 0;
    check_reads_alike(from, write_lines(from));
    check_reads_alike(from, write_json(from));

    const document_t to = load_document(text.substr(std::min(middle + 1, size)), problems);
    if (has_error(problems)) return 0;
    const plan_t plan(from, to);
    FUZZ_CHECK(write_lines(carry_out(plan, from, plan.size())) == write_lines(to));
    for (size_t refused = 0; refused < plan.size(); ++refused) {
        FUZZ_CHECK(write_lines(carry_out(plan, from, refused)) == write_lines(from));
    }
    return 0;
}
