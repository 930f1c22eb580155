/*
 * Implements output.h. JSON writes each outcome as an object; text and CSV make tables of the rows in `data`. Control
 * characters in texts of others are replaced before they are shown.
 */
#include "tools/natctl/output.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fwx_host/loop.h"
#include "tools/natctl/decode.h"

namespace {

constexpr uint64_t progress_every_ms = 200;

/** The first members of every object. */
json_t label_json(const outcome_t &outcome) {
    json_t object = json_t::object();
    if (outcome.line != 0) object["line"] = outcome.line;
    object["command"] = outcome.command;
    return object;
}

json_t outcome_json(const outcome_t &outcome) {
    json_t object = label_json(outcome);
    object["status"] = status_name(outcome.status);
    const bool has_no_code = outcome.status != status_t::ok && outcome.code == 0;
    object["code"] = has_no_code ? json_t() : json_t(outcome.code);
    if (!outcome.error.empty()) object["error"] = outcome.error;
    if (!outcome.note.empty() && outcome.status == status_t::ok) object["note"] = outcome.note;
    if (!outcome.data.is_null()) object["data"] = outcome.data;
    if (outcome.is_cut) object["cut"] = true;
    if (outcome.cookie != 0) object["cookie"] = outcome.cookie;
    if (!outcome.messages.is_null()) object["messages"] = outcome.messages;
    return object;
}

/** Data as rows; an object is one row. */
json_t rows_of(const json_t &data) {
    return data.is_object() ? json_t::array({data}) : data;
}

/** The names of the columns of data that has a row. */
std::vector<std::string> columns_of(const json_t &data) {
    std::vector<std::string> names;
    for (const auto &[name, value] : (data.is_object() ? data : data.front()).items()) {
        names.push_back(name);
    }
    return names;
}

std::string csv_text(const json_t &value) {
    std::string text = value.is_null() ? "" : plain_text(value);
    if (text.find_first_of(",\"\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

/** Sessions with the columns that fit a terminal: both ends, the pool address, and the remaining time. */
json_t brief_rows(const json_t &sessions) {
    const auto end_of = [](const json_t &row, const char *address, const char *port) {
        const std::string host = plain_text(row.at(address));
        const bool is_ipv6 = host.find(':') != std::string::npos;
        return (is_ipv6 ? "[" + host + "]:" : host + ':') + plain_text(row.at(port));
    };
    json_t rows = json_t::array();
    for (const json_t &each : sessions) {
        const json_t session = with_names(each);
        json_t row = json_t::object();
        row["protocol"] = session.at("protocol");
        row["inside"] = end_of(session, "src", "src_port");
        if (session.contains("pool_addr")) row["pool"] = end_of(session, "pool_addr", "pool_port");
        row["destination"] = end_of(session, "dst", "dst_port");
        for (const char *name : {"state", "age_s", "remaining_s"}) {
            if (session.contains(name)) row[name] = session.at(name);
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace

output_t::output_t(format_t format, bool is_list, std::ostream &answers, std::ostream &notes)
    : format_(format),
      is_list_(is_list),
      next_progress_(fwx_host_clock_ms() + progress_every_ms),
      answers_(answers),
      notes_(notes) {}

status_t output_t::report(const outcome_t &outcome) {
    if (refusal_.empty()) refusal_ = other_table(outcome, outcome.data);
    if (!refusal_.empty()) {
        outcome_t refused;
        refused.command = outcome.command;
        refused.line = outcome.line;
        refused.status = status_t::usage;
        refused.error = std::exchange(refusal_, {});
        return report(refused);
    }
    clear_progress();
    switch (format_) {
        case format_t::json:
        case format_t::jsonl:
            print_json(outcome_json(outcome));
            break;
        case format_t::csv:
            print_csv(outcome, rows_of(outcome.data));
            break;
        case format_t::text:
            print_text(outcome);
            break;
    }
    if (format_ != format_t::csv) widths_.clear();
    const bool has_note = outcome.is_cut || outcome.status != status_t::ok;
    const std::string label = has_note ? outcome_label(outcome) : "";
    if (outcome.is_cut) {
        const std::string how = outcome.cookie == 0 ? "" : ", go on with --cookie " + std::to_string(outcome.cookie);
        note("natctl: " + label + ": there is more than --limit shows" + how);
    }
    if (outcome.status != status_t::ok) note("natctl: " + label + (label.empty() ? "" : ": ") + outcome.error);
    return answers_.good() || flush() ? outcome.status : status_t::usage;
}

/** Why rows do not belong to the table that is written as CSV; empty if they do. */
std::string output_t::other_table(const outcome_t &of, const json_t &data) const {
    const bool has_rows = format_ == format_t::csv && !data.empty();
    if (!has_rows || table_.empty()) return "";
    std::string text = "--csv gives one table, and that is one of " + table_;
    if (table_ != of.command) return text;
    return columns_of(data) == columns_ ? "" : text + " with other columns";
}

bool output_t::flush() {
    if (answers_.good()) {
        errno = 0;
        answers_.flush();
    }
    if (answers_.good() || has_failed_) return answers_.good();
    has_failed_ = true;
    note(std::string("natctl: standard output: ") + std::strerror(errno == 0 ? EIO : errno));
    return false;
}

status_t output_t::end(status_t status) {
    clear_progress();
    const bool is_open_document = format_ == format_t::json && is_list_;
    if (is_open_document) answers_ << (is_first_ ? "[]\n" : "\n]\n");
    return flush() ? status : status_t::usage;
}

void output_t::print_json(const json_t &object) {
    bool is_element = format_ == format_t::json && is_list_;
    if (is_element) answers_ << (is_first_ ? "[\n" : ",\n");
    is_first_ = false;
    /* Errors quote words of the user, which may be invalid UTF-8. */
    answers_ << object.dump();
    if (!is_element) answers_ << '\n' << std::flush;
}

void output_t::print_text(const outcome_t &outcome) {
    if (outcome.status != status_t::ok) return;
    if (!outcome.text.empty()) {
        print_heading(outcome);
        answers_ << clean_text(outcome.text);
        if (outcome.note.empty()) return;
    }
    bool has_streamed = !widths_.empty();
    bool has_answer = (!outcome.data.is_null() && outcome.note.empty()) || !outcome.messages.is_null();
    if (!has_answer && !has_streamed && !is_quiet_) {
        const std::string note = outcome.note.empty() ? "" : ", " + clean_line(outcome.note);
        answers_ << outcome_label(outcome) << ": ok" << note << '\n';
    }
    if (outcome.messages.is_array() && outcome.messages.empty()) {
        answers_ << outcome_label(outcome) << ": nothing to send\n";
        return;
    }
    const bool is_told = has_streamed && outcome.data.empty() && outcome.messages.is_null();
    if (is_told) return;
    if (has_answer) print_heading(outcome);
    for (const json_t &message : outcome.messages) {
        answers_ << message_text(message) << '\n' << plain_text(message["hex"]) << '\n';
    }
    if (!has_answer) return;
    if (outcome.data.is_array()) print_rows(outcome.is_brief ? brief_rows(outcome.data) : outcome.data);
    if (outcome.data.is_object()) print_object(with_names(outcome.data));
}

/** In a batch, each answer begins with its line number. */
void output_t::print_heading(const outcome_t &outcome) {
    if (outcome.line != 0) answers_ << outcome_label(outcome) << ":\n";
}

void output_t::print_object(const json_t &object) {
    size_t width = 0;
    for (const auto &[name, value] : object.items()) {
        width = std::max(width, name.size());
    }
    for (const auto &[name, value] : object.items()) {
        answers_ << clean_line(name) << std::string(width - name.size() + 2, ' ') << plain_text(value) << '\n';
    }
}

/** Makes columns as wide as their widest value. Later rows of the same table use the same widths. */
void output_t::print_rows(const json_t &rows) {
    if (rows.empty()) {
        if (widths_.empty()) answers_ << "none\n";
        return;
    }
    bool is_head = widths_.empty();
    std::vector<std::vector<std::string>> lines(1);
    for (const json_t &row : rows) {
        const json_t shown = with_names(row);
        if (lines.size() == 1) {
            for (const auto &[name, value] : shown.items()) {
                lines.front().push_back(name);
            }
        }
        lines.emplace_back();
        for (const json_t &value : shown) {
            lines.back().push_back(plain_text(value));
        }
    }
    widths_.resize(lines.front().size());
    for (const auto &line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            widths_[i] = std::max(widths_[i], line[i].size());
        }
    }
    if (!is_head) lines.erase(lines.begin());
    for (const auto &line : lines) {
        std::string text;
        for (size_t i = 0; i < line.size(); ++i) {
            text += line[i] + std::string(i + 1 == line.size() ? 0 : widths_[i] - line[i].size() + 2, ' ');
        }
        answers_ << text << '\n';
    }
}

void output_t::print_csv(const outcome_t &of, const json_t &rows) {
    if (!rows.empty() && table_.empty()) {
        table_ = of.command;
        columns_ = columns_of(rows);
    }
    auto print_line = [this](const std::vector<std::string> &cells) {
        const char *separator = "";
        for (const std::string &cell : cells) {
            answers_ << separator << cell;
            separator = ",";
        }
        answers_ << '\n';
    };
    for (const json_t &row : rows) {
        std::vector<std::string> names;
        std::vector<std::string> values;
        for (const auto &[name, value] : row.items()) {
            names.push_back(csv_text(name));
            values.push_back(csv_text(value));
        }
        if (widths_.empty()) print_line(names);
        widths_.resize(names.size());
        print_line(values);
    }
}

void output_t::stream_entries(const outcome_t &of, const wire_message_t &reply, const void *entries, uint32_t count) {
    if (format_ != format_t::jsonl) return stream_rows(of, decode_entries(reply, entries, count));
    const std::string label = label_json(of).dump();
    const std::string members = label.substr(1, label.size() - 2);
    if (!lines_ || !lines_->are_of(members, reply)) lines_.emplace(members, reply);
    answers_ << lines_->write(entries, count) << std::flush;
}

void output_t::stream_rows(const outcome_t &of, const json_t &rows) {
    if (refusal_.empty()) refusal_ = other_table(of, rows);
    if (!refusal_.empty()) return;
    if (format_ == format_t::text) {
        if (widths_.empty()) print_heading(of);
        print_rows(of.is_brief ? brief_rows(rows) : rows);
    }
    if (format_ == format_t::csv) print_csv(of, rows);
    if (format_ != format_t::jsonl) return;
    for (const json_t &row : rows) {
        json_t object = label_json(of);
        object.update(row);
        print_json(object);
    }
}

void output_t::announce(const outcome_t &of, const char *word, const std::string &name) {
    if (format_ == format_t::text) {
        answers_ << word << ' ' << clean_line(name) << '\n';
    } else {
        json_t row;
        row[word] = name;
        stream_rows(of, json_t::array({std::move(row)}));
    }
}

void output_t::print_event(const json_t &event) {
    if (format_ != format_t::text) return print_json(event);
    size_t members = 0;
    const json_t shown = with_names(event);
    for (const auto &[name, value] : shown.items()) {
        answers_ << (members == 0 ? "" : " ") << (members < 2 ? "" : name + "=") << plain_text(value);
        ++members;
    }
    answers_ << '\n' << std::flush;
}

void output_t::note(const std::string &text) {
    clear_progress();
    answers_.flush();
    notes_ << clean_text(text) << '\n' << std::flush;
}

void output_t::progress(size_t done, size_t failed) {
    const bool is_due = shows_progress_ && fwx_host_clock_ms() >= next_progress_;
    if (!is_due) return;
    next_progress_ = fwx_host_clock_ms() + progress_every_ms;
    notes_ << '\r' << count_text(done, "command") << " done, " << failed << " failed" << std::flush;
    has_progress_ = true;
}

void output_t::clear_progress() {
    if (has_progress_) notes_ << "\r\x1b[K" << std::flush;
    has_progress_ = false;
}
