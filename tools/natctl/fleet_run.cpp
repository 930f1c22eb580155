/*
 * Implements the commands of fleet_run.h that change the store: push and rollback. After a push it can wait for the
 * gateways, which report their state in the store.
 */
#include "tools/natctl/fleet_run.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "config/notation.h"
#include "fleet/fleet_view.h"
#include "fwx_host/adapter.hpp"
#include "state/user.h"

namespace {

constexpr std::chrono::milliseconds look_interval{200};

/** The state of a version at the gateways that it addresses. A gateway that is gone counts as lagging, because it may
 * hang, or hold anything, and so does one that a stage names and that has never been seen. */
struct progress_t {
    size_t in_step = 0;
    std::vector<std::string> refused; /* with reasons */
    std::vector<std::string> lagging;
    etcd_error_t error; /* of the last read */
};

std::string joined(const std::vector<std::string> &texts) {
    std::string all;
    for (const std::string &text : texts) {
        all += (all.empty() ? "" : "; ") + text;
    }
    return all;
}

bool is_meant(const manifest_t &manifest, const gateway_view_t &gateway) {
    return !manifest.stage || is_in_stage(*manifest.stage, gateway.name);
}

bool has_been_seen(const std::vector<gateway_view_t> &gateways, const std::string &name) {
    return std::any_of(gateways.begin(), gateways.end(), [&](const gateway_view_t &each) { return each.name == name; });
}

nat64::task<progress_t> look(etcd_t &etcd, const fleet_keys_t &keys, const manifest_t &manifest) {
    progress_t progress;
    const etcd_result_t<std::vector<gateway_view_t>> view = co_await read_gateways(etcd, keys);
    progress.error = view.error;
    for (const gateway_view_t &gateway : view.value) {
        if (!is_meant(manifest, gateway)) continue;
        const std::string text = gateway.name + ": " + lag_text(gateway, manifest.document);
        if (gateway.holds(manifest.document)) {
            ++progress.in_step;
        } else {
            (gateway.has_refused(manifest.document) ? progress.refused : progress.lagging).push_back(text);
        }
    }
    for (const std::string &name : manifest.stage ? manifest.stage->gateways : std::vector<std::string>{}) {
        if (!has_been_seen(view.value, name)) progress.lagging.push_back(name + ": has never been seen");
    }
    co_return progress;
}

/** Waits until every gateway has the version or has refused it, for at most `wait_s`. */
nat64::task<progress_t> wait_for_gateways(fleet_store_t &store, const manifest_t &manifest, uint64_t wait_s) {
    const uint64_t deadline = fwx_host_clock_ms() + wait_s * 1000;
    for (;;) {
        progress_t progress = co_await look(store.etcd(), store.keys(), manifest);
        const bool is_settled = !progress.error && progress.lagging.empty();
        if (is_settled || fwx_host_clock_ms() >= deadline) co_return progress;
        fwx::host::sleep pause(store.loop(), look_interval);
        co_await pause;
    }
}

void tell_gateways(call_t &call, fleet_store_t &store, const manifest_t &manifest, uint64_t wait_s) {
    progress_t progress = store.run(wait_for_gateways(store, manifest, wait_s));
    json_t refused = progress.refused;
    json_t lagging = progress.lagging;
    call.outcome.data["gateways"] = {
        {"in_step", progress.in_step}, {"refused", std::move(refused)}, {"lagging", std::move(lagging)}};
    if (!progress.refused.empty()) {
        refuse(call.outcome, status_t::refused, 0, "refused by " + joined(progress.refused));
    } else if (progress.error) {
        progress.error.text = "version " + std::to_string(manifest.document.version) +
                              " is in the store, but the gateways could not be looked at: " + progress.error.text;
        refuse(call.outcome, progress.error);
    } else if (!progress.lagging.empty()) {
        refuse(call.outcome, status_t::no_answer, 0,
               "not in step after " + std::to_string(wait_s) + " s: " + joined(progress.lagging));
    } else {
        call.outcome.note += ", " + std::to_string(progress.in_step) +
                             (progress.in_step == 1 ? " gateway in step" : " gateways in step");
    }
}

/** Notes the names that no known gateway has, because they may be misspelt. */
void tell_unseen(call_t &call, fleet_store_t &store, const std::vector<std::string> &names) {
    if (names.empty()) return;
    const etcd_result_t<std::vector<gateway_view_t>> view = store.run(read_gateways(store.etcd(), store.keys()));
    for (const std::string &name : names) {
        const bool is_seen = view.error || has_been_seen(view.value, name);
        if (!is_seen) call.pal.note("natctl: no gateway " + name + " has been seen");
    }
}

json_t result_json(const push_result_t &result) {
    const fleet_document_t &document = result.manifest.document;
    json_t json = {{"changed", result.is_changed},
                   {"version", document.version},
                   {"document", document.hash},
                   {"items", document.items},
                   {"stage", result.manifest.stage ? stage_text(*result.manifest.stage) : ""},
                   {"bytes", document.bytes},
                   {"chunks", document.chunks.size()},
                   {"bytes_put", result.bytes_put},
                   {"chunks_put", result.chunks_put},
                   {"collected", result.collected}};
    if (result.back_to != 0) {
        json["back_to"] = result.back_to;
        json["skipped"] = result.skipped;
    }
    return json;
}

/** The version that a rollback without a number chose, and those that it skipped. */
std::string choice_of(const push_result_t &result) {
    return ", back to version " + std::to_string(result.back_to) +
           (result.skipped.empty() ? ", the one before" : ": " + joined(result.skipped));
}

std::string note_of(const push_result_t &result) {
    const fleet_document_t &document = result.manifest.document;
    const std::string moved = std::to_string(result.chunks_put) + " of " + std::to_string(document.chunks.size()) +
                              (document.chunks.size() == 1 ? " chunk" : " chunks");
    const std::string stage = result.manifest.stage ? " for " + stage_text(*result.manifest.stage) : "";
    const bool moves = result.is_changed || result.chunks_put != 0;
    if (document.version == 0) return moves ? moved + " to put" + stage : "nothing to change";
    const std::string version = "version " + std::to_string(document.version);
    if (result.is_changed) return version + stage + ", " + moved + " put";
    return "nothing to change, " + version + " says it" + (moves ? ", " + moved + " put anew" : "");
}

/** Reports the result of a push. False: it failed. */
bool tell(call_t &call, const push_result_t &result) {
    if (!result.uncollected.empty()) {
        call.pal.note("natctl: unused chunks and versions were not deleted: " + result.uncollected);
    }
    if (!result.refused.empty()) {
        refuse(call.outcome, status_t::refused, 0, result.refused);
        return false;
    }
    if (result.error) {
        refuse(call.outcome, result.error);
        return false;
    }
    call.outcome.data = result_json(result);
    call.outcome.note = note_of(result);
    return true;
}

std::optional<stage_t> stage_of(const fleet_request_t &request) {
    if (request.gateways.empty() && request.percent == 0) return std::nullopt;
    return stage_t{request.gateways, request.percent};
}

/** Sets an option that was not given from the environment. */
void take_from_environment(const char *name, std::string &option) {
    const char *value = std::getenv(name);
    if (option.empty() && value != nullptr) option = value;
}

}  // namespace

