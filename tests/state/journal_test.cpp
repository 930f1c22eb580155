/* The format of a journal's file, which files are read or refused, and when a snapshot is written. */
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "keeper.h"
#include "simulated_disk.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/eventually.h"
#include "tests/support/runtime_directory.h"

namespace {

using fault_t = simulated_disk_t::fault_t;

/** The lines that a reader finds, or the error as the only line. */
lines_t lines_in(const std::string &path, files_t &files = files_t::system()) {
    keeper_t keeper(path, files);
    const std::string error = keeper.look();
    return error.empty() ? keeper.lines : lines_t{error};
}

class journal_test : public testing::Test {
protected:
    journal_test() { fwx_host_clock_turn(0); }
    ~journal_test() override {
        fwx_host_clock_run();
        EXPECT_EQ(open_descriptors(), descriptors_before_) << "descriptors are left open";
    }

    std::string content() const { return text_of(path_); }
    void write_file(const std::string &text, mode_t mode = 0600) const {
        std::ofstream(path_) << text;
        EXPECT_EQ(chmod(path_.c_str(), mode), 0);
    }
    static std::string opened(const std::string &path) { return keeper_t(path).open(); }

    /** Writes the groups "alpha", "beta" with "gamma", and "delta" to the file "a" of a disk. */
    void write_groups() {
        simulated_disk_t disk;
        keeper_t keeper("a", disk);
        ASSERT_EQ(keeper.open(), "");
        lines_at_[disk.content("a").size()] = 0;
        for (const char *line : {"alpha", "beta", "gamma", "delta"}) {
            keeper.add(line);
            if (*line == 'b') continue;
            ASSERT_EQ(keeper.commit(), "");
            lines_at_[disk.content("a").size()] = keeper.lines.size();
        }
        lines_ = keeper.lines;
        whole_ = disk.content("a");
    }
    /** Opens a file that was once whole_. Returns how many lines it has, or nothing if it is refused. */
    std::optional<size_t> lines_of(const std::string &text, bool is_torn) const {
        simulated_disk_t disk;
        disk.put("a", text);
        keeper_t keeper("a", disk);
        const bool is_refused = !keeper.open().empty();
        EXPECT_TRUE(begins_with(lines_, keeper.lines)) << text;
        if (is_refused) return std::nullopt;
        EXPECT_EQ(keeper.journal().notes().size(), is_torn ? 1U : 0U) << text;
        EXPECT_EQ(disk.has("a.damaged"), is_torn) << text;
        EXPECT_EQ(disk.has("a.damaged") ? disk.content("a.damaged") : text, text);
        return keeper.lines.size();
    }

    const size_t descriptors_before_ = open_descriptors();
    const runtime_directory_t directory_;
    const std::string path_ = directory_.path() + "/state";
    simulated_disk_t disk_;
    std::string whole_;                 /* the file of write_groups */
    lines_t lines_;                     /* in whole_ */
    std::map<size_t, size_t> lines_at_; /* end of each group in whole_, and the number of lines before it */
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
    ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
    keeper_t keeper(path_);
    ASSERT_EQ(keeper.open(), "");
    EXPECT_EQ(keeper.lines, (lines_t{"123456789", "one", "two"}));
    EXPECT_EQ(content().find("= 1"), std::string::npos) << "a start writes a snapshot";
    EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0640));
    EXPECT_EQ(keeper.add_and_commit("three"), "");
    EXPECT_EQ(lines_in(path_), keeper.lines);
}

TEST_F(journal_test, a_file_that_is_no_journal_is_refused_and_left_as_it_is) {
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
        const std::string said = opened(path_);
        EXPECT_EQ(said.find(path_ + ": "), 0U) << said;
        EXPECT_NE(said.find(error), std::string::npos) << text << '\n' << said;
        EXPECT_EQ(content(), text);
    }
    write_file("test journal 1" + good.substr(good.find('\n')));
    ASSERT_EQ(opened(path_), "");
    EXPECT_EQ(content(), good) << "an older one is written anew";
    const std::string in_no_folder = directory_.path() + "/none/state";
    EXPECT_EQ(opened(in_no_folder), in_no_folder + ".new: No such file or directory");
    disk_.put("a", good);
    for (const size_t read : {3U, 4U}) { /* behind opening and the file's status */
        disk_.arm(read, fault_t::fails);
        EXPECT_EQ(keeper_t("a", disk_).open(), "a: Input/output error");
        EXPECT_EQ(disk_.content("a"), good);
    }
}

