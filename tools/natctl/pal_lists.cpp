/* How natctl's binding follows a list to its end. */
#include <algorithm>

#include "fwx_nat64/wire.h"
#include "tools/natctl/decode.h"
#include "tools/natctl/pal.h"

uint32_t pal_t::begin_list(call_t &call, uint64_t cookie, uint64_t limit, decltype(list_t::ask) ask_fn,
                           const wire_message_t *reply) {
    call.list = list_t{std::move(ask_fn), limit, 0, cookie, reply, nullptr};
    return ask(call);
}

uint32_t pal_t::begin_count(call_t &call, decltype(list_t::ask) ask_fn, decltype(list_t::then) then) {
    if (options_.dry_run) return then(call);
    call.list = list_t{std::move(ask_fn), UINT64_MAX, 0, 0, nullptr, std::move(then)};
    return ask(call);
}

uint32_t pal_t::start_next(call_t &call) {
    call.outcome.data = {{"matched", call.list->rows}};
    call.outcome.note = std::to_string(call.list->rows) + " matched";
    const auto then = std::move(call.list->then);
    call.list.reset();
    call.verdict.reset();
    call_t *outer = starting_;
    starting_ = &call;
    const uint32_t code = then(call);
    starting_ = outer;
    return code;
}

uint32_t pal_t::ask(call_t &call) {
    call_t *outer = starting_;
    starting_ = &call;
    const uint32_t code = call.list->ask(call, call.list->cookie, call.list->limit - call.list->rows);
    starting_ = outer;
    return code;
}

bool pal_t::paged(void *ctx, const page_t &page) {
    call_t *call = find(ctx);
    if (call == nullptr) return false;
    const bool is_refused = call->verdict && call->verdict->result != 0;
    if (call->given_up || is_refused || !call->list) {
        answered(ctx, 0);
        return false;
    }
    list_t &list = *call->list;
    call->deadline = fwx_host_clock_ms() + options_.timeout_ms;
    const uint64_t claimed_bytes = uint64_t{page.count} * page.reply.entry_size;
    if (fwx_host_smc_bytes_behind(page.entries) < claimed_bytes) {
        return end_list(*call, "the server claims more entries than it sent");
    }
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(page.count, list.limit - list.rows));
    take_rows(*call, page, count);
    const bool goes_on = page.more || page.cookie != 0;
    const bool is_cut = list.rows == list.limit && (goes_on || count < page.count);
    if (is_cut) {
        call->outcome.is_cut = true;
        call->outcome.cookie = count == page.count ? page.cookie : 0;
    }
    if (is_cut || !goes_on) {
        answered(ctx, 0);
        return false;
    }
    if (page.count == 0) return end_list(*call, "the server says that more follows, and sends nothing");
    const bool stands_still = page.cookie != 0 && page.cookie <= list.cookie;
    if (stands_still) return end_list(*call, "the server's list does not advance");
    list.cookie = page.cookie;
    if (page.more) return true;
    const uint32_t code = ask(*call);
    if (code != 0) {
        call->verdict.reset();
        answered(ctx, code);
    }
    return code == 0;
}

/** Rows that are streamed are not kept. */
void pal_t::take_rows(call_t &call, const page_t &page, uint32_t count) {
    call.list->rows += count;
    if (call.list->then != nullptr) return;
    const bool streams = page.reply.msgno == FWX_NAT64_MSG_SESSION_WALK && rows_ && count != 0;
    if (streams) return rows_(call.outcome, page.reply, page.entries, count);
    const wire_message_t *wanted = call.list->reply;
    const bool is_wanted = wanted != nullptr && fwx_host_smc_bytes_behind(page.entries) >= wanted->entry_size;
    json_t rows = decode_entries(is_wanted ? *wanted : page.reply, page.entries, count);
    if (page.reply.msgno == FWX_NAT64_MSG_STATS_SYS && !rows.empty()) {
        call.outcome.data = std::move(rows.front());
    } else {
        append_rows(call.outcome.data, std::move(rows));
    }
}

/** Ends a list that cannot be whole; returns that no further replies of it are wanted. */
bool pal_t::end_list(call_t &call, const std::string &error) {
    const bool is_late = call.given_up;
    call.outcome.status = status_t::refused;
    call.outcome.error = error + "; the list is not whole";
    call.answered = true;
    forget_wire(call);
    if (is_late) forget(reinterpret_cast<call_id_t>(call.ctx));
    return false;
}
