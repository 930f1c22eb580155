#include "tools/natctl/pal.h"

#include <algorithm>
#include <cerrno>

#include "fwx_host/errors.h"
#include "fwx_nat64/fwx_nat64.h"
#include "tools/natctl/callbacks.h"
#include "tools/natctl/decode.h"

namespace {

constexpr uint8_t client_id[4] = {'n', 'c', 't', 'l'};

void cgm_returned(void *arg, uint32_t, void *ctx, uint32_t result) {
    static_cast<pal_t *>(arg)->answered(ctx, result);
}

/** Makes one line of a diagnostic: the library begins them with line feeds, and some have more inside. */
void debug_written(void *arg, fwx_host_debug_channel_t, uint32_t, const char *text) {
    std::string line;
    for (; *text != '\0'; ++text) {
        bool is_wanted = *text != '\n' && (*text != ' ' || !line.empty());
        if (is_wanted) line += *text;
    }
    static_cast<pal_t *>(arg)->note(line);
}

/** Whether the code says that nobody serves the channel; as a verdict: that the server never got the command. */
bool is_no_server(uint32_t code) {
    return code == FWX_NAT64_ERR_AGAIN || code == FWX_HOST_ERR_NO_SERVER;
}

server_kind_t server_kind(const options_t &options) {
    if (options.dry_run) return server_kind_t::sink;
    return options.connect.empty() ? server_kind_t::model : server_kind_t::remote;
}

void fail(outcome_t &outcome, const char *by, uint32_t code) {
    outcome.status = is_no_server(code) ? status_t::no_server : status_t::refused;
    outcome.code = code;
    outcome.error = std::string("refused by the ") + by + ": " + code_text(code);
}

}  // namespace

pal_t::pal_t(const options_t &options, note_fn_t note)
    : options_(options), note_(std::move(note)), loop_(fwx_host_loop_create(), fwx_host_loop_destroy) {
    fwx_host_debug_level_set(FWX_NAT64_DEBUG_MODULE, options.debug_level);
    if (options.trace || options.dry_run) fwx_host_tap_set(tapped, this);
    fwx_host_cgm_observe(cgm_returned, this);
    fwx_host_debug_sink_set(debug_written, this);
    pal_callbacks_attach(this);
}

pal_t::~pal_t() {
    if (bound_) {
        fwx_nat64_unbind();
        fwx_mapt_plu_cleanup();
    }
    for (const auto &[id, call] : calls_) {
        bool is_lost = call.awaited && !call.answered && !options_.dry_run;
        if (is_lost) note_(outcome_label(call.outcome) + ": still outstanding when the binding ended");
    }
    pal_callbacks_attach(nullptr);
    fwx_host_cgm_observe(nullptr, nullptr);
    fwx_host_tap_set(nullptr, nullptr);
    fwx_host_debug_sink_set(nullptr, nullptr);
    fwx_host_debug_level_set(FWX_NAT64_DEBUG_MODULE, 0);
}

outcome_t pal_t::bind() {
    outcome_t outcome;
    outcome.command = "bind";
    if (loop_ == nullptr) {
        fail(outcome, "system", EMFILE);
        return outcome;
    }
    connection_ = std::make_unique<connection_t>(loop_.get(), server_kind(options_), options_.connect);
    uint32_t code = connection_->result();
    if (code == 0) {
        code = fwx_nat64_bind(client_id, loop_.get(), pal_unsolicited_callbacks(), pal_reply_callbacks());
        bound_ = fwx_nat64_client_info_get() != nullptr;
    }
    if (code != 0) fail(outcome, "library", code);
    /* The server has the initial commands before the first of the user's is started. */
    fwx_host_loop_run_until_idle(loop_.get());
    return outcome;
}

pal_t::call_id_t pal_t::start(const command_t &command, uint32_t line) {
    call_id_t id = ++last_id_;
    uint64_t deadline = fwx_host_clock_ms() + options_.timeout_ms;
    call_t &call = calls_.emplace(id, call_t{*this, reinterpret_cast<void *>(id), true, {}, deadline}).first->second;
    call.outcome.command = command.name;
    call.outcome.line = line;
    starting_ = &call;
    uint32_t code = command.start(call);
    starting_ = nullptr;
    if (code != 0) fail(call.outcome, "library", code);
    call.answered = call.answered || code != 0 || !call.awaited;
    return id;
}

