/*
 * Writes log lines that other processes can cause to standard error. So that they cannot slow this process down, it
 * never blocks on standard error, and it limits the lines per second of each source. It counts the lines that it drops,
 * and logs the count as soon as standard error accepts a line.
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
    static constexpr uint32_t lines_of_source = 50; /* per second, for each source */
    static constexpr uint32_t lines_of_all = 200;   /* per second, for all sources together */
    static constexpr size_t longest_line = 4096;    /* bytes; writes of this size to a pipe are atomic */

    /** @param left_out_text makes the line that says how many lines were dropped */
    explicit log_writer_t(std::function<std::string(uint64_t count)> left_out_text)
        : left_out_text_(std::move(left_out_text)) {}

    /** Writes a line, without its line feed. Cuts a line that is too long. `source` identifies who has caused the line;
     * it is compared but never dereferenced. */
    void write(const void *source, std::string line);
    /** Logs the number of dropped lines, if there are any and standard error accepts the line now. */
    void finish();

private:
    bool is_within_second(const void *source);

    const std::function<std::string(uint64_t count)> left_out_text_;
    std::unordered_map<const void *, uint32_t> lines_; /* within the current second, by source */
    uint32_t of_all_ = 0;                              /* lines within the current second */
    uint64_t since_ms_ = 0;                            /* start of the current second */
    uint64_t left_out_ = 0;                            /* dropped lines that have not been logged yet */
};

#endif
