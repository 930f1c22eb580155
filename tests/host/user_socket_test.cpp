/* Sockets in the user's directory, of servers and of services: valid names, stale sockets, checks of the directory and
 * of the user, full queues and exhausted descriptors. */
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include "fwx_host/user_socket.h"
#include "host/messaging/shm/socket.h"
#include "host_fixture.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/runtime_directory.h"

namespace {

class shm_socket_t : public host_fixture_t {
protected:
    ~shm_socket_t() override { user_socket_unlisten(entrance_); }

    uint32_t listen(const char *name) { return shm_listen(name, &entrance_); }
    bool has_socket(const std::string &name) const {
        return access((directory_.sockets() + "/" + name).c_str(), F_OK) == 0;
    }

    runtime_directory_t directory_;
    user_entrance_t entrance_;
    descriptor_t connected_;
};

TEST_F(shm_socket_t, a_name_is_that_of_a_file_in_the_directory) {
    const std::string too_long(120, 'x');
    for (const char *bad : {"", ".", "..", ".hidden", "a/b", "../a", too_long.c_str()}) {
        EXPECT_EQ(shm_connect(bad, &connected_), FWX_HOST_ERR_BAD_ARG) << bad;
        EXPECT_EQ(listen(bad), FWX_HOST_ERR_BAD_ARG) << bad;
    }
    for (const char *name : {"a", "fwx cp-1"}) {
        EXPECT_EQ(shm_connect(name, &connected_), FWX_HOST_ERR_NO_SERVER) << name;
        EXPECT_EQ(listen(name), 0u) << name;
        EXPECT_TRUE(has_socket(name));
        EXPECT_EQ(shm_connect(name, &connected_), 0u) << name;
        user_socket_unlisten(entrance_);
        EXPECT_FALSE(has_socket(name));
    }
    const std::string no_socket = directory_.sockets() + "/file";
    close(open(no_socket.c_str(), O_CREAT | O_WRONLY, 0600));
    EXPECT_NE(listen("file"), 0u);
    EXPECT_TRUE(has_socket("file")) << "the file is not removed";
}

TEST_F(shm_socket_t, a_name_of_a_live_server_is_taken_and_that_of_a_dead_one_is_not) {
    ASSERT_EQ(listen("server"), 0u);
    user_entrance_t second;
    EXPECT_EQ(shm_listen("server", &second), FWX_HOST_ERR_NAME_TAKEN);
    EXPECT_EQ(shm_connect("server", &connected_), 0u); /* the live server is still reachable */
    entrance_.socket = descriptor_t();
    EXPECT_TRUE(has_socket("server"));
    EXPECT_EQ(shm_connect("server", &connected_), FWX_HOST_ERR_NO_SERVER);
    EXPECT_EQ(shm_listen("server", &second), 0u);
    EXPECT_EQ(shm_connect("server", &connected_), 0u);
    ASSERT_EQ(unlink(second.path.c_str()), 0);
    ASSERT_EQ(listen("server"), 0u);
    user_socket_unlisten(second);
    EXPECT_TRUE(has_socket("server")) << "the file belongs to the other server now";
}

TEST_F(shm_socket_t, a_held_lock_and_the_umask_do_not_prevent_listening_and_exhausted_descriptors_are_reported) {
    const mode_t before = umask(0177);
    EXPECT_EQ(listen("server"), 0u);
    umask(before);
    const descriptor_t holder(::open(directory_.sockets().c_str(), O_RDONLY | O_DIRECTORY));
    ASSERT_EQ(flock(holder.get(), LOCK_EX), 0);
    entrance_.socket = descriptor_t();
    EXPECT_EQ(listen("server"), 0u);
    const descriptor_limit_t none(3);
    user_entrance_t second;
    EXPECT_EQ(shm_listen("other", &second), static_cast<uint32_t>(EMFILE));
    EXPECT_EQ(shm_connect("server", &connected_), static_cast<uint32_t>(EMFILE));
}

TEST_F(shm_socket_t, a_directory_that_others_can_access_or_own_is_refused) {
    ASSERT_EQ(listen("server"), 0u);
    for (const mode_t mode : {0755U, 0770U, 0701U, 01700U}) {
        ASSERT_EQ(chmod(directory_.sockets().c_str(), mode), 0);
        EXPECT_EQ(shm_connect("server", &connected_), FWX_HOST_ERR_FOREIGN) << mode;
        EXPECT_EQ(listen("other"), FWX_HOST_ERR_FOREIGN) << mode;
    }
    ASSERT_EQ(chmod(directory_.sockets().c_str(), 0700), 0);
    EXPECT_EQ(shm_connect("server", &connected_), 0u);
    user_socket_unlisten(entrance_);
    if (geteuid() == 0) { /* another user's */
        ASSERT_EQ(chown(directory_.sockets().c_str(), 65534, 65534), 0);
        EXPECT_EQ(listen("server"), FWX_HOST_ERR_FOREIGN);
    }
}

TEST_F(shm_socket_t, the_directory_is_the_one_that_the_environment_names_or_one_in_tmp_and_an_empty_name_is_none) {
    const std::string named = directory_.path() + "/named";
    setenv("FWX_HOST_DIR", named.c_str(), 1);
    EXPECT_EQ(listen("server"), 0u);
    EXPECT_EQ(access((named + "/server").c_str(), F_OK), 0);
    EXPECT_EQ(shm_connect("server", &connected_), 0u);
    setenv("FWX_HOST_DIR", "", 1);
    EXPECT_EQ(shm_connect("server", &connected_), FWX_HOST_ERR_NO_SERVER);
    unsetenv("FWX_HOST_DIR");
    user_socket_unlisten(entrance_);

    const std::string fallback = "/tmp/fwx_host-" + std::to_string(geteuid());
    const std::string name = "test-" + std::to_string(getpid());
    unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(listen(name.c_str()), 0u);
    struct stat status {};
    EXPECT_EQ(stat(fallback.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    EXPECT_EQ(access((fallback + "/" + name).c_str(), F_OK), 0);
    EXPECT_EQ(shm_connect(name.c_str(), &connected_), 0u);
}

/** Calls `fn` in a child process of another user. Returns 0 when it returned true. */
template <typename fn_t>
int as_another_user(fn_t fn) {
    const pid_t child = fork();
    if (child == 0) _exit(setresuid(65534, 65534, 65534) == 0 && fn() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST_F(shm_socket_t, a_server_of_another_user_is_refused) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be another user";
    ASSERT_EQ(listen("server"), 0u);
    EXPECT_EQ(as_another_user([this] { return ::listen(entrance_.socket.get(), 5) == 0; }), 0);
    EXPECT_EQ(shm_connect("server", &connected_), FWX_HOST_ERR_FOREIGN);
}

TEST_F(shm_socket_t, a_client_of_another_user_is_turned_away) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be another user";
    ASSERT_EQ(listen("server"), 0u);
    const std::string path = directory_.sockets() + "/server";
    chmod(path.c_str(), 0777);
    ASSERT_EQ(chmod(directory_.sockets().c_str(), 0711) + chmod(directory_.path().c_str(), 0711), 0);
    sockaddr_un address = {AF_UNIX, {}};
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    EXPECT_EQ(as_another_user([&address] {
                  const int client = socket(AF_UNIX, SOCK_SEQPACKET, 0);
                  return connect(client, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
              }),
              0);
    descriptor_t client;
    EXPECT_EQ(user_socket_accept(entrance_.socket, &client), static_cast<uint32_t>(EAGAIN));
    ASSERT_EQ(chmod(directory_.sockets().c_str(), 0700), 0);
    EXPECT_EQ(shm_connect("server", &connected_), 0u);
    EXPECT_EQ(user_socket_accept(entrance_.socket, &client), 0u);
}

class user_socket_test : public host_fixture_t {
protected:
    ~user_socket_test() override {
        fwx_host_user_unlisten(listener_);
        fwx_host_loop_destroy(loop_);
    }

    uint32_t listen(const char *name = ".service") {
        const auto take = [](void *self, int fd) { static_cast<user_socket_test *>(self)->clients_.emplace_back(fd); };
        return fwx_host_user_listen(name, loop_, take, this, &listener_);
    }
    void unlisten() { fwx_host_user_unlisten(std::exchange(listener_, nullptr)); }
    uint32_t connect(const char *name = ".service") {
        int fd = -1;
        const uint32_t code = fwx_host_user_connect(name, 0, &fd);
        connections_.emplace_back(fd);
        return code;
    }

    const runtime_directory_t directory_;
    fwx_host_loop_t *loop_ = fwx_host_loop_create();
    fwx_host_user_listener_t *listener_ = nullptr;
    std::vector<descriptor_t> clients_;
    std::vector<descriptor_t> connections_;
};

TEST_F(user_socket_test, a_service_has_a_name_that_no_server_has_and_is_no_server) {
    for (const char *bad : {"", ".", "..", "service", ".a/b", "../a"}) {
        EXPECT_EQ(listen(bad), FWX_HOST_ERR_BAD_ARG) << bad;
        EXPECT_EQ(connect(bad), FWX_HOST_ERR_BAD_ARG) << bad;
    }
    EXPECT_EQ(connect(), FWX_HOST_ERR_NO_SERVER);
    ASSERT_EQ(listen(), 0U);
    size_t servers = 0;
    fwx_host_server_names([](void *count, const char *) { ++*static_cast<size_t *>(count); }, &servers);
    EXPECT_EQ(servers, 0U);
    fwx_host_user_listener_t *second = nullptr;
    const auto none = [](void *, int) {};
    EXPECT_EQ(fwx_host_user_listen(".service", loop_, none, nullptr, &second), FWX_HOST_ERR_NAME_TAKEN);
    EXPECT_EQ(connect(), 0U);
    fwx_host_loop_run_until_idle(loop_);
    ASSERT_EQ(clients_.size(), 2U) << "the other listener has connected to see whether this one is alive";
    EXPECT_EQ(send(connections_.back().get(), "hello", 5, 0), 5);
    char room[8];
    EXPECT_EQ(recv(clients_.back().get(), room, sizeof room, 0), 5);
    EXPECT_EQ(recv(clients_.back().get(), room, sizeof room, 0), -1);
    EXPECT_EQ(errno, EAGAIN);
    unlisten();
    EXPECT_EQ(connect(), FWX_HOST_ERR_NO_SERVER);
    EXPECT_EQ(access((directory_.sockets() + "/.service").c_str(), F_OK), -1);
}

TEST_F(user_socket_test, a_link_is_refused_as_directory_however_its_path_ends_and_its_target_is_not_touched) {
    const std::string real = directory_.path() + "/real";
    const std::string link = directory_.path() + "/link";
    ASSERT_EQ(mkdir(real.c_str(), 0700) + symlink(real.c_str(), link.c_str()), 0);
    for (const char *end : {"", "/", "//", "/.", "/./", "/.//./"}) {
        SCOPED_TRACE(end);
        setenv("FWX_HOST_DIR", (link + end).c_str(), 1);
        EXPECT_EQ(listen(), FWX_HOST_ERR_FOREIGN);
        EXPECT_EQ(connect(), FWX_HOST_ERR_FOREIGN);
        setenv("FWX_HOST_DIR", (real + end).c_str(), 1);
        EXPECT_EQ(listen(), 0U);
        EXPECT_EQ(connect(), 0U);
        unlisten();
    }
    EXPECT_EQ(rmdir(real.c_str()), 0) << "it is empty";
    unsetenv("FWX_HOST_DIR");
}

TEST_F(user_socket_test, a_full_queue_is_reported_and_not_waited_for_longer_than_requested) {
    ASSERT_EQ(listen(), 0U);
    uint32_t code = 0;
    const descriptor_limit_t raised(RLIM_INFINITY);
    for (int i = 0; i < 5000 && code == 0; ++i) {
        code = connect();
    }
    EXPECT_EQ(code, FWX_HOST_ERR_BUSY);
    int fd = -1;
    EXPECT_EQ(fwx_host_user_connect(".service", 20, &fd), FWX_HOST_ERR_BUSY);
    EXPECT_EQ(fd, -1);
    connections_.clear();
    fwx_host_loop_run_until_idle(loop_);
    EXPECT_EQ(connect(), 0U);
    clients_.clear();
}

}  // namespace
