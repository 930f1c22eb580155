/* Parsing, checking and writing of documents in both notations. */
#include <gtest/gtest.h>

#include <sstream>

#include "config/notation.h"
#include "config/plan.h"
#include "records/reader.h"
#include "records/words.h"
#include "tests/config/loaded.h"
#include "tests/config/text_cases.h"
#include "tests/records/all_families.h"
#include "tests/support/eventually.h"

namespace {

std::string texts_of(const problems_t &problems) {
    std::string texts;
    for (const problem_t &problem : problems) {
        texts += problem.text() + (problem.field.empty() ? "\n" : " [" + problem.field + "]\n");
    }
    return texts;
}

TEST(document_test, a_document_is_written_in_one_order_whatever_it_was_read_from) {
    const std::string lines = text_of(TEST_DIR "/every_family.natctl");
    const std::string json = write_json(loaded(lines));
    /* The lines backwards, with other spellings, and lines that say what a server does anyway. */
    std::string shuffled = "interface set --ifh 8\r\ntimeout set --type udp --value 0";
    std::istringstream each_line(lines);
    for (std::string line; std::getline(each_line, line);) {
        shuffled.insert(0, line + '\n');
    }
    const std::pair<std::string, std::string> spellings[] = {
        {"--id 2 --param 2 --start 192.0.2.1", "--id 0x2 --param=2 --start '192.0.2.1'"},
        {"--ea-len 16 --psid-offset 6 --psid-len 9", "--params 16,6,9,0"},
        {"--mtu 1400", "\\\n  --mtu 1400 # this interface"},
        {"--value 7440", "--value 2h4m"},
        {"--type endpoint-independent", "--type 0"},
        {"--type sessions", "--type 0x1"},
        {"--transport tcp --template bib", "--param 6 --param2 10"},
        {"--prefix 2001:db8:ffff::/64", "--data 20010db8ffff000000000000000000004000000000000000"},
        {"0a0b0c0d0e0f\n", "0A0b0c0d0e0f\n"},
    };
    for (const auto &[in_order, other] : spellings) {
        shuffled.replace(shuffled.find(in_order), in_order.size(), other);
    }
    shuffled.insert(0, "\xef\xbb\xbf# every family, in no order\n");
    for (const std::string &text : {shuffled, lines, json}) {
        EXPECT_EQ(write_lines(loaded(text)), lines);
        EXPECT_EQ(write_json(loaded(text)), json);
    }
    const std::string every_kind = text_of(TEST_DIR "/every_kind.json");
    EXPECT_EQ(write_json(loaded(every_kind)), every_kind);
    for (const char *text : {"# nat64 configuration version 1", "{\"version\":1,\"items\":{}}"}) {
        EXPECT_EQ(write_lines(loaded(text)), first_line);
        EXPECT_EQ(write_json(loaded(text)), "{\"version\":1,\n\"items\":{}}\n");
    }
}

TEST(document_test, every_field_of_every_family_is_written) {
    const std::string lines = text_of(TEST_DIR "/every_family.natctl");
    for (const record_family_t &family : all_families()) {
        const std::string begin = "\n" + record_command_text(family, nullptr) + " ";
        ASSERT_NE(lines.find(begin), std::string::npos) << begin;
        const size_t first = lines.find(begin);
        const std::string of_family = lines.substr(first, lines.find('\n', lines.rfind(begin) + 1) - first);
        for (const record_field_t &field : fields_of(family)) {
            const std::string option = " " + std::string(field.option) + " ";
            EXPECT_TRUE(field.is_spelling || of_family.find(option) != std::string::npos) << begin << option;
        }
    }
}

TEST(document_test, each_error_is_reported_with_its_line_and_field) {
    std::vector<text_case_t> cases = read_text_cases(TEST_DIR "/document_errors.txt", 2);
    cases.push_back(
        {"nothing", {"", "neither a command nor `# nat64 configuration version 1`: this is not a document\n"}});
    cases.push_back({"a zero byte", {{"a\nb\0c\n", 6}, "line 2: zero byte: a document must be text\n"}});
    cases.push_back({"JSON: a rest",
                     {"{\"version\":1,\"items\":{}} x",
                      "line 1: not JSON: column 26: syntax error while parsing value - invalid literal; last read: "
                      "'\"items\":{}} x'; expected end of input\n"}});
    for (const text_case_t &each : cases) {
        SCOPED_TRACE(each.name);
        problems_t problems;
        load_document(each.parts[0], problems);
        EXPECT_EQ(texts_of(problems), each.parts[1]);
    }
}

TEST(document_test, other_forms_and_former_names_are_read_the_latter_with_one_warning_each) {
    for (const text_case_t &each : read_text_cases(TEST_DIR "/document_forms.txt", 3)) {
        SCOPED_TRACE(each.name);
        problems_t problems;
        EXPECT_EQ(write_lines(load_document(each.parts[0], problems)), first_line + each.parts[2]);
        EXPECT_EQ(texts_of(problems), each.parts[1]);
    }
}

TEST(document_test, commands_that_a_server_has_carried_out_change_its_document) {
    for (const text_case_t &each : read_text_cases(TEST_DIR "/document_histories.txt", 2)) {
        SCOPED_TRACE(each.name);
        for (const bool settles_often : {false, true}) {
            document_t document;
            line_words_t words;
            record_reader_t reader;
            std::istringstream history(each.parts[0]);
            for (std::string line; std::getline(history, line);) {
                words.split(line);
                ASSERT_EQ(reader.read(words.words()), record_reader_t::result_t::record) << line;
                document.carry_out(reader.family(), reader.verb().op, reader.record().bytes);
                EXPECT_EQ(command_line(reader.family(), reader.verb().op, reader.record().bytes).substr(0, 9),
                          line.substr(0, 9));
                if (settles_often) document.settle();
            }
            document.settle();
            EXPECT_EQ(write_lines(document), first_line + each.parts[1]);
            const document_t again = loaded(write_lines(document));
            EXPECT_EQ(plan_t(document, again).size(), 0U);
        }
    }
}

}  // namespace
