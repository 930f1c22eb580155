/* Versions of a server's configuration: adding, reading and pruning them, and the format of their files. */
#include "state/versions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "config/load.h"
#include "config/notation.h"
#include "state/time_text.h"
#include "tests/support/runtime_directory.h"

namespace {

class versions_test : public testing::TestWithParam<bool> {
protected:
    /** Versions in memory, or in files; files are read again for each call. */
    versions_t &versions() {
        if (GetParam() || !versions_) versions_ = std::make_unique<versions_t>(GetParam() ? directory_.path() : "");
        EXPECT_EQ(GetParam() ? versions_->open() : "", "");
        return *versions_;
    }
    std::string add(const std::string &what, const std::optional<std::string> &document) {
        version_t version;
        version.what = what;
        version.commands = 7;
        version.boot_id = 0x8000000000000001;
        version.changes = 9;
        return versions().add(version, document);
    }
    std::string read(uint32_t number) {
        std::string text;
        const std::string error = versions().read(number, text);
        return error.empty() ? text : error;
    }

    const runtime_directory_t directory_;
    std::unique_ptr<versions_t> versions_;
    const std::string text_ = "# nat64 configuration version 1\ntimeout set --type udp --value 3\n";
};

TEST_P(versions_test, a_version_comes_back_as_it_was_added) {
    EXPECT_EQ(read(0), write_lines(document_t())) << "before the first one there was nothing";
    EXPECT_EQ(read(1), "version 1: must be 0 to 0");
    setenv("SUDO_USER", "two words", 1); /* not taken, because a version could not be read again */
    EXPECT_EQ(add("config apply a\nfile", text_), "");
    unsetenv("SUDO_USER");
    EXPECT_EQ(add("pool add", std::nullopt), "");
    const std::vector<version_t> all = versions().all();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].what, "config apply a file");
    EXPECT_EQ(all[0].commands, 7U);
    EXPECT_EQ(all[0].boot_id, 0x8000000000000001U);
    EXPECT_EQ(all[0].changes, 9U);
    EXPECT_EQ(all[0].time.size(), sizeof "2026-01-31T23:59:59.123Z" - 1);
    EXPECT_EQ(all[0].who.find(' '), std::string::npos);
    EXPECT_TRUE(all[0].has_document);
    EXPECT_FALSE(all[1].has_document);
    EXPECT_EQ(versions().newest()->number, 1U);
    EXPECT_EQ(read(1), text_);
    EXPECT_EQ(read(2), "version 2: pool add was a single command, and left no document");
    EXPECT_EQ(read(3), "version 3: must be 0 to 2");
    problems_t problems;
    EXPECT_EQ(versions().add_if_other({}, load_written(text_, problems)), "");
    version_t as_then;
    as_then.boot_id = 0x8000000000000001;
    as_then.changes = 9;
    EXPECT_EQ(versions().add_if_other(as_then, {}), "");
    EXPECT_EQ(versions().all().size(), 2U) << "the newest document says it already, or the server is as it was then";
    as_then.changes = 10;
    EXPECT_EQ(versions().add_if_other(as_then, {}), "");
    EXPECT_EQ(versions().all().size(), 3U);
    EXPECT_EQ(versions().add_if_other({}, load_written(text_, problems)), "");
    EXPECT_EQ(versions().all().size(), 4U) << "a server without a boot id";
}

TEST_P(versions_test, the_newest_hundred_of_each_kind_stay) {
    for (int i = 0; i < 103; ++i) {
        EXPECT_EQ(add("single", std::nullopt), "");
    }
    EXPECT_EQ(add("apply", text_), "");
    EXPECT_EQ(versions().all().size(), 101U);
    EXPECT_EQ(versions().all().front().number, 4U);
    EXPECT_EQ(read(0), "version 0: must be 4 to 104");
    EXPECT_EQ(add("apply", text_), "");
    EXPECT_EQ(versions().all().back().number, 105U);
}

TEST_P(versions_test, one_version_waits_to_be_confirmed) {
    EXPECT_EQ(versions().unconfirmed(), 0U);
    for (const uint32_t number : {12U, 0U, 0U}) {
        EXPECT_EQ(versions().set_unconfirmed(number), "");
        EXPECT_EQ(versions().unconfirmed(), number);
    }
}

INSTANTIATE_TEST_SUITE_P(in_memory_and_in_files, versions_test, testing::Bool());

class version_files_test : public testing::Test {
protected:
    std::string add() { return versions_.add({}, text_); }

    const runtime_directory_t directory_;
    const std::string documents_ = directory_.path() + "/documents/";
    const std::string text_ = "text";
    versions_t versions_{directory_.path()};
};

TEST_F(version_files_test, the_age_of_a_time_is_the_same_in_every_time_zone) {
    for (const char *zone : {"UTC0", "EAST-5", "WEST+5"}) {
        setenv("TZ", zone, 1);
        const auto before = static_cast<uint64_t>(time(nullptr));
        const uint64_t age = seconds_since("1970-01-01T00:00:00.000Z").value_or(0);
        EXPECT_GE(age, before) << zone;
        EXPECT_LE(age, static_cast<uint64_t>(time(nullptr))) << zone;
        EXPECT_EQ(seconds_since("2970-01-01T00:00:00.000Z"), 0U);
    }
    unsetenv("TZ");
    EXPECT_EQ(seconds_since("1970-01-01"), std::nullopt);
}

