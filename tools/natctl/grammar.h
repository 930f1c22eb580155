/*
 * The grammar of natctl's commands: a table of families (`timeout`) and verbs (`set`). Each verb is a subcommand. Its
 * options fill a record, and its action calls one function of the library. The grammar parses the command line, and the
 * lines of a batch that are not configuration (line_parser.h reads those faster).
 */
#ifndef TOOLS_NATCTL_GRAMMAR_H
#define TOOLS_NATCTL_GRAMMAR_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/command_line.h"
#include "tools/natctl/pal.h"

/** The verb that every configuration family has beside its own. */
inline constexpr const char *show_verb = "show";

class grammar_t {
public:
    /** Adds all commands to `root`, which must outlive the grammar. */
    explicit grammar_t(command_spec_t &root);
    grammar_t(const grammar_t &) = delete;
    grammar_t &operator=(const grammar_t &) = delete;

    /** Begins a group that contains the following families. */
    void group(const std::string &name, const std::string &summary);
    /** Begins a family that contains the following verbs. Verbs before the first family stand alone. */
    command_spec_t &family(const std::string &name, const std::string &summary);
    /** Begins a family within the last one that `family` began. Call it after that one's own verbs. */
    void subfamily(const std::string &name, const std::string &summary);
    /** Adds a verb to the family. */
    command_spec_t &command(const std::string &verb, const std::string &summary, start_fn_t start);
    /** Adds a verb whose action has its result, and its data if any, at once. */
    command_spec_t &immediate(const std::string &verb, const std::string &summary, start_fn_t start);
    /** As immediate, for a verb that needs no server. */
    command_spec_t &local(const std::string &verb, const std::string &summary, start_fn_t start);
    /** As immediate, for a verb that only the embedded server supports. */
    command_spec_t &embedded(const std::string &verb, const std::string &summary,
                             std::function<uint32_t(call_t &call, fwx_nat64_model_t &model)> act);

    /** Makes a record for the fields of a command. Each parse starts from the values that it has at the first one. */
    template <typename record_t>
    std::shared_ptr<record_t> record() {
        auto record = std::make_shared<record_t>();
        restorers_.push_back([record, initial = std::optional<record_t>()]() mutable {
            if (initial.has_value()) {
                *record = *initial;
            } else {
                initial = *record;
            }
        });
        return record;
    }

    /** Parses words with the root; throws usage_error_t or help_request_t. */
    command_t parse(std::vector<std::string> words);

private:
    void add_help();
    /** Shows the help of the command that the words after `help` name. */
    void show_help();
    command_spec_t &enter(const std::string &verb, const std::string &summary, command_t command);

    command_spec_t &root_;
    command_spec_t *home_;                     /* parent of new families: the root, or a group */
    command_spec_t *top_ = nullptr;            /* the last family */
    command_spec_t *group_;                    /* parent of new verbs */
    std::unique_ptr<command_parser_t> parser_; /* made at the first parse, when the table is complete */
    std::vector<std::function<void()>> restorers_;
    command_t parsed_;
    std::vector<std::string> help_words_; /* the words after `help` */
};

/* The families, one source each. */
void add_status_command(grammar_t &grammar);
/** Adds the configuration families that belong to the group of that name, or to none. */
void add_record_commands(grammar_t &grammar, std::string_view group);
void add_query_commands(grammar_t &grammar);
void add_mapt_commands(grammar_t &grammar);
/* The next two add to the family `mapt`. */
void add_explain_command(grammar_t &grammar);
void add_lookup_command(grammar_t &grammar);
/** Adds `configuration`, which lists the families without a group, because natctl's own help omits them. */
void add_configuration_command(grammar_t &grammar);
void add_ipalias_command(grammar_t &grammar);
void add_nat64_commands(grammar_t &grammar);
void add_classifier_commands(grammar_t &grammar);
void add_server_commands(grammar_t &grammar);
void add_config_commands(grammar_t &grammar);
void add_fleet_commands(grammar_t &grammar);
void add_convert_command(grammar_t &grammar);

#endif
