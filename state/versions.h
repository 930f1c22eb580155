/*
 * What a server was brought to, and by whom: versions, the newest of which can be gone back to. A version is a file
 * `documents/N` of a directory. Its first line says how it came about, and behind it stands the whole document. The
 * change of a single command is a version without a document.
 *
 * A file is there as a whole or not at all, and is on disk before `add` returns. Without a directory everything is kept
 * in memory. The caller has the lock of the server (state/directory.h) while it changes something.
 *
 * Errors are texts that name the file; empty: there is none. Nothing here is thread-safe.
 */
#ifndef STATE_VERSIONS_H
#define STATE_VERSIONS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

struct version_t {
    uint32_t number = 0;       /* from 1 */
    std::string time;          /* state/time_text.h */
    size_t commands = 0;       /* that were carried out */
    std::string who;           /* one word */
    std::string what;          /* `config apply FILE` */
    bool has_document = false; /* it can be gone back to */
    /* The server had this boot id and number of changes then (fwx_nat64_stats_boot_t); 0: it does not say. */
    uint64_t boot_id = 0;
    uint64_t changes = 0;
};

class versions_t {
public:
    /** The newest of each kind that are kept, with a document and without. */
    static constexpr size_t most = 100;
    /** The oldest documents go when all take more than this, but the newest two stay. */
    static constexpr uint64_t most_bytes = uint64_t{256} << 20;

    explicit versions_t(std::string directory) : directory_(std::move(directory)) {}
    versions_t(const versions_t &) = delete;
    versions_t &operator=(const versions_t &) = delete;

    const std::string &directory() const { return directory_; }
    /** Reads which versions there are. Files that are none are ignored. */
    std::string open();
    /** The oldest first. */
    const std::vector<version_t> &all() const { return versions_; }
    /** The newest one with a document, or null. */
    const version_t *newest() const;

    /** Adds a version, of which number, time and user are filled in here; `document` is its text, or null. Numbers go
     * on from `open` also when the file could not be written. */
    std::string add(version_t version, const std::string *document);
    /** The same, unless the newest document is this one; before the first, that is one without items. */
    std::string add_if_other(version_t version, const std::string &document);
    /** Reads the document of a version. Number 0 is a document without items while version 1 is kept. The error says
     * which ones there are. */
    std::string read(uint32_t number, std::string &document) const;

    /** A version that is undone unless somebody confirms it; 0: there is none. Nothing: that cannot be read. Also
     * before `open`. */
    std::optional<uint32_t> unconfirmed() const;
    /** 0: none is. */
    std::string set_unconfirmed(uint32_t number);

private:
    std::string unconfirmed_path() const { return directory_ + "/unconfirmed"; }
    std::string path_of(uint32_t number) const { return directory_ + "/documents/" + std::to_string(number); }
    void prune();

    const std::string directory_;
    std::vector<version_t> versions_;
    uint32_t last_ = 0;
    std::map<uint32_t, uint64_t> sizes_; /* bytes, of those with a document */
    std::map<uint32_t, std::string> in_memory_;
    uint32_t unconfirmed_ = 0; /* in memory */
};

#endif