TEST_F(journal_test, a_file_that_is_not_of_this_user_alone_is_refused_and_left_as_it_is) {
    const std::string good = "test journal 2\na\n= 1 ddeaa107\n";
    const std::string target = directory_.path() + "/target";
    using std::filesystem::create_symlink;
    const std::pair<const char *, std::function<void()>> cases[] = {
        {"not a regular file", [&] { create_symlink(target, path_); }},
        {"not a regular file", [&] { create_symlink(directory_.path() + "/dangling", path_); }},
        {"not a regular file", [&] { ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0); }},
        {"other users may write to it (mode 0620); change its mode to 0600", [&] { write_file(good, 0620); }},
        {"other users may write to it (mode 0602); change its mode to 0600", [&] { write_file(good, 0602); }},
    };
    for (const auto &[reason, make] : cases) {
        std::ofstream(target) << good;
        make();
        EXPECT_EQ(opened(path_), path_ + ": " + reason);
        EXPECT_EQ(lines_in(path_), lines_t{path_ + ": " + reason});
        EXPECT_EQ(opened(path_ + "/"), path_ + "/: not a regular file");
        EXPECT_EQ(text_of(target), good);
        std::filesystem::remove_all(path_);
        std::filesystem::remove(target);
        EXPECT_TRUE(std::filesystem::is_empty(directory_.path())) << "nothing is written beside it";
    }
    struct stat of_another {};
    of_another.st_mode = S_IFREG | 0600;
    of_another.st_uid = geteuid() + 1;
    EXPECT_EQ(distrusted(path_, of_another), path_ + ": belongs to user " + std::to_string(geteuid() + 1) +
                                                 ", not to user " + std::to_string(geteuid()) + "; change its owner");
}

TEST_F(journal_test, one_byte_that_changed_is_an_error_or_in_the_last_group_and_no_line_is_ever_another) {
    write_groups();
    const size_t last_group = whole_.find("delta");
    size_t errors = 0;
    for (size_t at = 0; at < whole_.size(); ++at) {
        std::string others = {'\0', '\n', '='};
        for (int bit = 0; bit < 8; ++bit) {
            others += static_cast<char>(whole_[at] ^ (1 << bit));
        }
        for (const char other : others) {
            if (other == whole_[at]) continue;
            std::string text = whole_;
            text[at] = other;
            const std::optional<size_t> lines = lines_of(text, true);
            errors += lines ? 0 : 1;
            EXPECT_TRUE(!lines || at >= last_group) << "lost without a word: " << text;
            EXPECT_EQ(lines.value_or(3), 3U) << text;
        }
    }
    EXPECT_GE(errors, last_group);
}

TEST_F(journal_test, a_file_that_lost_any_of_its_last_bytes_has_its_whole_groups_and_a_copy_of_the_rest) {
    write_groups();
    for (size_t size = lines_at_.begin()->first; size <= whole_.size(); ++size) {
        const auto [end, lines] = *std::prev(lines_at_.upper_bound(size));
        EXPECT_EQ(lines_of(whole_.substr(0, size), size != end), lines) << size;
    }
}

TEST_F(journal_test, a_torn_file_on_a_full_disk_is_read_and_saves_again_as_soon_as_there_is_room) {
    const std::string torn = "test journal 2\na\n= 1 ddeaa107\nb\n= 1";
    for (const bool has_room_for_copy : {true, false}) {
        simulated_disk_t disk;
        disk.put("a", torn);
        disk.put("a.damaged", "of an earlier crash");
        {
            keeper_t keeper("a", disk);
            disk.has_room = has_room_for_copy;
            if (has_room_for_copy) disk.arm(9, fault_t::fails); /* creation of the snapshot */
            ASSERT_EQ(keeper.open(), "");
            disk.has_room = false;
            EXPECT_EQ(keeper.lines, lines_t{"a"});
            EXPECT_EQ(keeper.journal().notes(),
                      lines_t{std::string("a: the last 2 lines are not a complete group and were left out; ") +
                              (has_room_for_copy ? "a copy of the file is a.damaged"
                                                 : "no copy could be made: a.damaged: No space left on device")});
            EXPECT_NE(keeper.journal().error(), "");
            EXPECT_TRUE(keeper.journal().is_unsaved());
            for (const char *line : {"c", "d"}) {
                EXPECT_EQ(keeper.add_and_commit(line), "a.new: No space left on device");
                EXPECT_EQ(disk.content("a"), torn);
            }
            EXPECT_EQ(lines_in("a", disk), lines_t{"a"});
            disk.has_room = true;
            EXPECT_EQ(keeper.add_and_commit("e"), "");
            EXPECT_EQ(keeper.journal().error(), "");
        }
        EXPECT_EQ(lines_in("a", disk), (lines_t{"a", "c", "d", "e"}));
        ASSERT_EQ(disk.has("a.damaged"), has_room_for_copy);
        EXPECT_EQ(has_room_for_copy ? disk.content("a.damaged") : torn, torn);
    }
}

