/* What leads from each version of a running document to the one before it: commands, a line each. */
#ifndef STATE_UNDO_LOG_H
#define STATE_UNDO_LOG_H

#include <cstdint>
#include <map>
#include <string>

/** Errors are texts that name the file; empty: there is none. */
class undo_log_t {
public:
    /** They are the files `versions/N` of a directory, which is there when the first one is kept; in memory when it is
     * empty. */
    explicit undo_log_t(std::string directory) : directory_(std::move(directory)) {}

    std::string keep(uint32_t version, const std::string &lines);
    std::string read(uint32_t version, std::string &lines) const;
    void drop(uint32_t version);

private:
    std::string path_of(uint32_t version) const { return directory_ + "/versions/" + std::to_string(version); }

    const std::string directory_;
    std::map<uint32_t, std::string> in_memory_;
};

#endif
