/* Cutting of documents into chunks: their sizes, and which of them a change of the document leaves as they are. */
#include "fleet/chunks.h"

#include <gtest/gtest.h>

#include <set>
#include <tuple>

namespace {

std::string rule(uint32_t number, const std::string &more = {}) {
    return "mapt bmr add --rule " + std::to_string(number) + " --domain 1 --v4 40.0.0.1/32 --v6 2001:db8::/64" + more +
           '\n';
}

std::string document(uint32_t rules) {
    std::string text = "# nat64 configuration version 1\n";
    for (uint32_t i = 1; i <= 1000; ++i) {
        text += "interface set --ifh " + std::to_string(i) + " --mtu 1500\n";
        if (i % 2 == 0) text += "nvi enable --ifh " + std::to_string(i) + '\n';
    }
    for (uint32_t i = 1; i <= rules; ++i) {
        text += rule(i);
    }
    return text;
}

TEST(chunks, are_the_text_in_pieces_of_a_good_size) {
    const std::string text = document(50000);
    const std::vector<std::string_view> pieces = cut_chunks(text);
    std::string joined;
    size_t small = 0;
    for (const std::string_view piece : pieces) {
        joined += piece;
        EXPECT_LE(piece.size(), most_chunk_bytes);
        EXPECT_EQ(piece.back(), '\n');
        small += piece.size() < 8192 ? 1 : 0;
    }
    EXPECT_EQ(joined, text);
    EXPECT_LE(small, 4U) << "where a kind of lines ends, and at the end";
    EXPECT_GT(text.size() / pieces.size(), 16U << 10);
    EXPECT_LT(text.size() / pieces.size(), 64U << 10);
    EXPECT_TRUE(pieces.back().starts_with("mapt bmr add"));
}

TEST(chunks, a_change_among_a_hundred_thousand_rules_leaves_all_but_the_pieces_that_it_is_in) {
    const std::string before = document(100000);
    std::set<std::string> known;
    for (const std::string_view piece : cut_chunks(before)) {
        known.insert(name_chunk(piece).hash);
    }
    const std::string line = rule(50000);
    const size_t at = before.find(line);
    const std::tuple<size_t, size_t, std::string> changes[] = {
        {at, line.size(), rule(50000, " --ea-len 16")},
        {at, line.size(), ""},
        {at, line.size(), line + line},
        {before.find('\n') + 1, 0, "timeout set --type udp --value 5\n"}, /* of a kind that comes first */
    };
    for (const auto &[from, size, by] : changes) {
        std::string after = before;
        after.replace(from, size, by);
        size_t count = 0;
        size_t bytes = 0;
        for (const std::string_view piece : cut_chunks(after)) {
            if (known.count(name_chunk(piece).hash) != 0) continue;
            ++count;
            bytes += piece.size();
        }
        EXPECT_LE(count, 2U) << by;
        EXPECT_LT(bytes, 1U << 20) << by;
    }
}

TEST(chunks, lines_without_end_are_cut_all_the_same) {
    const std::string line = "pool add --id " + std::string(3 * most_chunk_bytes, '1');
    std::string joined;
    for (const std::string_view piece : cut_chunks(line)) {
        EXPECT_LE(piece.size(), most_chunk_bytes);
        joined += piece;
    }
    EXPECT_EQ(joined, line);
    EXPECT_TRUE(cut_chunks("").empty());
}

TEST(chunks, have_the_hash_of_their_text_as_name) {
    const chunk_t chunk = name_chunk("abc");
    EXPECT_EQ(chunk.hash, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_TRUE(is_chunk(chunk, "abc"));
    EXPECT_FALSE(is_chunk(chunk, "abd"));
    EXPECT_FALSE(is_chunk({chunk.hash, 4}, "abc"));
}

}  // namespace
