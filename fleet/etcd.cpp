/*
 * Requests and answers of etcd_t. `call` is the one function that sends a request: it tries the endpoints, signs in,
 * and decides whether a request without an answer may be repeated.
 */
#include "fleet/etcd.h"

#include <algorithm>

#include "fleet/base64.h"
#include "fleet/etcd_json.h"
#include "net/json.h"

namespace {

using kind_t = etcd_error_t::kind_t;

constexpr uint32_t most_lease_s = 86400;

}  // namespace

/** A request, without the endpoint. */
struct etcd_t::call_t {
    const char *path; /* `kv/range` */
    std::string body;
    bool is_repeatable = true;
    bool is_signed = true; /* with a token, if there is a user */
};

/** The result of `call`. A type of its own, so that etcd.h need not include the type of etcd_json.h. */
struct etcd_t::answer_t : etcd_answer_t {};

etcd_t::etcd_t(fwx_host_loop_t *loop, store_t store, const etcd_options_t &options)
    : store_(std::move(store)), options_(options), http_(loop, store_.tls) {}

etcd_t::~etcd_t() = default;

http_request_t etcd_t::request_of(const call_t &call, bool has_whole_timeout) const {
    http_request_t request;
    request.url = endpoint() + "/v3/" + call.path;
    request.body = call.body;
    request.timeout_ms = has_whole_timeout ? options_.timeout_ms : options_.timeout_ms * 2 / 5;
    request.most_bytes = options_.most_bytes;
    request.is_repeatable = call.is_repeatable;
    if (call.is_signed && !token_.empty()) request.headers.push_back("Authorization: " + token_);
    return request;
}

http_request_t etcd_t::watch_request_of(const std::string &key, int64_t revision, bool has_whole_timeout) const {
    json_t create = range_json(key);
    create["start_revision"] = std::to_string(revision);
    create["progress_notify"] = true;
    const json_t body = {{"create_request", std::move(create)}};
    http_request_t request = request_of({"watch", body.dump()}, has_whole_timeout);
    /* Makes a member end the watch when it has lost the leader, because it would never get another event. */
    request.headers.push_back("Grpc-Metadata-hasleader: true");
    request.silence_ms = options_.watch_silence_ms;
    return request;
}

bool etcd_t::renew_password() {
    const std::string before = store_.password;
    const bool is_other = read_password(store_).empty() && store_.password != before;
    if (is_other) token_.clear();
    return is_other;
}

nat64::task<etcd_error_t> etcd_t::sign_in() {
    const std::string used = store_.password;
    etcd_error_t error = co_await fetch_token();
    const bool is_refused = error.kind == kind_t::rights;
    const bool is_again_worth = is_refused && (renew_password() || store_.password != used);
    if (is_again_worth) error = co_await fetch_token();
    co_return error;
}

nat64::task<etcd_error_t> etcd_t::fetch_token() {
    const json_t body = {{"name", store_.user}, {"password", store_.password}};
    call_t request{"auth/authenticate", body.dump()};
    request.is_signed = false;
    answer_t answer = co_await call(std::move(request));
    if (answer.error) co_return answer.error;
    constexpr size_t most_token_bytes = 8192;
    json_members_t members(answer.json);
    const std::string token = members.text("token", most_token_bytes, 1);
    if (token.find_first_of("\r\n") != std::string::npos) members.fail("token: must be one line");
    if (!members.is_good()) co_return malformed_answer(endpoint(), members.fault());
    token_ = token;
    ++token_count_;
    co_return etcd_error_t{};
}

