/* A client that walks many sessions over shared memory and reads slowly. Client and model are in this process, on two
 * loops. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "model/model.h"
#include "platform/smc.h"
#include "tests/support/runtime_directory.h"

namespace {

uint64_t sessions;
bool is_complete;
bool has_failed;

void take_page(void *, void *, void *msg, size_t) {
    fwx_nat64_sess_walk_reply_t reply;
    std::memcpy(&reply, msg, sizeof reply);
    sessions += reply.count;
    is_complete = reply.more == 0;
}

}  // namespace

TEST(slow_reader_test, receives_a_whole_walk_that_is_longer_than_the_limit_of_queued_bytes) {
    constexpr uint64_t count = 600000; /* 90 MB, more than the limit of 64 MiB queued for a client */
    const runtime_directory_t directory;
    fwx_host_loop_t *server_loop = fwx_host_loop_create();
    fwx_host_loop_t *client_loop = fwx_host_loop_create();
    auto model = fwx_nat64_model_t::create(server_loop, FWX_NAT64_CHANNEL_NAME);
    model->sessions_generate(count);
    ASSERT_EQ(fwx_host_server_listen(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME), "alpha"), 0u);
    ASSERT_EQ(fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, "alpha"), 0u);
    smc_chan_t channel = 0;
    ASSERT_EQ(smc_msg_chan_open(
                  FWX_NAT64_CHANNEL_NAME, reinterpret_cast<smc_event_t>(client_loop), 0,
                  [](void *) { has_failed = true; }, &channel),
              0u);
    alignas(16) static char buffer[128 << 10];
    const uint16_t key[] = {FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_SESSION_WALK, FWX_NAT64_MSG_DOMAIN};
    ASSERT_EQ(smc_msg_rx_buffer_set(channel, buffer, sizeof buffer, nullptr), 0u);
    ASSERT_EQ(smc_msg_handler_attach(channel, key, take_page, 0, key[0], key[1]), 0u);

    void *msg = nullptr;
    ASSERT_EQ(smc_msg_tx_buffer_alloc(sizeof(fwx_nat64_sess_walk_msg_t), &msg), 0u);
    auto *walk = static_cast<fwx_nat64_sess_walk_msg_t *>(msg);
    walk->hdr.type = key[0];
    walk->hdr.domain = key[1];
    walk->walk_arg = FWX_NAT64_WALK_FULL;
    walk->count = 400;
    ASSERT_EQ(smc_async_msg_sends(channel, msg, msg, sizeof *walk,
                                  [](void *cookie, void *, uint32_t) { smc_msg_tx_buffer_free(cookie); }),
              0u);
    uint64_t most_bytes = 0;
    for (int turn = 0; turn < 300; ++turn) { /* the client reads nothing */
        fwx_host_loop_run_once(server_loop, 1);
        most_bytes = std::max(most_bytes, model->counts().queued_bytes);
    }
    EXPECT_GT(most_bytes, uint64_t{4} << 20);
    EXPECT_LT(most_bytes, uint64_t{8} << 20);
    while (!is_complete && !has_failed) {
        fwx_host_loop_run_once(server_loop, 1);
        fwx_host_loop_run_until_idle(client_loop);
    }
    EXPECT_FALSE(has_failed);
    EXPECT_EQ(sessions, count);

    smc_msg_chan_close(&channel);
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
    model.reset();
    fwx_host_loop_destroy(client_loop);
    fwx_host_loop_destroy(server_loop);
}
