/* The configuration commands, made from the table of records: every family is a subcommand, every verb a subcommand of
 * it, every field an option. Each family also has `show`. */
#include <algorithm>

#include "config/notation.h"
#include "reconcile/reconciler.h"
#include "records/families.h"
#include "tools/natctl/config_run.h"
#include "tools/natctl/grammar.h"

namespace {

void add_verb(grammar_t &grammar, const record_family_t &family, const record_verb_t &verb) {
    auto record = grammar.record<record_buffer_t>();
    record_init(family, *record);
    auto start = [record, op = verb.op, &family](call_t &call) {
        return call.pal.send(call, family, op, record->bytes);
    };
    command_spec_t &app = grammar.command(std::string(verb.word), std::string(verb.title) + " " + family.noun, start);
    std::vector<std::pair<const record_field_t *, const option_spec_t *>> options;
    for (const record_field_t *field = family.fields; field != family.fields + family.field_count; ++field) {
        if (!field->is_taken_on(verb.op)) continue;
        option_spec_t &option = add_field(app, *field, record->bytes).required(field->is_required_on(verb.op));
        for (const auto &[other, others_option] : options) {
            if (record_fields_overlap(*field, *other)) option.excludes(*others_option);
        }
        options.emplace_back(field, &option);
    }
}

/** Shows the items of a family that the server holds, as rows. A member that only other rows have is null. */
uint32_t show(call_t &call, const record_family_t &family) {
    call.pal.settle_all();
    if (!config_read(call)) return 0;
    const document_t &held = call.pal.reconciler().held();
    document_t shown;
    const record_family_t &of = family.item == family_kind_t::other ? family : record_family_of(family.item);
    for (size_t i = held.begin_of(of); i < held.end_of(of); ++i) {
        shown.add(held.item(i));
    }
    shown.settle();
    const json_t document = json_t::parse(write_json(shown));
    const std::string word = record_command_text(family, nullptr);
    const json_t items = document.at("items").contains(word) ? document.at("items").at(word) : json_t::array();
    std::vector<std::string_view> columns; /* found once, because there may be many items */
    for (size_t i = 0; i < family.field_count; ++i) {
        const std::string_view name = family.fields[i].name;
        const auto has = [name](const json_t &item) { return item.contains(name); };
        if (std::any_of(items.begin(), items.end(), has)) columns.push_back(name);
    }
    call.outcome.data = json_t::array();
    for (const json_t &item : items) {
        json_t row = json_t::object();
        for (const std::string_view name : columns) {
            row[name] = item.contains(name) ? item.at(name) : json_t();
        }
        call.outcome.data.push_back(std::move(row));
    }
    return 0;
}

/** A line for each family without a group: its words and its purpose. */
std::string families_text() {
    std::string text;
    size_t count = 0;
    const record_family_t *families = record_families(&count);
    for (const record_family_t *family = families; family != families + count; ++family) {
        if (!family->group.empty()) continue;
        std::string line = "  " + std::string(family->word) + ' ';
        for (size_t i = 0; i < family->verb_count; ++i) {
            line.append(i == 0 ? "" : "|").append(family->verbs[i].word);
        }
        constexpr size_t column = 28;
        line.resize(std::max(line.size(), column), ' ');
        text += line + family->summary + '\n';
    }
    return text;
}

}  // namespace

void add_configuration_command(grammar_t &grammar) {
    const char *summary = "Lists the commands that configure a server; documents consist of them";
    grammar
        .local("configuration", summary,
               [](call_t &call) {
                   call.outcome.text = families_text();
                   return 0U;
               })
        .footer = "Commands that configure, beside mapt bmr and mapt dmr:\n" + families_text();
}

void add_record_commands(grammar_t &grammar, std::string_view group) {
    size_t count = 0;
    const record_family_t *families = record_families(&count);
    for (size_t i = 0; i < count; ++i) {
        const record_family_t &family = families[i];
        if (family.group != group) continue;
        const std::string word(family.word);
        if (group.empty()) {
            grammar.family(word, family.summary).is_listed = false;
        } else {
            grammar.subfamily(word, family.summary);
        }
        for (size_t j = 0; j < family.verb_count; ++j) {
            add_verb(grammar, family, family.verbs[j]);
        }
        grammar.immediate(show_verb, std::string("Shows what the server holds of: ") + family.noun,
                          [&family](call_t &call) { return show(call, family); });
    }
}
