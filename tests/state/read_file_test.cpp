/* Reading of state files and of files that a user names, and the errors for names that are not regular files. */
#include "state/read_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/support/runtime_directory.h"

namespace {

class read_file_test : public testing::Test {
protected:
    read_file_test() {
        std::ofstream(path("file")) << "12345";
        EXPECT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
        std::ofstream(path("sparse")) << "1";
        EXPECT_EQ(truncate(path("sparse").c_str(), off_t{8} << 30), 0);
        EXPECT_EQ(mknod(path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
        alarm(60); /* ends a test that waits for a pipe */
    }
    ~read_file_test() override { alarm(0); }

    std::string path(const std::string &name) const { return directory_.path() + "/" + name; }

private:
    const runtime_directory_t directory_;
};

TEST_F(read_file_test, a_regular_file_up_to_the_limit_is_read_and_errors_name_the_type_of_others) {
    std::string error;
    EXPECT_EQ(read_file(path("file"), error), "12345");
    EXPECT_EQ(read_file(path("file"), error, 5), "12345");
    EXPECT_EQ(error, "");
    const std::pair<std::string, const char *> cases[] = {
        {path("file"), ": is 5 bytes long; the most that is read is 4"},
        {path("sparse"), ": is 8589934592 bytes long; the most that is read is 4"},
        {path("pipe"), ": is a pipe, not a regular file"},
        {path("socket"), ": is a socket, not a regular file"},
        {path(""), ": is a directory, not a regular file"},
        {"/dev/zero", ": is a device, not a regular file"},
        {"/dev/null", ": is a device, not a regular file"},
        {path("none"), ": No such file or directory"},
        {"/proc/self/environ", ": is at least 5 bytes long; the most that is read is 4"}, /* says that it has none */
    };
    for (const auto &[name, fault] : cases) {
        EXPECT_FALSE(read_file(name, error, 4)) << name;
        EXPECT_EQ(error, name + fault);
    }
}

TEST_F(read_file_test, a_state_file_is_read_if_it_is_regular_and_no_other_user_can_change_it) {
    ASSERT_EQ(symlink("file", path("link").c_str()), 0);
    ASSERT_EQ(symlink("none", path("dangling").c_str()), 0);
    std::ofstream(path("open")) << "1";
    ASSERT_EQ(chmod(path("open").c_str(), 0602), 0);
    std::string error;
    EXPECT_EQ(read_state_file(path("file"), error), "12345");
    EXPECT_EQ(error, "");
    const std::pair<std::string, const char *> cases[] = {
        {"open", ": other users may write to it (mode 0602); change its mode to 0600"},
        {"link", ": is a symbolic link, not a regular file"},
        {"dangling", ": is a symbolic link, not a regular file"},
        {"pipe", ": is a pipe, not a regular file"},
        {"none", ": No such file or directory"},
    };
    for (const auto &[name, fault] : cases) {
        EXPECT_FALSE(read_state_file(path(name), error)) << name;
        EXPECT_EQ(error, path(name) + fault);
        error.clear();
        EXPECT_FALSE(read_state_line(path(name), error)) << name;
        EXPECT_EQ(error, path(name) + fault);
        EXPECT_EQ(is_missing(path(name)), name == "none");
    }
    std::ofstream(path("lines")) << "first\n" << std::string(70000, '\n');
    const std::optional<state_line_t> line = read_state_line(path("lines"), error);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->line, "first");
    EXPECT_EQ(line->file_bytes, 70006U);
}

TEST_F(read_file_test, a_stream_is_read_up_to_the_limit) {
    std::string error;
    std::istringstream good("1234");
    EXPECT_EQ(read_stream(good, "standard input", error, 4), "1234");
    std::ifstream endless("/dev/zero");
    EXPECT_FALSE(read_stream(endless, "standard input", error, 70000));
    EXPECT_EQ(error, "standard input: is at least 131072 bytes long; the most that is read is 70000");
    std::ifstream unreadable(path(""));
    EXPECT_FALSE(read_stream(unreadable, "standard input", error)) << "an error is not an end";
    EXPECT_EQ(error, "standard input: Is a directory");
}

TEST_F(read_file_test, lines_are_read_from_files_pipes_terminals_and_no_device_but_the_null_device) {
    for (const std::string &good : {path("file"), path("pipe"), std::string("/dev/null")}) {
        EXPECT_EQ(line_input_fault(good), "");
    }
    EXPECT_EQ(line_input_fault("/dev/zero"), "/dev/zero: is a device, not a file or a pipe");
    EXPECT_EQ(line_input_fault("/"), "/: is a directory, not a file or a pipe");
    const int fd = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(line_input_fault(fd, "standard input"), "standard input: is a device, not a file or a pipe");
    close(fd);
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_EQ(line_input_fault(terminal, "standard input"), "");
    close(terminal);
}

TEST_F(read_file_test, permissions_of_the_group_or_others_are_recognised) {
    for (const auto &[mode, is_open] :
         {std::pair<mode_t, bool>{0600, false}, {0400, false}, {0640, true}, {0604, true}}) {
        ASSERT_EQ(chmod(path("file").c_str(), mode), 0);
        EXPECT_EQ(is_open_to_others(path("file")), is_open) << mode;
    }
}

}  // namespace
