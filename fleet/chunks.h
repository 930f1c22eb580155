/*
 * Documents in pieces. The text of a document (config/notation.h's write_lines) is cut where its own lines say so, and
 * where a new kind of lines begins, so that a change moves the pieces that it is in and leaves the others what they
 * are: about 32 KiB each, 8 KiB to 256 KiB where no kind ends. A piece bears the name of its SHA-256.
 */
#ifndef FLEET_CHUNKS_H
#define FLEET_CHUNKS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

constexpr size_t most_chunk_bytes = 256U << 10;
constexpr size_t most_chunks = 16384;
constexpr size_t most_document_bytes = 256U << 20;

struct chunk_t {
    std::string hash; /* 64 hexadecimal digits, small letters */
    uint32_t bytes = 0;
};

/** SHA-256 in 64 hexadecimal digits; empty when the system cannot make one. */
std::string sha256(std::string_view text);
/** Whether it can be one. */
bool is_sha256(std::string_view text);

/** Cuts a text; the pieces, which point into it, are the text when they are put behind each other. A line longer than a
 * piece may be is cut within. */
std::vector<std::string_view> cut_chunks(std::string_view text);
/** Names a piece. */
chunk_t name_chunk(std::string_view piece);
/** Whether a piece is the one of that name. */
bool is_chunk(const chunk_t &chunk, std::string_view piece);

#endif
