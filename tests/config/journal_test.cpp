/* The journal under every failure of the calls that it makes, and killed at each of them. */
#include "config/journal.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "file_calls.h"

namespace {

using lines_t = std::vector<std::string>;

bool begins_with(const lines_t &whole, const lines_t &beginning) {
    return beginning.size() <= whole.size() && std::equal(beginning.begin(), beginning.end(), whole.begin());
}

/** Who keeps lines in a journal, as they came. */
class keeper_t {
public:
    explicit keeper_t(const std::string &path, bool tells_count = false)
        : journal_(
              path, {"test journal 2", "test journal 1"},
              [this](const journal_t::write_fn_t &write) {
                  for (const std::string &line : lines) {
                      write(line);
                  }
              },
              tells_count ? [this] { return lines.size(); } : journal_t::count_fn_t()) {}

    std::string open() {
        return journal_.open([this](std::string_view line) {
            lines.emplace_back(line);
            return line == "wrong" ? std::string("no such line") : std::string();
        });
    }
    void add(const std::string &line) {
        lines.push_back(line);
        journal_.append(line);
    }
    std::string commit() { return journal_.commit(); }
    const journal_t &journal() const { return journal_; }

    lines_t lines;

private:
    journal_t journal_;
};

class journal_test : public testing::Test {
protected:
    journal_test() {
        char name[] = "/tmp/journal_test.XXXXXX";
        directory_ = mkdtemp(name);
        path_ = directory_ + "/state";
    }
    ~journal_test() override {
        fault = {};
        std::filesystem::remove_all(directory_);
        EXPECT_EQ(open_descriptors(), descriptors_before_) << "descriptors are left open";
    }

    static size_t open_descriptors() {
        using iterator_t = std::filesystem::directory_iterator;
        return static_cast<size_t>(std::distance(iterator_t("/proc/self/fd"), iterator_t()));
    }
    static std::string content_of(const std::string &path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string content() const { return content_of(path_); }
    void write_file(const std::string &text) const { std::ofstream(path_) << text; }
    void start_anew() const {
        fault = {};
        disk = {};
        std::filesystem::remove_all(directory_);
        std::filesystem::create_directory(directory_);
    }

    const size_t descriptors_before_ = open_descriptors();
    std::string directory_;
    std::string path_;
};

TEST_F(journal_test, a_file_is_a_snapshot_and_the_groups_behind_it) {
    {
        keeper_t keeper(path_);
        ASSERT_EQ(keeper.open(), "");
        EXPECT_EQ(content(), "test journal 2\n= 0 00000000\n");
        EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0600));
        keeper.add("123456789");
        EXPECT_TRUE(keeper.journal().is_unsaved());
        ASSERT_EQ(keeper.commit(), "");
        EXPECT_FALSE(keeper.journal().is_unsaved());
        keeper.add("one");
        keeper.add("two");
        ASSERT_EQ(keeper.commit(), "");
        ASSERT_EQ(keeper.commit(), "");
        EXPECT_EQ(content(), "test journal 2\n= 0 00000000\n123456789\n= 1 e0117757\none\ntwo\n= 2 12ba0be6\n");
    }
    std::filesystem::permissions(path_, std::filesystem::perms(0640));
    keeper_t keeper(path_);
    ASSERT_EQ(keeper.open(), "");
    EXPECT_EQ(keeper.lines, (lines_t{"123456789", "one", "two"}));
    EXPECT_EQ(content().find("= 1"), std::string::npos) << "a start writes a snapshot";
    EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0640));
}

