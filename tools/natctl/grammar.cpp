#include "tools/natctl/grammar.h"

grammar_t::grammar_t(command_spec_t &root) : root_(root), group_(&root) {
    add_status_command(*this);
    add_convert_command(*this);
    add_record_commands(*this, "");
    add_query_commands(*this);
    add_mapt_commands(*this);
    add_nat64_commands(*this);
    add_classifier_commands(*this);
    add_server_commands(*this);
    add_config_commands(*this);
    add_fleet_commands(*this);
}

void grammar_t::family(const std::string &name, const std::string &summary) {
    group_ = top_ = &root_.command(name, summary);
}

void grammar_t::subfamily(const std::string &name, const std::string &summary) {
    group_ = &top_->command(name, summary);
}

command_spec_t &grammar_t::enter(const std::string &verb, const std::string &summary, command_t command) {
    return group_->command(verb, summary, [this, command = std::move(command)](const std::string &path) {
        parsed_ = command;
        parsed_.name = path;
    });
}

namespace {

start_fn_t at_once(start_fn_t start) {
    return [start = std::move(start)](call_t &call) {
        call.awaited = false;
        return start(call);
    };
}

}  // namespace

command_spec_t &grammar_t::command(const std::string &verb, const std::string &summary, start_fn_t start) {
    return enter(verb, summary, {"", std::move(start)});
}

command_spec_t &grammar_t::immediate(const std::string &verb, const std::string &summary, start_fn_t start) {
    return enter(verb, summary, {"", at_once(std::move(start))});
}

command_spec_t &grammar_t::local(const std::string &verb, const std::string &summary, start_fn_t start) {
    return enter(verb, summary, {"", at_once(std::move(start)), false, false});
}

command_spec_t &grammar_t::embedded(const std::string &verb, const std::string &summary,
                                    std::function<uint32_t(call_t &call, fwx_nat64_model_t &model)> act) {
    start_fn_t start = [act = std::move(act)](call_t &call) { return act(call, *call.pal.model()); };
    return enter(verb, summary + " (embedded server only)", {"", at_once(std::move(start)), true});
}

command_t grammar_t::parse(std::vector<std::string> words) {
    for (const std::function<void()> &restore : restorers_) {
        restore();
    }
    parsed_ = {};
    if (parser_ == nullptr) parser_ = std::make_unique<command_parser_t>(root_);
    parser_->parse(std::move(words));
    return parsed_;
}
