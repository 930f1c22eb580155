/* Simple settings of the service: timeouts, limits, services, adjacencies, replication, global settings. */
#include "tools/natctl/grammar.h"

namespace {

void timeout_fields(CLI::App &app, fwx_nat64_timeout_t &timeout, uint32_t) {
    number_field(app, "--type", timeout.type, "kind of timeout", 1, 7).required();
    number_field(app, "--value", timeout.value, "the timeout, in seconds").required();
}

/** Limits and services: a kind, of which there is one, and its value. */
template <typename record_t>
void typed_value_fields(CLI::App &app, record_t &record, uint32_t op) {
    number_field(app, "--type", record.type, "kind", 1, 1).required();
    number_field(app, "--value", record.value, "the value, passed to the server").required(op != FWX_NAT64_OP_DEL);
}

void adjacency_fields(CLI::App &app, fwx_nat64_adj_t &adjacency, uint32_t) {
    number_field(app, "--type", adjacency.type, "kind of adjacency", 1, 13).required();
    address_field(app, "--address", adjacency.address, "its address").required();
}

void replication_fields(CLI::App &app, fwx_nat64_replication_t &replication, uint32_t op) {
    replication.set = op == FWX_NAT64_OP_ADD ? 1 : 0;
    number_field(app, "--value", replication.value, "first word, passed to the server");
    number_field(app, "--value2", replication.value2, "second word, passed to the server");
}

void global_fields(CLI::App &app, fwx_nat64_global_settings_t &settings, uint32_t) {
    hex_field(app, "--bytes", settings.opaque, sizeof settings.opaque, "the settings, passed to the server").required();
}

uint32_t set_global(uint32_t, const fwx_nat64_global_settings_t *settings, void *ctx) {
    return fwx_nat64_global_settings_set_a(settings, ctx);
}

}  // namespace

void add_setting_commands(grammar_t &grammar) {
    grammar.family("timeout", "Timeouts of sessions");
    add_setters<fwx_nat64_timeout_t>(grammar, "a timeout", {set_verb}, {fwx_nat64_timeout_set_a, timeout_fields});

    grammar.family("limit", "Limits of the service");
    add_setters<fwx_nat64_limit_t>(grammar, "a limit", {add_verb, mod_verb, del_verb},
                                   {fwx_nat64_limit_set_a, typed_value_fields});

    grammar.family("service", "Services");
    add_setters<fwx_nat64_service_t>(grammar, "a service", {add_verb, del_verb},
                                     {fwx_nat64_service_set_a, typed_value_fields});

    grammar.family("adj", "Adjacencies");
    add_setters<fwx_nat64_adj_t>(grammar, "an adjacency", {set_verb}, {fwx_nat64_adj_set_a, adjacency_fields});

    grammar.family("replication", "Replication of sessions");
    constexpr verb_t unset_verb = {"unset", FWX_NAT64_OP_DEL, "Takes back "};
    add_setters<fwx_nat64_replication_t>(grammar, "the replication", {set_verb, unset_verb},
                                         {fwx_nat64_replication_set_a, replication_fields});

    grammar.family("settings", "Global settings");
    add_setters<fwx_nat64_global_settings_t>(grammar, "the global settings", {set_verb}, {set_global, global_fields});

    grammar.family("ipalias", "IP aliases");
    grammar.command("upload", "Asks the server to upload its IP aliases",
                    [](call_t &call) { return fwx_nat64_ipalias_upload_a(call.ctx); });
}
