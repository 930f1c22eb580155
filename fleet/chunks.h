/*
 * Content-defined chunks of a document. The text of a document (write_lines in config/notation.h) is cut behind lines
 * whose hash has a certain value, and where the lines of another command begin. A change of the document therefore
 * changes only the chunks around it. A chunk has about 32 KiB. It has at least 8 KiB, unless another command begins,
 * and at most 256 KiB. It is named by its SHA-256.
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
    std::string hash; /* SHA-256 in 64 lower-case hexadecimal digits */
    uint32_t bytes = 0;
};

/** SHA-256 in 64 lower-case hexadecimal digits, or an empty text if OpenSSL fails. */
std::string sha256(std::string_view text);
/** True if a text has the form of such a hash. */
bool is_sha256(std::string_view text);

/** Cuts a text into chunks, which point into it and are the whole text in order. A line that is longer than a chunk may
 * be is cut too. */
std::vector<std::string_view> cut_chunks(std::string_view text);
/** Computes the name of a chunk with that text. */
chunk_t name_chunk(std::string_view piece);
/** True if a text has the length and the hash of a chunk. */
bool is_chunk(const chunk_t &chunk, std::string_view piece);

#endif
