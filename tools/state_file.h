/* Stores a server's configuration in a journal (state/journal.h), as the lines of state_lines.h. */
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

    /** `program` is the name of the lock's holder. `note` gets a text when changes can no longer be saved, and when
     * they can again. The server must outlive this object. */
    state_file_t(std::string path, std::string program, nat64_server_t &server, note_fn_t note);
    ~state_file_t() { server_.journal_set({}); }
    state_file_t(const state_file_t &) = delete;
    state_file_t &operator=(const state_file_t &) = delete;

    /** Takes the file's lock, restores the server's configuration, and saves its changes from then on. If the state can
     * be read but not saved, `note` gets the error, and the server refuses changes until saving works. Returns any
     * other error, with the file's name; the server may then hold a part of the configuration. */
    std::string open();
    /** True if saving failed and must be retried. */
    bool is_unsaved() const { return journal_.is_unsaved(); }
    /** Saves the changes so far. Returns an error text with the file's name, empty on success. */
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
    std::string error_;   /* of the last commit; empty: none */
    std::string warning_; /* likewise */
};

#endif