outcome_t pal_t::finish(call_id_t id) {
    call_t &call = calls_.at(id);
    if (!options_.dry_run) settle(call);
    fwx_host_loop_run_until_idle(loop_.get());
    outcome_t outcome = std::move(call.outcome);
    if (call.answered || options_.dry_run) {
        calls_.erase(id);
        return outcome;
    }
    call.given_up = true;
    call.outcome.command = outcome.command;
    call.outcome.line = outcome.line;
    outcome.status = status_t::no_answer;
    outcome.error = "no answer within " + std::to_string(options_.timeout_ms) + " ms";
    return outcome;
}

void pal_t::settle(call_t &call) {
    while (!call.answered) {
        uint64_t now = fwx_host_clock_ms();
        if (now >= call.deadline) return;
        fwx_host_loop_run_once(loop_.get(), static_cast<int>(call.deadline - now));
    }
}

size_t pal_t::outstanding(const std::string &name) const {
    auto is_waiting = [&name](const auto &entry) {
        const call_t &call = entry.second;
        return call.awaited && !call.answered && (name.empty() || name == call.outcome.command);
    };
    return static_cast<size_t>(std::count_if(calls_.begin(), calls_.end(), is_waiting));
}

call_t *pal_t::find(void *ctx) {
    auto found = calls_.find(reinterpret_cast<call_id_t>(ctx));
    return found == calls_.end() ? nullptr : &found->second;
}

void pal_t::answered(void *ctx, uint32_t code) {
    call_t *call = find(ctx);
    if (call == nullptr) return;
    call->answered = true;
    if (code != 0) fail(call->outcome, "server", code);
    if (!call->given_up) return;
    note_(outcome_label(call->outcome) + ": answered too late" + (code == 0 ? "" : ": " + call->outcome.error));
    calls_.erase(reinterpret_cast<call_id_t>(ctx));
}

void pal_t::query_failed(void *ctx) {
    call_t *call = find(ctx);
    if (call == nullptr) return;
    call->outcome.status = status_t::refused;
    call->outcome.error = "the query failed, and no code comes with it";
    call->answered = true;
    if (call->given_up) calls_.erase(reinterpret_cast<call_id_t>(ctx));
}

void pal_t::entries(void *ctx, uint16_t msgno, const void *entries, uint32_t count) {
    call_t *call = find(ctx);
    if (call == nullptr || call->given_up) return;
    json_t rows = decode_entries(msgno, entries, count);
    if (msgno == FWX_NAT64_MSG_STATS_SYS) {
        call->outcome.data = std::move(rows.front());
    } else {
        append_rows(call->outcome.data, std::move(rows));
    }
}

bool pal_t::walked(void *ctx, const void *entries, uint32_t count) {
    call_t *call = find(ctx);
    if (call == nullptr || call->given_up) return true;
    count = static_cast<uint32_t>(std::min<uint64_t>(count, call->row_limit - call->rows));
    call->rows += count;
    json_t rows = decode_entries(FWX_NAT64_MSG_SESSION_WALK, entries, count);
    bool streams = rows_ && !rows.empty();
    if (streams) {
        rows_(call->outcome, rows);
    } else {
        append_rows(call->outcome.data, std::move(rows));
    }
    return call->rows == call->row_limit;
}

void pal_t::tapped(void *arg, fwx_host_direction_t direction, const void *msg, size_t size) {
    auto *pal = static_cast<pal_t *>(arg);
    if (pal->options_.trace) pal->note_(message_line(direction, msg, size));
    bool is_collected = pal->options_.dry_run && pal->starting_ != nullptr && direction == FWX_HOST_SENT;
    if (is_collected) pal->starting_->outcome.messages.push_back(message_json(direction, msg, size));
}
