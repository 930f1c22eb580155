/*
 * What a gateway says of itself in the store, as JSON of at most 8 KiB:
 *
 *     {"gateway":"fra1","server":"alpha","version":8,"document":"SHA256","items":901,"in_step":false,"reason":"...",
 *      "since":"2026-01-31T23:59:59.123Z","refused":{"version":9,"document":"SHA256","reason":"..."},"time":"..."}
 *
 * `version` and `document` are those of the manifest whose document is in force. `refused` is there while a later one
 * could not be put in force. Texts that are too long are cut by the writer.
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
    std::string server;           /* that it keeps */
    uint64_t version = 0;         /* that it holds; 0: none */
    std::string document;         /* its SHA-256; empty: none */
    uint64_t items = 0;           /* of it */
    bool is_in_step = false;      /* the server holds what it says */
    std::string reason;           /* why it does not; empty: it does */
    std::string since;            /* in UTC, of is_in_step */
    uint64_t refused_version = 0; /* that it could not put in force; 0: none */
    std::string refused_document;
    std::string refused_reason;
    std::string time; /* when this was said, in UTC */
};

/** Nothing, with `error` filled, when the text is no state. */
std::optional<gateway_state_t> read_gateway_state(std::string_view text, std::string &error);
std::string write_gateway_state(const gateway_state_t &state);

#endif