TEST_F(journal_test, what_is_no_journal_is_refused_and_left_as_it_is) {
    const std::string good = "test journal 2\na\n= 1 ddeaa107\n";
    const std::pair<std::string, const char *> contents[] = {
        {"", "does not begin with test journal 2"},
        {"{\"version\": 1}\n", "does not begin with test journal 2"},
        {"test journal 3\n= 0 00000000\n", "does not begin with test journal 2"},
        {"test journal 2\n", "damaged"},
        {"test journal 2\na\n", "damaged"},
        {"test journal 2\na\n= 1 00000000\n", "damaged: the lines from 2 on"},
        {"test journal 2\na\n= 1 00000000\nb\n= 1 f6c7f2c4\n", "damaged: the lines from 2 on"},
        {"test journal 2\n= 0 00000000\nwrong\n= 1 cf923a74\n", "line 3: no such line"},
    };
    for (const auto &[text, error] : contents) {
        write_file(text);
        const std::string said = keeper_t(path_).open();
        EXPECT_EQ(said.find(path_ + ": "), 0U) << said;
        EXPECT_NE(said.find(error), std::string::npos) << text << '\n' << said;
        EXPECT_EQ(content(), text);
    }
    write_file("test journal 1" + good.substr(good.find('\n')));
    ASSERT_EQ(keeper_t(path_).open(), "");
    EXPECT_EQ(content(), good) << "an older one is written anew";

    std::filesystem::rename(path_, path_ + "2");
    std::filesystem::create_symlink(path_ + "2", path_);
    EXPECT_EQ(keeper_t(path_).open(), path_ + ": not a regular file");
    std::filesystem::remove(path_);
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(keeper_t(path_).open(), path_ + ": not a regular file");
    std::filesystem::remove(path_);
    std::filesystem::create_directory(path_);
    EXPECT_EQ(keeper_t(path_).open(), path_ + ": not a regular file");
    EXPECT_NE(keeper_t(directory_ + "/none/state").open().find("/none/state.lock: No such file or directory"),
              std::string::npos);
}

TEST_F(journal_test, one_byte_that_changed_is_an_error_or_in_the_last_group_and_no_line_is_ever_another) {
    lines_t lines;
    {
        keeper_t keeper(path_);
        ASSERT_EQ(keeper.open(), "");
        for (const char *line : {"alpha", "beta", "gamma", "delta"}) {
            keeper.add(line);
            if (*line == 'b') continue;
            ASSERT_EQ(keeper.commit(), "");
        }
        lines = keeper.lines;
    }
    const std::string whole = content();
    const size_t last_group = whole.find("delta");
    int errors = 0;
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const char other : {'\0', '\n', '=', static_cast<char>(whole[at] ^ 1)}) {
            if (other == whole[at]) continue;
            std::string text = whole;
            text[at] = other;
            write_file(text);
            keeper_t keeper(path_);
            const bool is_refused = !keeper.open().empty();
            errors += is_refused ? 1 : 0;
            EXPECT_TRUE(begins_with(lines, keeper.lines)) << at;
            if (is_refused) continue;
            EXPECT_GE(at, last_group) << "lost without a word";
            EXPECT_EQ(keeper.lines.size(), lines.size() - 1);
            EXPECT_GE(keeper.journal().dropped_lines(), 1U);
        }
    }
    EXPECT_GE(errors, static_cast<int>(last_group));
    for (size_t length = last_group; length < whole.size(); ++length) {
        write_file(whole.substr(0, length));
        keeper_t keeper(path_);
        EXPECT_EQ(keeper.open(), "") << length;
        EXPECT_EQ(keeper.lines.size(), lines.size() - 1);
        const bool has_rest = length != last_group;
        EXPECT_EQ(keeper.journal().dropped_lines() != 0, has_rest) << length;
        EXPECT_EQ(has_rest ? content_of(path_ + ".damaged") : whole.substr(0, length), whole.substr(0, length));
    }
}

TEST_F(journal_test, one_process_has_a_journal_at_a_time) {
    keeper_t first(path_);
    ASSERT_EQ(first.open(), "");
    EXPECT_EQ(keeper_t(path_).open(), path_ + ": another process has it");
    first.add("a");
    EXPECT_EQ(first.commit(), "");
    EXPECT_NE(content().find("\na\n"), std::string::npos);
}

