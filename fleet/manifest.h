/*
 * What the gateways of a fleet are to hold, as JSON of at most 1 MiB:
 *
 *     {"format":1,"version":8,"document":"SHA256","bytes":70123,"items":901,"pushed_by":"ann@ops1",
 *      "pushed_at":"2026-01-31T23:59:59.123Z","note":"edge.nat64","chunks":[["SHA256",32768],["SHA256",37355]]}
 *
 * `document` is the hash of the whole text. A document that only some gateways get has a `stage`, `{"gateways":["a"]}`
 * or
 * `{"percent":10}`, and beside it the `base` that the others keep, which is the same without `format` and stage. An
 * entry of the history is a manifest without `base`.
 *
 * A manifest of a newer format is refused. So is one that says less than it must, or what cannot be; members that are
 * not known are left alone.
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
    uint64_t bytes = 0;   /* of its text: those of its chunks together */
    uint64_t items = 0;
    std::string pushed_by; /* `user@host` */
    std::string pushed_at; /* in UTC */
    std::string note;      /* name of its file, or `rollback to 7` */
    std::vector<chunk_t> chunks;
};

/** Which gateways a document is for. */
struct stage_t {
    std::vector<std::string> gateways; /* these; without any: */
    uint32_t percent = 0;              /* so many of a hundred, 1 to 100 */

    bool operator==(const stage_t &) const = default;
};

struct manifest_t {
    fleet_document_t document;
    std::optional<stage_t> stage;         /* nothing: it is for all */
    std::optional<fleet_document_t> base; /* what those that the stage does not name hold; there when there is a stage,
                                             but in the history */

    /** What a gateway is to hold. */
    const fleet_document_t &document_for(const std::string &gateway) const;
    /** What the next stage leaves with those that it does not name. */
    const fleet_document_t &document_for_all() const { return stage && base ? *base : document; }
};

/** Whether a gateway is one of a stage's. A growing percentage only adds gateways. */
bool is_in_stage(const stage_t &stage, const std::string &gateway);
/** `gateways a, b` or `10 % of the gateways`. */
std::string stage_text(const stage_t &stage);

enum class manifest_place_t : uint8_t { current, history };

/** Nothing, with `error` filled, when the text is no manifest, or a newer one. */
std::optional<manifest_t> read_manifest(std::string_view text, manifest_place_t place, std::string &error);
/** Whether a text is a manifest of a format that is not known here yet. */
bool is_newer_manifest(std::string_view text);
std::string write_manifest(const manifest_t &manifest, manifest_place_t place);

#endif
