/* Where answers and everything else go: answers to one stream in the format asked for, the rest to the other. */
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

    /** Leaves out what only says that all is well. */
    void quiet() { is_quiet_ = true; }
    /** Shows how far a batch has come where somebody can see it and the answers do not. */
    void show_progress() { shows_progress_ = !is_quiet_; }

    /** Returns the outcome's status, or the one of an answer that could not be given. */
    status_t report(const outcome_t &outcome);
    /** Entries of a reply that arrived before the outcome of their command; not for JSON, which has them in the
     * outcome. They come by the million: as lines of JSON they are written without being made into documents. */
    void stream_entries(const outcome_t &of, const wire_message_t &reply, const void *entries, uint32_t count);
    /** `serving alpha`: an answer before the outcome of its command. */
    void announce(const outcome_t &of, const char *word, const std::string &name);
    /** An answer that is a line of its own in every format: of its first two members the values alone, if it is text.
     */
    void print_event(const json_t &event);
    /** An answer that is a text in every format. */
    void print(const std::string &text) { answers_ << text; }
    void note(const std::string &text);
    /** What a batch has done so far; seen now and then. */
    void progress(size_t done, size_t failed);
    /** Hands on what is written; false when that failed, now or before, which is noted once. */
    bool flush();
    /** Completes the answers; returns the status, or the one of answers that could not be written. */
    status_t end(status_t status);

private:
    bool is_other_table(const outcome_t &of, const json_t &rows) const;
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
    bool is_table_refused_ = false; /* rows were dropped that belong to another table than CSV is */
    uint64_t next_progress_;        /* by the platform's clock */
    std::ostream &answers_;
    std::ostream &notes_;
    std::string table_; /* command whose table CSV is; empty: none yet */
    std::optional<entry_lines_t> lines_;
    std::vector<size_t> widths_; /* of the columns of rows that were streamed, and of the table that CSV is */
};

#endif
