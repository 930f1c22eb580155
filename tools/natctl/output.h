/* Writes answers to one stream, in the format that the user chose, and notes and errors to another. */
#ifndef TOOLS_NATCTL_OUTPUT_H
#define TOOLS_NATCTL_OUTPUT_H

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tools/natctl/entry_lines.h"
#include "tools/natctl/options.h"
#include "tools/natctl/outcome.h"
#include "wire/messages.h"

class output_t {
public:
    /** `is_list`: several outcomes may come, and JSON is an array of them. */
    output_t(format_t format, bool is_list, std::ostream &answers, std::ostream &notes);
    output_t(const output_t &) = delete;
    output_t &operator=(const output_t &) = delete;

    /** Omits messages that only say that all is well. */
    void quiet() { is_quiet_ = true; }
    /** Shows the progress of a batch. For a terminal that does not show the answers. */
    void show_progress() { shows_progress_ = !is_quiet_; }

    /** Shows an outcome. Returns its status, or `usage` if the answer could not be written. */
    status_t report(const outcome_t &outcome);
    /** Writes entries of a reply before the outcome of their command is known. Not for --json, which has them in the
     * outcome. With --jsonl they are formatted without making JSON objects, because a walk has millions. */
    void stream_entries(const outcome_t &of, const wire_message_t &reply, const void *entries, uint32_t count);
    /** Writes an answer such as `serving alpha` before the outcome of its command. */
    void announce(const outcome_t &of, const char *word, const std::string &name);
    /** Writes an answer that is one line in every format. The text format shows the first two members without keys. */
    void print_event(const json_t &event);
    /** Writes an answer that is the same text in every format. */
    void print(const std::string &text) { answers_ << text; }
    void note(const std::string &text);
    /** Updates the progress of a batch; shown at most every 200 ms. */
    void progress(size_t done, size_t failed);
    /** Flushes the answers. False if writing failed, now or earlier; this is noted once. */
    bool flush();
    /** Completes the answers. Returns `status`, or `usage` if the answers could not be written. */
    status_t end(status_t status);

private:
    std::string other_table(const outcome_t &of, const json_t &data) const;
    void print_json(const json_t &object);
    void print_text(const outcome_t &outcome);
    void print_heading(const outcome_t &outcome);
    void print_object(const json_t &object);
    void print_rows(const json_t &rows);
    void stream_rows(const outcome_t &of, const json_t &rows);
    void print_csv(const outcome_t &of, const json_t &rows);
    void clear_progress();

    format_t format_;
    bool is_list_;
    bool is_quiet_ = false;
    bool is_first_ = true;
    bool has_failed_ = false;
    bool shows_progress_ = false;
    bool has_progress_ = false;
    std::string refusal_;    /* rows were dropped because they belong to another table; empty: none were */
    uint64_t next_progress_; /* by the platform's clock */
    std::ostream &answers_;
    std::ostream &notes_;
    std::string table_;                /* the command whose table is written as CSV; empty: none yet */
    std::vector<std::string> columns_; /* of that table */
    std::optional<entry_lines_t> lines_;
    std::vector<size_t> widths_; /* of the columns of streamed rows, and of the CSV table */
};

#endif
