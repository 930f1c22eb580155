/*
 * Files of versions. The first line of a file is `# nat64 version 1 TIME COMMANDS USER BOOT_ID CHANGES KIND WHAT`,
 * where KIND is `document` or `command`. WHAT extends to the end of the line and may contain blanks.
 */
#include "state/versions.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "config/notation.h"
#include "state/directory.h"
#include "state/read_file.h"
#include "state/time_text.h"
#include "state/user.h"

namespace {

constexpr const char *format = "# nat64 version 1";

std::string one_line(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

std::string first_line_of(const version_t &version) {
    std::ostringstream line;
    line << format << ' ' << version.time << ' ' << version.commands << ' ' << version.who << ' ' << version.boot_id
         << ' ' << version.changes << ' ' << (version.has_document ? "document " : "command ") << version.what << '\n';
    return line.str();
}

bool read_first_line(const std::string &line, version_t &version) {
    if (line.rfind(format, 0) != 0) return false;
    std::istringstream words(line.substr(std::char_traits<char>::length(format)));
    std::string kind;
    words >> version.time >> version.commands >> version.who >> version.boot_id >> version.changes >> kind;
    version.has_document = kind == "document";
    const bool is_read = !words.fail() && (version.has_document || kind == "command");
    std::getline(words.ignore(), version.what);
    return is_read;
}

/** The number in the name of a version's file, or 0 if the name is another one. */
uint32_t number_of(const std::string &name) {
    const bool is_number = !name.empty() && name.size() <= 9 && name.front() != '0' &&
                           name.find_first_not_of("0123456789") == std::string::npos;
    return is_number ? static_cast<uint32_t>(std::stoul(name)) : 0;
}

}  // namespace

std::string versions_t::open() {
    versions_.clear();
    sizes_.clear();
    newest_.reset();
    last_ = 0;
    if (directory_.empty()) return "";
    std::error_code error;
    std::filesystem::directory_iterator entry(directory_ + "/documents", error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        version_t version;
        version.number = number_of(entry->path().filename());
        last_ = std::max(last_, version.number);
        std::error_code ignored;
        const bool is_file = entry->symlink_status(ignored).type() == std::filesystem::file_type::regular;
        if (version.number == 0 || !is_file) continue;
        std::string fault;
        const std::optional<state_line_t> first = read_state_line(entry->path(), fault);
        if (!first && is_missing(entry->path())) continue; /* another process has deleted an old version */
        if (!first) return fault;
        if (!read_first_line(first->line, version)) continue;
        if (version.has_document) sizes_[version.number] = first->file_bytes;
        versions_.push_back(std::move(version));
    }
    std::sort(versions_.begin(), versions_.end(),
              [](const version_t &a, const version_t &b) { return a.number < b.number; });
    const bool is_read = !error || error == std::errc::no_such_file_or_directory;
    return is_read ? "" : directory_ + "/documents: " + error.message();
}

const version_t *versions_t::newest() const {
    const auto found =
        std::find_if(versions_.rbegin(), versions_.rend(), [](const version_t &each) { return each.has_document; });
    return found == versions_.rend() ? nullptr : &*found;
}

bool versions_t::is_newest(uint64_t boot_id, uint64_t changes) const {
    const version_t *known = newest();
    return boot_id != 0 && known != nullptr && known->boot_id == boot_id && known->changes == changes;
}

bool versions_t::is_newest(const document_t &document) const {
    return newest() != nullptr && newest_ && has_same_items(*newest_, document);
}

std::string versions_t::add(version_t version, const std::optional<std::string> &document) {
    return add(std::move(version), document ? [&](const auto &write) { write(*document); } : content_fn_t());
}

std::string versions_t::add(version_t version, const content_fn_t &document) {
    version.number = ++last_;
    version.time = time_text();
    version.who = user_name();
    version.what = one_line(std::move(version.what));
    version.has_document = document != nullptr;
    if (version.has_document) newest_.reset();
    std::string error;
    if (directory_.empty()) {
        if (document) document([&text = in_memory_[version.number]](std::string_view part) { text += part; });
    } else {
        uint64_t bytes = 0;
        const content_fn_t content = [&](const auto &write) {
            const auto count_and_write = [&](std::string_view part) {
                bytes += part.size();
                write(part);
            };
            count_and_write(first_line_of(version));
            if (document) document(count_and_write);
        };
        error = make_state_directory(directory_ + "/documents", files_);
        if (error.empty()) error = write_file(path_of(version.number), content, files_);
        if (version.has_document && error.empty()) sizes_[version.number] = bytes;
    }
    if (!error.empty()) return error;
    versions_.push_back(std::move(version));
    prune();
    return "";
}

std::string versions_t::add_if_other(version_t version, const document_t &held) {
    if (is_newest(version.boot_id, version.changes)) return "";
    const std::string text = newest_ ? "" : write_lines(held);
    const auto has_its_text = [&] {
        std::string known;
        return read(newest() == nullptr ? 0 : newest()->number, known).empty() && known == text;
    };
    const bool is_known = newest_ ? has_same_items(*newest_, held) : has_its_text();
    const content_fn_t content = [&](const auto &write) { text.empty() ? write_lines(held, write) : write(text); };
    std::string error = is_known ? "" : add(std::move(version), content);
    if (error.empty()) newest_ = held;
    return error;
}

void versions_t::prune() {
    size_t counts[2] = {};
    uint64_t bytes = 0;
    const auto is_too_old = [&](const version_t &version) {
        const size_t count = ++counts[version.has_document ? 1 : 0];
        if (version.has_document) bytes += sizes_[version.number];
        return count > most || (version.has_document && count > 2 && bytes > most_bytes);
    };
    std::vector<version_t> stay;
    for (auto version = versions_.rbegin(); version != versions_.rend(); ++version) {
        if (!is_too_old(*version)) {
            stay.push_back(std::move(*version));
            continue;
        }
        in_memory_.erase(version->number);
        sizes_.erase(version->number);
        if (!directory_.empty()) unlink(path_of(version->number).c_str());
    }
    versions_.assign(std::make_move_iterator(stay.rbegin()), std::make_move_iterator(stay.rend()));
}

std::string versions_t::read(uint32_t number, std::string &document) const {
    const auto found = std::find_if(versions_.begin(), versions_.end(),
                                    [number](const version_t &version) { return version.number == number; });
    const bool is_first = number == 0 && (versions_.empty() || versions_.front().number == 1);
    document.clear();
    if (is_first) document = write_lines(document_t());
    if (is_first) return "";
    if (found == versions_.end()) {
        const uint32_t oldest = versions_.empty() || versions_.front().number == 1 ? 0 : versions_.front().number;
        const uint32_t last = versions_.empty() ? 0 : versions_.back().number;
        return "version " + std::to_string(number) + ": must be " + std::to_string(oldest) + " to " +
               std::to_string(last);
    }
    if (!found->has_document) {
        return "version " + std::to_string(number) + ": " + found->what + " was a single command, and left no document";
    }
    if (directory_.empty()) {
        document = in_memory_.at(number);
        return "";
    }
    std::string error;
    document = read_state_file(path_of(number), error).value_or("");
    document.erase(0, document.find('\n') + 1);
    return error;
}

std::optional<uint32_t> versions_t::unconfirmed() const {
    if (directory_.empty()) return unconfirmed_;
    std::string error;
    const std::optional<std::string> text = read_state_file(unconfirmed_path(), error);
    if (!text && is_missing(unconfirmed_path())) return 0;
    const uint32_t number = text ? number_of(text->substr(0, text->find('\n'))) : 0;
    return number == 0 ? std::nullopt : std::optional(number);
}

std::string versions_t::set_unconfirmed(uint32_t number) {
    unconfirmed_ = number;
    if (directory_.empty()) return "";
    if (number != 0) return write_file(unconfirmed_path(), std::to_string(number) + "\n", files_);
    return remove_file(unconfirmed_path(), files_);
}
