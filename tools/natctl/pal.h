/*
 * natctl's binding to the library: carries commands out, collects their verdicts and rows, and shows what the server
 * sends unasked. There is one at a time, as there is one binding per process.
 */
#ifndef TOOLS_NATCTL_PAL_H
#define TOOLS_NATCTL_PAL_H

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/natctl/connection.h"
#include "tools/natctl/options.h"
#include "tools/natctl/outcome.h"
#include "wire/messages.h"

class pal_t;

/** One run of a command, from its start to its verdict. */
struct call_t {
    pal_t &pal;
    void *ctx;           /* what the library hands back with the answer; never dereferenced */
    bool awaited = true; /* a verdict follows the start; a command that has its result at once clears it */
    outcome_t outcome;   /* `data` is filled by the command or by the rows that arrive */
    uint64_t deadline;   /* by the platform's clock */
    bool answered = false;
    uint64_t row_limit = UINT64_MAX; /* of a walk */
    uint64_t rows = 0;
    bool given_up = false; /* the deadline has passed; a verdict that still comes is only noted */
};

/** Starts a command; returns the library's result. */
using start_fn_t = std::function<uint32_t(call_t &call)>;

/** A command ready to be carried out. */
struct command_t {
    std::string name; /* `timeout set` */
    start_fn_t start;
};

class pal_t {
public:
    using note_fn_t = std::function<void(const std::string &)>;
    using rows_fn_t = std::function<void(const outcome_t &of, const json_t &rows)>;
    using call_id_t = uintptr_t;

    /** `note` gets everything that is no answer. */
    pal_t(const options_t &options, note_fn_t note);
    /** Unbinds and notes the commands that are still outstanding. */
    ~pal_t();
    pal_t(const pal_t &) = delete;
    pal_t &operator=(const pal_t &) = delete;

    /** Connects to the server. */
    outcome_t bind();
    /** Starts a command of the given batch line. */
    call_id_t start(const command_t &command, uint32_t line);
    /** Waits for the verdict of a started command, at most until its deadline. */
    outcome_t finish(call_id_t id);

    /** The server model, or null when the server is none. */
    fwx_nat64_model_t *model() const { return connection_->model(); }
    /** Commands that wait for their answer; only those of that name unless it is empty. */
    size_t outstanding(const std::string &name = {}) const;
    /** Hands the rows of walks to `rows` as they arrive, instead of collecting them. */
    void stream_rows(rows_fn_t rows) { rows_ = std::move(rows); }

    /* What the library's callbacks bring; `ctx` is a call's. */
    void answered(void *ctx, uint32_t code);
    void query_failed(void *ctx);
    /** `count` entries at `entries`, as the reply with that message number lays them out. */
    void entries(void *ctx, uint16_t msgno, const void *entries, uint32_t count);
    /** As entries, for a session walk; returns whether the call has as many rows as it wants. */
    bool walked(void *ctx, const void *entries, uint32_t count);
    /** Something to be shown that is no answer. */
    void note(const std::string &text) { note_(text); }
    call_t *find(void *ctx);

private:
    static void tapped(void *arg, fwx_host_direction_t direction, const void *msg, size_t size);
    void settle(call_t &call);

    options_t options_;
    note_fn_t note_;
    rows_fn_t rows_;
    std::unique_ptr<fwx_host_loop_t, void (*)(fwx_host_loop_t *)> loop_;
    std::unique_ptr<connection_t> connection_;
    bool bound_ = false;
    std::map<call_id_t, call_t> calls_;
    call_id_t last_id_ = 0;
    call_t *starting_ = nullptr; /* whose messages a dry run collects */
};

#endif
