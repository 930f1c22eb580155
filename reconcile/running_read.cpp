/* How a running document is read back. */
#include <algorithm>

#include "reconcile/running.h"
#include "records/value.h"

namespace {

std::string_view take_word(std::string_view &text) {
    const size_t length = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return word;
}

bool take_number(std::string_view &text, uint64_t &number) {
    return parse_number(take_word(text), number);
}

}  // namespace

std::string running_t::read_line(std::string_view line) {
    if (line.empty() || line.front() != mark) {
        if (has_begun_) {
            if (!planned_.empty()) planned_.erase(std::hash<std::string_view>()(line));
            ++change_.commands;
        }
        ++changes_;
        std::string error = read_command(line);
        if (error.empty()) document_.carry_out(reader_.family(), reader_.verb().op, reader_.record().bytes);
        return error;
    }
    std::string_view rest = line.substr(1);
    const std::string_view word = take_word(rest);
    return read_mark(word, rest);
}

std::string running_t::read_command(std::string_view line) {
    if (words_.split(line) != 0) return "a quote without its end";
    switch (reader_.read(words_.words())) {
        case record_reader_t::result_t::record:
            return "";
        case record_reader_t::result_t::refused:
            return reader_.command() + ": " + reader_.error();
        case record_reader_t::result_t::other:
            break;
    }
    return "no command that configures";
}

std::string running_t::read_version(std::string_view text, version_t &version) const {
    uint64_t number = 0;
    uint64_t time = 0;
    uint64_t commands = 0;
    const bool is_read = take_number(text, number) && number <= UINT32_MAX && take_number(text, time) &&
                         time <= INT64_MAX && take_number(text, commands);
    if (!is_read) return "no version, time and count of commands";
    version = {static_cast<uint32_t>(number), static_cast<int64_t>(time), commands, {}, {}};
    version.who = take_word(text);
    version.what = text;
    return "";
}

std::string running_t::read_mark(std::string_view word, std::string_view rest) {
    if (word == "doubt") {
        std::string error = read_command(rest);
        if (error.empty()) document_.doubt(reader_.family(), reader_.record().bytes);
        return error;
    }
    if (word == "plan") {
        planned_lines_.append(rest) += '\n';
        planned_.insert(std::hash<std::string_view>()(rest));
        return read_command(rest);
    }
    if (word == "undo") {
        is_undoing_ = true;
        return "";
    }
    if (word == "restarted") {
        take_restart(rest == "nothing");
        return "";
    }
    if (word == "change") {
        document_.settle();
        base_ = document_;
        has_begun_ = true;
        return read_version(rest, change_);
    }
    if (word == "end") {
        document_.settle();
        base_ = {};
        has_begun_ = is_undoing_ = false;
        planned_.clear();
        planned_lines_.clear();
        return "";
    }
    if (word == "version") {
        versions_.emplace_back();
        return read_version(rest, versions_.back());
    }
    uint64_t first = 0;
    uint64_t second = 0;
    if (!take_number(rest, first) || !take_number(rest, second)) return "not known here";
    if (word == "boot") {
        boot_id_ = first;
        changes_ = second;
        return "";
    }
    if (word != "unconfirmed") return "not known here";
    unconfirmed_ = {static_cast<uint32_t>(first), static_cast<int64_t>(second)};
    return "";
}

/** Makes a version of a change that was begun and never ended. */
std::string running_t::end_interrupted() {
    document_.settle();
    if (!has_begun_) return "";
    size_t doubtful = 0;
    for_each_line(planned_lines_, [&](std::string_view line) {
        const bool is_known = !is_undoing_ && planned_.count(std::hash<std::string_view>()(line)) == 0;
        if (is_known || !read_command(line).empty()) return;
        doubt(reader_.family(), reader_.verb().op, reader_.record().bytes);
        ++doubtful;
    });
    planned_.clear();
    planned_lines_.clear();
    if (!journal_) {
        document_.settle();
        base_ = {};
        has_begun_ = is_undoing_ = false;
        return "";
    }
    change_.what += " (interrupted)";
    notes_.push_back(change_.what + " of " + change_.who + ": " + std::to_string(change_.commands) +
                     " commands were carried out, and " + std::to_string(doubtful) + " are in doubt");
    return end();
}
