/* A server's configuration in a journal, by the lines of state_lines.h. */
#ifndef TOOLS_STATE_FILE_H
#define TOOLS_STATE_FILE_H

#include <functional>
#include <string>

#include "server/server.h"
#include "state/journal.h"
#include "state/lock.h"
#include "tools/state_lines.h"

class state_file_t {
public:
    using note_fn_t = std::function<void(const std::string &)>;

    /** `program` is named as the holder of the file's lock. `note` hears when changes cannot be kept, and when they can
     * again. The server must outlive the file. */
    state_file_t(std::string path, std::string program, nat64_server_t &server, note_fn_t note);
    ~state_file_t() { server_.journal_set({}); }
    state_file_t(const state_file_t &) = delete;
    state_file_t &operator=(const state_file_t &) = delete;

    /** Takes the file's lock, sets the server up, and keeps what changes in it from then on. A state that can be read
     * and not saved is noted; changes are then refused until it can be. Returns what went wrong otherwise, with the
     * file's name; the server may then hold a part of the configuration. */
    std::string open();
    /** Whether changes that could not be kept have to be tried again. */
    bool is_unsaved() const { return journal_.is_unsaved(); }
    /** Returns why what has changed is not in the file, with its name; empty when it is. */
    std::string commit();

private:
    void save(const journal_t::write_fn_t &write);
    std::string restore(std::string_view line);
    void tell(const std::string &error);

    nat64_server_t &server_;
    note_fn_t note_;
    state_lines_t lines_;
    lock_t lock_;
    journal_t journal_;
    std::string error_;   /* of the last commit */
    std::string warning_; /* the same */
};

#endif
