#include "tools/natctl/fields.h"

#include <CLI/CLI.hpp>

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
