#include "model_fixture.h"
#include "platform/cgm.h"

namespace {

class notification_t : public model_fixture_t {};

TEST_F(notification_t, goes_to_nobody_who_has_not_asked) {
    EXPECT_EQ(fwx_nat64_model_wakeup(model_), FWX_HOST_ERR_CHANNEL_DOWN);
    open();
    EXPECT_EQ(result_of(command(1, 32)), 0u);
    EXPECT_EQ(fwx_nat64_model_wakeup(model_), 0u);
    EXPECT_EQ(run().size(), 1u) << "the second client has not asked";
}

TEST_F(notification_t, carries_its_fields_where_the_client_reads_them) {
    EXPECT_EQ(result_of(command(1, 32)), 0u);
    EXPECT_EQ(fwx_nat64_model_notify_record(model_, true, 0x11, 0x22, 0x33), 0u);
    EXPECT_EQ(fwx_nat64_model_notify_record(model_, false, 0, 0, 0), 0u);
    EXPECT_EQ(fwx_nat64_model_notify_event(model_), 0u);
    EXPECT_EQ(fwx_nat64_model_wakeup(model_), 0u);
    EXPECT_EQ(fwx_nat64_model_notify_mapping(model_, 5, true, 77), 0u);
    EXPECT_EQ(fwx_nat64_model_notify_mapping(model_, 6, false, 0), 0u);
    EXPECT_EQ(fwx_nat64_model_notify_debug(model_, 5, 1), 0u);
    const std::vector<message_t> got = run();
    ASSERT_EQ(got.size(), 7u);
    const uint32_t events[] = {0, 0, 1, 2, 3, 3, 4};
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].part(0, 16), (std::vector<uint8_t>{0x01, 0xc0, 0x60, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
        EXPECT_EQ(got[i].u32(16), events[i]);
    }
    EXPECT_EQ(got[0].u32(20), 0x22u);
    EXPECT_EQ(got[0].u32(24), 0x11u);
    EXPECT_EQ(got[0].u32(32), 0x33u);
    EXPECT_EQ(got[0].u16(40), 1u);
    EXPECT_EQ(got[1].u16(40), 0u);
    EXPECT_EQ(got[4].u32(20), 5u);
    EXPECT_EQ(got[4].u32(28), 77u);
    EXPECT_EQ(got[4][61], 0u);
    EXPECT_EQ(got[5][61], 1u);
    EXPECT_EQ(got[6].u32(20), 5u);
    EXPECT_EQ(got[6].u32(24), 1u);
}

struct seen_t {
    uint32_t op, batch_id, async;
    const void *data;
    void *ctx;
};
seen_t seen;

uint32_t on_cgm(uint32_t op, void **data, uint32_t batch_id, uint32_t async, void *, void *ctx) {
    seen = {op, batch_id, async, data == nullptr ? nullptr : *data, ctx};
    return 0x77;
}

TEST_F(notification_t, of_the_classifier_reaches_its_client_in_both_forms) {
    EXPECT_EQ(fwx_nat64_model_cgm_end_batch(1, false, nullptr), FWX_HOST_ERR_NO_CLIENT);
    const cgm_client_reg_t reg = {on_cgm, 20, 0};
    ASSERT_EQ(cgm_int_register_client(20, &reg), 0u);
    const uint8_t data[24] = {1, 2, 3};
    int ctx = 0;
    EXPECT_EQ(fwx_nat64_model_cgm_end_batch(7, false, nullptr), 0x77u);
    EXPECT_EQ(seen.op, 2u);
    EXPECT_EQ(seen.batch_id, 7u);
    EXPECT_EQ(seen.async, 0u);
    EXPECT_EQ(fwx_nat64_model_cgm_update(8, data, true, &ctx), 0x77u);
    EXPECT_EQ(seen.op, 4u);
    EXPECT_EQ(seen.batch_id, 8u);
    EXPECT_EQ(seen.async, 1u);
    EXPECT_EQ(seen.data, data);
    EXPECT_EQ(seen.ctx, &ctx);
}

}  // namespace
