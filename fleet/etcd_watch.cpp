/* The watch of a key: opening it at an endpoint, and parsing the lines of its stream. */
#include "fleet/etcd.h"
#include "fleet/etcd_json.h"
#include "net/json.h"

namespace {

using kind_t = etcd_error_t::kind_t;

std::string read_event(const json_t &object, etcd_event_t &event) {
    const json_t *entry = object.find("kv");
    if (entry == nullptr) return "kv: must be there";
    event.is_delete = object["type"] == "DELETE";
    return read_entry(*entry, event.entry);
}

}  // namespace

etcd_t::reply_t<std::vector<etcd_event_t>> etcd_watch_t::next() {
    etcd_result_t<std::vector<etcd_event_t>> result;
    const bool must_open = !is_open_ && !end_;
    if (must_open) end_ = co_await open();
    while (!end_ && result.value.empty()) {
        end_ = co_await read(result.value);
        const bool has_lost_it = end_ && should_try_next_endpoint_ && endpoint_ == etcd_.endpoint();
        if (has_lost_it) etcd_.turn();
    }
    if (end_) {
        is_open_ = false;
        stream_.reset();
        result.value.clear();
    }
    result.error = end_;
    co_return result;
}

/** Opens the watch at the first endpoint that accepts it. Only the last one has the whole timeout, and there is no
 * second round, because the caller begins again with a read, which has two. */
nat64::task<etcd_error_t> etcd_watch_t::open() {
    const bool is_signed = !etcd_.store_.user.empty();
    bool is_new_token = false;
    etcd_error_t error;
    std::string reasons;
    const size_t count = etcd_.store_.endpoints.size();
    for (size_t asked = 0; asked < count;) {
        if (is_signed && etcd_.token_.empty()) {
            error = co_await etcd_.sign_in();
            if (error) co_return error;
            is_new_token = true;
        }
        endpoint_ = etcd_.endpoint();
        stream_.emplace(etcd_.http_, etcd_.watch_request_of(key_, revision_, asked + 1 == count));
        std::vector<etcd_event_t> none;
        error = co_await read(none);
        is_open_ = !error;
        if (is_open_) co_return error;
        const bool must_sign_in = is_token_unknown_ && is_signed && !is_new_token;
        if (must_sign_in) {
            etcd_.token_.clear();
            continue;
        }
        if (!should_try_next_endpoint_) co_return error;
        error.text = reasons + error.text;
        reasons = error.text + "; ";
        if (endpoint_ == etcd_.endpoint()) etcd_.turn();
        ++asked;
    }
    co_return error;
}

/** Awaits the next line of the stream, which may contain no events. */
nat64::task<etcd_error_t> etcd_watch_t::read(std::vector<etcd_event_t> &events) {
    const std::optional<std::string> line = co_await stream_->next();
    if (line) co_return take(*line, events);
    etcd_answer_t answer;
    const http_reply_t &reply = stream_->reply();
    const bool has_ended_well = reply.fault == http_reply_t::fault_t::none && reply.status == http_t::success;
    if (has_ended_well) {
        answer.error = {kind_t::no_answer, endpoint_ + ": the watch has ended"};
    } else {
        answer = read_answer(endpoint_, reply, etcd_.secrets());
    }
    should_try_next_endpoint_ = answer.should_try_next_endpoint || has_ended_well;
    is_token_unknown_ = answer.is_token_unknown;
    co_return answer.error;
}

etcd_error_t etcd_watch_t::take(const std::string &line, std::vector<etcd_event_t> &events) {
    should_try_next_endpoint_ = false;
    is_token_unknown_ = false;
    const json_t json = json_t::parse(line);
    const json_members_t answer(json);
    if (const json_t *failure = answer.find("error")) {
        const etcd_answer_t read = read_failure(endpoint_, *failure, etcd_.secrets());
        should_try_next_endpoint_ = read.should_try_next_endpoint;
        is_token_unknown_ = read.is_token_unknown;
        return read.error;
    }
    const json_t *said = answer.find("result");
    if (said == nullptr) return malformed_answer(endpoint_, "result: must be there");
    json_members_t result(*said);
    const bool is_cancelled = result.find("canceled") != nullptr && result.flag("canceled");
    if (is_cancelled) {
        if (result.int64("compact_revision") != 0) {
            return {kind_t::compacted, endpoint_ + ": revision " + std::to_string(revision_) + " has been compacted"};
        }
        const bool says_why = result.find("cancel_reason") != nullptr;
        const std::string reason = says_why ? result.text("cancel_reason", SIZE_MAX) : "the watch was cancelled";
        etcd_error_t error = read_failure(endpoint_, {{"message", reason}}, etcd_.secrets()).error;
        is_token_unknown_ = error.kind == kind_t::rights; /* etcd gives no other reason for an unknown token here */
        return error;
    }
    const json_t *list = result.find("events");
    if (list != nullptr && !list->is_array()) result.fail("events: must be an array");
    if (!result.is_good()) return malformed_answer(endpoint_, result.fault());
    for (size_t i = 0; list != nullptr && i < list->size(); ++i) {
        etcd_event_t event;
        std::string fault = read_event((*list)[i], event);
        if (fault.empty() && event.entry.key != key_) fault = "events: must be of no key but " + key_;
        if (!fault.empty()) return malformed_answer(endpoint_, fault);
        events.push_back(std::move(event));
    }
    return {};
}
