/*
 * The manifest, which is the desired state of a fleet's gateways, as JSON of at most 1 MiB:
 *
 *     {"format":1,"version":8,"document":"SHA256","bytes":70123,"items":901,"pushed_by":"ann@ops1",
 *      "pushed_at":"2026-01-31T23:59:59.123Z","note":"edge.nat64","chunks":[["SHA256",32768],["SHA256",37355]]}
 *
 * `document` is the hash of the whole text. If only some gateways get the document, `stage` says which:
 * `{"gateways":["a"]}` or `{"percent":10}`. `base` then describes the document that the other gateways keep. It has the
 * same members, except `format`, `stage` and `base`. A manifest in the history has no `base`.
 *
 * A manifest of a newer format is refused, and so is one with a missing or wrong member. Unknown members are ignored.
 */
#ifndef FLEET_MANIFEST_H
#define FLEET_MANIFEST_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/chunks.h"

constexpr uint64_t manifest_format = 1;
constexpr size_t most_manifest_bytes = 1U << 20;
constexpr size_t most_staged_gateways = 1000;
constexpr uint64_t most_version = 9999999999;
constexpr size_t most_note_bytes = 1024;

/** A document as it was pushed. */
struct fleet_document_t {
    uint64_t version = 0; /* from 1 */
    std::string hash;     /* SHA-256 of its text */
    uint64_t bytes = 0;   /* length of its text, the sum of its chunks */
    uint64_t items = 0;
    std::string pushed_by; /* `user@host` */
    std::string pushed_at; /* in UTC */
    std::string note;      /* name of its file, or `rollback to 7` */
    std::vector<chunk_t> chunks;
};

/** Selects the gateways that get a document. */
struct stage_t {
    std::vector<std::string> gateways; /* names; if empty, `percent` applies */
    uint32_t percent = 0;              /* 1 to 100 */

    bool operator==(const stage_t &) const = default;
};

struct manifest_t {
    fleet_document_t document;
    std::optional<stage_t> stage;         /* nothing: the document is for all gateways */
    std::optional<fleet_document_t> base; /* document of gateways outside of the stage; only with a stage, and not in
                                             the history */

    /** The document for a gateway. */
    const fleet_document_t &document_for(const std::string &gateway) const;
    /** The document for gateways outside of any stage, which is the base of the next stage. */
    const fleet_document_t &document_for_all() const { return stage && base ? *base : document; }
};

/** True if a stage selects a gateway. A greater percentage selects the same gateways and more. */
bool is_in_stage(const stage_t &stage, const std::string &gateway);
/** `gateways a, b` or `10 % of the gateways`. */
std::string stage_text(const stage_t &stage);

enum class manifest_place_t : uint8_t { current, history };

/** Parses a manifest. Sets `error` and returns nothing if the text is not a manifest of this format. */
std::optional<manifest_t> read_manifest(std::string_view text, manifest_place_t place, std::string &error);
/** True if a text is a manifest of a newer format. */
bool is_newer_manifest(std::string_view text);
std::string write_manifest(const manifest_t &manifest, manifest_place_t place);

#endif
