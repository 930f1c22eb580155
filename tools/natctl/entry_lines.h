/* Formats entries of replies as lines of JSON. Hot path, because a walk has millions of entries: the constant parts of
 * a line are made once, and no memory is allocated for a line. */
#ifndef TOOLS_NATCTL_ENTRY_LINES_H
#define TOOLS_NATCTL_ENTRY_LINES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "wire/messages.h"

class entry_lines_t {
public:
    /** For entries of `reply`. Each line is an object that begins with `members`, which is JSON text. */
    entry_lines_t(std::string members, const wire_message_t &reply);

    /** A line for each entry. The result is valid until the next call. */
    std::string_view write(const void *entries, uint32_t count);

    /** True if this object was made for these members and this reply. */
    bool are_of(std::string_view members, const wire_message_t &reply) const {
        return &reply_ == &reply && members_ == members;
    }

private:
    /** Text that is copied in whole blocks of constant size. The copy may run past the text's end, so `blocks` and the
     * destination have room for that. */
    struct piece_t {
        std::string blocks;
        size_t size = 0;
    };
    struct column_t {
        const wire_field_t *field;
        piece_t key;                /* `,"src":` */
        std::vector<piece_t> names; /* `,"protocol_name":"udp"` for each named value, and one piece for all others */
    };

    static piece_t piece_of(std::string text);
    static char *put(const piece_t &piece, char *out);
    static column_t column_of(const wire_field_t &field);
    static const piece_t &name_of(const column_t &column, const uint8_t *at);

    const wire_message_t &reply_;
    std::string members_;
    piece_t begin_; /* the beginning of every line */
    std::vector<column_t> columns_;
    size_t room_; /* the maximum length of a line */
    std::string lines_;
};

#endif