TEST_F(journal_test, a_file_stays_within_twice_its_snapshot) {
    keeper_t keeper(path_);
    ASSERT_EQ(keeper.open(), "");
    for (int n = 0; n < 5000; ++n) {
        keeper.lines.clear(); /* each line replaces the one before */
        keeper.add(std::string(50, 'x'));
        ASSERT_EQ(keeper.commit(), "");
    }
    EXPECT_LE(content().size(), 1U << 16);
}

TEST_F(journal_test, without_room_for_a_snapshot_it_goes_on_with_groups_and_says_so) {
    {
        keeper_t keeper(path_);
        ASSERT_EQ(keeper.open(), "");
        for (const char *line : {"a", "b"}) {
            keeper.add(line + std::string(16000, 'x'));
            ASSERT_EQ(keeper.commit(), "");
        }
        EXPECT_EQ(keeper.journal().warning(), "");
    }
    fault = {fault_t::kind_t::fails, 6}; /* the first write */
    {
        keeper_t keeper(path_);
        ASSERT_EQ(keeper.open(), "");
        EXPECT_NE(keeper.journal().warning().find("state.new: No space left on device"), std::string::npos);
        EXPECT_LE(fault.left, 0);
        keeper.add("c");
        EXPECT_EQ(keeper.commit(), "");
    }
    fault = {};
    keeper_t again(path_);
    ASSERT_EQ(again.open(), "");
    EXPECT_EQ(again.lines.size(), 3U);
    EXPECT_EQ(again.lines.back(), "c");
}

/** As many lines as it takes to write several snapshots. */
lines_t long_lines() {
    lines_t lines;
    for (char n = 'a'; n < 'k'; ++n) {
        lines.emplace_back(12000, n);
    }
    return lines;
}

/** Commits them one by one; hears how many were acknowledged. */
template <typename told_t>
void keep_lines(keeper_t &keeper, told_t told) {
    for (const std::string &line : long_lines()) {
        keeper.add(line);
        if (keeper.commit().empty()) told(keeper.lines.size());
    }
}

TEST_F(journal_test, a_long_file_that_has_only_grown_is_gone_on_with_and_one_with_little_in_it_is_written_anew) {
    {
        keeper_t keeper(path_, true);
        ASSERT_EQ(keeper.open(), "");
        keep_lines(keeper, [](size_t) {});
    }
    const std::string grown = content();
    EXPECT_EQ(grown.substr(0, 31), "test journal 2\n= 0 00000000\naaa") << "the first snapshot is the last one";
    keeper_t keeper(path_, true);
    ASSERT_EQ(keeper.open(), "");
    EXPECT_EQ(keeper.lines, long_lines());
    EXPECT_EQ(content(), grown + "= 0 00000000\n");
    keeper.lines.clear();
    for (size_t n = 0; n < 2 * long_lines().size(); ++n) {
        keeper.add("");
        ASSERT_EQ(keeper.commit(), "");
        if (n == 0) {
            EXPECT_EQ(content(), grown + "= 0 00000000\n\n= 1 32d70693\n");
        }
        keeper.lines.clear();
    }
    keeper.add(grown.substr(grown.size() / 2, 1000));
    keeper.add(std::string(grown.size(), 'x'));
    ASSERT_EQ(keeper.commit(), "");
    EXPECT_LT(content().size(), grown.size() + 2000);
}

