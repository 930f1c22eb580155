/* Runs natctl in this process and keeps what it wrote. */
#ifndef TESTS_TOOLS_NATCTL_FIXTURE_H
#define TESTS_TOOLS_NATCTL_FIXTURE_H

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "fwx_host/fwx_host.h"
#include "records/words.h"
#include "tests/support/platform_watch.h"
#include "tools/natctl/cli.h"
#include "tools/natctl/outcome.h"

struct run_t {
    int status;
    std::string answers;
    std::string notes;
};

/** Every run gives back all that it took from the platform. */
class natctl_test : public testing::Test {
protected:
    /** `command` is a line as in a batch file; `input` is what `batch -` reads. */
    static run_t run(const std::string &command, const std::string &input = {}) {
        std::istringstream in(input);
        std::ostringstream answers;
        std::ostringstream notes;
        line_words_t words;
        words.split(command);
        int status = run_natctl({words.words().begin(), words.words().end()}, in, answers, notes);
        return {status, answers.str(), notes.str()};
    }

    void TearDown() override {
        fwx_host_fault_reset();
        EXPECT_EQ(watch_.left(), "");
    }

private:
    platform_watch_t watch_;
};

#endif
