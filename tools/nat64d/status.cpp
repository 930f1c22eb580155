#include "tools/nat64d/status.h"

#include <cstdio>

#include "net/json.h"

std::string status_json(const daemon_status_t &status, const std::optional<store_status_t> &store) {
    char boot[17];
    snprintf(boot, sizeof boot, "%016llx", static_cast<unsigned long long>(status.boot_id));
    json_t json = {{"server", status.server},
                   {"server_up", status.is_server_up},
                   {"boot_id", status.boot_id == 0 ? "" : boot},
                   {"document", status.document},
                   {"items", status.items},
                   {"document_since", status.document_since},
                   {"in_step", status.is_in_step}};
    if (!status.is_in_step) json["reason"] = status.reason;
    json["since"] = status.since;
    if (!status.refused_reason.empty()) {
        json["refused_document"] = status.refused_document;
        json["refused_reason"] = status.refused_reason;
        json["refused_since"] = status.refused_since;
    }
    if (status.foreign_count != 0) {
        json["foreign_items"] = status.foreign_count;
        json["foreign"] = status.foreign;
    }
    json["reconnections"] = status.reconnections;
    json["server_restarts"] = status.restarts;
    json["replays"] = status.replays;
    json["edits"] = status.edits;
    json["refusals"] = status.refusals;
    if (store) {
        json["store"] = {{"up", store->is_up}, {"version", store->version}};
        if (!store->is_up) json["store"]["reason"] = store->reason;
        if (store->refused_version != 0) json["store"]["refused_version"] = store->refused_version;
    }
    return json.dump();
}
