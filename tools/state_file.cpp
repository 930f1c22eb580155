/* Implements state_file.h: passes lines between the server, state_lines_t and the journal, and reports a failure to
 * save once, when it begins and when it ends. */
#include "tools/state_file.h"

#include <utility>

#include "fwx_host/errors.h"
#include "fwx_nat64/server_result.h"

namespace {

/* Every line of the older format is valid in this one. */
constexpr const char *format = "natctl server state 3";
constexpr const char *older_format = "natctl server state 2";

}  // namespace

state_file_t::state_file_t(std::string path, std::string program, nat64_server_t &server, note_fn_t note)
    : server_(server),
      note_(std::move(note)),
      lock_(path, std::move(program)),
      journal_(std::move(path), {format, older_format}, [this](const auto &write) { save(write); }) {}

void state_file_t::save(const journal_t::write_fn_t &write) {
    struct save_t {
        state_lines_t &lines;
        const journal_t::write_fn_t &write;
    };
    save_t arg{lines_, write};
    server_.save(
        [](void *to, uint32_t op_code, const void *payload, size_t size) {
            auto &self = *static_cast<save_t *>(to);
            self.lines.write(op_code, payload, size, self.write);
        },
        &arg);
}

std::string state_file_t::open() {
    std::string error = lock_.take();
    if (error.empty()) error = journal_.open([this](std::string_view line) { return restore(line); });
    if (!error.empty()) return error;
    for (const std::string &note : journal_.notes()) {
        note_(note);
    }
    tell(journal_.error());
    server_.journal_set({[](void *arg, uint32_t op_code, const void *payload, size_t size) {
                             auto &self = *static_cast<state_file_t *>(arg);
                             self.lines_.write(op_code, payload, size,
                                               [&self](std::string_view line) { self.journal_.append(line); });
                         },
                         [](void *arg) {
                             const bool is_kept = static_cast<state_file_t *>(arg)->commit().empty();
                             return is_kept ? 0 : FWX_NAT64_MODEL_ERR_NOT_SAVED;
                         },
                         this});
    return "";
}

std::string state_file_t::commit() {
    std::string error = journal_.commit();
    tell(error);
    return error;
}

/** Reports the error and the warning if they differ from those of the last call. */
void state_file_t::tell(const std::string &error) {
    const bool is_new = error.empty() != error_.empty();
    if (is_new) note_(error.empty() ? "the state is saved again" : "changes cannot be saved: " + error);
    error_ = error;
    if (!journal_.warning().empty() && journal_.warning() != warning_) {
        note_("the state is saved, but not written anew: " + journal_.warning());
    }
    warning_ = journal_.warning();
}

std::string state_file_t::restore(std::string_view line) {
    std::string error = lines_.read(line);
    if (!error.empty()) return error;
    const uint32_t code = server_.restore(lines_.op_code(), lines_.payload().data(), lines_.payload().size());
    return code == 0 ? "" : xerr_strerror(code);
}
