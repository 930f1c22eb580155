/*
 * Writes documents and commands in both notations (config/notation.h). A field is written if the command requires it,
 * if its flag is set, or if it differs from its default.
 */
#include <cstring>

#include "config/notation.h"

namespace {

constexpr size_t longest_usual_line = 128; /* in bytes; most lines are shorter, a few may be longer */

/** Selects the fields that must be written to express a record. */
class record_fields_t {
public:
    record_fields_t(const record_family_t &family, uint32_t op, const void *record)
        : family_(family), op_(op), record_(record) {
        record_init(family, initial_);
    }

    template <typename use_t>
    void for_each(use_t use) const {
        const record_field_t *spelling = needed_spelling();
        for (const record_field_t *field = family_.fields; field != family_.fields + family_.field_count; ++field) {
            const bool is_spelt = spelling != nullptr && record_fields_overlap(*spelling, *field);
            const bool is_said = is_spelt ? field == spelling : !field->is_spelling && has_to_be_said(*field);
            if (is_said) use(*field);
        }
    }

private:
    bool has_to_be_said(const record_field_t &field) const {
        if (field.is_required_on(op_)) return true;
        if (op_ == FWX_NAT64_OP_DEL || !field.is_taken_on(op_)) return false;
        if (field.valid_offset != record_nowhere) return record_field_is_given(field, record_);
        const bool has_length = field.length_offset != record_nowhere;
        return differs(record_, initial_.bytes, field.offset, field.width) ||
               (has_length && differs(record_, initial_.bytes, field.length_offset, 1));
    }

    static bool differs(const void *a, const void *b, size_t offset, size_t size) {
        return std::memcmp(static_cast<const uint8_t *>(a) + offset, static_cast<const uint8_t *>(b) + offset, size) !=
               0;
    }

    /** The alternative notation (`is_spelling`), if it must be written because the fields that it stands for cannot
     * express the value; else null. */
    const record_field_t *needed_spelling() const {
        const record_field_t *last = family_.fields + family_.field_count - 1;
        const bool may_be_needed =
            last->is_spelling && op_ != FWX_NAT64_OP_DEL && differs(record_, initial_.bytes, last->offset, last->width);
        if (!may_be_needed) return nullptr;
        record_buffer_t again = initial_;
        for (const record_field_t *field = family_.fields; field != last; ++field) {
            const bool is_part = record_fields_overlap(*field, *last);
            if (is_part) static_cast<void>(record_field_read(*field, record_field_text(*field, record_), again.bytes));
        }
        return differs(record_, again.bytes, last->offset, last->width) ? last : nullptr;
    }

    const record_family_t &family_;
    uint32_t op_;
    const void *record_;
    record_buffer_t initial_;
};

/** Appends a value as a JSON number or string. Texts of fields contain no characters that need escapes. */
void append_value(std::string &out, const record_field_t &field, const std::string &text) {
    const bool is_number =
        field.kind == record_kind_t::number && text.find_first_not_of("0123456789") == std::string::npos;
    if (is_number) {
        out += text;
    } else {
        out.append("\"").append(text).append("\"");
    }
}

void append_object(std::string &out, const record_family_t &family, const void *record) {
    const char *separator = "{\"";
    record_fields_t(family, FWX_NAT64_OP_ADD, record).for_each([&](const record_field_t &field) {
        out.append(separator).append(field.name).append("\":");
        append_value(out, field, record_field_text(field, record));
        separator = ",\"";
    });
    out += *separator == '{' ? "{}" : "}";
}

/** Appends the arrays of the families, with each item in a line of its own. */
class json_items_t {
public:
    explicit json_items_t(std::string &out) : out_(out) {}

    void append(const record_family_t &family, const void *record) {
        const bool is_first = &family != family_;
        if (is_first) {
            out_ += family_ == nullptr ? "\n\"" : "\n],\n\"";
            out_.append(record_command_text(family, nullptr)).append("\":[\n");
            family_ = &family;
        } else {
            out_ += ",\n";
        }
        append_object(out_, family, record);
    }
    void end() { out_ += family_ == nullptr ? "" : "\n]\n"; }

private:
    std::string &out_;
    const record_family_t *family_ = nullptr;
};

}  // namespace

void append_command_line(std::string &out, const record_family_t &family, uint32_t op, const void *record) {
    const record_verb_t *verb = record_verb_of(family, op);
    if (!family.group.empty()) out.append(family.group) += ' ';
    out.append(family.word);
    if (verb != nullptr) (out += ' ').append(verb->word);
    record_fields_t(family, op, record).for_each([&](const record_field_t &field) {
        out += ' ';
        out.append(field.option) += ' ';
        record_field_append(field, record, out);
    });
}

std::string command_line(const record_family_t &family, uint32_t op, const void *record) {
    std::string line;
    line.reserve(longest_usual_line);
    append_command_line(line, family, op, record);
    return line;
}

void write_lines(const document_t &document, const std::function<void(std::string_view part)> &write) {
    std::string line = std::string(version_mark) + std::to_string(document_version) + "\n";
    write(line);
    auto write_command = [&](const record_family_t &family, const void *record) {
        line.clear();
        append_command_line(line, family, FWX_NAT64_OP_ADD, record);
        line += '\n';
        write(line);
    };
    for (size_t i = 0; i < document.size(); ++i) {
        const config_item_t item = document.item(i);
        if (has_own_value(item)) write_command(*item.family, item.record);
        if (item.is_nvi) write_command(*nvi_family_of(*item.family), nvi_record_of(item).bytes);
    }
}

std::string write_lines(const document_t &document) {
    std::string out;
    out.reserve((document.size() + 1) * longest_usual_line);
    write_lines(document, [&out](std::string_view part) { out.append(part); });
    return out;
}

std::string write_json(const document_t &document) {
    std::string out = "{\"version\":" + std::to_string(document_version) + ",\n\"items\":{";
    json_items_t items(out);
    for (size_t i = 0; i < document.size();) {
        const record_family_t &family = *document.item(i).family;
        const size_t begin = i;
        const size_t end = document.end_of(family);
        for (; i < end; ++i) {
            if (has_own_value(document.item(i))) items.append(family, document.item(i).record);
        }
        const record_family_t *nvi = nvi_family_of(family);
        for (size_t j = nvi == nullptr ? end : begin; j < end; ++j) {
            if (document.item(j).is_nvi) items.append(*nvi, nvi_record_of(document.item(j)).bytes);
        }
    }
    items.end();
    out += "}}\n";
    return out;
}
