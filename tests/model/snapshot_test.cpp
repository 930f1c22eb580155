#include <algorithm>
#include <utility>

#include "model_fixture.h"

namespace {

using part_t = std::pair<uint32_t, std::vector<uint8_t>>; /* op code and payload */

class snapshot_t : public model_fixture_t {
protected:
    static std::vector<part_t> save(const fwx_nat64_model_t &model) {
        std::vector<part_t> parts;
        model.save(
            [](void *arg, uint32_t op_code, const void *payload, size_t size) {
                const auto *bytes = static_cast<const uint8_t *>(payload);
                static_cast<std::vector<part_t> *>(arg)->emplace_back(op_code,
                                                                      std::vector<uint8_t>(bytes, bytes + size));
            },
            &parts);
        return parts;
    }
};

TEST_F(snapshot_t, restored_into_a_fresh_model_is_the_whole_configuration) {
    const message_t settings[] = {
        config(14, 8, {1, 300}),
        config(15, 8, {1, 1024}),
        config(20, 12, {1, 1, 21}),
        config(26, 24, {13, 0, 0x0100000a}),
        config(29, 12, {7, 1, 9}),
        config(28, 16, {1, 2, 3, 4}),
        config(1, 92, {5, 1}),
        config(3, 24, {1, 0x20010db8, 0, 0, 0x60030201, 3}),
        config(27, 24, {1, 0x20010db8, 0, 0, 0x60030201, 2}),
        config(4, 24, {8, 5, 6, 8, 0x010200c0, 0xfe0200c0}),
        config(6, 44, {8, 0, 0x017100cb, 0, 0, 0, 0, 0x7f7100cb}),
        config(8, 84, {3, 0, 0, 0x0100000a}),
        config(11, 80, {4, 0, 0, 7}),
        config(23, 20, {0x090200c0, 0, 2055, 1}),
    };
    const message_t changes[] = {
        config(2, 92, {6, 1, 1}),
        config(11, 80, {9, 0, 0, 1}).put<uint32_t>(36 + 52, 0x55).put<uint32_t>(36 + 76, 0x66),
        config(13, 80, {9, 0, 0, 2}).put<uint32_t>(36 + 52, 4),
        command(13, 80).put<uint32_t>(36, 1).put<uint32_t>(40, 10),
        command(13, 80).put<uint32_t>(36, 1).put<uint32_t>(40, 11),
        command(13, 80).put<uint32_t>(36, 3).put<uint32_t>(40, 10),
        command(13, 68).put<uint32_t>(32, 1).put<uint32_t>(36, 1).put<uint32_t>(40, 9),
    };
    for (const message_t &msg : settings) {
        ASSERT_EQ(result_of(msg), 0U);
    }
    for (const message_t &msg : changes) {
        ASSERT_EQ(result_of(msg), 0U);
    }
    const std::vector<part_t> parts = save(*model_);
    EXPECT_EQ(parts.size(), 18U);
    const auto expect_part = [&](const message_t &msg) {
        const part_t part{msg.u32(32), msg.part(36, msg.size() - 40)};
        EXPECT_NE(std::find(parts.begin(), parts.end(), part), parts.end()) << "op code " << part.first;
    };
    std::for_each(std::begin(settings), std::end(settings), expect_part);
    /* A modify carries no second part, and the one that was added stays. */
    expect_part(config(11, 80, {9, 0, 0, 2}).put<uint32_t>(36 + 52, 0x55).put<uint32_t>(36 + 76, 0x66));

    const auto fresh = fwx_nat64_model_t::create(loop_, "another model");
    for (const auto &[op_code, payload] : parts) {
        const uint8_t *bytes = payload.data();
        EXPECT_EQ(fresh->restore(op_code, bytes, payload.size()), 0U) << op_code;
        EXPECT_EQ(fresh->restore(op_code, bytes, payload.size() - 1), FWX_NAT64_MODEL_ERR_MALFORMED);
    }
    EXPECT_EQ(save(*fresh), parts);
    EXPECT_EQ(fresh->restore(99, "", 0), FWX_NAT64_MODEL_ERR_MALFORMED);
}

TEST_F(snapshot_t, refused_messages_are_told_with_their_code) {
    std::vector<uint32_t> codes;
    model_->observe_refusals([](void *arg, const void *, size_t,
                                uint32_t code) { static_cast<std::vector<uint32_t> *>(arg)->push_back(code); },
                             &codes);
    reply_to(config(14, 8, {1, 300}));
    reply_to(config(14, 9, {1, 300}));
    reply_to(config(16, 8, {1, 0}));
    EXPECT_EQ(codes, (std::vector<uint32_t>{FWX_NAT64_MODEL_ERR_MALFORMED, FWX_NAT64_MODEL_ERR_NO_ENTRY}));
    model_->observe_refusals(nullptr, nullptr);
}

}  // namespace
