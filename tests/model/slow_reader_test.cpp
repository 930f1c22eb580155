/* A client that walks many sessions over shared memory and reads slowly. Client and model are in this process, on two
 * loops. */
#include <algorithm>

#include "model_fixture.h"
#include "tests/support/runtime_directory.h"

namespace {

class slow_reader_test : public model_fixture_t {
protected:
    bool serve() override {
        server_loop_ = fwx_host_loop_create();
        model_ = fwx_nat64_model_t::create(server_loop_, "model under test");
        return fwx_host_server_listen(fwx_host_server_find("model under test"), "alpha") == 0 &&
               fwx_host_connect_set("model under test", "alpha") == 0;
    }
    void end() override {
        fwx_host_connect_set("model under test", nullptr);
        model_.reset();
        fwx_host_loop_destroy(server_loop_);
    }

    const runtime_directory_t directory_;
    fwx_host_loop_t *server_loop_ = nullptr;
};

TEST_F(slow_reader_test, receives_a_whole_walk_that_is_longer_than_the_limit_of_queued_bytes) {
    constexpr uint64_t count = 600000; /* 90 MB, more than the limit of 64 MiB queued for a client */
    model_->sessions_generate(count);
    send(command(9, 144).put<uint32_t>(44, 1).put<uint32_t>(48, 400)); /* in full, 400 sessions a page */
    uint64_t most_bytes = 0;
    for (int turn = 0; turn < 300; ++turn) { /* the client reads nothing */
        fwx_host_loop_run_once(server_loop_, 1);
        most_bytes = std::max(most_bytes, model_->counts().queued_bytes);
    }
    EXPECT_GT(most_bytes, uint64_t{4} << 20);
    EXPECT_LT(most_bytes, uint64_t{8} << 20);
    uint64_t sessions = 0;
    for (bool is_complete = false; !is_complete && channel_errors == 0;) {
        fwx_host_loop_run_once(server_loop_, 1);
        for (const message_t &page : run()) {
            sessions += page.u32(40);
            is_complete = page.u32(48) == 0;
        }
    }
    EXPECT_EQ(channel_errors, 0u);
    EXPECT_EQ(sessions, count);
}

}  // namespace
