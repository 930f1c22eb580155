/* The lock between processes: waiting, the holder's name and unsafe lock files. */
#include "state/lock.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "state/directory.h"
#include "tests/support/eventually.h"
#include "tests/support/runtime_directory.h"

namespace {

class lock_test : public testing::Test {
protected:
    std::string name_in_file() const { return text_of(path_ + ".lock"); }
    static std::string name_of(const char *program) {
        return std::string(program) + " (process " + std::to_string(getpid()) + ")";
    }

    const runtime_directory_t directory_;
    const std::string path_ = directory_.path() + "/file";
};

TEST_F(lock_test, one_holder_has_it_at_a_time_and_is_named) {
    lock_t first(path_, "nat64d");
    ASSERT_EQ(first.take(), "");
    EXPECT_FALSE(first.is_taken());
    EXPECT_EQ(name_in_file(), name_of("nat64d") + "\n");
    EXPECT_EQ(std::filesystem::status(path_ + ".lock").permissions(), std::filesystem::perms(0600));
    lock_t second(path_, "natctl");
    EXPECT_EQ(second.take(), path_ + ": locked by " + name_of("nat64d"));
    EXPECT_TRUE(second.is_taken());
    EXPECT_EQ(second.holder(), name_of("nat64d"));
    EXPECT_EQ(name_in_file(), name_of("nat64d") + "\n");
    first.release();
    EXPECT_EQ(name_in_file(), "");
    EXPECT_EQ(second.take(), "");
    EXPECT_FALSE(second.is_taken());
    EXPECT_EQ(name_in_file(), name_of("natctl") + "\n");
    std::ofstream(path_ + ".lock", std::ios::trunc).flush();
    EXPECT_EQ(first.take(), path_ + ": locked by another process");
    EXPECT_EQ(first.holder(), "another process");
}

TEST_F(lock_test, it_is_waited_for_as_long_as_the_caller_likes_the_holder) {
    lock_t first(path_, "natctl");
    ASSERT_EQ(first.take(), "");
    lock_t second(path_, "natctl");
    std::string asked_about;
    const auto ask = [&](const std::string &holder) {
        asked_about = holder;
        return false;
    };
    EXPECT_NE(second.take(std::chrono::milliseconds(50), ask), "");
    EXPECT_EQ(asked_about, "") << "the name can still be that of an earlier holder";
    EXPECT_NE(second.take(std::chrono::hours(1), ask), "");
    EXPECT_EQ(asked_about, name_of("natctl"));
    const auto release = [&](const std::string &) {
        first.release();
        return true;
    };
    EXPECT_EQ(second.take(std::chrono::hours(1), release), "");
    EXPECT_EQ(name_in_file(), name_of("natctl") + "\n");
}

TEST_F(lock_test, a_lock_is_free_though_a_program_that_its_holder_started_lives_on) {
    lock_t first(path_, "nat64d");
    ASSERT_EQ(first.take(), "");
    FILE *program = popen("cat", "we"); /* until its input ends */
    ASSERT_NE(program, nullptr);
    first.release();
    EXPECT_EQ(lock_t(path_, "natctl").take(), "");
    pclose(program);
}

TEST_F(lock_test, directories_that_are_missing_are_made_for_their_user_alone) {
    const std::string parent = directory_.path() + "/state";
    EXPECT_EQ(make_state_directory(parent + "/fwx/edge"), "");
    for (const char *made : {"", "/fwx", "/fwx/edge"}) {
        EXPECT_EQ(std::filesystem::status(parent + made).permissions(), std::filesystem::perms(0700)) << made;
    }
    std::ofstream(parent + "/file").flush();
    EXPECT_EQ(make_state_directory(parent + "/file/edge"), parent + "/file/edge: Not a directory");
}

TEST_F(lock_test, a_lock_file_that_is_not_of_this_user_alone_is_refused) {
    const std::string name = path_ + ".lock";
    const std::string folder = directory_.path() + "/";
    EXPECT_EQ(lock_t(folder + "none/file", "natctl").take(), folder + "none/file.lock: No such file or directory");
    EXPECT_EQ(lock_t(folder, "natctl").take(), folder + ": not a regular file");
    EXPECT_FALSE(std::filesystem::exists(folder + ".lock"));
    std::filesystem::create_symlink(path_, name);
    EXPECT_EQ(lock_t(path_, "natctl").take(), name + ": not a regular file");
    EXPECT_FALSE(std::filesystem::exists(path_));
    std::filesystem::remove(name);
    std::ofstream(name).flush();
    ASSERT_EQ(chmod(name.c_str(), 0660), 0);
    lock_t lock(path_, "natctl");
    EXPECT_EQ(lock.take(), name + ": other users may write to it (mode 0660); change its mode to 0600");
    EXPECT_FALSE(lock.is_taken());
}

}  // namespace
