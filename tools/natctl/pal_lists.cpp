/* Part of pal.h: lists, which may take several queries, each answered by several replies. */
#include <algorithm>

#include "fwx_host/adapter.hpp"
#include "fwx_nat64/wire.h"
#include "tools/natctl/decode.h"
#include "tools/natctl/pal.h"

namespace {

/** Maximum number of rows that are collected until the list ends, at about 1 KiB each. */
constexpr uint64_t kept_rows_max = 100000;

}  // namespace

uint32_t pal_t::begin_list(call_t &call, uint16_t msgno, uint64_t cookie, uint64_t limit, ask_fn_t ask,
                           decltype(list_t::takes) takes) {
    call.list = list_t{msgno, limit, 0, nullptr, std::move(takes)};
    return start_list(call, cookie, std::move(ask));
}

uint32_t pal_t::begin_count(call_t &call, uint16_t msgno, ask_fn_t ask, decltype(list_t::then) then) {
    if (options_.dry_run) return then(call);
    call.list = list_t{msgno, UINT64_MAX, 0, std::move(then)};
    return start_list(call, 0, std::move(ask));
}

uint32_t pal_t::start_list(const call_t &call, uint64_t cookie, ask_fn_t ask) {
    const auto ask_limited = [limit = call.list->takes ? UINT64_MAX : call.list->limit, ask = std::move(ask)](
                                 void *pal_ctx, uint64_t from, uint64_t taken) {
        return ask(pal_ctx, from, limit - taken);
    };
    const auto on_page = [this, id = call.id](const nat64::page &page) { return paged(id, page); };
    const auto on_end = [this, id = call.id](const nat64::result &got) { answered(id, got); };
    return client_->query(ask_limited, on_page, on_end, cookie).code();
}

uint32_t pal_t::start_next(call_t &call) {
    call.outcome.data = {{"matched", call.list->rows}};
    call.outcome.note = std::to_string(call.list->rows) + " matched";
    const auto then = std::move(call.list->then);
    call.list.reset();
    return then(call);
}

nat64::list_step pal_t::paged(call_id_t id, const nat64::page &page) {
    call_t *call = find(id);
    if (call == nullptr || call->given_up) return nat64::list_step::enough;
    list_t &list = *call->list;
    call->deadline = fwx_host_clock_ms() + options_.timeout_ms;
    const wire_message_t &reply = reply_described(list.msgno, page.value2);
    if (page.bytes / reply.entry_size < page.count) return nat64::list_step::too_short;
    std::vector<uint8_t> taken;
    nat64::page rows = page;
    if (list.takes) {
        const auto *entry = static_cast<const uint8_t *>(page.data);
        for (uint32_t i = 0; i < page.count; ++i, entry += reply.entry_size) {
            if (list.takes(reply, entry)) taken.insert(taken.end(), entry, entry + reply.entry_size);
        }
        rows.data = taken.data();
        rows.count = static_cast<uint32_t>(taken.size() / reply.entry_size);
    }
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(rows.count, list.limit - list.rows));
    if (!take_rows(*call, reply, rows, count)) {
        call->outcome.data = nullptr;
        refuse(call->outcome, status_t::refused, 0,
               "more than " + std::to_string(kept_rows_max) +
                   " rows; --jsonl shows sessions as they come, --limit and --cookie ask for a list in parts");
        return nat64::list_step::enough;
    }
    const bool goes_on = page.more || page.cookie != 0;
    const bool is_cut = list.rows == list.limit && (goes_on || count < rows.count);
    if (!is_cut) return nat64::list_step::next;
    call->outcome.is_cut = true;
    call->outcome.cookie = count == rows.count ? page.cookie : 0;
    return nat64::list_step::enough;
}

/** Collects or streams rows. False: there are too many to collect. */
bool pal_t::take_rows(call_t &call, const wire_message_t &reply, const nat64::page &page, uint32_t count) {
    call.list->rows += count;
    if (call.list->then != nullptr) return true;
    const bool streams = reply.msgno == FWX_NAT64_MSG_SESSION_WALK && rows_ && count != 0;
    if (streams) {
        rows_(call.outcome, reply, page.data, count);
        return true;
    }
    if (call.list->rows > kept_rows_max) return false;
    json_t rows = decode_entries(reply, page.data, count);
    if (reply.msgno == FWX_NAT64_MSG_STATS_SYS && !rows.empty()) {
        call.outcome.data = std::move(rows.front());
    } else {
        append_rows(call.outcome.data, std::move(rows));
    }
    return true;
}
