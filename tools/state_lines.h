/*
 * A server's state as lines. Each part of the state, as the server hands it over, becomes the command line that sets
 * it:
 *
 *     pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.254
 *     @index 7 mapt bmr add --rule 5 --domain 1 --v6 2001:db8::/40 --v4 192.0.2.0/24
 *
 * The line of a basic rule begins with the rule's index, because clients that installed the rule know it by this index.
 * A payload that no command line can express, for example with an opaque byte from a client, is written as op code and
 * hexadecimal digits: `14 0100...`.
 */
#ifndef TOOLS_STATE_LINES_H
#define TOOLS_STATE_LINES_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "records/reader.h"
#include "records/words.h"

class state_lines_t {
public:
    using write_fn_t = std::function<void(std::string_view line)>;

    /** Writes a part as one or two lines. A line is valid only during the call of `write`. */
    void write(uint32_t op_code, const void *payload, size_t size, const write_fn_t &write);
    /** Reads a line into op_code and payload. Returns an error text, empty on success. */
    std::string read(std::string_view line);
    uint32_t op_code() const { return op_code_; }
    const std::vector<uint8_t> &payload() const { return payload_; }

private:
    std::string line_of(uint32_t op_code, const uint8_t *payload, size_t size);
    std::string read_digits(std::string_view line);
    std::string read_command(std::string_view line);

    line_words_t words_;
    record_reader_t reader_;
    uint32_t op_code_ = 0;
    std::vector<uint8_t> payload_;
};

#endif
