/*
 * natctl's binding to the library: carries commands out, collects their verdicts and rows, and shows what the server
 * sends unasked. There is one at a time, as there is one binding per process.
 */
#ifndef TOOLS_NATCTL_PAL_H
#define TOOLS_NATCTL_PAL_H

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "fwx_host/adapter.hpp"
#include "model/model.h"
#include "reconcile/reconciler.h"
#include "reconcile/rule_book.h"
#include "records/family.h"
#include "state/lock.h"
#include "state/versions.h"
#include "tools/natctl/connection.h"
#include "tools/natctl/options.h"
#include "tools/natctl/outcome.h"
#include "wire/messages.h"

namespace nat64 = fwx::nat64;
class pal_t;
struct call_t;

/** A list, which comes in as many replies and queries as it takes. */
struct list_t {
    uint16_t msgno; /* of the query */
    uint64_t limit = UINT64_MAX;
    uint64_t rows = 0;
    std::function<uint32_t(call_t &call)> then = nullptr; /* a command of its own behind it, which takes no rows */
    /** Which entries are rows; null: all are. The server is then not told the limit. */
    std::function<bool(const wire_message_t &reply, const uint8_t *entry)> takes = nullptr;
};

/** One run of a command, from its start to its verdict. */
struct call_t {
    pal_t &pal;
    uintptr_t id;
    bool awaited = true; /* a verdict follows the start; a command that has its result at once clears it */
    outcome_t outcome;   /* `data` is filled by the command or by the rows that arrive */
    uint64_t deadline;   /* by the platform's clock; each reply of a list moves it */
    bool answered = false;
    bool given_up = false; /* the deadline has passed; a verdict that still comes is only noted */
    bool cut_off = false;  /* the channel that it went through is gone: no verdict comes */
    std::optional<list_t> list = std::nullopt;
    std::optional<rule_change_t> rule = std::nullopt;
    std::optional<default_change_t> default_rule = std::nullopt;
    bool is_change = false; /* of the configuration, until its verdict is there */
};

/** Starts a command; returns the library's result. */
using start_fn_t = std::function<uint32_t(call_t &call)>;

/** A command ready to be carried out. */
struct command_t {
    std::string name; /* `timeout set` */
    start_fn_t start;
    bool is_embedded_only = false; /* acts on the server model in this process, and sends nothing */
    bool needs_server = true;
};

class pal_t {
public:
    using note_fn_t = std::function<void(const std::string &)>;
    /** Gets entries of a reply, which live during the call. */
    using rows_fn_t =
        std::function<void(const outcome_t &of, const wire_message_t &reply, const void *entries, uint32_t count)>;
    using call_id_t = uintptr_t;

    /** `note` gets everything that is no answer. */
    pal_t(const options_t &options, note_fn_t note);
    /** Unbinds and notes the commands that are still outstanding. */
    ~pal_t();
    pal_t(const pal_t &) = delete;
    pal_t &operator=(const pal_t &) = delete;

    /** What comes of a command of the embedded server where there is none, without asking anybody; nothing for all
     * others. */
    std::optional<outcome_t> without_server(const command_t &command) const;
    /** Connects to the server. */
    outcome_t bind();
    /** Starts a command of the given batch line. */
    call_id_t start(const command_t &command, uint32_t line);
    /** Waits for the verdict of a started command, at most until its deadline. */
    outcome_t finish(call_id_t id);
    /** Whether the channel to the server is up. */
    bool is_connected() const;
    /** Whether the server is a process that has ended, and nobody has taken its place. */
    bool has_lost_server() const;
    /** Whether a started command has been answered by the server. */
    bool has_verdict(call_id_t id) const;
    /** Forgets a started command; returns whether the server may have carried it out. */
    bool abandon(call_id_t id);

    fwx_host_loop_t *loop() const { return loop_.get(); }
    /** The server model, or null when the server is none. */
    fwx_nat64_model_t *model() const { return connection_->model(); }
    /** Commands that wait for their answer. */
    size_t outstanding() const;
    /** Gives a command to the library: `send_it` calls the C function, with its `pal_ctx`. */
    template <typename send_t>
    uint32_t configure(const call_t &call, send_t send_it) {
        return client_
            ->configure(std::move(send_it), [this, id = call.id](const nat64::result &got) { answered(id, got); })
            .code();
    }
    /** Gives the record of a command to the library. */
    uint32_t send(call_t &call, const record_family_t &family, uint32_t op, const void *record);
    /** Sends a query of a list from a cookie on, of which at most so many entries are wanted. */
    using ask_fn_t = std::function<uint32_t(void *pal_ctx, uint64_t cookie, uint64_t wanted)>;
    /** Begins a list of at most `limit` entries. */
    uint32_t begin_list(call_t &call, uint16_t msgno, uint64_t cookie, uint64_t limit, ask_fn_t ask,
                        decltype(list_t::takes) takes = nullptr);
    /** Counts the entries that `ask` asks for, as `matched`, and then starts the command `then`. */
    uint32_t begin_count(call_t &call, uint16_t msgno, ask_fn_t ask, decltype(list_t::then) then);
    const rule_book_t &rules() const { return rules_; }
    rule_book_t &rules() { return rules_; }

    /* What the server holds, and who has changed it (pal_changes.cpp). Errors are texts; empty: there is none. */

