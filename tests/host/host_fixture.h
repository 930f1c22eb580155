/* A fixture that fails a test when platform objects are left over, and that resets faults and the clock. */
#ifndef TESTS_HOST_HOST_FIXTURE_H
#define TESTS_HOST_HOST_FIXTURE_H

#include <gtest/gtest.h>
#include <poll.h>

#include "fwx_host/fwx_host.h"
#include "tests/support/platform_watch.h"

class host_fixture_t : public testing::Test {
protected:
    void SetUp() override { fwx_host_fault_reset(); }

    void TearDown() override {
        fwx_host_fault_reset();
        fwx_host_clock_run();
        EXPECT_EQ(watch_.left(), "");
    }

    fwx_host_errors_t errors() const { return watch_.errors(); }

    static bool is_readable(fwx_host_loop_t *loop) {
        pollfd watched = {fwx_host_loop_fd(loop), POLLIN, 0};
        return poll(&watched, 1, 0) == 1;
    }

    platform_watch_t watch_;
};

#endif
