/* A user of a journal, for tests: it holds lines in memory and commits each change of them to the journal. */
#ifndef TESTS_STATE_KEEPER_H
#define TESTS_STATE_KEEPER_H

#include <algorithm>
#include <string>
#include <vector>

#include "fwx_host/loop.h"
#include "state/journal.h"

using lines_t = std::vector<std::string>;

inline bool begins_with(const lines_t &whole, const lines_t &beginning) {
    return beginning.size() <= whole.size() && std::equal(beginning.begin(), beginning.end(), whole.begin());
}

class keeper_t {
public:
    explicit keeper_t(const std::string &path, files_t &files = files_t::system())
        : journal_(
              path, {"test journal 2", "test journal 1"},
              [this](const journal_t::write_fn_t &write) {
                  for (const std::string &line : lines) {
                      write(line);
                  }
                  if (snapshot_ms != 0) fwx_host_clock_turn(snapshot_ms);
              },
              files) {}

    std::string open() { return journal_.open(take_); }
    std::string look() { return journal_.look(take_); }
    /** Appends a line. A line of filling makes the file longer but is not part of a snapshot. */
    void add(const std::string &line) {
        if (!is_filling(line)) lines.push_back(line);
        journal_.append(line);
    }
    std::string commit() { return journal_.commit(); }
    std::string add_and_commit(const std::string &line) {
        add(line);
        return commit();
    }
    const journal_t &journal() const { return journal_; }

    static std::string filling(size_t size) { return std::string(size, '.'); }

    lines_t lines;
    uint64_t snapshot_ms = 0; /* simulated duration of a snapshot */

private:
    static bool is_filling(std::string_view line) { return !line.empty() && line.front() == '.'; }

    const journal_t::read_fn_t take_ = [this](std::string_view line) {
        if (!is_filling(line)) lines.emplace_back(line);
        return line == "wrong" ? "no such line" : "";
    };
    journal_t journal_;
};

#endif
