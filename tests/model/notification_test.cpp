#include "model_fixture.h"

namespace {

using notification_t = model_fixture_t;

TEST_F(notification_t, goes_only_to_clients_that_have_asked) {
    EXPECT_EQ(model_->wakeup(), FWX_HOST_ERR_CHANNEL_DOWN);
    open();
    EXPECT_EQ(result_of(command(1, 32)), 0u);
    EXPECT_EQ(model_->wakeup(), 0u);
    EXPECT_EQ(run().size(), 1u) << "the second client has not asked";
}

}  // namespace
