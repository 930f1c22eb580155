/*
 * Lines for standard error that other processes can cause, and that hold up nobody: standard error is never waited for,
 * and each source of lines has so many of them a second. Lines that are left out are counted, and the count is told in
 * a line of its own as soon as there is room for it.
 */
#ifndef NET_LOG_WRITER_H
#define NET_LOG_WRITER_H

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>

class log_writer_t {
public:
    static constexpr uint32_t lines_of_source = 50; /* within a second */
    static constexpr uint32_t lines_of_all = 200;   /* within a second */
    static constexpr size_t longest_line = 4096;    /* bytes that a pipe takes as one */

    /** `left_out_text` makes the line that tells how many there were. */
    explicit log_writer_t(std::function<std::string(uint64_t count)> left_out_text)
        : left_out_text_(std::move(left_out_text)) {}

    /** Writes a line, which is cut if it is too long; `source` says who has caused it, and is only compared. */
    void write(const void *source, std::string line);
    /** Tells of the lines that were left out, if standard error takes that now. */
    void finish();

private:
    bool is_within_second(const void *source);

    const std::function<std::string(uint64_t count)> left_out_text_;
    std::unordered_map<const void *, uint32_t> lines_; /* within the second, of no more than lines_of_all sources */
    uint32_t of_all_ = 0;
    uint64_t since_ms_ = 0; /* the second's begin */
    uint64_t left_out_ = 0; /* that nobody was told of */
};

#endif
