/*
 * Generates _commands.py of the Python module on standard output. It has a method for each configuration command, from
 * the table of records, and a named tuple for each entry of a query, from the description of the messages.
 *
 * Each field of a command becomes a converter (fwx_nat64/_values.py), an argument of the method, and letters of the
 * struct module. What stands between the fields is padding, or a constant of the record's initial value.
 */
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "records/families.h"
#include "wire/messages.h"

namespace {

using text_t = std::string;

/* The tables of value names printed so far, with the name of each in Python. */
std::vector<std::pair<const wire_names_t *, text_t>> name_tables;

/** The items, each followed by a comma, in indented lines of at most 120 columns. */
text_t wrapped(const std::vector<text_t> &items, size_t indent) {
    constexpr size_t columns = 120;
    text_t text(indent, ' ');
    size_t used = indent;
    for (const text_t &item : items) {
        if (used != indent && used + item.size() + 2 > columns) {
            text += "\n" + text_t(indent, ' ');
            used = indent;
        }
        if (used != indent) text += " ";
        used += item.size() + (used == indent ? 1 : 2);
        text += item + ",";
    }
    return text + "\n";
}

text_t upper(std::string_view word) {
    text_t text;
    for (const char c : word) {
        text += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
    return text;
}

/** Returns the Python name of a table of value names. Prints the table first, unless that has been done. */
text_t name_table(const wire_names_t *names, const text_t &proposal) {
    for (const auto &[table, name] : name_tables) {
        if (table == names) return name;
    }
    std::vector<text_t> values;
    for (const wire_value_name_t &each : *names) {
        values.push_back('"' + text_t(each.name) + "\": " + std::to_string(each.value));
    }
    text_t name = upper(proposal) + "_NAMES";
    std::printf("%s = {\n%s}\n", name.c_str(), wrapped(values, 4).c_str());
    name_tables.emplace_back(names, name);
    return name;
}

/* --- Commands --- */

text_t command_word(const record_family_t &family) {
    return text_t(family.group) + (family.group.empty() ? "" : "_") + text_t(family.word);
}

uint64_t initial_value(const record_family_t &family, size_t offset, size_t width) {
    uint64_t value = 0;
    if (family.initial != nullptr) std::memcpy(&value, static_cast<const uint8_t *>(family.initial) + offset, width);
    return value;
}

const char *number_letter(size_t width) {
    return width == 1 ? "B" : width == 2 ? "H" : width == 4 ? "I" : "Q";
}

/* The Python side of a field. */
struct form_t {
    text_t type;
    text_t converter; /* the expression that makes the converter */
    text_t letters;   /* of the struct module */
    size_t size;      /* bytes that the letters cover */
};

form_t form_of(const record_family_t &family, const record_field_t &field) {
    const text_t name = '"' + text_t(field.member) + "\", ";
    const text_t limits = std::to_string(field.min) + ", " + std::to_string(field.max);
    const size_t covered =
        field.length_offset == record_nowhere ? field.width : field.length_offset + 1U - field.offset;
    const text_t bytes = std::to_string(covered) + "s";
    switch (field.kind) {
        case record_kind_t::number: {
            const char *letter = number_letter(field.width);
            if (field.time_unit_ms != 0) return {"Seconds", "seconds(" + name + limits + ")", letter, field.width};
            if (field.names == nullptr) return {"int", "number(" + name + limits + ")", letter, field.width};
            const text_t table = name_table(field.names, command_word(family) + "_" + field.member);
            return {"Named", "named(" + name + limits + ", " + table + ")", letter, field.width};
        }
        case record_kind_t::address:
            return {"Address", "address(" + name + "4, 6)", bytes, covered};
        case record_kind_t::ipv4:
            return {"Address4", "address(" + name + "4)", bytes, covered};
        case record_kind_t::ipv4_prefix:
        case record_kind_t::ipv6_prefix: {
            const text_t version = field.kind == record_kind_t::ipv4_prefix ? "4" : "6";
            return {"Prefix" + version,
                    "prefix(" + name + version + ", " + std::to_string(field.max) + ", " + std::to_string(field.width) +
                        ", " + std::to_string(covered) + ")",
                    bytes, covered};
        }
        case record_kind_t::bytes:
        case record_kind_t::numbers:
            break;
    }
    return {"bytes", "octets(" + name + std::to_string(field.width) + ")", bytes, covered};
}

/* A part of a record that an argument of struct.pack fills. */
struct part_t {
    size_t offset;
    size_t size;
    text_t letters;
    text_t argument;
};

text_t padding(size_t size) {
    return size == 0 ? "" : std::to_string(size) + "x";
}

/** True if None is allowed for the field: it is optional, and no number means that it is absent. */
bool may_be_none(const record_field_t &field, uint32_t op) {
    return !field.is_required_on(op) && (field.kind != record_kind_t::number || field.valid_offset != record_nowhere);
}

text_t conversion(const record_family_t &family, const text_t &name) {
    return "_" + upper(command_word(family) + "_" + name) + "(" + name + ")";
}

text_t unless_none(const text_t &nothing, const text_t &name, const text_t &converted) {
    return nothing + " if " + name + " is None else " + converted;
}

/** Prints the function that packs a command, and returns the text of the method that calls it. */
text_t print_command(const record_family_t &family, const record_verb_t &verb) {
    std::vector<part_t> parts;
    std::vector<text_t> required{"self", "*"};
    std::vector<text_t> optional;
    text_t help;
    for (const record_field_t *field = family.fields; field != family.fields + family.field_count; ++field) {
        if (!field->is_taken_on(verb.op) || field->is_spelling) continue;
        const form_t form = form_of(family, *field);
        const text_t name = field->member;
        const text_t converted = conversion(family, name);
        help += "        " + name + ": " + field->meaning;
        if (field->kind == record_kind_t::number) help += " (" + record_field_form(*field) + ")";
        help += "\n";
        if (may_be_none(*field, verb.op)) {
            optional.push_back(name + ": " + form.type + " | None = None");
            const text_t nothing = field->kind == record_kind_t::number ? "0" : "b\"\"";
            parts.push_back({field->offset, form.size, form.letters, unless_none(nothing, name, converted)});
            if (field->valid_offset != record_nowhere) {
                parts.push_back({field->valid_offset, sizeof(uint32_t), "I", name + " is not None"});
            }
            continue;
        }
        parts.push_back({field->offset, form.size, form.letters, converted});
        if (field->is_required_on(verb.op)) {
            required.push_back(name + ": " + form.type);
        } else {
            optional.push_back(name + ": " + form.type + " = " +
                               std::to_string(initial_value(family, field->offset, field->width)));
        }
    }
    std::sort(parts.begin(), parts.end(), [](const part_t &a, const part_t &b) { return a.offset < b.offset; });

    text_t letters;
    std::vector<text_t> arguments;
    size_t at = 0;
    const auto skip_to = [&](size_t offset) {
        size_t pad = 0;
        for (; at < offset; ++at) {
            const bool is_word = at % sizeof(uint32_t) == 0 && at + sizeof(uint32_t) <= offset;
            const uint64_t value = is_word ? initial_value(family, at, sizeof(uint32_t)) : 0;
            if (value == 0) {
                ++pad;
                continue;
            }
            letters += padding(std::exchange(pad, 0)) + "I";
            arguments.push_back(std::to_string(value));
            at += sizeof(uint32_t) - 1;
        }
        letters += padding(pad);
    };
    for (const part_t &part : parts) {
        skip_to(part.offset);
        letters += part.letters;
        arguments.push_back(part.argument);
        at += part.size;
    }
    skip_to(family.record_size);

    const text_t method = command_word(family) + "_" + text_t(verb.word);
    std::printf("_%s = command(\"%s\", %u, \"%s\")\n", upper(method).c_str(), command_word(family).c_str(), verb.op,
                letters.c_str());
    required.insert(required.end(), optional.begin(), optional.end());
    required.emplace_back("timeout: Timeout | None = None");
    return "\n    def " + method + "(\n" + wrapped(required, 8) + "    ) -> Sent:\n        \"\"\"" + verb.title + " " +
           family.noun + ".\n\n" + help + "        \"\"\"\n        return self._send(\n            _" + upper(method) +
           "(\n" + wrapped(arguments, 16) + "            ),\n            timeout,\n        )\n";
}

void print_converters(const record_family_t &family) {
    for (const record_field_t *field = family.fields; field != family.fields + family.field_count; ++field) {
        if (field->is_spelling) continue;
        const form_t form = form_of(family, *field);
        std::printf("_%s = %s\n", upper(command_word(family) + "_" + field->member).c_str(), form.converter.c_str());
    }
}

/* --- Entries --- */

constexpr struct {
    const char *message;
    const char *name;
    const char *of;
} entries[] = {
    {"stats_sys_reply", "Totals", "Number of items of each kind that the server holds."},
    {"stats_sys_counts_reply", "Counts", "Counters of the server since its start."},
    {"stats_sys_boot_reply", "Boot", "Random id of this run of the server, and number of its configuration changes."},
    {"stats_sys_system_reply", "System", "Number of items of each kind, and of refused messages for each reason."},
    {"stats_intf_reply", "Interface", "An interface."},
    {"stats_pool_all_reply", "Pool", "An address pool and its use."},
    {"stats_mapping_all_reply", "Mapping", "A mapping and its use."},
    {"stats_limit_all_reply", "Limit", "A limit and its use."},
    {"session_walk_full_reply", "FullSession", "A session with both sides of its translation."},
    {"session_walk_reply", "Session", "A session."},
};

void print_entry(const wire_message_t &message, const char *name, const char *of) {
    text_t members;
    text_t letters;
    std::vector<text_t> converters;
    size_t at = 0;
    for (size_t i = 0; i < message.entry_field_count; ++i) {
        const wire_field_t &field = message.entry_fields[i];
        letters += padding(field.offset - at);
        at = size_t{field.offset} + field.width;
        const bool is_address = field.kind == wire_kind_t::address;
        letters += is_address ? text_t("20s") : text_t(number_letter(field.width));
        text_t type = "int";
        text_t converter;
        if (is_address) {
            type = "IPv4Address | IPv6Address";
            converter = "read_address";
        } else if (field.kind == wire_kind_t::flag) {
            type = converter = "bool";
        } else if (field.names != nullptr) {
            type = "int | str";
            converter = "names_of(" + name_table(field.names, field.name) + ")";
        }
        members += "    " + text_t(field.name) + ": " + type + "\n";
        if (!converter.empty()) converters.push_back(std::to_string(i) + ": " + converter);
    }
    letters += padding(message.entry_size - at);
    std::printf(
        "\n\nclass %s(NamedTuple):\n    \"\"\"%s\"\"\"\n\n%s\n\n%s = Entries(\n    %s,\n    \"%s\",\n    {%s%s},\n)\n",
        name, of, members.c_str(), (upper(name) + "_ENTRIES").c_str(), name, letters.c_str(),
        converters.empty() ? "" : "\n", converters.empty() ? "" : (wrapped(converters, 8) + "    ").c_str());
}

}  // namespace

int main() {
    std::printf(
        "\"\"\"The commands, and the entries of queries. Generated from the tables in the library's tree.\"\"\"\n\n"
        "from __future__ import annotations\n\n"
        "from ipaddress import IPv4Address, IPv6Address\nfrom typing import Generic, NamedTuple, TypeVar\n\n"
        "from ._values import (\n    Address, Address4, Entries, Named, Prefix4, Prefix6, Seconds, Timeout,\n"
        "    address, command, named, names_of, number, octets, prefix, read_address, seconds,\n)\n\n"
        "Sent = TypeVar(\"Sent\")\n\n");
    size_t family_count = 0;
    const record_family_t *families = record_families(&family_count);
    for (size_t i = 0; i < family_count; ++i) {
        print_converters(families[i]);
    }
    text_t methods;
    for (size_t i = 0; i < family_count; ++i) {
        for (size_t v = 0; v < families[i].verb_count; ++v) {
            methods += print_command(families[i], families[i].verbs[v]);
        }
    }
    std::printf(
        "\n\nclass Commands(Generic[Sent]):\n"
        "    \"\"\"The commands that configure the service. A Client sends each and returns a future; a Batch keeps "
        "it.\"\"\"\n\n"
        "    def _send(self, command: bytes, timeout: Timeout | None) -> Sent:\n        raise "
        "NotImplementedError\n%s\n\n",
        methods.c_str());
    size_t message_count = 0;
    const wire_message_t *messages = wire_messages(&message_count);
    for (const auto &entry : entries) {
        for (size_t i = 0; i < message_count; ++i) {
            if (std::strcmp(messages[i].name, entry.message) == 0) print_entry(messages[i], entry.name, entry.of);
        }
    }
    return 0;
}