nat64::task<etcd_t::answer_t> etcd_t::call(call_t call) {
    const bool is_signed = call.is_signed && !store_.user.empty();
    bool is_new_token = false;
    bool is_lost = false;
    std::string reasons; /* of the tries before this one */
    answer_t answer;
    const size_t count = store_.endpoints.size();
    const size_t tries = call.is_repeatable && count > 1 ? 2 * count : count;
    for (size_t asked = 0; asked < tries;) {
        if (is_signed && token_.empty()) {
            answer.error = co_await sign_in();
            if (answer.error) co_return answer;
            is_new_token = true;
        }
        const uint64_t token_count = token_count_;
        const std::string place = endpoint();
        http_t::post_t post = http_.post(request_of(call, !call.is_repeatable || asked + count >= tries));
        const http_reply_t reply = co_await post;
        static_cast<etcd_answer_t &>(answer) = read_answer(place, reply, secrets());
        const bool must_sign_in = answer.is_token_unknown && is_signed && !is_new_token;
        if (must_sign_in) {
            const bool is_still_that_one = token_count == token_count_;
            if (is_still_that_one) token_.clear();
            is_new_token = true;
            continue;
        }
        if (!answer.should_try_next_endpoint) co_return answer;
        is_lost = is_lost || answer.error.kind != kind_t::unreachable;
        if (is_lost && answer.error.kind == kind_t::unreachable) answer.error.kind = kind_t::no_answer;
        answer.error.text = reasons + answer.error.text;
        if (place == endpoint()) turn();
        ++asked;
        const bool may_try_again = is_lost ? call.is_repeatable : asked < count;
        if (!may_try_again) co_return answer;
        reasons = answer.error.text + "; ";
    }
    co_return answer;
}

etcd_t::reply_t<etcd_range_t> etcd_t::get(std::string key, int64_t revision) {
    json_t body = range_json(key);
    if (revision != 0) body["revision"] = std::to_string(revision);
    return get_range(std::move(key), body.dump());
}

etcd_t::reply_t<int64_t> etcd_t::mod_revision_of(std::string key) {
    json_t body = range_json(key);
    body["keys_only"] = true;
    const etcd_result_t<etcd_range_t> got = co_await get_range(std::move(key), body.dump());
    const bool is_there = !got.error && !got.value.entries.empty();
    co_return {is_there ? got.value.entries.front().mod_revision : 0, got.error};
}

etcd_t::reply_t<etcd_range_t> etcd_t::get_range(std::string key, std::string body) {
    etcd_result_t<etcd_range_t> result;
    call_t request{"kv/range", std::move(body)};
    const answer_t answer = co_await call(std::move(request));
    result.error = answer.error;
    if (result.error) co_return result;
    const std::string fault = read_entry_of(answer.json, key, result.value.entries);
    if (!fault.empty()) result.error = malformed_answer(endpoint(), fault);
    result.value.revision = revision_of(answer.json);
    co_return result;
}

etcd_t::reply_t<etcd_range_t> etcd_t::get_all(std::vector<std::string> keys) {
    etcd_result_t<etcd_range_t> result;
    json_t ranges = json_t::array();
    for (const std::string &key : keys) {
        ranges.push_back({{"request_range", range_json(key)}});
    }
    const json_t body = {{"success", std::move(ranges)}};
    call_t request{"kv/txn", body.dump()};
    const answer_t answer = co_await call(std::move(request));
    result.error = answer.error;
    if (result.error) co_return result;
    const json_t &replies = answer.json["responses"];
    const bool are_all_there = replies.is_array() && replies.size() == keys.size();
    std::string fault = are_all_there ? "" : "responses: must be as many as there are requests";
    for (size_t i = 0; i < keys.size() && fault.empty(); ++i) {
        const json_t *range = replies[i].find("response_range");
        fault =
            range == nullptr ? "response_range: must be there" : read_entry_of(*range, keys[i], result.value.entries);
    }
    if (!fault.empty()) result.error = malformed_answer(endpoint(), fault);
    result.value.revision = revision_of(answer.json);
    co_return result;
}

