/*
 * The running document of one server: what it holds as far as its PALs have told it, kept over crashes in a directory
 * of that server, under a lock. Beside it, who changed what and when, and what leads back to older versions.
 *
 *     running.open(...)                      takes the lock
 *     running.begin("config apply FILE")     a change begins
 *     running.enter_plan(plan)               if it is a plan: before its first command
 *     running.carried_out(command) ...       with each answer, running.commit() before anybody is told "ok"
 *     running.end()                          makes a version of it
 *
 * A change that a crash has ended is made a version by the next open; commands of its plan that were not answered, or
 * all of them when it was being taken back, leave their items in doubt: plans delete those and add them again.
 *
 * In the directory: `journal` (state/journal.h) and its lock (state/lock.h); `versions/N`, commands that lead from
 * version N back to N-1. Without a directory all is kept in memory alone.
 *
 * Errors are texts that name the file; empty: there is none. Nothing here is thread-safe.
 */
#ifndef RECONCILE_RUNNING_H
#define RECONCILE_RUNNING_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "config/document.h"
#include "config/plan.h"
#include "fwx_nat64/wire.h"
#include "records/reader.h"
#include "records/words.h"
#include "state/journal.h"
#include "state/lock.h"
#include "state/undo_log.h"

/** A change that has been made, or was begun. */
struct version_t {
    uint32_t number = 0;
    int64_t time = 0;    /* seconds since 1970, of its begin */
    size_t commands = 0; /* that were carried out, also those that took others back */
    std::string who;
    std::string what; /* `config apply FILE` */
};

/** How the running document stands to a server. */
enum class step_t : uint8_t {
    in_step,
    unknown,   /* the server does not say who it is */
    restarted, /* the server has started anew since */
    changed,   /* the server has been changed by others, or by somebody who was killed before it was told */
};

class running_t {
public:
    /** Begins the lines of a journal that are no commands. */
    static constexpr char mark = '@';
    /** Versions that can be gone back to. */
    static constexpr size_t kept_versions = 100;

    /**
     * @param directory is made (state/directory.h); empty: everything is kept in memory.
     * @param program   names the holder of the lock: `nat64d`.
     */
    running_t(std::string directory, std::string program);
    running_t(const running_t &) = delete;
    running_t &operator=(const running_t &) = delete;
    const std::string &directory() const { return directory_; }

    /** Takes the lock and reads. While another natctl has the lock, waits for it so long. The error names the holder.
     */
    std::string open(std::chrono::milliseconds patience);
    /** Reads without the lock, for who changes nothing: what is under way elsewhere is in doubt. Instead of open. */
    std::string look();
    /** What a user should know of what open found: lines that were no whole group, a change that a crash ended. */
    const std::vector<std::string> &notes() const { return notes_; }

    /** Settled; until something is carried out. */
    const document_t &document();
    /** Items of the document that are in doubt. */
    size_t doubtful();

    /** How the document stands to a server that says this of itself (fwx::nat64::client::stats_boot). */
    step_t compare(const fwx_nat64_stats_boot_t &server) const;
    /** The server that says this of itself has what the document says. Kept by the next commit. */
    void in_step_with(const fwx_nat64_stats_boot_t &server);

    /** A change begins; there is none. */
    void begin(const std::string &what);
    bool has_begun() const { return has_begun_; }
    /** First thing in a change: the server has started anew, and all items are in doubt. Those of kinds that it counts
     * (fwx_nat64_stats_sys_entry_t) are gone if it says that it holds none. */
    void restarted(bool holds_nothing);
    /** Enters the plan of the change and brings it to the disk. The plan lives until `end`. */
    std::string enter_plan(const plan_t &plan);
    /** The plan is being taken back. */
    void undo_begins();
    /** The server has carried out a command; a change has begun. */
    void carried_out(const record_family_t &family, uint32_t op, const void *record);
    void carried_out(const plan_command_t &command) { carried_out(*command.family, command.op, command.record.bytes); }
    /** Nobody knows whether it has. */
    void doubt(const record_family_t &family, uint32_t op, const void *record);
    void doubt(const plan_command_t &command) { doubt(*command.family, command.op, command.record.bytes); }
    /** Brings what was entered to the disk. */
    std::string commit();
    /** Ends the change; if anything was carried out it is a version, the last one of `versions`. */
    std::string end();

    /** The oldest first. */
    const std::vector<version_t> &versions() const { return versions_; }
    /** The document as it was when that version had been made; 0: before the oldest one that is kept, if that is the
     * first. The error says which ones there are. */
    std::string older(uint32_t number, document_t &out);

    /** A version that goes unless somebody confirms it by then; number 0: there is none. Seconds since 1970. */
    struct unconfirmed_t {
        uint32_t number = 0;
        int64_t until = 0;
    };
    const unconfirmed_t &unconfirmed() const { return unconfirmed_; }
    /** Of the last version; {} confirms it. Kept by the next commit. */
    void set_unconfirmed(const unconfirmed_t &unconfirmed);

private:
    std::string take_lock(std::chrono::milliseconds patience);
    std::unique_ptr<journal_t> make_journal();
    journal_t::read_fn_t reader();
    std::string read_line(std::string_view line);
    std::string read_mark(std::string_view word, std::string_view rest);
    std::string read_version(std::string_view text, version_t &version) const;
    std::string read_command(std::string_view line);
    std::string end_interrupted();
    void write_snapshot(const journal_t::write_fn_t &write);
    void write_change(const journal_t::write_fn_t &write);
    uint64_t snapshot_lines();
    void append(const std::string &line);
    void take_restart(bool holds_nothing);
    template <typename use_t>
    static void for_each_line(std::string_view lines, use_t use) {
        while (!lines.empty()) {
            const size_t length = std::min(lines.find('\n'), lines.size());
            use(lines.substr(0, length));
            lines.remove_prefix(std::min(length + 1, lines.size()));
        }
    }

    const std::string directory_;
    lock_t lock_;
    std::unique_ptr<journal_t> journal_; /* null: none is written */
    std::vector<std::string> notes_;

    document_t base_;     /* of the last version, while a change has begun */
    document_t document_; /* with what the change has done */
    std::vector<version_t> versions_;
    undo_log_t undo_log_; /* of the versions */
    version_t change_;    /* that has begun */
    bool has_begun_ = false;
    uint64_t boot_id_ = 0; /* of the server that the document is of; 0: unknown */
    uint64_t changes_ = 0; /* of the server: when it was in step, and those that it has acknowledged since */
    unconfirmed_t unconfirmed_;
    size_t settle_at_ = 0; /* entries of the document above which it is settled */

    const plan_t *plan_ = nullptr;
    std::unordered_set<size_t> done_;    /* hashes of lines of the plan that were carried out */
    std::string planned_lines_;          /* while reading: the plan, a line each */
    std::unordered_set<size_t> planned_; /* hashes of those that were not carried out */
    bool is_undoing_ = false;

    line_words_t words_;
    record_reader_t reader_;
};

#endif
