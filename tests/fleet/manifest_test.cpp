/* Parsing and writing of manifests, stages and the status of gateways, with malformed and hostile input. */
#include "fleet/manifest.h"

#include <gtest/gtest.h>

#include <tuple>

#include "fleet/fleet_keys.h"
#include "fleet/gateway_state.h"

namespace {

const std::string hash_a(64, 'a');
const std::string hash_b(64, 'b');

manifest_t manifest() {
    manifest_t manifest;
    manifest.document = {
        8, hash_a, 5, 2, "ann@ops1", "2026-01-31T23:59:59.123Z", "edge.nat64", {{hash_a, 2}, {hash_b, 3}}};
    return manifest;
}

const std::string manifest_text =
    R"({"format":1,"version":8,"document":")" + hash_a +
    R"(","bytes":5,"items":2,"pushed_by":"ann@ops1","pushed_at":"2026-01-31T23:59:59.123Z",)" +
    R"("note":"edge.nat64","chunks":[[")" + hash_a + R"(",2],[")" + hash_b + R"(",3]])";

/** The error for the text of a manifest; `none` if it is correct. */
std::string fault_of(const std::string &json, manifest_place_t place = manifest_place_t::current) {
    std::string error = "none";
    const bool is_read = read_manifest(json, place, error).has_value();
    return is_read == (error == "none") ? error : "half read";
}

std::string replaced(std::string json, const std::string &what, const std::string &by) {
    return json.replace(json.find(what), what.size(), by);
}

TEST(manifest, is_what_was_written) {
    manifest_t staged = manifest();
    EXPECT_EQ(write_manifest(staged, manifest_place_t::current), manifest_text + '}');
    staged.stage = stage_t{{"fra1", "ber2"}, 0};
    staged.base = staged.document;
    staged.base->version = 7;
    for (const manifest_place_t place : {manifest_place_t::current, manifest_place_t::history}) {
        const std::string json = write_manifest(staged, place);
        std::string error;
        const std::optional<manifest_t> read = read_manifest(json, place, error);
        ASSERT_TRUE(read) << error;
        EXPECT_EQ(write_manifest(*read, place), json);
        EXPECT_EQ(read->stage, staged.stage);
        EXPECT_EQ(read->base.has_value(), place == manifest_place_t::current);
    }
}

TEST(manifest, hostile_ones_are_refused_and_named) {
    const std::string staged = manifest_text + R"(,"stage":)";
    const std::string much(most_manifest_bytes, ' ');
    std::string chunks;
    for (size_t i = 0; i <= most_chunks; ++i) {
        chunks += "0,";
    }
    const std::string not_small = "must be a JSON object of at most 1048576 bytes";
    const std::string no_version = "version: must be 1 to 9999999999";
    const std::string no_chunk = "chunks: each must be the SHA-256 of a chunk and its bytes, 1 to 262144";
    const std::pair<std::string, std::string> cases[] = {
        {manifest_text + R"(,"later":{"than":"this"}})", "none"},
        {"", not_small},
        {"[]", not_small},
        {manifest_text + much + '}', not_small},
        {manifest_text + R"(,"x":)" + std::string(100, '[') + std::string(100, ']') + '}', not_small},
        {replaced(manifest_text, "\"format\":1", "\"format\":2") + '}',
         "format: is 2, but the newest that this program knows is 1"},
        {replaced(manifest_text, "\"format\":1", "\"f\":1") + '}', "format: must be 1 to 18446744073709551615"},
        {replaced(manifest_text, ":8,", ":0,") + '}', no_version},
        {replaced(manifest_text, ":8,", ":-8,") + '}', no_version},
        {replaced(manifest_text, ":8,", ":8.5,") + '}', no_version},
        {replaced(manifest_text, ":8,", ":99999999999999999999,") + '}', no_version},
        {replaced(manifest_text, hash_a, "../" + hash_a.substr(3)) + '}', "document: must be a SHA-256"},
        {replaced(manifest_text, ":5,", ":6,") + '}', "bytes: must be those of the chunks together"},
        {replaced(manifest_text, ":5,", ":268435457,") + '}', "bytes: must be 1 to 268435456"},
        {replaced(manifest_text, ",3]", ",0]") + '}', no_chunk},
        {replaced(manifest_text, ",3]", ",4294967299]") + '}', no_chunk},
        {replaced(manifest_text, "[[", R"([["../x",1],[)") + '}', no_chunk},
        {replaced(manifest_text, "[[", '[' + chunks + '[') + '}', "chunks: must be an array of 1 to 16384"},
        {replaced(manifest_text, "edge.nat64", "a\\u001b[2J") + '}', "note: must be one line"},
        {replaced(manifest_text, "\"note\"", "\"n\"") + '}', "note: must be a text of 0 to 1024 bytes"},
        {staged + "7}", "stage: must be an object"},
        {staged + R"({"percent":0}})", "stage: percent: must be 1 to 100"},
        {staged + R"({"percent":101}})", "stage: percent: must be 1 to 100"},
        {staged + R"({"gateways":[]}})", "stage: gateways: must be an array of 1 to 1000"},
        {staged + R"({"gateways":["a/b"]}})", "stage: gateways: must be names of gateways"},
        {staged + R"({"gateways":[7]}})", "stage: gateways: must be names of gateways"},
        {staged + R"({"percent":10}})", "base: must be an object"},
        {staged + R"({"percent":10},"base":{"version":7}})", "base: document: must be a text of 0 to 320 bytes"},
    };
    for (const auto &[json, fault] : cases) {
        EXPECT_EQ(fault_of(json), fault) << json.substr(0, 300);
    }
    EXPECT_EQ(fault_of(staged + R"({"percent":10}})", manifest_place_t::history), "none");
}

TEST(manifest, says_which_gateway_holds_what) {
    manifest_t staged = manifest();
    EXPECT_EQ(staged.document_for("fra1").version, 8U);
    staged.base = staged.document;
    staged.base->version = 7;
    staged.stage = stage_t{{"fra1"}, 0};
    EXPECT_EQ(staged.document_for("fra1").version, 8U);
    EXPECT_EQ(staged.document_for("fra2").version, 7U);
    EXPECT_EQ(staged.document_for_all().version, 7U);
    EXPECT_EQ(stage_text(*staged.stage), "gateways fra1");

    size_t before = 0;
    for (const uint32_t percent : {1U, 10U, 50U, 99U, 100U}) {
        size_t count = 0;
        for (int i = 0; i < 1000; ++i) {
            const std::string name = "gw" + std::to_string(i);
            const bool is_in = is_in_stage({{}, percent}, name);
            count += is_in ? 1 : 0;
            EXPECT_TRUE(is_in || !is_in_stage({{}, percent - 1}, name)) << "a gateway that was in goes out again";
        }
        EXPECT_GE(count, before);
        EXPECT_NEAR(static_cast<double>(count), percent * 10, 40);
        before = count;
    }
    EXPECT_EQ(before, 1000U);
    EXPECT_EQ(stage_text({{}, 10}), "10 % of the gateways");
}

TEST(fleet_keys, have_names_of_gateways_that_are_short_words) {
    for (const char *name : {"", "a/b", "a b", "\xc3\xa4"}) {
        EXPECT_FALSE(is_gateway_name(name)) << name;
    }
    EXPECT_TRUE(is_gateway_name(std::string(64, '-')));
    EXPECT_FALSE(is_gateway_name(std::string(65, '-')));
}

TEST(gateway_state, is_what_was_written_and_nothing_else) {
    const gateway_state_t state = {"fra1", "alpha", 8,      hash_a, 901, false, "lost\nthe server",
                                   "s",    9,       hash_b, "why",  "t"};
    const std::string json = write_gateway_state(state);
    EXPECT_EQ(json, R"({"gateway":"fra1","server":"alpha","version":8,"document":")" + hash_a +
                        R"(","items":901,"in_step":false,"reason":"lost the server","since":"s",)" +
                        R"("refused":{"version":9,"document":")" + hash_b + R"(","reason":"why"},"time":"t"})");
    std::string error;
    const std::optional<gateway_state_t> read = read_gateway_state(json, error);
    ASSERT_TRUE(read) << error;
    EXPECT_EQ(write_gateway_state(*read), json);
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"fra1", "../x", "gateway: must be a name of 1 to 64 letters, digits, '.', '_' and '-'"},
        {"\"version\":8", "\"version\":\"8\"", "version: must be 0 to 9999999999"},
        {"aaa", "xyz", "document: must be a SHA-256, or empty"},
        {"false", "0", "in_step: must be true or false"},
        {"lost the", "lost\\nthe", "reason: must be one line"},
        {"\"version\":9", "\"version\":0", "refused: version: must be 1 to 9999999999"},
        {"{", "[{", "must be an object"},
    };
    for (const auto &[what, by, fault] : cases) {
        EXPECT_FALSE(read_gateway_state(replaced(json, what, by), error)) << what;
        EXPECT_EQ(error, fault);
    }
    gateway_state_t wordy = state;
    wordy.reason = std::string(most_reason_bytes - 1, 'x') + "\xc3\xa4";
    wordy.refused_reason = "two\nlines" + wordy.reason;
    wordy.server = "two\nlines" + std::string(320, 'x');
    ASSERT_TRUE(read_gateway_state(write_gateway_state(wordy), error)) << error;
    EXPECT_EQ(read_gateway_state(write_gateway_state(wordy), error)->reason, std::string(most_reason_bytes - 1, 'x'));
}

}  // namespace
