/* Test cases that consist of texts, such as documents and the errors in them. They stand in files, as a user writes and
 * sees them. A case begins with a line of `====` and its name. Lines of `----` divide its parts. A file begins with a
 * comment, which says what the parts are. */
#ifndef TESTS_CONFIG_TEXT_CASES_H
#define TESTS_CONFIG_TEXT_CASES_H

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

/** The line with which each written document begins. */
inline const std::string first_line = "# nat64 configuration version 1\n";

struct text_case_t {
    std::string name;
    std::vector<std::string> parts; /* of whole lines */

    friend std::ostream &operator<<(std::ostream &out, const text_case_t &each) { return out << each.name; }
};

/** Reads the cases of a file, each of which must have `part_count` parts. */
inline std::vector<text_case_t> read_text_cases(const std::string &path, size_t part_count) {
    const std::string mark = "==== ";
    std::vector<text_case_t> cases;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(mark, 0) == 0) {
            cases.push_back({line.substr(mark.size()), {""}});
        } else if (cases.empty()) {
            continue; /* a comment */
        } else if (line == "----") {
            cases.back().parts.emplace_back();
        } else {
            cases.back().parts.back() += line + "\n";
        }
    }
    EXPECT_FALSE(cases.empty()) << path;
    for (text_case_t &each : cases) {
        EXPECT_EQ(each.parts.size(), part_count) << path << ": " << each.name;
        each.parts.resize(part_count);
    }
    return cases;
}

#endif
