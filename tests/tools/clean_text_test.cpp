/* Untrusted texts: cleaned for a terminal, encoded as JSON, and parsed within bounds. */
#include <gtest/gtest.h>

#include "net/json.h"

namespace {

TEST(clean_text, what_could_steer_a_terminal_is_a_blank_and_what_is_no_character_a_question_mark) {
    const std::pair<std::string, std::string> cases[] = {
        {"plain ~", "plain ~"},
        {"gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80", "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"\x1b]0;title\x07", " ]0;title "},
        {"\x7f", " "},
        {"\xc2\x80-a\xc2\x9f-b\xc2\xa0", " -a -b\xc2\xa0"},
        {"\xe2\x80\xae-cod\xe2\x81\xa6-e\xe2\x80\xa8", " -cod -e "},
        {"\x9b[31m\xff", "?[31m?"},
        {"\xc3", "?"},
        {"\xc0\x9b", "??"},           /* overlong encoding */
        {"\xe0\x80\x9b", "???"},      /* likewise */
        {"\xed\xa0\x80", "???"},      /* a surrogate */
        {"\xf4\x90\x80\x80", "????"}, /* above U+10FFFF */
        {std::string("a\0b", 3), "a b"},
    };
    for (const auto &[text, line] : cases) {
        EXPECT_EQ(clean_line(text), line);
        EXPECT_EQ(clean_text(text), line);
    }
    EXPECT_EQ(clean_line("a\n\tb\r"), "a  b ");
    EXPECT_EQ(clean_text("a\n\tb\r"), "a\n\tb ");
    EXPECT_EQ(clean_line("a\xc3\xbc", 2), "a") << "it is cut between characters";
}

TEST(clean_text, json_has_such_characters_as_numbers_and_reads_them_again) {
    const std::string text = "\x1b\x7f\xc2\x9b\xe2\x80\xae\xc3\xbc\"";
    const std::string dumped = json_t(text).dump();
    EXPECT_EQ(dumped, "\"\\u001b\\u007f\\u009b\\u202e\xc3\xbc\\\"\"");
    EXPECT_EQ(json_t::parse(dumped).get<std::string>(), text);
    EXPECT_EQ(json_t("\xc2\x9b").dump(), "\"\\u009b\""); /* nothing but bytes from 0x80 */
    EXPECT_EQ(json_t("\xff").dump(), "\"\xef\xbf\xbd\"");
}

TEST(json_bounds, a_text_of_too_many_levels_or_with_too_many_members_in_one_object_is_not_parsed) {
    const auto nested = [](size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); };
    EXPECT_TRUE(json_t::parse(nested(16)).is_array());
    for (const std::string &text : {nested(17), R"(["\"",)" + nested(16) + "]", R"(["\\",)" + nested(16) + "]"}) {
        EXPECT_TRUE(json_t::parse(text).is_null()) << text;
    }
    const auto object_of = [](size_t members) {
        std::string text = "{\"first\":{\"a:\":1}";
        for (size_t i = 1; i < members; ++i) {
            text += ",\"" + std::to_string(i) + "\":[{\"b\":2},3]";
        }
        return text + "}";
    };
    EXPECT_EQ(json_t::parse(object_of(256)).size(), 256U);
    EXPECT_TRUE(json_t::parse(object_of(257)).is_null());
}

}  // namespace
