/* Fuzzes the readers of data from the store: manifests, gateway states and answers of etcd. The first byte of the input
 * selects the reader, which reads the rest or refuses it with a reason. Data that was read and written reads the same
 * again. */
#include <string>
#include <string_view>

#include "fleet/etcd_json.h"
#include "fleet/gateway_state.h"
#include "fleet/manifest.h"
#include "input.h"

namespace {

void read_as_manifest(std::string_view text, manifest_place_t place) {
    std::string error;
    const std::optional<manifest_t> manifest = read_manifest(text, place, error);
    FUZZ_CHECK(manifest.has_value() == error.empty());
    if (!manifest) return;
    const std::string written = write_manifest(*manifest, place);
    const std::optional<manifest_t> again = read_manifest(written, place, error);
    FUZZ_CHECK(again && write_manifest(*again, place) == written);
    FUZZ_CHECK(again->document_for("g1").hash == manifest->document_for("g1").hash);
}

void read_as_state(std::string_view text) {
    std::string error;
    const std::optional<gateway_state_t> state = read_gateway_state(text, error);
    FUZZ_CHECK(state.has_value() == error.empty());
    if (!state) return;
    const std::string written = write_gateway_state(*state);
    const std::optional<gateway_state_t> again = read_gateway_state(written, error);
    FUZZ_CHECK(again && write_gateway_state(*again) == written);
}

void read_as_answer(std::string_view text) {
    http_reply_t reply;
    reply.status = http_t::success;
    reply.body = text;
    const etcd_answer_t answer = read_answer("http://127.0.0.1:1", reply);
    FUZZ_CHECK(answer.error || answer.json.is_object());
    if (answer.error) return;
    std::vector<etcd_entry_t> entries;
    const std::string fault = read_entries(answer.json, entries);
    FUZZ_CHECK(fault.empty() || fault.find(": ") != std::string::npos);
    revision_of(answer.json);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const char reader = static_cast<char>(data[0]);
    if (reader == 'm') read_as_manifest(text, manifest_place_t::current);
    if (reader == 'h') read_as_manifest(text, manifest_place_t::history);
    if (reader == 's') read_as_state(text);
    if (std::string_view("mhs").find(reader) == std::string_view::npos) read_as_answer(text);
    return 0;
}
