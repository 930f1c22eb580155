/* Where answers and everything else go: answers to one stream in the format asked for, the rest to the other. */
#ifndef TOOLS_NATCTL_OUTPUT_H
#define TOOLS_NATCTL_OUTPUT_H

#include <ostream>
#include <string>
#include <vector>

#include "tools/natctl/options.h"
#include "tools/natctl/outcome.h"

class output_t {
public:
    /** `is_list`: several outcomes may come, and JSON is an array of them. */
    output_t(format_t format, bool is_list, std::ostream &answers, std::ostream &notes);
    /** Completes the JSON document. */
    ~output_t();
    output_t(const output_t &) = delete;
    output_t &operator=(const output_t &) = delete;

    void report(const outcome_t &outcome);
    /** Rows that arrived before the outcome of their command; not for JSON, which has them in the outcome. */
    void stream_rows(const outcome_t &of, const json_t &rows);
    void note(const std::string &text);

private:
    void print_json(const json_t &object);
    void print_text(const outcome_t &outcome);
    void print_heading(const outcome_t &outcome);
    void print_object(const json_t &object);
    void print_rows(const json_t &rows);
    void print_csv(const json_t &rows);

    format_t format_;
    bool is_list_;
    bool is_first_ = true;
    std::ostream &answers_;
    std::ostream &notes_;
    std::vector<size_t> widths_; /* of the columns of rows that were streamed */
};

#endif
