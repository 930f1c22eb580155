/* Parses and writes the status of a gateway. Everything in it comes from another machine, so each member is checked. */
#include "fleet/gateway_state.h"

#include "fleet/fleet_keys.h"
#include "fleet/manifest.h"
#include "net/json.h"

namespace {

constexpr size_t most_time_bytes = 64;

/** Checks that a member is the hash of a document or empty. */
void check_hash(json_members_t &members, const char *name, const std::string &hash) {
    if (!hash.empty() && !is_sha256(hash)) members.fail(std::string(name) + ": must be a SHA-256, or empty");
}

void read_refusal(const json_t &object, gateway_state_t &state, json_members_t &of) {
    json_members_t members(object);
    state.refused_version = members.number("version", 1, most_version);
    state.refused_document = members.text("document", most_name_bytes);
    state.refused_reason = members.line("reason", most_reason_bytes);
    check_hash(members, "document", state.refused_document);
    if (!members.is_good()) of.fail("refused: " + members.fault());
}

}  // namespace

std::optional<gateway_state_t> read_gateway_state(std::string_view text, std::string &error) {
    const json_t json = text.size() <= most_gateway_state_bytes ? json_t::parse(text) : json_t();
    gateway_state_t state;
    json_members_t members(json);
    state.gateway = members.text("gateway", most_name_bytes);
    state.server = members.line("server", most_name_bytes);
    state.version = members.number("version", 0, most_version);
    state.document = members.text("document", most_name_bytes);
    state.items = members.number("items", 0, UINT64_MAX);
    state.is_in_step = members.flag("in_step");
    state.reason = members.find("reason") == nullptr ? "" : members.line("reason", most_reason_bytes);
    state.since = members.line("since", most_time_bytes);
    state.time = members.line("time", most_time_bytes);
    if (!is_gateway_name(state.gateway))
        members.fail("gateway: must be a name of 1 to 64 letters, digits, '.', '_' and '-'");
    check_hash(members, "document", state.document);
    if (const json_t *refused = members.find("refused")) read_refusal(*refused, state, members);
    if (members.is_good()) return state;
    error = members.fault();
    return std::nullopt;
}

std::string write_gateway_state(const gateway_state_t &state) {
    json_t json = {{"gateway", state.gateway}, {"server", clean_line(state.server, most_name_bytes)},
                   {"version", state.version}, {"document", state.document},
                   {"items", state.items},     {"in_step", state.is_in_step}};
    if (!state.reason.empty()) json["reason"] = clean_line(state.reason, most_reason_bytes);
    json["since"] = state.since;
    if (state.refused_version != 0) {
        json["refused"] = {{"version", state.refused_version},
                           {"document", state.refused_document},
                           {"reason", clean_line(state.refused_reason, most_reason_bytes)}};
    }
    json["time"] = state.time;
    return json.dump();
}