fleet_store_t::fleet_store_t(pal_t &pal, store_t store)
    : loop_(pal.loop()),
      etcd_(loop_, std::move(store), {.timeout_ms = pal.options().timeout_ms}),
      keys_(etcd_.store().prefix),
      pusher_(loop_, etcd_, user_and_host()) {}

std::optional<store_t> fleet_store_of(call_t &call, const fleet_request_t &request) {
    store_options_t options = request.store;
    take_from_environment("NATCTL_STORE", options.url);
    take_from_environment("NATCTL_STORE_CA", options.ca);
    take_from_environment("NATCTL_STORE_CERT", options.cert);
    take_from_environment("NATCTL_STORE_KEY", options.key);
    take_from_environment("NATCTL_STORE_USER", options.user);
    take_from_environment("NATCTL_STORE_PASSWORD_FILE", options.password_file);
    store_t store;
    const std::string error = options.url.empty() ? "needs --store" : read_store(options, store);
    if (!error.empty()) {
        refuse(call.outcome, status_t::usage, 0, error);
        return std::nullopt;
    }
    for (const std::string &warning : store_warnings(options)) {
        call.pal.note("natctl: " + warning);
    }
    return store;
}

void refuse(outcome_t &outcome, const etcd_error_t &error) {
    using kind_t = etcd_error_t::kind_t;
    const status_t status = error.kind == kind_t::unreachable ? status_t::no_server
                            : error.kind == kind_t::no_answer ? status_t::no_answer
                            : error.kind == kind_t::malformed ? status_t::usage
                                                              : status_t::refused;
    refuse(outcome, status, 0, error.text);
}

void fleet_push(call_t &call, const fleet_request_t &request, const document_t &document, const store_t &store_place) {
    fleet_store_t store(call.pal, store_place);
    const bool is_check = request.is_check || call.pal.options().dry_run;
    const std::string name =
        request.file == "-" ? "standard input" : std::filesystem::path(request.file).filename().string();
    push_request_t push = {write_lines(document), document.size(), stage_of(request), name};
    nat64::task<push_result_t> (pusher_t::*const act)(push_request_t) = is_check ? &pusher_t::check : &pusher_t::push;
    const push_result_t result = store.run((store.pusher().*act)(std::move(push)));
    if (!tell(call, result)) return;
    tell_unseen(call, store, request.gateways);
    if (request.wait_s != 0 && !is_check) tell_gateways(call, store, result.manifest, request.wait_s);
}

void fleet_roll_back(call_t &call, const fleet_request_t &request, const store_t &store_place) {
    fleet_store_t store(call.pal, store_place);
    const std::optional<uint64_t> version = request.version == 0 ? std::nullopt : std::optional(request.version);
    const push_result_t result = store.run(store.pusher().roll_back(version));
    if (!tell(call, result)) return;
    if (!version) call.outcome.note += choice_of(result);
    if (request.wait_s != 0) tell_gateways(call, store, result.manifest, request.wait_s);
}
