/* Implements entry_lines.h. A line is written into a buffer that has room for the longest one, so no write needs to
 * check for space. */
#include "tools/natctl/entry_lines.h"

#include <algorithm>

#include "tools/natctl/field_value.h"

namespace {

constexpr size_t block_bytes = 16;

/** Writes values as JSON. The caller has made sure that there is room. */
struct json_writer_t {
    char *&out;

    void operator()(uint64_t number) const {
        constexpr size_t digits = 20;
        /* Most numbers fit into 32 bits, and dividing those is faster. */
        const auto low = static_cast<uint32_t>(number);
        out = low == number ? std::to_chars(out, out + digits, low).ptr : std::to_chars(out, out + digits, number).ptr;
    }
    void operator()(bool is_true) const {
        const std::string_view text = is_true ? "true" : "false";
        out += text.copy(out, text.size());
    }
    void operator()(std::string_view of) const {
        text([of](char *at) { return at + of.copy(at, of.size()); });
    }
    template <typename write_t>
    void text(const write_t &write) const {
        *out++ = '"';
        out = write(out);
        *out++ = '"';
    }
};

}  // namespace

entry_lines_t::piece_t entry_lines_t::piece_of(std::string text) {
    const size_t size = text.size();
    text.resize((size + block_bytes - 1) / block_bytes * block_bytes);
    return {std::move(text), size};
}

char *entry_lines_t::put(const piece_t &piece, char *out) {
    const char *from = piece.blocks.data();
    for (size_t i = 0; i < piece.size; i += block_bytes) {
        std::memcpy(out + i, from + i, block_bytes);
    }
    return out + piece.size;
}

entry_lines_t::column_t entry_lines_t::column_of(const wire_field_t &field) {
    const std::string key = std::string(",\"") + field.name;
    column_t column = {&field, piece_of(key + "\":"), {}};
    if (field.names == nullptr) return column;
    const std::string name_key = key + std::string(name_suffix) + "\":";
    for (const wire_value_name_t &each : *field.names) {
        column.names.push_back(piece_of(name_key + "\"" + each.name + "\""));
    }
    column.names.push_back(piece_of(name_key + "null"));
    return column;
}

entry_lines_t::entry_lines_t(std::string members, const wire_message_t &reply)
    : reply_(reply), members_(std::move(members)), begin_(piece_of("{" + members_)) {
    constexpr std::string_view end = "}\n";
    room_ = begin_.size + end.size() + block_bytes;
    for (size_t i = 0; i < reply.entry_field_count; ++i) {
        const column_t &column = columns_.emplace_back(column_of(reply.entry_fields[i]));
        size_t name_room = 0;
        for (const piece_t &name : column.names) {
            name_room = std::max(name_room, name.size);
        }
        /* Only byte fields, with two digits a byte, are longer than an address with its length. */
        constexpr size_t value_room = field_text_room + std::string_view("/255").size() + 2;
        room_ += column.key.size + value_room + 2 * size_t{column.field->width} + name_room;
    }
}

const entry_lines_t::piece_t &entry_lines_t::name_of(const column_t &column, const uint8_t *at) {
    const wire_names_t &names = *column.field->names;
    const uint64_t value = wire_read(at, column.field->width);
    const auto *found = std::find_if(names.begin(), names.end(),
                                     [value](const wire_value_name_t &each) { return each.value == value; });
    return column.names[static_cast<size_t>(found - names.begin())];
}

std::string_view entry_lines_t::write(const void *entries, uint32_t count) {
    if (lines_.size() < room_ * count) lines_.resize(room_ * count);
    char *end = lines_.data();
    const json_writer_t writer{end};
    const auto *entry = static_cast<const uint8_t *>(entries);
    for (uint32_t i = 0; i < count; ++i, entry += reply_.entry_size) {
        end = put(begin_, end);
        for (const column_t &column : columns_) {
            const uint8_t *at = entry + column.field->offset;
            end = put(column.key, end);
            with_value(*column.field, at, writer);
            if (!column.names.empty()) end = put(name_of(column, at), end);
        }
        *end++ = '}';
        *end++ = '\n';
    }
    return {lines_.data(), static_cast<size_t>(end - lines_.data())};
}
