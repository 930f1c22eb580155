/* Entries of replies as lines of JSON. They come by the million: what repeats is put together once, and nothing is
 * allocated for a line. */
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
    /** Lines of entries of `reply`, each an object with `members`, as text, before the entry's own. */
    entry_lines_t(std::string members, const wire_message_t &reply);

    /** A line for each entry, until the next ones are written. */
    std::string_view write(const void *entries, uint32_t count);

    /** Whether they are these lines. */
    bool are_of(std::string_view members, const wire_message_t &reply) const {
        return &reply_ == &reply && members_ == members;
    }

private:
    /** Text that is copied in blocks: some of them lie behind its end, in what copies it and where it goes. */
    struct piece_t {
        std::string blocks;
        size_t size = 0;
    };
    struct column_t {
        const wire_field_t *field;
        piece_t key;                /* `,"src":` */
        std::vector<piece_t> names; /* `,"protocol_name":"udp"` of each value that has a name, and of all others */
    };

    static piece_t piece_of(std::string text);
    static char *put(const piece_t &piece, char *out);
    static column_t column_of(const wire_field_t &field);
    static const piece_t &name_of(const column_t &column, const uint8_t *at);

    const wire_message_t &reply_;
    std::string members_;
    piece_t begin_; /* of a line */
    std::vector<column_t> columns_;
    size_t room_; /* of a line */
    std::string lines_;
};

#endif
