/* Documents that a test needs, and what is wrong with others. */
#ifndef TESTS_CONFIG_LOADED_H
#define TESTS_CONFIG_LOADED_H

#include <gtest/gtest.h>

#include <string>

#include "config/load.h"

inline std::string lines_of(const problems_t &problems) {
    std::string texts;
    for (const problem_t &problem : problems) {
        texts += problem.text() + "\n";
    }
    return texts;
}

/** Parses a document, which must be without an error. */
inline document_t loaded(const std::string &text) {
    problems_t problems;
    document_t document = load_document(text, problems);
    EXPECT_FALSE(has_error(problems)) << lines_of(problems) << text;
    return document;
}

#endif
