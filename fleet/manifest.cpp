/* Parses and writes manifests. They come from the store, so sizes, hashes and names are checked before use. */
#include "fleet/manifest.h"

#include <algorithm>
#include <charconv>

#include "fleet/fleet_keys.h"
#include "net/json.h"

namespace {

constexpr uint64_t most_items = uint64_t{1} << 32;
constexpr uint32_t all_percent = 100;

json_t parse_bounded(std::string_view text) {
    return text.size() <= most_manifest_bytes ? json_t::parse(text) : json_t();
}

/** The format, or 0 after setting the fault. */
uint64_t format_of(json_members_t &members) {
    return members.number("format", 1, UINT64_MAX);
}

std::string read_chunk(const json_t &pair, chunk_t &chunk) {
    const bool is_pair = pair.is_array() && pair.size() == 2 && pair.at(0).is_string() && pair.at(1).is_number();
    const std::string hash = is_pair ? pair.at(0).get<std::string>() : "";
    const uint64_t bytes = is_pair ? pair.at(1).get<uint64_t>() : 0;
    const bool is_good = is_sha256(hash) && bytes >= 1 && bytes <= most_chunk_bytes;
    if (!is_good) {
        return "chunks: each must be the SHA-256 of a chunk and its bytes, 1 to " + std::to_string(most_chunk_bytes);
    }
    chunk = {hash, static_cast<uint32_t>(bytes)};
    return "";
}

void read_chunks(json_members_t &members, fleet_document_t &document) {
    const json_t *list = members.find("chunks");
    const bool is_list = list != nullptr && list->is_array() && !list->empty() && list->size() <= most_chunks;
    if (!is_list) return members.fail("chunks: must be an array of 1 to " + std::to_string(most_chunks));
    uint64_t bytes = 0;
    for (const json_t &pair : *list) {
        chunk_t chunk;
        const std::string fault = read_chunk(pair, chunk);
        if (!fault.empty()) return members.fail(fault);
        bytes += chunk.bytes;
        document.chunks.push_back(std::move(chunk));
    }
    if (bytes != document.bytes) members.fail("bytes: must be those of the chunks together");
}

fleet_document_t read_document_of(json_members_t &members) {
    fleet_document_t document;
    document.version = members.number("version", 1, most_version);
    document.hash = members.text("document", most_name_bytes);
    document.bytes = members.number("bytes", 1, most_document_bytes);
    document.items = members.number("items", 0, most_items);
    document.pushed_by = members.line("pushed_by", most_name_bytes);
    document.pushed_at = members.line("pushed_at", most_name_bytes);
    document.note = members.line("note", most_note_bytes);
    if (!is_sha256(document.hash)) members.fail("document: must be a SHA-256");
    if (members.is_good()) read_chunks(members, document);
    return document;
}

stage_t read_stage(const json_t &object, std::string &fault) {
    stage_t stage;
    json_members_t members(object);
    const json_t *names = members.find("gateways");
    if (names == nullptr) {
        stage.percent = static_cast<uint32_t>(members.number("percent", 1, all_percent));
    } else if (!names->is_array() || names->empty() || names->size() > most_staged_gateways) {
        members.fail("gateways: must be an array of 1 to " + std::to_string(most_staged_gateways));
    } else {
        for (const json_t &name : *names) {
            stage.gateways.push_back(name.is_string() ? name.get<std::string>() : "");
            if (!is_gateway_name(stage.gateways.back())) members.fail("gateways: must be names of gateways");
        }
    }
    if (!members.is_good()) fault = "stage: " + members.fault();
    return stage;
}

json_t document_json(const fleet_document_t &document) {
    json_t json = {{"version", document.version}, {"document", document.hash},       {"bytes", document.bytes},
                   {"items", document.items},     {"pushed_by", document.pushed_by}, {"pushed_at", document.pushed_at},
                   {"note", document.note}};
    json_t &chunks = json["chunks"] = json_t::array();
    for (const chunk_t &chunk : document.chunks) {
        chunks.push_back(json_t::array({chunk.hash, chunk.bytes}));
    }
    return json;
}

}  // namespace

const fleet_document_t &manifest_t::document_for(const std::string &gateway) const {
    const bool has_base = !stage || is_in_stage(*stage, gateway) || !base;
    return has_base ? document : *base;
}

bool is_in_stage(const stage_t &stage, const std::string &gateway) {
    if (!stage.gateways.empty()) {
        return std::find(stage.gateways.begin(), stage.gateways.end(), gateway) != stage.gateways.end();
    }
    constexpr size_t digits = 8;
    const std::string hash = sha256(gateway);
    uint32_t place = 0; /* depends only on the gateway's name */
    std::from_chars(hash.data(), hash.data() + std::min(digits, hash.size()), place, 16);
    return place % all_percent < stage.percent;
}

std::string stage_text(const stage_t &stage) {
    if (stage.gateways.empty()) return std::to_string(stage.percent) + " % of the gateways";
    std::string text;
    for (const std::string &name : stage.gateways) {
        text += (text.empty() ? "gateways " : ", ") + name;
    }
    return text;
}

std::optional<manifest_t> read_manifest(std::string_view text, manifest_place_t place, std::string &error) {
    const json_t json = parse_bounded(text);
    if (!json.is_object()) {
        error = "must be a JSON object of at most " + std::to_string(most_manifest_bytes) + " bytes";
        return std::nullopt;
    }
    manifest_t manifest;
    json_members_t members(json);
    const uint64_t format = format_of(members);
    if (format > manifest_format) {
        members.fail("format: is " + std::to_string(format) + ", but the newest that this program knows is " +
                     std::to_string(manifest_format));
    }
    if (members.is_good()) manifest.document = read_document_of(members);
    std::string fault;
    const json_t *stage = members.find("stage");
    if (members.is_good() && stage != nullptr) manifest.stage = read_stage(*stage, fault);
    const bool needs_base = manifest.stage && place == manifest_place_t::current;
    if (fault.empty() && needs_base) {
        const json_t none;
        const json_t *base = members.find("base");
        json_members_t of_base(base == nullptr ? none : *base);
        manifest.base = read_document_of(of_base);
        if (!of_base.is_good()) fault = "base: " + of_base.fault();
    }
    if (!fault.empty()) members.fail(fault);
    if (members.is_good()) return manifest;
    error = members.fault();
    return std::nullopt;
}

bool is_newer_manifest(std::string_view text) {
    const json_t json = parse_bounded(text);
    json_members_t members(json);
    return format_of(members) > manifest_format;
}

std::string write_manifest(const manifest_t &manifest, manifest_place_t place) {
    json_t json = {{"format", manifest_format}};
    json.update(document_json(manifest.document));
    if (manifest.stage) {
        const stage_t &stage = *manifest.stage;
        json["stage"] =
            stage.gateways.empty() ? json_t{{"percent", stage.percent}} : json_t{{"gateways", stage.gateways}};
        if (manifest.base && place == manifest_place_t::current) json["base"] = document_json(*manifest.base);
    }
    return json.dump();
}
