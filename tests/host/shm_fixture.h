/* The server and the client of the channel fixture as two processes see each other: on a loop each, with a socket in a
 * directory of the test's own. */
#ifndef TESTS_HOST_SHM_FIXTURE_H
#define TESTS_HOST_SHM_FIXTURE_H

#include <unistd.h>

#include <cstdlib>

#include "channel_fixture.h"

/** A new XDG_RUNTIME_DIR, for as long as it lives. A test that hangs is ended. */
class runtime_directory_t {
public:
    runtime_directory_t() {
        char path[] = "/tmp/fwx_host_test.XXXXXX";
        path_ = mkdtemp(path);
        setenv("XDG_RUNTIME_DIR", path_.c_str(), 1);
        alarm(120);
    }
    ~runtime_directory_t() {
        alarm(0);
        unsetenv("XDG_RUNTIME_DIR");
        EXPECT_TRUE(rmdir(sockets().c_str()) == 0 || errno == ENOENT) << "a socket is left";
        EXPECT_EQ(rmdir(path_.c_str()), 0);
    }
    runtime_directory_t(const runtime_directory_t &) = delete;
    runtime_directory_t &operator=(const runtime_directory_t &) = delete;

    std::string sockets() const { return path_ + "/fwx_host"; }

private:
    std::string path_;
};

class shm_fixture_t : public channel_fixture_t {
protected:
    static constexpr char server_name[] = "test-server";

    void SetUp() override {
        channel_fixture_t::SetUp();
        ASSERT_EQ(smc_msg_chan_close(&chan_), 0u);
        channel_fixture_t::run();
        client_loop_ = fwx_host_loop_create();
        ASSERT_EQ(fwx_host_server_listen(server_, server_name), 0u);
        ASSERT_EQ(fwx_host_connect_set("tested", server_name), 0u);
        open();
        run();
        log_.clear();
    }

    void TearDown() override {
        during_take_ = during_done_ = during_receive_ = during_error_ = nullptr;
        smc_msg_chan_close(&chan_);
        end_server();
        run();
        fwx_host_connect_set("tested", nullptr);
        fwx_host_loop_destroy(client_loop_);
        channel_fixture_t::TearDown();
    }

    uint32_t try_open() { return channel_fixture_t::try_open(client_loop_); }
    void open() { channel_fixture_t::open(client_loop_); }
    void run() {
        while (fwx_host_loop_run_until_idle(client_loop_) + fwx_host_loop_run_until_idle(loop_) != 0) {
        }
    }
    void run_client() { fwx_host_loop_run_until_idle(client_loop_); }
    void run_server() { fwx_host_loop_run_until_idle(loop_); }

    runtime_directory_t directory_;
    fwx_host_loop_t *client_loop_ = nullptr;
};

#endif
