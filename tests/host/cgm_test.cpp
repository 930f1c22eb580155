#include "platform/cgm.h"

#include <vector>

#include "host_fixture.h"

namespace {

using cgm_t = host_fixture_t;

struct notice_t {
    uint32_t op;
    void **data;
    uint32_t batch_id;
    uint32_t async;
    void *ctx;
};
std::vector<notice_t> notices;

uint32_t first_handler(uint32_t op, void **data, uint32_t batch_id, uint32_t async, void *, void *ctx) {
    notices.push_back({op, data, batch_id, async, ctx});
    return 41;
}

uint32_t second_handler(uint32_t, void **, uint32_t, uint32_t, void *, void *) {
    return 42;
}

TEST_F(cgm_t, notifies_the_client_that_registered_last) {
    const cgm_client_reg_t first{first_handler, 7, 0};
    const cgm_client_reg_t second{second_handler, 7, 0};
    void *data = nullptr;
    int ctx = 0;
    notices.clear();
    EXPECT_EQ(fwx_host_cgm_notify(7, 1, nullptr, 0, 0, nullptr), FWX_HOST_ERR_NO_CLIENT);
    ASSERT_EQ(cgm_int_register_client(7, &first), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(7, 2, &data, 3, 1, &ctx), 41u);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices[0].op, 2u);
    EXPECT_EQ(notices[0].data, &data);
    EXPECT_EQ(notices[0].batch_id, 3u);
    EXPECT_EQ(notices[0].async, 1u);
    EXPECT_EQ(notices[0].ctx, &ctx);
    ASSERT_EQ(cgm_int_register_client(7, &second), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(7, 2, &data, 3, 1, &ctx), 42u);
}

TEST_F(cgm_t, refuses_a_record_that_names_another_client_or_no_handler) {
    const cgm_client_reg_t other{first_handler, 9, 0};
    const cgm_client_reg_t empty{nullptr, 8, 0};
    EXPECT_EQ(cgm_int_register_client(8, &other), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(cgm_int_register_client(8, &empty), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(cgm_int_register_client(8, nullptr), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(fwx_host_cgm_notify(8, 1, nullptr, 0, 0, nullptr), FWX_HOST_ERR_NO_CLIENT);
}

TEST_F(cgm_t, hands_asynchronous_returns_to_the_observer) {
    struct seen_t {
        uint32_t client_id, result;
        void *ctx;
    };
    std::vector<seen_t> seen;
    int ctx = 0;
    fwx_host_cgm_observe(
        [](void *arg, uint32_t client_id, void *its_ctx, uint32_t result) {
            static_cast<std::vector<seen_t> *>(arg)->push_back({client_id, result, its_ctx});
        },
        &seen);
    cgm_notification_async_return(20, &ctx, 5);
    fwx_host_cgm_observe(nullptr, nullptr);
    cgm_notification_async_return(20, &ctx, 6);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].client_id, 20u);
    EXPECT_EQ(seen[0].ctx, &ctx);
    EXPECT_EQ(seen[0].result, 5u);
}

}  // namespace
