#include <tuple>

#include "model_fixture.h"
#include "platform/cgm.h"

namespace {

using notification_t = model_fixture_t;

TEST_F(notification_t, goes_to_nobody_who_has_not_asked) {
    EXPECT_EQ(model_->wakeup(), FWX_HOST_ERR_CHANNEL_DOWN);
    open();
    EXPECT_EQ(result_of(command(1, 32)), 0u);
    EXPECT_EQ(model_->wakeup(), 0u);
    EXPECT_EQ(run().size(), 1u) << "the second client has not asked";
}

/** An unsolicited message that tells of an event. */
message_t told(uint32_t event, size_t size) {
    message_t msg(size, 0);
    return msg.put<uint16_t>(0, 0xc001).put<uint16_t>(2, 96).put<uint32_t>(16, event);
}

TEST_F(notification_t, carries_its_fields_where_the_client_reads_them) {
    EXPECT_EQ(result_of(command(1, 32)), 0u);
    EXPECT_EQ(model_->notify_record(true, 0x11, 0x22, 0x33), 0u);
    EXPECT_EQ(model_->notify_record(false, 0, 0, 0), 0u);
    EXPECT_EQ(model_->notify_event(), 0u);
    EXPECT_EQ(model_->wakeup(), 0u);
    EXPECT_EQ(model_->notify_mapping(5, true, 77), 0u);
    EXPECT_EQ(model_->notify_mapping(6, false, 0), 0u);
    EXPECT_EQ(model_->notify_debug(5, 1), 0u);
    const std::vector<message_t> expected = {
        told(0, 44).put<uint32_t>(20, 0x22).put<uint32_t>(24, 0x11).put<uint32_t>(32, 0x33).put<uint16_t>(40, 1),
        told(0, 44),
        told(1, 20),
        told(2, 20),
        told(3, 64).put<uint32_t>(20, 5).put<uint32_t>(28, 77),
        told(3, 64).put<uint32_t>(20, 6).put<uint8_t>(61, 1),
        told(4, 28).put<uint32_t>(20, 5).put<uint32_t>(24, 1),
    };
    EXPECT_EQ(run(), expected);
}

using notice_t = std::tuple<uint32_t, uint32_t, uint32_t, const void *, void *>;
notice_t seen;

uint32_t on_cgm(uint32_t op, void **data, uint32_t batch_id, uint32_t async, void *, void *ctx) {
    seen = {op, batch_id, async, data == nullptr ? nullptr : *data, ctx};
    return 0x77;
}

TEST_F(notification_t, of_the_classifier_reaches_its_client_in_both_forms) {
    EXPECT_EQ(fwx_nat64_model_t::cgm_end_batch(1, false, nullptr), FWX_HOST_ERR_NO_CLIENT);
    const cgm_client_reg_t reg = {on_cgm, 20, 0};
    ASSERT_EQ(cgm_int_register_client(20, &reg), 0u);
    const uint8_t data[24] = {1, 2, 3};
    int ctx = 0;
    EXPECT_EQ(fwx_nat64_model_t::cgm_end_batch(7, false, nullptr), 0x77u);
    EXPECT_EQ(seen, notice_t(2, 7, 0, nullptr, nullptr));
    EXPECT_EQ(fwx_nat64_model_t::cgm_update(8, data, true, &ctx), 0x77u);
    EXPECT_EQ(seen, notice_t(4, 8, 1, data, &ctx));
}

}  // namespace
