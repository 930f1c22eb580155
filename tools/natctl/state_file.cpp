#include "tools/natctl/state_file.h"

#include <utility>
#include <vector>

#include "fwx_host/errors.h"
#include "records/value.h"

namespace {

constexpr const char *format = "natctl server state 2";

std::string line_of(uint32_t op_code, const void *payload, size_t size) {
    return std::to_string(op_code) + " " + hex_digits(payload, size);
}

}  // namespace

state_file_t::state_file_t(std::string path, fwx_nat64_model_t &model, note_fn_t note)
    : model_(model), note_(std::move(note)), journal_(std::move(path), format, [&model](const auto &write) {
          model.save(
              [](void *arg, uint32_t op_code, const void *payload, size_t size) {
                  (*static_cast<const journal_t::write_fn_t *>(arg))(line_of(op_code, payload, size));
              },
              const_cast<journal_t::write_fn_t *>(&write));
      }) {}

std::string state_file_t::open() {
    std::string error = journal_.open([this](std::string_view line) { return restore(line); });
    if (!error.empty()) return error;
    if (journal_.dropped_lines() != 0) {
        note_("the last " + std::to_string(journal_.dropped_lines()) +
              " lines of the state are no whole group and left out; see the file of that name with .damaged behind it");
    }
    warn();
    model_.journal_set({[](void *arg, uint32_t op_code, const void *payload, size_t size) {
                            static_cast<state_file_t *>(arg)->journal_.append(line_of(op_code, payload, size));
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
    warn();
    const bool is_news = error.empty() != error_.empty();
    if (is_news) note_(error.empty() ? "the state is saved again" : error);
    error_ = error;
    return error;
}

void state_file_t::warn() {
    if (!journal_.warning().empty() && journal_.warning() != warning_) {
        note_("the state is saved, but not written anew: " + journal_.warning());
    }
    warning_ = journal_.warning();
}

std::string state_file_t::restore(std::string_view line) {
    const size_t blank = std::min(line.find(' '), line.size());
    uint64_t op_code = 0;
    const bool has_code = parse_number(line.substr(0, blank), op_code) && op_code <= UINT32_MAX;
    const std::string_view digits = line.substr(std::min(blank + 1, line.size()));
    std::vector<uint8_t> payload(digits.size() / 2);
    if (!has_code || !parse_hex(digits, payload.data(), payload.size())) return "must be an op code and its payload";
    const uint32_t code = model_.restore(static_cast<uint32_t>(op_code), payload.data(), payload.size());
    return code == 0 ? "" : xerr_strerror(code);
}
