#include "platform/cgm.h"

#include <tuple>
#include <vector>

#include "host_fixture.h"

namespace {

using cgm_t = host_fixture_t;
using notice_t = std::tuple<uint32_t, void **, uint32_t, uint32_t, void *>;
using return_t = std::tuple<uint32_t, void *, uint32_t>;

std::vector<notice_t> notices;

uint32_t first_handler(uint32_t op, void **data, uint32_t batch_id, uint32_t async, void *, void *ctx) {
    notices.emplace_back(op, data, batch_id, async, ctx);
    return 41;
}

uint32_t second_handler(uint32_t, void **, uint32_t, uint32_t, void *, void *) {
    return 42;
}

TEST_F(cgm_t, notifies_the_client_that_registered_last_and_refuses_a_record_of_another_or_without_handler) {
    const cgm_client_reg_t first{first_handler, 7, 0}, second{second_handler, 7, 0};
    const cgm_client_reg_t other{first_handler, 9, 0}, empty{nullptr, 7, 0};
    void *data = nullptr;
    int ctx = 0;
    notices.clear();
    for (const cgm_client_reg_t *refused : {&other, &empty, static_cast<const cgm_client_reg_t *>(nullptr)}) {
        EXPECT_EQ(cgm_int_register_client(7, refused), FWX_HOST_ERR_BAD_ARG);
    }
    EXPECT_EQ(fwx_host_cgm_notify(7, 1, nullptr, 0, 0, nullptr), FWX_HOST_ERR_NO_CLIENT);
    ASSERT_EQ(cgm_int_register_client(7, &first), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(7, 2, &data, 3, 1, &ctx), 41u);
    EXPECT_EQ(notices, (std::vector<notice_t>{{2, &data, 3, 1, &ctx}}));
    ASSERT_EQ(cgm_int_register_client(7, &second), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(7, 2, &data, 3, 1, &ctx), 42u);
}

TEST_F(cgm_t, hands_asynchronous_returns_to_the_observer) {
    std::vector<return_t> seen;
    int ctx = 0;
    fwx_host_cgm_observe(
        [](void *arg, uint32_t client_id, void *its_ctx, uint32_t result) {
            static_cast<std::vector<return_t> *>(arg)->emplace_back(client_id, its_ctx, result);
        },
        &seen);
    cgm_notification_async_return(20, &ctx, 5);
    fwx_host_cgm_observe(nullptr, nullptr);
    cgm_notification_async_return(20, &ctx, 6);
    EXPECT_EQ(seen, (std::vector<return_t>{{20, &ctx, 5}}));
}

}  // namespace
