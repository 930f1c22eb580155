/*
 * nat64d's state on disk, in a directory for each server: the document in force (`in-force`), new items of a
 * document that is being applied (`coming`), and versions (state/versions.h).
 *
 * nat64d owns the items of the first two and deletes no others. Before it sends the document's first command it writes
 * to `coming` what `in-force` has not. So even after a crash, the next nat64d knows which items this one may have left
 * on the server. If the disk is full, no command is sent.
 *
 * Errors are texts that name the file, empty on success. The functions block on the disk. They may run in the
 * background, one at a time.
 */
#ifndef TOOLS_NAT64D_KEPT_STATE_H
#define TOOLS_NAT64D_KEPT_STATE_H

#include <string>
#include <vector>

#include "config/document.h"
#include "state/versions.h"

class kept_state_t {
public:
    explicit kept_state_t(std::string directory) : versions_(std::move(directory)) {}

    const std::string &directory() const { return versions_.directory(); }
    const versions_t &versions() const { return versions_; }
    /**
     * Reads the state.
     * @param in_force receives the document that was in force last; no items: there was none.
     * @param faults   receives the errors of unreadable documents, which are ignored.
     */
    std::string open(document_t &in_force, std::vector<std::string> &faults);
    /** The items that nat64d owns. */
    const document_t &owned() const { return owned_; }

    /** Call it before the first command of a document is sent. */
    std::string note_coming(const document_t &document);
    /** Call it when the server holds a document and none is being applied: nat64d then owns only its items. `hash`
     * names the document. */
    std::string note_in_force(const document_t &document, const std::string &hash);
    /** The hash that note_in_force got last; empty: none since `open`, or another document is being applied. */
    const std::string &in_force() const { return hash_; }
    /** Adds a version with the document that the server holds, unless the newest version has the same. */
    std::string add_version(version_t version, const document_t &held);

private:
    document_t read(const std::string &path, std::vector<std::string> &faults) const;
    std::string write(const std::string &path, const document_t &document);
    std::string in_force_path() const { return directory() + "/in-force"; }
    std::string coming_path() const { return directory() + "/coming"; }

    versions_t versions_;
    document_t owned_;
    document_t in_force_; /* the document on disk; empty: unknown */
    std::string hash_;
};

#endif