TEST_F(journal_test, whatever_fails_when_a_long_file_is_opened_its_lines_stay_and_the_next_commit_tells) {
    for (const auto kind : {fault_t::kind_t::fails, fault_t::kind_t::dies}) {
        bool has_failed = true;
        for (int call = 1; has_failed; ++call) {
            SCOPED_TRACE(call);
            start_anew();
            {
                keeper_t keeper(path_, true);
                ASSERT_EQ(keeper.open(), "");
                keep_lines(keeper, [](size_t) {});
            }
            const pid_t child = fork();
            if (child == 0) {
                fault = {kind, call};
                keeper_t keeper(path_, true);
                const bool is_open = keeper.open().empty();
                if (is_open) keeper.add("k");
                const bool is_kept = is_open && keeper.commit().empty();
                _exit((is_kept ? 1 : 0) + (fault.left <= 0 ? 2 : 0));
            }
            int end = 0;
            waitpid(child, &end, 0);
            has_failed = WIFSIGNALED(end) || (WEXITSTATUS(end) & 2) != 0;
            const bool is_kept = !WIFSIGNALED(end) && (WEXITSTATUS(end) & 1) != 0;
            keeper_t again(path_, true);
            EXPECT_EQ(again.open(), "");
            EXPECT_TRUE(begins_with(again.lines, long_lines()));
            EXPECT_GE(again.lines.size(), long_lines().size() + (is_kept ? 1 : 0));
        }
    }
}

TEST_F(journal_test, a_call_that_fails_is_told_and_made_good_by_the_next_commit) {
    int failures = 0;
    bool has_failed = true;
    for (int call = 1; has_failed; ++call) {
        SCOPED_TRACE(call);
        start_anew();
        size_t acknowledged = 0;
        bool was_opened = false;
        {
            keeper_t keeper(path_);
            fault = {fault_t::kind_t::fails, call};
            was_opened = keeper.open().empty();
            const auto acknowledge = [&](size_t count) {
                acknowledged = count;
                EXPECT_FALSE(disk.has_lost_name);
            };
            if (was_opened) keep_lines(keeper, acknowledge);
            has_failed = fault.left <= 0;
            failures += has_failed ? 1 : 0;
            fault = {};
            if (was_opened && call % 2 == 0) {
                EXPECT_EQ(keeper.commit(), "");
                acknowledged = keeper.lines.size();
            }
        }
        EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));
        keeper_t again(path_);
        EXPECT_EQ(again.open(), "");
        EXPECT_GE(again.lines.size(), acknowledged);
        EXPECT_TRUE(begins_with(long_lines(), again.lines));
    }
    EXPECT_GT(failures, 30);
}

TEST_F(journal_test, killed_at_any_call_it_has_on_disk_all_that_was_acknowledged_and_nothing_else) {
    int kills = 0;
    for (const auto kind : {fault_t::kind_t::dies, fault_t::kind_t::dies_after}) {
        bool was_killed = true;
        for (int call = 1; was_killed; ++call) {
            SCOPED_TRACE(call);
            start_anew();
            int told[2];
            ASSERT_EQ(pipe(told), 0);
            const pid_t child = fork();
            if (child == 0) {
                fault = {kind, call};
                keeper_t keeper(path_);
                if (!keeper.open().empty()) _exit(1);
                keep_lines(keeper, [&](size_t) { real_write(told[1], "", 1); });
                _exit(0);
            }
            close(told[1]);
            size_t acknowledged = 0;
            for (char byte = 0; read(told[0], &byte, 1) == 1;) {
                ++acknowledged;
            }
            close(told[0]);
            int end = 0;
            waitpid(child, &end, 0);
            was_killed = WIFSIGNALED(end);
            kills += was_killed ? 1 : 0;
            struct stat status {};
            if (stat(path_.c_str(), &status) == 0 && disk.bytes_of(status.st_ino) < status.st_size) {
                ASSERT_EQ(truncate(path_.c_str(), disk.bytes_of(status.st_ino)), 0);
            }
            keeper_t again(path_);
            EXPECT_EQ(again.open(), "");
            EXPECT_TRUE(begins_with(long_lines(), again.lines));
            EXPECT_GE(again.lines.size(), acknowledged);
            EXPECT_LE(again.lines.size(), acknowledged + 1);
        }
    }
    EXPECT_GT(kills, 60);
}

}  // namespace
