/* Sockets of services: their names, checks of the directory, full queues and exhausted descriptors. */
#include <sys/socket.h>
#include <sys/stat.h>

#include "fwx_host/user_socket.h"
#include "host_fixture.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/eventually.h"
#include "tests/support/runtime_directory.h"

namespace {

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

TEST_F(user_socket_test, without_spare_descriptors_each_client_is_turned_away_and_the_loop_does_not_spin) {
    ASSERT_EQ(listen(), 0U);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(connect(), 0U);
    }
    {
        const no_free_descriptors_t none(connections_.back());
        fwx_host_loop_run_until_idle(loop_);
        EXPECT_EQ(fwx_host_loop_process(loop_), 0U);
    }
    EXPECT_TRUE(clients_.empty());
    for (const descriptor_t &connection : connections_) {
        EXPECT_TRUE(is_hung_up(connection.get()));
    }
    EXPECT_EQ(connect(), 0U);
    fwx_host_loop_run_until_idle(loop_);
    EXPECT_EQ(clients_.size(), 1U);
}

}  // namespace
