/*
 * JSON of etcd's gateway. Errors are classified by the gRPC code and by known texts. Texts of the store are shown to
 * users only without secrets and control characters.
 */
#include "fleet/etcd_json.h"

#include <array>

#include "fleet/base64.h"
#include "net/json.h"

namespace {

using kind_t = etcd_error_t::kind_t;

constexpr long server_failure = 500;
constexpr size_t most_said_bytes = 500; /* of a text of the store that an error quotes */

/* Status codes of gRPC. */
constexpr int64_t cancelled = 1;
constexpr int64_t deadline_exceeded = 4;
constexpr int64_t permission_denied = 7;
constexpr int64_t unavailable = 14;
constexpr int64_t unauthenticated = 16;

/** Texts of etcd's errors. They are needed because etcd has the same code for different errors. */
struct known_text_t {
    const char *text;
    kind_t kind;
    bool is_token_unknown;
};
constexpr std::array<known_text_t, 8> known_texts = {{
    {"invalid auth token", kind_t::rights, true},
    {"revision of auth store is old", kind_t::rights, true},
    {"permission denied", kind_t::rights, false},
    {"authentication failed", kind_t::rights, false},
    {"user name is empty", kind_t::rights, false},
    {"user name not found", kind_t::rights, false},
    {"database space exceeded", kind_t::quota, false},
    {"has been compacted", kind_t::compacted, false},
}};

const char *word_of(etcd_txn_t::compare_t::what_t what) {
    using what_t = etcd_txn_t::compare_t::what_t;
    return what == what_t::value ? "VALUE" : what == what_t::create_revision ? "CREATE" : "MOD";
}

json_t compare_json(const etcd_txn_t::compare_t &compare) {
    using what_t = etcd_txn_t::compare_t::what_t;
    json_t json = {{"key", to_base64(compare.key)}, {"target", word_of(compare.what)}, {"result", "EQUAL"}};
    if (compare.what == what_t::value) {
        json["value"] = to_base64(compare.value);
    } else {
        json[compare.what == what_t::create_revision ? "create_revision" : "mod_revision"] =
            std::to_string(compare.revision);
    }
    return json;
}

void hide(std::string &text, const std::string &secret) {
    constexpr std::string_view mark = "***";
    for (size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at + mark.size())) {
        text.replace(at, secret.size(), mark);
    }
}

/** A text of the store for an error, with the secrets hidden, both as they are and as they are escaped in JSON. */
std::string said_text(std::string said, const secrets_t &secrets) {
    for (const std::string &secret : secrets) {
        if (secret.empty()) continue;
        const std::string quoted = json_t(secret).dump();
        hide(said, quoted.substr(1, quoted.size() - 2));
        hide(said, secret);
    }
    return clean_line(said, most_said_bytes);
}

}  // namespace

etcd_error_t malformed_answer(const std::string &endpoint, const std::string &reason) {
    return {kind_t::malformed, endpoint + ": not an answer of etcd: " + reason};
}

etcd_answer_t read_failure(const std::string &endpoint, const json_t &failure, const secrets_t &secrets) {
    json_members_t members(failure);
    const bool is_of_stream = members.find("grpc_code") != nullptr;
    const int64_t code = members.int64(is_of_stream ? "grpc_code" : "code");
    const std::string said = members.text(members.find("message") != nullptr ? "message" : "error", SIZE_MAX);
    if (!members.is_good()) return {{}, malformed_answer(endpoint, members.fault())};
    etcd_answer_t answer;
    answer.error = {kind_t::other, endpoint + ": " + said_text(said, secrets)};
    answer.is_token_unknown = code == unauthenticated;
    const bool is_of_rights = code == unauthenticated || code == permission_denied;
    if (is_of_rights) answer.error.kind = kind_t::rights;
    for (const known_text_t &known : known_texts) {
        if (said.find(known.text) == std::string::npos) continue;
        answer.error.kind = known.kind;
        answer.is_token_unknown = known.is_token_unknown;
        return answer;
    }
    const bool is_passing = code == unavailable || code == deadline_exceeded || code == cancelled;
    if (is_passing) answer.error.kind = kind_t::no_answer;
    answer.should_try_next_endpoint = is_passing;
    return answer;
}

