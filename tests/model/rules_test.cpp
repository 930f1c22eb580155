/* MAP-T rules of the model: their indices, results, and the order to empty the client's table. */
#include "model_fixture.h"

namespace {

class rules_t : public model_fixture_t {
protected:
    static message_t basic(uint32_t op, uint32_t rule_id, uint32_t domain_id) {
        return command(13, 80).put<uint32_t>(36, op).put<uint32_t>(40, rule_id).put<uint32_t>(44, domain_id);
    }
    static message_t by_default(uint32_t op, uint32_t id) {
        return command(13, 68).put<uint32_t>(32, 1).put<uint32_t>(36, op).put<uint32_t>(40, id);
    }
};

struct outcome_t {
    const char *what;
    message_t command;
    uint32_t result;
    words_t words; /* rule, domain, type, operation, clean-up, index */
};

TEST_F(rules_t, get_the_lowest_free_index_and_deleting_the_last_orders_a_clean_up_if_enabled) {
    const uint32_t exists = FWX_NAT64_MODEL_ERR_EXISTS, no_entry = FWX_NAT64_MODEL_ERR_NO_ENTRY,
                   value = FWX_NAT64_MODEL_ERR_VALUE;
    EXPECT_EQ(result_of(basic(1, 1, 1)), 0u);
    EXPECT_EQ(reply_to(basic(3, 1, 1)).u32(56), 0u) << "no clean-up unless it is told to order one";
    model_->order_cleanup(true);
    const outcome_t outcomes[] = {
        {"first", basic(1, 10, 1), 0, {10, 1, 0, 1, 0, 1}},
        {"same rule in another domain", basic(1, 10, 2), 0, {10, 2, 0, 1, 0, 2}},
        {"third", basic(1, 11, 1), 0, {11, 1, 0, 1, 0, 3}},
        {"added again", basic(1, 10, 2), exists, {10, 2, 0, 1, 0, 2}},
        {"deleted", basic(3, 10, 1), 0, {10, 1, 0, 3, 0, 1}},
        {"deleted again", basic(3, 10, 1), no_entry, {10, 1, 0, 3, 0, 0}},
        {"second deleted", basic(3, 10, 2), 0, {10, 2, 0, 3, 0, 2}},
        {"the lowest free index", basic(1, 12, 0), 0, {12, 0, 0, 1, 0, 1}},
        {"the next one", basic(1, 13, 0), 0, {13, 0, 0, 1, 0, 2}},
        {"behind the last", basic(1, 14, 0), 0, {14, 0, 0, 1, 0, 4}},
        {"rule 0", basic(1, 0, 1), value, {0, 1, 0, 1, 0, 0}},
        {"IPv6 length 65", basic(1, 15, 1).put<uint8_t>(56, 65), value, {15, 1, 0, 1, 0, 0}},
        {"IPv4 length 33", basic(1, 15, 1).put<uint8_t>(64, 33), value, {15, 1, 0, 1, 0, 0}},
        {"modified", basic(2, 14, 0), value, {14, 0, 0, 2, 0, 0}},
        {"default rule", by_default(1, 7), 0, {7, 0, 1, 1, 0, 0}},
        {"default rule again", by_default(1, 7), exists, {7, 0, 1, 1, 0, 0}},
        {"default rule modified", by_default(2, 7), 0, {7, 0, 1, 2, 0, 0}},
        {"default rule 0", by_default(1, 0), value, {0, 0, 1, 1, 0, 0}},
        {"operation 0", by_default(0, 7), value, {7, 0, 1, 0, 0, 0}},
        {"delete of another default rule", by_default(3, 8), no_entry, {8, 0, 1, 3, 0, 0}},
        {"default rule deleted", by_default(3, 7), 0, {7, 0, 1, 3, 0, 0}},
        {"down to two", basic(3, 11, 1), 0, {11, 1, 0, 3, 0, 3}},
        {"down to one", basic(3, 12, 0), 0, {12, 0, 0, 3, 0, 1}},
        {"whatever its lengths", basic(3, 14, 0).put<uint8_t>(56, 65).put<uint8_t>(64, 33), 0, {14, 0, 0, 3, 0, 4}},
        {"the last", basic(3, 13, 0), 0, {13, 0, 0, 3, 1, 2}},
        {"from 1 again", basic(1, 20, 0), 0, {20, 0, 0, 1, 0, 1}},
    };
    for (const outcome_t &expected : outcomes) {
        const message_t reply = reply_to(expected.command);
        EXPECT_EQ(reply.u32(32), expected.result) << expected.what;
        EXPECT_EQ(reply.words(40, 6), expected.words) << expected.what;
    }
    EXPECT_EQ(model_->totals().rules, 1u);
}

}  // namespace
