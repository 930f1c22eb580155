/*
 * The grammar of natctl's commands: a table of families (`timeout`) and verbs (`set`), each a subcommand whose options
 * fill a record and whose action calls one function of the library. The command line, batch files and the shell read
 * their commands with it.
 */
#ifndef TOOLS_GRAMMAR_H
#define TOOLS_GRAMMAR_H

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/natctl/fields.h"
#include "tools/natctl/pal.h"

struct verb_t {
    const char *name;
    uint32_t op; /* FWX_NAT64_OP_ */
    const char *title;
};
constexpr verb_t add_verb = {"add", FWX_NAT64_OP_ADD, "Adds "};
constexpr verb_t mod_verb = {"mod", FWX_NAT64_OP_MOD, "Modifies "};
constexpr verb_t del_verb = {"del", FWX_NAT64_OP_DEL, "Deletes "};
constexpr verb_t set_verb = {"set", FWX_NAT64_OP_ADD, "Sets "};

class grammar_t {
public:
    /** Enters all commands into `root`, which must outlive the grammar. */
    explicit grammar_t(CLI::App &root);
    grammar_t(const grammar_t &) = delete;
    grammar_t &operator=(const grammar_t &) = delete;

    /** Begins a family; the verbs that follow are its own. Verbs before the first family stand alone. */
    void family(const char *name, const std::string &summary);
    /** Begins a family within the last one that `family` began; to come after that one's own verbs. */
    void subfamily(const char *name, const std::string &summary);
    /** Enters a verb of the family. */
    CLI::App &command(const char *verb, const std::string &summary, start_fn_t start);
    /** Enters a verb whose action has its result, and its data if any, at once. */
    CLI::App &immediate(const char *verb, const std::string &summary, start_fn_t start);

    /** A record for the fields of a command. Each parse finds it as it was before the first one. */
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
    CLI::App &add_group(CLI::App &parent, const char *name, const std::string &summary);

    CLI::App &root_;
    CLI::App *top_ = nullptr; /* the last family within the root */
    CLI::App *group_;         /* where verbs are entered */
    std::vector<std::function<void()>> restorers_;
    command_t parsed_;
};

/** The setter of a record: `fields` binds the options that this operation takes. */
template <typename record_t>
struct setter_t {
    uint32_t (*set)(uint32_t op, const record_t *record, void *ctx);
    void (*fields)(CLI::App &app, record_t &record, uint32_t op);
};

/** Enters verbs that fill a record and set it; `noun` completes the verb's title, `a limit`. */
template <typename record_t>
void add_setters(grammar_t &grammar, const std::string &noun, std::initializer_list<verb_t> verbs,
                 setter_t<record_t> setter) {
    for (const verb_t &verb : verbs) {
        auto record = grammar.record<record_t>();
        auto start = [record, op = verb.op, set = setter.set](call_t &call) { return set(op, record.get(), call.ctx); };
        setter.fields(grammar.command(verb.name, verb.title + noun, start), *record, verb.op);
    }
}

/* The families, one source each. */
void add_status_command(grammar_t &grammar);
void add_setting_commands(grammar_t &grammar);
void add_translation_commands(grammar_t &grammar);
void add_query_commands(grammar_t &grammar);
void add_mapt_commands(grammar_t &grammar);
void add_classifier_commands(grammar_t &grammar);
void add_server_commands(grammar_t &grammar);

/** A command line that is none: what is wrong, and with which command. */
struct usage_error_t {
    std::string command;
    std::string text;
};
/** A command line that asks for help. */
struct help_request_t {
    std::string text;
};

/** Reads commands as they stand in a batch: without the options of natctl itself. */
class command_parser_t {
public:
    command_parser_t();
    ~command_parser_t();
    /** As grammar_t's. */
    command_t parse(const std::vector<std::string> &words) { return grammar_->parse(words); }
    const CLI::App &root() const { return *root_; }

private:
    std::unique_ptr<CLI::App> root_;
    std::unique_ptr<grammar_t> grammar_;
};

#endif