etcd_answer_t read_answer(const std::string &endpoint, const http_reply_t &reply, const secrets_t &secrets) {
    using fault_t = http_reply_t::fault_t;
    if (reply.fault == fault_t::too_long) return {{}, {kind_t::malformed, endpoint + ": " + reply.reason}};
    if (reply.fault != fault_t::none) {
        const kind_t kind = reply.fault == fault_t::unsent ? kind_t::unreachable : kind_t::no_answer;
        return {{}, {kind, endpoint + ": " + reply.reason}, true};
    }
    etcd_answer_t answer;
    answer.json = json_t::parse(reply.body);
    if (!answer.json.is_object()) {
        const std::string what = "status " + std::to_string(reply.status) + " without a JSON object";
        const bool is_passing = reply.status >= server_failure; /* from a proxy */
        if (is_passing) return {{}, {kind_t::no_answer, endpoint + ": " + what}, true};
        return {{}, malformed_answer(endpoint, what)};
    }
    if (reply.status != http_t::success) return read_failure(endpoint, answer.json, secrets);
    const json_t *stream_failure = answer.json.find("error");
    if (stream_failure != nullptr) return read_failure(endpoint, *stream_failure, secrets);
    return answer;
}

json_t range_json(const std::string &key) {
    return {{"key", to_base64(key)}};
}

json_t txn_json(const etcd_txn_t &txn) {
    json_t compares = json_t::array();
    json_t actions = json_t::array();
    for (const etcd_txn_t::compare_t &compare : txn.compares) {
        compares.push_back(compare_json(compare));
    }
    for (const etcd_txn_t::put_t &put : txn.puts) {
        json_t json = {{"key", to_base64(put.key)}, {"value", to_base64(put.value)}};
        if (put.lease != 0) json["lease"] = std::to_string(put.lease);
        actions.push_back({{"request_put", std::move(json)}});
    }
    for (const std::string &key : txn.deletes) {
        actions.push_back({{"request_delete_range", range_json(key)}});
    }
    return {{"compare", std::move(compares)}, {"success", std::move(actions)}};
}

std::string read_entry(const json_t &object, etcd_entry_t &entry) {
    json_members_t members(object);
    std::optional<std::string> key = from_base64(members.text("key", SIZE_MAX));
    const bool has_value = members.find("value") != nullptr;
    std::optional<std::string> value = from_base64(has_value ? members.text("value", SIZE_MAX) : "");
    entry.create_revision = members.int64("create_revision");
    entry.mod_revision = members.int64("mod_revision");
    entry.lease = members.int64("lease");
    if (!key || !value) members.fail("key or value: must be base64");
    if (!members.is_good()) return members.fault();
    entry.key = *std::move(key);
    entry.value = *std::move(value);
    return "";
}

std::string read_entries(const json_t &range, std::vector<etcd_entry_t> &entries) {
    json_members_t members(range);
    const json_t *list = members.find("kvs");
    if (!members.is_good()) return members.fault();
    if (list == nullptr) return "";
    if (!list->is_array()) return "kvs: must be an array";
    for (const json_t &object : *list) {
        etcd_entry_t entry;
        std::string fault = read_entry(object, entry);
        if (!fault.empty()) return fault;
        entries.push_back(std::move(entry));
    }
    return "";
}

std::string read_entry_of(const json_t &range, const std::string &key, std::vector<etcd_entry_t> &entries) {
    const size_t before = entries.size();
    std::string fault = read_entries(range, entries);
    if (!fault.empty()) return fault;
    const size_t count = entries.size() - before;
    const bool is_asked_for = count == 0 || (count == 1 && entries.back().key == key);
    return is_asked_for ? "" : "kvs: must have no key but " + key;
}

std::string read_page(const json_t &range, const std::string &prefix, std::vector<etcd_entry_t> &entries) {
    const size_t before = entries.size();
    std::string fault = read_entries(range, entries);
    for (size_t i = before; i < entries.size() && fault.empty(); ++i) {
        const bool is_in_order = i == 0 || entries[i - 1].key < entries[i].key;
        if (!is_in_order) fault = "kvs: keys must be in ascending order";
        if (!entries[i].key.starts_with(prefix)) fault = "kvs: each key must begin with " + prefix;
    }
    return fault;
}

int64_t revision_of(const json_t &answer) {
    const json_t *header = answer.find("header");
    return header == nullptr ? 0 : json_members_t(*header).int64("revision");
}

std::string end_of_prefix(std::string prefix) {
    while (!prefix.empty() && prefix.back() == '\xff') {
        prefix.pop_back();
    }
    if (prefix.empty()) return std::string(1, '\0'); /* all keys */
    prefix.back() = static_cast<char>(static_cast<unsigned char>(prefix.back()) + 1);
    return prefix;
}
