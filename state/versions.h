/*
 * The history of a server's configuration: versions, to which the server can be rolled back. A version is a file
 * `documents/N` of a directory. Its first line says when, how and by whom the configuration was changed. The whole
 * document follows. A change by a single command makes a version without a document.
 *
 * Files are written atomically, and are durable before `add` returns. Without a directory, versions are held in memory.
 * The caller must hold the lock of the server (state/lock.h) while it changes something.
 *
 * Errors are texts with the name of the file, empty on success. Nothing here is thread-safe.
 */
#ifndef STATE_VERSIONS_H
#define STATE_VERSIONS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "config/document.h"
#include "state/files.h"
#include "state/write_file.h"

struct version_t {
    uint32_t number = 0;       /* from 1 */
    std::string time;          /* state/time_text.h */
    size_t commands = 0;       /* number of commands that were carried out */
    std::string who;           /* name of the user, without blanks */
    std::string what;          /* what changed it, such as `config apply FILE` */
    bool has_document = false; /* a rollback to it is possible */
    /* The server's boot id and number of changes at that time (fwx_nat64_stats_boot_t); 0: the server has none. */
    uint64_t boot_id = 0;
    uint64_t changes = 0;
};

class versions_t {
public:
    /** Greatest number of versions with a document, and of those without. The oldest ones are deleted. */
    static constexpr size_t most = 100;
    /** Greatest size of all documents together. The oldest ones are deleted, but never the newest two. */
    static constexpr uint64_t most_bytes = uint64_t{256} << 20;

    explicit versions_t(std::string directory, files_t &files = files_t::system())
        : directory_(std::move(directory)), files_(files) {}
    versions_t(const versions_t &) = delete;
    versions_t &operator=(const versions_t &) = delete;

    const std::string &directory() const { return directory_; }
    /** Reads the list of versions. Ignores what is not a version, but a file that another user can change is an
     * error. */
    std::string open();
    /** All versions, the oldest first. */
    const std::vector<version_t> &all() const { return versions_; }
    /** The newest version with a document, or null. */
    const version_t *newest() const;
    /** File of the newest version with a document: its first line is a comment of the document. Requires: there is one,
     * and a directory. */
    std::string newest_path() const { return path_of(newest()->number); }
    /** True if the newest version has these items, as far as this is known without reading its file. */
    bool is_newest(const document_t &document) const;
    /** True if a server with this boot id and number of changes holds the newest document. */
    bool is_newest(uint64_t boot_id, uint64_t changes) const;

    /** Adds a version and sets its number, time and user. `document` is the text of its document, if it has one. The
     * number is used up even if the file cannot be written. */
    std::string add(version_t version, const std::optional<std::string> &document);
    /** The same for the document that a server holds, but does nothing if that is the newest one, by the server's
     * record in `version` or by its items. Without any version, the newest one is the empty document. */
    std::string add_if_other(version_t version, const document_t &held);
    /** Reads the document of a version. Version 0 is the empty document, as long as version 1 exists or there are no
     * versions. The error for an unknown number says which numbers there are. */
    std::string read(uint32_t number, std::string &document) const;

    /** The version that will be rolled back unless the user confirms it; 0: none. Nothing if this cannot be read. May
     * be called before `open`. */
    std::optional<uint32_t> unconfirmed() const;
    /** Sets the version that needs a confirmation; 0: none. Durable when it returns. */
    std::string set_unconfirmed(uint32_t number);

private:
    std::string unconfirmed_path() const { return directory_ + "/unconfirmed"; }
    std::string path_of(uint32_t number) const { return directory_ + "/documents/" + std::to_string(number); }
    std::string add(version_t version, const content_fn_t &document);
    void prune();

    const std::string directory_;
    files_t &files_;
    std::vector<version_t> versions_;
    std::optional<document_t>
        newest_; /* document of the newest version, or of a server without one; nothing: unknown */
    uint32_t last_ = 0;
    std::map<uint32_t, uint64_t> sizes_;        /* in bytes, of versions with a document, by number */
    std::map<uint32_t, std::string> in_memory_; /* documents if there is no directory, by number */
    uint32_t unconfirmed_ = 0;                  /* if there is no directory */
};

#endif
