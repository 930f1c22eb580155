#include "tools/natctl/outcome.h"

const char *status_name(status_t status) {
    switch (status) {
        case status_t::ok:
            return "ok";
        case status_t::refused:
            return "refused";
        case status_t::usage:
            return "usage";
        case status_t::no_answer:
            return "no_answer";
        case status_t::no_server:
            return "no_server";
        case status_t::locked:
            return "locked";
    }
    return "unknown";
}

std::string count_text(uint64_t count, const char *noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

std::string outcome_label(const outcome_t &outcome) {
    std::string label = outcome.line == 0 ? "" : "line " + std::to_string(outcome.line);
    if (!label.empty() && !outcome.command.empty()) label += ": ";
    return label + outcome.command;
}

void refuse_unkept(outcome_t &outcome, const std::string &error) {
    const bool is_concerned = outcome.changes && outcome.status == status_t::ok && !error.empty();
    if (is_concerned)
        refuse(outcome, status_t::usage, 0, "the server has done it, but the version could not be saved: " + error);
}

void refuse(outcome_t &outcome, status_t status, uint32_t code, std::string error) {
    outcome.status = status;
    outcome.code = code;
    outcome.error = std::move(error);
}
