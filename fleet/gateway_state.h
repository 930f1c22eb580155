/*
 * The status that a gateway writes to the store, as JSON of at most 8 KiB:
 *
 *     {"gateway":"fra1","server":"alpha","version":8,"document":"SHA256","items":901,"in_step":false,"reason":"...",
 *      "since":"2026-01-31T23:59:59.123Z","refused":{"version":9,"document":"SHA256","reason":"..."},"time":"..."}
 *
 * `version` and `document` belong to the document that the gateway keeps its server in sync with. `refused` is present
 * as long as the gateway could not put a later document in force. The writer cuts texts that are too long.
 */
#ifndef FLEET_GATEWAY_STATE_H
#define FLEET_GATEWAY_STATE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

constexpr size_t most_gateway_state_bytes = 8192;
constexpr size_t most_reason_bytes = 1024;

struct gateway_state_t {
    std::string gateway;
    std::string server;           /* name of the server that the gateway reconciles */
    uint64_t version = 0;         /* of the document in force; 0: none */
    std::string document;         /* SHA-256 of the document in force; empty: none */
    uint64_t items = 0;           /* number of its items */
    bool is_in_step = false;      /* the server is in sync with the document */
    std::string reason;           /* why it is not; empty: it is */
    std::string since;            /* last change of is_in_step, in UTC */
    uint64_t refused_version = 0; /* later version that could not be put in force; 0: none */
    std::string refused_document;
    std::string refused_reason;
    std::string time; /* when the status was written, in UTC */
};

/** Parses a status. Sets `error` and returns nothing if the text is not one. */
std::optional<gateway_state_t> read_gateway_state(std::string_view text, std::string &error);
std::string write_gateway_state(const gateway_state_t &state);

#endif
