/* Runs natctl in this process and returns its output. */
#ifndef TESTS_TOOLS_NATCTL_FIXTURE_H
#define TESTS_TOOLS_NATCTL_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "fwx_host/fwx_host.h"
#include "records/words.h"
#include "tests/support/platform_watch.h"
#include "tools/natctl/cli.h"
#include "tools/natctl/outcome.h"

inline std::ostream &operator<<(std::ostream &out, const json_t &value) {
    return out << value.dump();
}

struct run_t {
    int status;
    std::string answers;
    std::string notes;

    bool operator==(const run_t &) const = default;
};
inline std::ostream &operator<<(std::ostream &out, const run_t &run) {
    return out << "status " << run.status << '\n' << run.answers << run.notes;
}

/** Input of a batch that calls a function before a given line is read. */
class lines_t : public std::streambuf {
public:
    lines_t(std::vector<std::string> lines, size_t number, std::function<void()> before_it)
        : lines_(std::move(lines)), number_(number), before_it_(std::move(before_it)) {}

private:
    int_type underflow() override {
        if (next_ == lines_.size()) return traits_type::eof();
        std::string &line = lines_[next_++];
        if (next_ == number_) before_it_();
        line += '\n';
        setg(line.data(), line.data(), line.data() + line.size());
        return traits_type::to_int_type(line.front());
    }

    std::vector<std::string> lines_;
    size_t number_; /* of that line, from 1 */
    std::function<void()> before_it_;
    size_t next_ = 0;
};

/** Output that raises an interrupt when it has a given number of lines. */
class interrupted_lines_t : public std::stringbuf {
public:
    explicit interrupted_lines_t(std::ptrdiff_t count) : count_(count) {}

private:
    int sync() override {
        const std::string text = str();
        if (!is_interrupted_ && std::count(text.begin(), text.end(), '\n') == count_) {
            is_interrupted_ = true;
            raise(SIGINT);
        }
        return 0;
    }

    std::ptrdiff_t count_;
    bool is_interrupted_ = false;
};

/** Checks that every run releases all its resources of the platform. */
class natctl_test : public testing::Test {
protected:
    /** `command` is a line as in a batch file; `input` is what `batch -` reads. */
    static run_t run(const std::string &command, const std::string &input = {}) {
        return run(command, std::stringbuf(input));
    }
    static run_t run(const std::string &command, std::streambuf &&input, std::stringbuf &&output = std::stringbuf()) {
        std::istream in(&input);
        std::ostream answers(&output);
        std::ostringstream notes;
        const int status = run_natctl(words_of(command), in, answers, notes);
        return {status, output.str(), notes.str()};
    }
    /** Interrupts the command when it has written that many lines. */
    static run_t run_until(std::ptrdiff_t lines, const std::string &command) {
        return run(command, std::stringbuf(), interrupted_lines_t(lines));
    }
    /** Whether a run ended with that status and said that text among its notes. */
    static testing::AssertionResult ends(const run_t &run, int status, const std::string &note) {
        if (run.status == status && run.notes.find(note) != std::string::npos) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "expected status " << status << " and " << note << "\ngot " << run;
    }
    static std::vector<std::string> lines_of(const std::string &text) {
        std::istringstream stream(text);
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }
    /** How often a text has that part. */
    static size_t times_in(const std::string &text, const std::string &part) {
        size_t times = 0;
        for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
            ++times;
        }
        return times;
    }
    static json_t json_of(const std::string &command) { return json_t::parse(run("--json " + command).answers); }
    static json_t data_of(const std::string &command) { return json_of(command).at("data"); }
    /** The number of changes of a server since it started. */
    static uint64_t changes_of(const std::string &server) {
        return data_of("--connect " + server + " dev server boot").at("changes").get<uint64_t>();
    }
    /** The outcomes of the lines of a batch, which goes on after failures. */
    static json_t outcomes_of(const std::string &lines, const std::string &options = {}) {
        return json_t::parse(run("--json --keep-going " + options + " batch -", lines).answers);
    }
    /** The lines that add that many dynamic mappings. */
    static std::string mappings(int count) {
        std::string lines;
        for (int id = 1; id <= count; ++id) {
            lines += "dmapping add --type 1 --id " + std::to_string(id) + "\n";
        }
        return lines;
    }
    static std::vector<std::string> words_of(const std::string &command) {
        line_words_t words;
        words.split(command);
        return {words.words().begin(), words.words().end()};
    }

    void SetUp() override { unsetenv("NATCTL_CONNECT"); }
    void TearDown() override {
        unsetenv("NATCTL_STORE");
        fwx_host_fault_reset();
        fwx_host_clock_run();
        EXPECT_EQ(watch_.left(), "");
    }

private:
    platform_watch_t watch_;
};

#endif
