/*
 * natctl's binding to the library. It sends commands, collects their results and rows, and shows the server's
 * notifications. There is one pal_t at a time, because a process has one binding.
 *
 *     id = pal.start(command, line);    sends the command
 *     outcome = pal.finish(id);         waits for its result
 *
 * The sources: pal.cpp (binding and calls), pal_lists.cpp (lists over many replies), pal_rules.cpp (records and MAP-T
 * rules), pal_changes.cpp (the server's state, its lock and its versions).
 */
#ifndef TOOLS_NATCTL_PAL_H
#define TOOLS_NATCTL_PAL_H

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "fwx_host/fwx_host.h"
#include "reconcile/rule_book.h"
#include "records/family.h"
#include "state/lock.h"
#include "state/versions.h"
#include "tools/natctl/options.h"
#include "tools/natctl/outcome.h"
#include "wire/messages.h"

/* Declared, not included, because only few of the many sources that include this header use them. */
namespace fwx::nat64 {
class client;
enum class list_step;
struct handlers;
struct page;
template <class value_type>
class task;
}  // namespace fwx::nat64
class connection_t;
struct fwx_nat64_model_t;
class reconciler_t;

namespace nat64 = fwx::nat64;
class pal_t;
struct call_t;

/** A list that may take several queries and replies. */
struct list_t {
    uint16_t msgno; /* of the query */
    uint64_t limit = UINT64_MAX;
    uint64_t rows = 0;
    std::function<uint32_t(call_t &call)> then = nullptr; /* starts a command after the list, which then only counts */
    /** Selects the entries that are rows; null: all are. With a selection the server is not told the limit. */
    std::function<bool(const wire_message_t &reply, const uint8_t *entry)> takes = nullptr;
};

/** One execution of a command, from its start to its result. */
struct call_t {
    pal_t &pal;
    uintptr_t id;
    bool awaited = true; /* the result comes later; a command that has it at once clears this */
    outcome_t outcome;   /* the command or the arriving rows fill its `data` */
    uint64_t deadline;   /* by the platform's clock; each reply of a list moves it */
    bool answered = false;
    bool given_up = false; /* the deadline has passed; a late result is only noted */
    bool cut_off = false;  /* its channel has ended, so no result comes */
    std::optional<list_t> list = std::nullopt;
    std::optional<rule_change_t> rule = std::nullopt;
    std::optional<default_change_t> default_rule = std::nullopt;
    bool is_change = false; /* an outstanding configuration command */
};

/** Starts a command; returns the library's result. */
using start_fn_t = std::function<uint32_t(call_t &call)>;

/** A command ready to be started. */
struct command_t {
    std::string name; /* `timeout set` */
    start_fn_t start;
    bool is_embedded_only = false; /* acts on the server model in this process, and sends nothing */
    bool needs_server = true;
};

class pal_t {
public:
    using note_fn_t = std::function<void(const std::string &)>;
    /** Takes entries of a reply, which are valid during the call. */
    using rows_fn_t =
        std::function<void(const outcome_t &of, const wire_message_t &reply, const void *entries, uint32_t count)>;
    using call_id_t = uintptr_t;

    /** `note` shows everything that is not an answer. */
    pal_t(const options_t &options, note_fn_t note);
    /** Unbinds, and notes the commands that are still outstanding. */
    ~pal_t();
    pal_t(const pal_t &) = delete;
    pal_t &operator=(const pal_t &) = delete;

    /** The outcome of a command for the embedded server if there is none. Empty for all other commands. */
    std::optional<outcome_t> without_server(const command_t &command) const;
    /** Connects to the server. */
    outcome_t bind();
    /** Starts a command of the given batch line. */
    call_id_t start(const command_t &command, uint32_t line);
    /** Waits for the result of a started command, at most until its deadline. */
    outcome_t finish(call_id_t id);
    /** True if the channel to the server is up. */
    bool is_connected() const;
    /** True if the server was a process that has ended, and no other listens under its name. */
    bool has_lost_server() const;
    /** True if the server has answered a started command. */
    bool has_verdict(call_id_t id) const;
    /** Forgets a started command. True if the server may have carried it out. */
    bool abandon(call_id_t id);

    fwx_host_loop_t *loop() const { return loop_.get(); }
    /** The embedded server model, or null. */
    fwx_nat64_model_t *model() const;
    /** Number of outstanding commands. */
    size_t outstanding() const;
    /** Passes a command to the library: `send_it` calls the C function with a `pal_ctx`. */
    uint32_t configure(const call_t &call, std::function<uint32_t(void *pal_ctx)> send_it);
    /** Passes the record of a command to the library. */
    uint32_t send(call_t &call, const record_family_t &family, uint32_t op, const void *record);
    /** Sends a query for at most `wanted` entries of a list, from a cookie on. */
    using ask_fn_t = std::function<uint32_t(void *pal_ctx, uint64_t cookie, uint64_t wanted)>;
    /** Begins a list of at most `limit` entries. */
    uint32_t begin_list(call_t &call, uint16_t msgno, uint64_t cookie, uint64_t limit, ask_fn_t ask,
                        decltype(list_t::takes) takes = nullptr);
    /** Counts the entries of the list of `ask`, stores the count as `matched`, and then starts the command `then`. */
    uint32_t begin_count(call_t &call, uint16_t msgno, ask_fn_t ask, decltype(list_t::then) then);
    const rule_book_t &rules() const { return rules_; }
    rule_book_t &rules() { return rules_; }

    /* The server's state, its lock and its versions (pal_changes.cpp). Errors are texts, empty on success. */