etcd_t::reply_t<etcd_range_t> etcd_t::list(std::string prefix, bool with_values) {
    etcd_result_t<etcd_range_t> result;
    std::vector<etcd_entry_t> &entries = result.value.entries;
    json_t body = range_json(prefix);
    body["range_end"] = to_base64(end_of_prefix(prefix));
    body["limit"] = std::to_string(options_.page);
    body["keys_only"] = !with_values;
    size_t bytes = 0;
    for (bool has_more = true; has_more;) {
        call_t request{"kv/range", body.dump()};
        const answer_t answer = co_await call(std::move(request));
        if (answer.error) co_return {{}, answer.error};
        const size_t before = entries.size();
        std::string fault = read_page(answer.json, prefix, entries);
        has_more = answer.json["more"] == true;
        const bool is_endless = has_more && entries.size() == before;
        if (is_endless) fault = "more: must come with entries";
        for (size_t i = before; i < entries.size(); ++i) {
            bytes += sizeof entries[i] + entries[i].key.size() + entries[i].value.size();
        }
        if (!fault.empty()) result.error = malformed_answer(endpoint(), fault);
        if (entries.size() > options_.most_entries) {
            result.error = {kind_t::malformed, endpoint() + ": more than " + std::to_string(options_.most_entries) +
                                                   " keys begin with " + prefix};
        } else if (bytes > options_.most_list_bytes) {
            result.error = {kind_t::malformed, endpoint() + ": the keys that begin with " + prefix +
                                                   " take more than " + std::to_string(options_.most_list_bytes) +
                                                   " bytes"};
        }
        if (result.error) co_return {{}, result.error};
        if (result.value.revision == 0) result.value.revision = revision_of(answer.json);
        body["revision"] = std::to_string(result.value.revision);
        if (has_more) body["key"] = to_base64(entries.back().key + std::string(1, '\0'));
    }
    co_return result;
}

etcd_t::reply_t<etcd_txn_result_t> etcd_t::txn(etcd_txn_t txn) {
    etcd_result_t<etcd_txn_result_t> result;
    call_t request{"kv/txn", txn_json(txn).dump()};
    request.is_repeatable = txn.is_repeatable;
    const answer_t answer = co_await call(std::move(request));
    result.error = answer.error;
    if (result.error) co_return result;
    result.value.is_done = answer.json["succeeded"] == true;
    result.value.revision = revision_of(answer.json);
    co_return result;
}

etcd_t::reply_t<int64_t> etcd_t::grant_lease(uint32_t ttl_s) {
    etcd_result_t<int64_t> result;
    const json_t body = {{"TTL", std::to_string(ttl_s)}};
    call_t request{"lease/grant", body.dump()};
    const answer_t answer = co_await call(std::move(request));
    result.error = answer.error;
    if (result.error) co_return result;
    json_members_t members(answer.json);
    result.value = members.int64("ID");
    if (result.value == 0) result.error = malformed_answer(endpoint(), "ID: must be a number");
    co_return result;
}

etcd_t::reply_t<uint32_t> etcd_t::keep_lease(int64_t lease) {
    etcd_result_t<uint32_t> result;
    const json_t body = {{"ID", std::to_string(lease)}};
    call_t request{"lease/keepalive", body.dump()};
    const answer_t answer = co_await call(std::move(request));
    result.error = answer.error;
    if (result.error) co_return result;
    const json_t *kept = answer.json.find("result");
    const int64_t left = kept == nullptr ? -1 : json_members_t(*kept).int64("TTL");
    if (left < 0) result.error = malformed_answer(endpoint(), "TTL: must be there");
    result.value = static_cast<uint32_t>(std::clamp<int64_t>(left, 0, most_lease_s));
    co_return result;
}

etcd_t::reply_t<uint32_t> etcd_t::lease_left(int64_t lease) {
    etcd_result_t<uint32_t> result;
    const json_t body = {{"ID", std::to_string(lease)}};
    call_t request{"lease/timetolive", body.dump()};
    const answer_t answer = co_await call(std::move(request));
    result.error = answer.error;
    if (result.error) co_return result;
    const int64_t left = json_members_t(answer.json).int64("TTL"); /* -1: it is gone */
    result.value = static_cast<uint32_t>(std::clamp<int64_t>(left, 0, most_lease_s));
    co_return result;
}

etcd_t::reply_t<bool> etcd_t::revoke_lease(int64_t lease) {
    etcd_result_t<bool> result;
    const json_t body = {{"ID", std::to_string(lease)}};
    call_t request{"lease/revoke", body.dump()};
    const answer_t answer = co_await call(std::move(request));
    const bool is_gone = answer.error.text.find("lease not found") != std::string::npos;
    if (!is_gone) result.error = answer.error;
    result.value = !result.error;
    co_return result;
}
