/* Reading and writing of the standard form. The values are those of the examples in RFC 8512 and RFC 8676, in JSON as
 * in RFC 7951. */
#include <gtest/gtest.h>

#include "config/ietf.h"
#include "config/json_tree.h"
#include "config/notation.h"
#include "net/json.h"
#include "tests/config/loaded.h"
#include "tests/config/text_cases.h"
#include "tests/support/eventually.h"

namespace {

constexpr ietf_loss_t warned = ietf_loss_t::warned;

struct converted_t {
    std::string text;
    std::string problems;
    bool is_error;
};

converted_t read(const std::string &text, ietf_loss_t loss = ietf_loss_t::refused) {
    problems_t problems;
    const document_t document = read_ietf(text, loss, problems);
    return {write_lines(document), lines_of(problems), has_error(problems)};
}

converted_t write(const std::string &lines, ietf_loss_t loss = ietf_loss_t::refused) {
    problems_t problems;
    std::string text = write_ietf(loaded(lines), loss, problems);
    return {std::move(text), lines_of(problems), has_error(problems)};
}

TEST(ietf_test, items_that_both_forms_can_express_survive_a_round_trip) {
    const std::string empty = text_of(TEST_DIR "/standard_form_empty.json");
    for (const auto &[natctl, json] :
         {std::pair(text_of(TEST_DIR "/standard_form.natctl"), text_of(TEST_DIR "/standard_form.json")),
          std::pair(first_line, empty)}) {
        const converted_t written = write(natctl);
        EXPECT_EQ(written.problems, "");
        EXPECT_EQ(json_t::parse(written.text).dump(), json_t::parse(json).dump());
        const converted_t got = read(json);
        EXPECT_EQ(got.problems, "");
        EXPECT_EQ(got.text, natctl);
    }
    EXPECT_EQ(write(first_line).text, empty) << "with a leaf on each line";
}

TEST(ietf_test, defaults_and_other_spellings_of_the_standard_are_understood) {
    for (const text_case_t &each : read_text_cases(TEST_DIR "/ietf_spellings.txt", 2)) {
        SCOPED_TRACE(each.name);
        const converted_t got = read(each.parts[0]);
        EXPECT_EQ(got.problems, "");
        EXPECT_EQ(got.text, first_line + each.parts[1]);
    }
}

/* Each is an error. If losses are allowed, it is a warning with the same text, and the third part remains of the
 * document. */
TEST(ietf_test, each_leaf_without_a_place_in_a_document_is_named) {
    for (const text_case_t &each : read_text_cases(TEST_DIR "/ietf_losses.txt", 3)) {
        SCOPED_TRACE(each.name);
        const converted_t got = read(each.parts[0]);
        EXPECT_TRUE(got.is_error);
        EXPECT_EQ(got.problems.substr(0, each.parts[1].size()), each.parts[1]);
        const converted_t lossy = read(each.parts[0], warned);
        EXPECT_FALSE(lossy.is_error) << lossy.problems;
        EXPECT_EQ(lossy.problems.find("warning: "), 0U);
        EXPECT_EQ(lossy.text, first_line + each.parts[2]);
    }
}

TEST(ietf_test, a_text_that_is_not_the_configuration_of_one_nat64_is_refused_even_if_losses_are_allowed) {
    std::vector<text_case_t> cases = read_text_cases(TEST_DIR "/ietf_refusals.txt", 2);
    cases.push_back({"nothing",
                     {"",
                      "not JSON: parse error at line 1, column 1: syntax error while parsing value - unexpected end of "
                      "input; expected '[', '{', or a literal\n"}});
    std::string ones;
    for (size_t depth = 1; depth < json_max_depth; ++depth) {
        ones += "[1]";
    }
    cases.push_back(
        {"too deep", {std::string(json_max_depth + 1, '['), ones + ": deeper than 24 arrays and objects\n"}});
    for (const text_case_t &each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(read(each.parts[0]).problems, each.parts[1]);
        EXPECT_TRUE(read(each.parts[0], warned).is_error);
    }
}

TEST(ietf_test, each_item_without_a_place_in_the_standard_form_is_named) {
    const text_case_t each = read_text_cases(TEST_DIR "/ietf_items.txt", 3).at(0);
    const converted_t strict = write(first_line + each.parts[0]);
    EXPECT_TRUE(strict.is_error);
    EXPECT_EQ(strict.problems, each.parts[1]);
    const converted_t lossy = write(first_line + each.parts[0], warned);
    EXPECT_FALSE(lossy.is_error);
    const converted_t again = read(lossy.text);
    EXPECT_EQ(again.problems, "");
    EXPECT_EQ(again.text, each.parts[2]);
    EXPECT_NE(lossy.problems.find("line 2: warning: pool add: --id 1: a pool of ietf-nat is one prefix: written as "
                                  "pool 1, 2\n"),
              std::string::npos)
        << lossy.problems;
}

}  // namespace