    /** Reads the server's state and applies documents. */
    reconciler_t &reconciler();
    /** Opens the versions of the server for reading: those of begin_change, or others in `place`. */
    std::string open_versions(std::optional<versions_t> &place, versions_t *&versions);
    /** Takes the lock of the server and opens its versions, until end_change. The embedded server has no lock, and its
     * versions exist as long as natctl runs. */
    std::string begin_change();
    /** Makes a call fail with an error of begin_change. */
    void refuse_change(call_t &call, const std::string &error) const {
        refuse(call.outcome, is_locked_out_ ? status_t::locked : status_t::usage, 0, error);
    }
    /** Requires begin_change. */
    versions_t &versions() { return *versions_; }
    /** Adds a version for the changes of single commands. */
    std::string end_singles();
    /** Does the same, and releases the lock. */
    std::string end_change();
    /** Names the version of single commands in the log; by default the first command is its name. */
    void name_changes(const std::string &what) { change_name_ = what; }
    /** Makes a call fail because the server's state could not be read. */
    void refuse_unread(call_t &call, const std::error_code &error, const std::string &text) const;
    /** The configuration of a server in another process, if this natctl has installed no rules itself. Notes that it
     * asks the server. If the server does not answer, the call fails. */
    std::optional<document_t> server_document(call_t &call);
    /** The server's identity and count of changes; zeros if it does not report them. */
    fwx_nat64_stats_boot_t server_boot();
    std::optional<fwx_nat64_stats_sys_entry_t> server_totals();
    /** Runs the reconciler on a plan. Its own queries are left out of the trace. */
    template <typename value_t, typename on_turn_t>
    value_t run_plan(nat64::task<value_t> task, on_turn_t on_turn) {
        is_reconciling_ = true;
        value_t result = run(std::move(task), on_turn);
        is_reconciling_ = false;
        return result;
    }
    /** Waits for the results of all started commands. */
    void settle_all();
    /** Runs a task of the binding to its end, and calls `on_turn` after each turn of the loop. The task's commands have
     * the same deadline as others. */
    template <typename value_t, typename on_turn_t = void (*)()>
    value_t run(
        nat64::task<value_t> task, on_turn_t on_turn = [] {}) {
        deadline_set(options_.timeout_ms);
        task.start();
        while (!task.done()) {
            fwx_host_loop_run_once(loop_.get(), -1);
            on_turn();
        }
        deadline_set(0);
        return task.get();
    }
    /** Does the same, without a trace. */
    template <typename value_t>
    value_t run_internal(nat64::task<value_t> task) {
        is_internal_ = true;
        value_t value = run(std::move(task));
        is_internal_ = false;
        return value;
    }
    nat64::client &client() { return *client_; }
    const options_t &options() const { return options_; }
    /** Passes the rows of walks to `rows` as they arrive, instead of collecting them. */
    void stream_rows(rows_fn_t rows) { rows_ = std::move(rows); }

    /** Passes every notification to `show`, decoded, instead of noting it. */
    void show_unsolicited(std::function<void(const json_t &message)> show) { unsolicited_ = std::move(show); }

    /** Takes the result of a call's command. */
    void answered(call_id_t id, const nat64::result &got);
    /** Shows a text that is not an answer. */
    void note(const std::string &text) { note_(text); }

private:
    static void tapped(void *arg, fwx_host_direction_t direction, const void *msg, size_t size);
    nat64::handlers handlers();
    /** Of the commands that follow; 0: none. */
    void deadline_set(uint32_t timeout_ms);
    void notified(const std::string &text);
    void channel_lost();
    void settle(call_t &call);
    void forget(call_id_t id);
    call_t *find(call_id_t id);
    uint32_t send_rule(call_t &call, const record_family_t &family);
    void rule_answered(call_id_t id, const nat64::rule_result &got);
    /** The result of a rule's command, and in `by` whose result it is: the library's or the server's. */
    uint32_t judge_rule(const call_t &call, const nat64::rule_result &got, const char *&by);
    std::string begin_single(const call_t &call);
    void count_single(call_t &call, const nat64::result &got);
    void end_rule(const call_t &call);
    void note_repair(const call_t &call, uint32_t code);
    nat64::list_step paged(call_id_t id, const nat64::page &page);
    bool take_rows(call_t &call, const wire_message_t &reply, const nat64::page &page, uint32_t count);
    uint32_t start_list(const call_t &call, uint64_t cookie, ask_fn_t ask);
    /** Starts the command that follows a count. */
    uint32_t start_next(call_t &call);
    void end(call_t &call, const std::error_code &error, const char *by);

    options_t options_;
    note_fn_t note_;
    rows_fn_t rows_;
    std::function<void(const json_t &message)> unsolicited_;
    std::unique_ptr<fwx_host_loop_t, void (*)(fwx_host_loop_t *)> loop_;
    std::unique_ptr<connection_t> connection_;
    std::unique_ptr<nat64::client> client_;
    std::map<call_id_t, call_t> calls_;
    call_id_t last_id_ = 0;
    call_t *starting_ = nullptr; /* the call whose messages are being sent */
    std::map<rule_name_t, call_id_t> outstanding_rules_;
    rule_book_t rules_;
    std::unique_ptr<reconciler_t> reconciler_;
    std::optional<lock_t> lock_; /* of the server, while it is being changed */
    bool is_locked_out_ = false; /* another process had the lock when begin_change was called last */
    std::optional<versions_t> versions_;
    version_t single_; /* counts the changes of single commands */
    std::string change_name_;
    bool is_reconciling_ = false; /* a plan runs: statistics messages are the reconciler's, and not traced */
    bool is_internal_ = false;    /* no message is the user's, so none is traced */
};

#endif