TEST_F(version_files_test, a_file_that_is_not_a_version_is_ignored_and_its_number_is_not_reused) {
    std::filesystem::create_directories(documents_ + "9");
    for (const char *name : {"1", "07", "8.new", "x", "12345678901"}) {
        std::ofstream(documents_ + name) << "# nat64 version 1 2026 x root 1 1 document a\n";
    }
    std::ofstream(documents_ + "3") << "# nat64 version 1 2026 5 root 1 1 document a b\ntext";
    ASSERT_EQ(versions_.open(), "");
    ASSERT_EQ(versions_.all().size(), 1U);
    EXPECT_EQ(versions_.all().front().what, "a b");
    EXPECT_EQ(add(), "");
    EXPECT_EQ(versions_.all().back().number, 10U);
    std::filesystem::create_directory(documents_ + "11.new");
    EXPECT_EQ(add(), documents_ + "11.new: Is a directory");
    EXPECT_EQ(versions_.all().size(), 2U);
}

TEST_F(version_files_test, a_pipe_or_a_link_is_no_version_and_a_file_that_others_can_change_is_an_error) {
    std::filesystem::create_directories(documents_);
    std::ofstream(directory_.path() + "/elsewhere") << "# nat64 version 1 2026 5 root 1 1 document a\n";
    std::filesystem::create_symlink(directory_.path() + "/elsewhere", documents_ + "6");
    std::filesystem::create_symlink("/none", documents_ + "8");
    ASSERT_EQ(mkfifo((documents_ + "7").c_str(), 0600), 0);
    alarm(60); /* ends a test that waits for the pipe */
    EXPECT_EQ(versions_.open(), "");
    EXPECT_EQ(versions_.all().size(), 0U);
    ASSERT_EQ(mkfifo((documents_ + "9.new").c_str(), 0600), 0); /* where version 9 is written first */
    ASSERT_EQ(add(), "");
    ASSERT_EQ(versions_.set_unconfirmed(9), "");
    ASSERT_EQ(chmod((documents_ + "9").c_str(), 0620), 0);
    ASSERT_EQ(chmod((directory_.path() + "/unconfirmed").c_str(), 0620), 0);
    EXPECT_EQ(versions_.unconfirmed(), std::nullopt);
    const std::string fault = documents_ + "9: other users may write to it (mode 0620); change its mode to 0600";
    std::string ignored;
    EXPECT_EQ(versions_.read(9, ignored), fault);
    EXPECT_EQ(versions_.open(), fault);
    alarm(0);
}

TEST_F(version_files_test, an_unreadable_mark_leaves_the_unconfirmed_version_unknown) {
    const std::string path = directory_.path() + "/unconfirmed";
    std::ofstream(path) << "x";
    EXPECT_EQ(versions_.unconfirmed(), std::nullopt);
    std::filesystem::remove(path);
    std::filesystem::create_directories(path + "/in the way");
    EXPECT_EQ(versions_.unconfirmed(), std::nullopt);
    EXPECT_EQ(versions_.set_unconfirmed(0), path + ": Is a directory");
    EXPECT_NE(versions_.set_unconfirmed(1), "");
    EXPECT_FALSE(std::filesystem::exists(path + ".new")) << "a failed write leaves nothing";
}

TEST_F(version_files_test, the_names_of_new_folders_and_of_removed_files_are_synced_too) {
    class watched_files_t : public files_t {
    public:
        int sync_directory_of(const std::string &path) override {
            synced.push_back(path);
            return files_t::sync_directory_of(path);
        }
        std::vector<std::string> synced;
    };
    const std::string state = directory_.path() + "/a/b";
    watched_files_t files;
    versions_t versions(state, files);
    ASSERT_EQ(versions.add({}, text_), "");
    ASSERT_EQ(versions.add({}, text_), "");
    ASSERT_EQ(versions.set_unconfirmed(2), "");
    ASSERT_EQ(versions.set_unconfirmed(0), "");
    EXPECT_EQ(files.synced,
              (std::vector<std::string>{directory_.path() + "/a", state, state + "/documents", state + "/documents/1",
                                        state + "/documents/2", state + "/unconfirmed", state + "/unconfirmed"}));
}

TEST_F(version_files_test, the_oldest_documents_go_when_all_are_too_large_but_not_the_newest_two) {
    ASSERT_EQ(versions_.open(), "");
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(add(), "");
        /* A sparse file takes no room on the disk. */
        std::filesystem::resize_file(documents_ + std::to_string(i + 1), versions_t::most_bytes);
        ASSERT_EQ(versions_.open(), "");
    }
    ASSERT_EQ(add(), "");
    ASSERT_EQ(versions_.all().size(), 2U);
    EXPECT_EQ(versions_.all().front().number, 3U);
}

}  // namespace