TEST_F(journal_test, a_pause_after_a_failed_snapshot_acknowledges_nothing) {
    keeper_t keeper("a", disk_);
    ASSERT_EQ(keeper.open(), "");
    keeper.snapshot_ms = 50;
    const auto next_sync_fails = [&] { disk_.arm(2, fault_t::fails); }; /* 1 is the write */
    const std::string error = "a: Input/output error";
    next_sync_fails();
    EXPECT_EQ(keeper.add_and_commit("1"), error);
    EXPECT_EQ(keeper.add_and_commit("2"), "") << "a slow snapshot makes it good";
    next_sync_fails();
    EXPECT_EQ(keeper.add_and_commit("3"), error) << "right after a snapshot that was slow";
    disk_.has_room = false;
    const std::string full = "a.new: No space left on device";
    EXPECT_EQ(keeper.add_and_commit("4"), full) << "the snapshot is tried at once";
    disk_.has_room = true;
    const size_t operations = disk_.operations();
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(keeper.add_and_commit("5"), full) << "in the pause";
        EXPECT_EQ(keeper.commit(), full);
        EXPECT_EQ(keeper.journal().error(), full);
        fwx_host_clock_turn(55);
    }
    EXPECT_EQ(disk_.operations(), operations) << "nothing is tried in the pause";
    EXPECT_EQ(lines_in("a", disk_), (lines_t{"1", "2", "3"})) << "the last write of the file was not synced";
    fwx_host_clock_turn(5);
    EXPECT_EQ(keeper.commit(), "");
    EXPECT_EQ(lines_in("a", disk_), keeper.lines);
}

TEST_F(journal_test, a_file_stays_within_twice_its_snapshot) {
    keeper_t keeper("a", disk_);
    ASSERT_EQ(keeper.open(), "");
    for (int n = 0; n < 5000; ++n) {
        keeper.lines.clear(); /* each line replaces the one before */
        ASSERT_EQ(keeper.add_and_commit(std::string(50, 'x')), "");
        ASSERT_LE(disk_.content("a").size(), 1U << 16);
    }
    disk_.put("a.new", "of a process that was killed");
    EXPECT_EQ(keeper_t("a", disk_).open(), "");
    EXPECT_FALSE(disk_.has("a.new"));
}

TEST_F(journal_test, without_room_for_a_snapshot_it_goes_on_with_groups_and_says_so) {
    {
        keeper_t keeper("a", disk_);
        ASSERT_EQ(keeper.open(), "");
        ASSERT_EQ(keeper.add_and_commit("a"), "");
        ASSERT_EQ(keeper.add_and_commit("b"), "");
        EXPECT_EQ(keeper.journal().warning(), "");
    }
    const std::string before = disk_.content("a");
    {
        keeper_t keeper("a", disk_);
        disk_.arm(7, fault_t::fails); /* creation of the snapshot */
        ASSERT_EQ(keeper.open(), "");
        EXPECT_EQ(keeper.journal().warning(), "a.new: Input/output error");
        EXPECT_EQ(keeper.journal().error(), "");
        EXPECT_EQ(keeper.add_and_commit("c"), "");
        EXPECT_EQ(disk_.content("a"), before + "= 0 00000000\nc\n= 1 efdcc385\n");

        disk_.arm(3, fault_t::fails); /* creation of the snapshot that is due now */
        EXPECT_EQ(keeper.add_and_commit(keeper_t::filling(70000)), "");
        EXPECT_EQ(keeper.journal().warning(), "a.new: Input/output error");
        EXPECT_EQ(keeper.add_and_commit("d"), "");
        EXPECT_GT(disk_.content("a").size(), 70000U) << "the next one is due when the file is twice as long";
        EXPECT_EQ(keeper.add_and_commit(keeper_t::filling(80000)), "");
        EXPECT_EQ(keeper.journal().warning(), "");
        EXPECT_LT(disk_.content("a").size(), 1000U);

        disk_.arm(6, fault_t::fails); /* sync of the directory after the rename */
        EXPECT_EQ(keeper.add_and_commit(keeper_t::filling(70000)), "a: Input/output error");
        EXPECT_EQ(keeper.journal().error(), "a: Input/output error");
        EXPECT_EQ(keeper.journal().warning(), "") << "nothing is saved by groups either";
    }
    EXPECT_EQ(lines_in("a", disk_), (lines_t{"a", "b", "c", "d"}));
}

}  // namespace
