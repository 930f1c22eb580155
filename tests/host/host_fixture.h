/* A fixture that fails a test which leaves something live, and that puts the platform's switches back. */
#ifndef TESTS_HOST_HOST_FIXTURE_H
#define TESTS_HOST_HOST_FIXTURE_H

#include <gtest/gtest.h>

#include "fwx_host/fwx_host.h"

class host_fixture_t : public testing::Test {
protected:
    void SetUp() override {
        fwx_host_fault_reset();
        fwx_host_errors_get(&before_);
    }

    void TearDown() override {
        fwx_host_fault_reset();
        fwx_host_clock_run();
        fwx_host_live_t live{};
        fwx_host_live_get(&live);
        EXPECT_EQ(live.memory_blocks, 0u);
        EXPECT_EQ(live.memory_bytes, 0u);
        EXPECT_EQ(live.lists, 0u);
        EXPECT_EQ(live.hash_tables, 0u);
        EXPECT_EQ(live.pools, 0u);
        EXPECT_EQ(live.pool_elements, 0u);
        EXPECT_EQ(live.tx_buffers, 0u);
        EXPECT_EQ(live.channels, 0u);
    }

    static fwx_host_live_t live() {
        fwx_host_live_t now{};
        fwx_host_live_get(&now);
        return now;
    }

    /** Errors counted since the test began. */
    fwx_host_errors_t errors() const {
        fwx_host_errors_t now{};
        fwx_host_errors_get(&now);
        now.bad_frees -= before_.bad_frees;
        now.dropped_no_handler -= before_.dropped_no_handler;
        now.dropped_no_buffer -= before_.dropped_no_buffer;
        now.dropped_malformed -= before_.dropped_malformed;
        return now;
    }

private:
    fwx_host_errors_t before_{};
};

#endif