    /** Reads the server and brings it to documents. */
    reconciler_t &reconciler();
    /** The versions of the server, to look at: those that are open, or others in `place`. */
    std::string open_versions(std::optional<versions_t> &place, versions_t *&versions);
    /** Takes the lock of the server and opens its versions, until end_change. The embedded server has no lock, and
     * versions as long as natctl runs. */
    std::string begin_change();
    /** Has a call fail for which begin_change had an error. */
    void refuse_change(call_t &call, const std::string &error) const {
        refuse(call.outcome, is_locked_out_ ? status_t::locked : status_t::usage, 0, error);
    }
    /** After begin_change. */
    versions_t &versions() { return *versions_; }
    /** Makes a version of what single commands have changed. */
    std::string end_singles();
    /** The same, and lets others change the server. */
    std::string end_change();
    /** What changes that single commands make are called; without it by the first of them. */
    void name_changes(const std::string &what) { change_name_ = what; }
    /** What a server in another process holds, where this natctl has installed no rules itself. Notes that it is asked.
     */
    std::optional<document_t> server_document(call_t &call);
    /** What the server says of itself; zeros if it says nothing. */
    fwx_nat64_stats_boot_t server_boot();
    std::optional<fwx_nat64_stats_sys_entry_t> server_totals();
    /** Runs the reconciler's way to a document; its questions have no place in a trace. */
    template <typename on_turn_t>
    reconcile_result_t run_plan(nat64::task<reconcile_result_t> task, on_turn_t on_turn) {
        is_bringing_ = true;
        reconcile_result_t result = run(std::move(task), on_turn);
        is_bringing_ = false;
        return result;
    }
    /** Waits for the verdicts of all commands that were started. */
    void settle_all();
    /** Runs a task of the binding to its end; `on_turn` is called after each turn of the loop. What it awaits has the
     * deadline of all commands. */
    template <typename value_t, typename on_turn_t = void (*)()>
    value_t run(
        nat64::task<value_t> task, on_turn_t on_turn = [] {}) {
        client_->deadline_set(std::chrono::milliseconds(options_.timeout_ms));
        task.start();
        while (!task.done()) {
            fwx_host_loop_run_once(loop_.get(), -1);
            on_turn();
        }
        client_->deadline_set({});
        return task.get();
    }
    /** The same, without a trace. */
    template <typename value_t>
    value_t run_internal(nat64::task<value_t> task) {
        is_internal_ = true;
        value_t value = run(std::move(task));
        is_internal_ = false;
        return value;
    }
    nat64::client &client() { return *client_; }
    const options_t &options() const { return options_; }
    /** Hands the rows of walks to `rows` as they arrive, instead of collecting them. */
    void stream_rows(rows_fn_t rows) { rows_ = std::move(rows); }

    /** Hands every message that the server sends unasked to `show`, decoded, instead of noting it. */
    void show_unsolicited(std::function<void(const json_t &message)> show) { unsolicited_ = std::move(show); }

    /** What came of the command of a call. */
    void answered(call_id_t id, const nat64::result &got);
    /** Something to be shown that is no answer. */
    void note(const std::string &text) { note_(text); }

private:
    static void tapped(void *arg, fwx_host_direction_t direction, const void *msg, size_t size);
    nat64::handlers handlers();
    void notified(const std::string &text);
    void channel_lost();
    void settle(call_t &call);
    void forget(call_id_t id);
    call_t *find(call_id_t id);
    uint32_t send_rule(call_t &call, const record_family_t &family);
    void rule_answered(call_id_t id, const nat64::rule_result &got);
    /** What is wrong with a rule, and who says so. */
    uint32_t judge_rule(const call_t &call, const nat64::rule_result &got, const char *&by);
    std::string begin_single(const call_t &call);
    void count_single(call_t &call, const nat64::result &got);
    void note_repair(const call_t &call, uint32_t code);
    nat64::list_step paged(call_id_t id, const nat64::page &page);
    bool take_rows(call_t &call, const wire_message_t &reply, const nat64::page &page, uint32_t count);
    uint32_t start_list(const call_t &call, uint64_t cookie, ask_fn_t ask);
    /** Starts what comes behind a count. */
    uint32_t start_next(call_t &call);
    void end(call_t &call, const std::error_code &error, const char *by);

    options_t options_;
    note_fn_t note_;
    rows_fn_t rows_;
    std::function<void(const json_t &message)> unsolicited_;
    std::unique_ptr<fwx_host_loop_t, void (*)(fwx_host_loop_t *)> loop_;
    std::unique_ptr<connection_t> connection_;
    std::optional<nat64::client> client_;
    std::map<call_id_t, call_t> calls_;
    call_id_t last_id_ = 0;
    call_t *starting_ = nullptr; /* whose messages go out now */
    std::map<rule_name_t, call_id_t> rules_under_way_;
    rule_book_t rules_;
    std::optional<reconciler_t> reconciler_;
    std::optional<lock_t> lock_; /* of the server, while it is being changed */
    bool is_locked_out_ = false; /* another process had the lock when begin_change was called last */
    std::optional<versions_t> versions_;
    version_t single_; /* what single commands have changed */
    std::string change_name_;
    bool is_bringing_ = false; /* statistics are nothing that the user asked for */
    bool is_internal_ = false; /* what goes over the channel is nothing that the user asked for */
};

#endif
