/*
 * What nat64d keeps on disk of its server, in a directory of that server: the document in force (`in-force`), one that
 * is on its way (`coming`), and versions (state/versions.h).
 *
 * The items of the first two are nat64d's own: it deletes no others. A document is noted as coming before its first
 * command is sent, so whatever ends nat64d, the next one knows what it may have left on the server.
 *
 * Errors are texts that name the file; empty: there is none. Functions take as long as the disk; they may be called in
 * the background, one at a time.
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
     * Reads what there is.
     * @param in_force gets the document that was in force last; without items: there was none.
     * @param faults   gets what is wrong with documents, which then count for nothing.
     */
    std::string open(document_t &in_force, std::vector<std::string> &faults);
    /** The items that are nat64d's own. */
    const document_t &owned() const { return owned_; }

    /** A document is on its way to the server. */
    std::string note_coming(const document_t &document);
    /** The server holds a document, and none is on its way: nothing else is nat64d's. `hash` is a name for it. */
    std::string note_in_force(const document_t &document, const std::string &hash);
    /** The hash of the document that was noted as in force last; empty: none since `open`, or another one is coming. */
    const std::string &in_force() const { return hash_; }
    /** Adds a version of what the server holds, unless it is the newest already. */
    std::string add_version(version_t version, const document_t &held);

private:
    document_t read(const std::string &path, std::vector<std::string> &faults) const;
    std::string write(const std::string &path, const std::string &text);
    std::string in_force_path() const { return directory() + "/in-force"; }
    std::string coming_path() const { return directory() + "/coming"; }

    versions_t versions_;
    document_t owned_;
    std::string hash_;
};

#endif
