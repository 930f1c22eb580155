#include "tools/natctl/fields.h"

#include <CLI/CLI.hpp>

namespace {

std::string read_duration(const std::string &option, const std::string &text, uint64_t &seconds) {
    constexpr uint64_t longest = 86400;
    const size_t digits = text.find_first_not_of("0123456789");
    const std::string unit = digits == std::string::npos ? "s" : text.substr(digits);
    const uint64_t factor = unit == "s" ? 1 : unit == "m" ? 60 : unit == "h" ? 3600 : 0;
    const std::string count = text.substr(0, digits);
    const bool is_number = factor != 0 && !count.empty() && count.size() <= 5;
    seconds = is_number ? std::stoul(count) * factor : 0;
    if (seconds != 0 && seconds <= longest) return "";
    return record_field_error(option, text, "1 second to 24 hours, as 30s, 5m or 1h");
}

}  // namespace

option_t text_field(CLI::App &app, std::string_view option, std::function<std::string(const std::string &text)> read,
                    const std::string &meaning, const std::string &form) {
    auto read_or_refuse = [read = std::move(read)](const std::string &text) {
        const std::string error = read(text);
        if (!error.empty()) throw CLI::ValidationError(error, CLI::ExitCodes::ValidationError);
    };
    return option_t(
        *app.add_option_function<std::string>(std::string(option), read_or_refuse, meaning)->type_name(form));
}

option_t option_t::required(bool is_required) const {
    option_->required(is_required);
    return *this;
}

option_t add_field(CLI::App &app, const record_field_t &field, void *record) {
    auto read = [field, record](const std::string &text) { return record_field_read(field, text, record); };
    std::string options(field.option);
    if (!field.also.empty()) options.append(",").append(field.also);
    return text_field(app, options, read, field.meaning, record_field_form(field));
}

void option_t::excludes(const option_t &other) const {
    option_->excludes(other.option_);
}

option_t choice_field(CLI::App &app, const std::string &option, uint32_t &out, std::vector<choice_t> choices,
                      const std::string &meaning) {
    std::string allowed;
    for (const choice_t &choice : choices) {
        allowed += (allowed.empty() ? "" : "|") + std::string(choice.text);
    }
    auto read = [option, &out, choices = std::move(choices), allowed](const std::string &text) {
        for (const choice_t &choice : choices) {
            if (text != choice.text) continue;
            out = choice.value;
            return std::string();
        }
        return record_field_error(option, text, allowed);
    };
    return text_field(app, option, read, meaning, allowed);
}

void flag_field(CLI::App &app, const std::string &option, bool &out, const std::string &meaning) {
    app.add_flag(option, out, meaning);
}

option_t duration_field(CLI::App &app, const std::string &option, uint64_t &out_s, const std::string &meaning) {
    auto read = [option, &out_s](const std::string &text) { return read_duration(option, text, out_s); };
    return text_field(app, option, read, meaning, "TIME");
}
