/* Untrusted texts, cleaned for a terminal and encoded as JSON. */
#include <gtest/gtest.h>

#include "net/json.h"

namespace {

TEST(clean_text, what_could_steer_a_terminal_is_a_blank_and_what_is_no_character_a_question_mark) {
    const struct {
        std::string text;
        std::string line;
    } cases[] = {
        {"plain ~", "plain ~"},
        {"gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80", "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"\x1b]0;title\x07", " ]0;title "},
        {"\x7f", " "},
        {"\xc2\x80"
         "a\xc2\x9f"
         "b\xc2\xa0",
         " a b\xc2\xa0"},
        {"\xe2\x80\xae"
         "cod\xe2\x81\xa6"
         "e\xe2\x80\xa8",
         " cod e "},
        {"\x9b"
         "31m\xff",
         "?31m?"},
        {"\xc3", "?"},
        {"\xc0\x9b", "??"},           /* overlong encoding */
        {"\xe0\x80\x9b", "???"},      /* likewise */
        {"\xed\xa0\x80", "???"},      /* a surrogate */
        {"\xf4\x90\x80\x80", "????"}, /* above U+10FFFF */
        {std::string("a\0b", 3), "a b"},
    };
    for (const auto &tried : cases) {
        EXPECT_EQ(clean_line(tried.text), tried.line);
        EXPECT_EQ(clean_text(tried.text), tried.line);
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

}  // namespace
