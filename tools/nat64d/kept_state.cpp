/*
 * Implements kept_state.h. Each file is replaced as a whole, so a crash leaves the old or the new one. A document of
 * many rules is formatted and written once for a change: `in-force` is a link to the version that was just added, and
 * `coming` has only what `in-force` lacks.
 */
#include "tools/nat64d/kept_state.h"

#include "config/load.h"
#include "config/merge.h"
#include "config/notation.h"
#include "state/directory.h"
#include "state/read_file.h"
#include "state/write_file.h"

namespace {

/** The items of both documents. Where both have an item with the same key, the first one's counts. */
document_t united(const document_t &first, const document_t &second) {
    std::vector<config_item_t> ignored;
    return keep_foreign({}, first, second, ignored);
}

}  // namespace

std::string kept_state_t::open(document_t &in_force, std::vector<std::string> &faults) {
    std::string error = versions_.open();
    if (!error.empty()) return error;
    in_force = in_force_ = read(in_force_path(), faults);
    owned_ = united(read(coming_path(), faults), in_force);
    return "";
}

document_t kept_state_t::read(const std::string &path, std::vector<std::string> &faults) const {
    if (is_missing(path)) return {};
    std::string error;
    problems_t problems;
    const std::optional<std::string> text = read_state_file(path, error);
    document_t document = text ? load_written(*text, problems) : document_t();
    if (text && problems.empty()) return document;
    faults.push_back(text ? path + ": " + problems.front().text() : error);
    return {};
}

std::string kept_state_t::write(const std::string &path, const document_t &document) {
    std::string error = make_state_directory(directory());
    if (!error.empty()) return error;
    return write_file(path, content_fn_t([&document](const auto &write) { write_lines(document, write); }));
}

std::string kept_state_t::note_coming(const document_t &document) {
    owned_ = united(document, owned_);
    hash_.clear();
    std::vector<config_item_t> ignored;
    return write(coming_path(), keep_foreign(in_force_, {}, owned_, ignored));
}

std::string kept_state_t::note_in_force(const document_t &document, const std::string &hash) {
    owned_ = document;
    in_force_ = {}; /* after an error either document may be on disk, so `coming` must then have all items */
    const bool is_linked = versions_.is_newest(document) && link_file(versions_.newest_path(), in_force_path()).empty();
    std::string error = is_linked ? "" : write(in_force_path(), document);
    if (!error.empty()) return error;
    in_force_ = document;
    error = remove_file(coming_path());
    if (error.empty()) hash_ = hash;
    return error;
}

std::string kept_state_t::add_version(version_t version, const document_t &held) {
    return versions_.add_if_other(std::move(version), held);
}
