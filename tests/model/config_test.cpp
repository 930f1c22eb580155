/* Configuration commands to the model: tables of values that are accepted, stored and refused. */
#include <array>
#include <bit>
#include <set>

#include "model_fixture.h"
#include "server/configuration.h"

namespace {

constexpr uint32_t no_entry = FWX_NAT64_MODEL_ERR_NO_ENTRY, exists = FWX_NAT64_MODEL_ERR_EXISTS,
                   no_pool = FWX_NAT64_MODEL_ERR_NO_POOL, value_refused = FWX_NAT64_MODEL_ERR_VALUE,
                   overlap = FWX_NAT64_MODEL_ERR_OVERLAP, has_ranges = FWX_NAT64_MODEL_ERR_HAS_RANGES,
                   length_refused = FWX_NAT64_MODEL_ERR_PREFIX_LEN;

struct step_t {
    const char *what;
    message_t command;
    uint32_t result;
    words_t words = {}; /* of the reply to a rule: rule, domain, type, operation, clean-up, index */
};

constexpr uint32_t net(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    return a | uint32_t{b} << 8 | uint32_t{c} << 16 | uint32_t{d} << 24;
}

/* The three prefixes are: stateless, stateful, stateless from IPv6 to IPv4. */
message_t interface(uint32_t ifh, const uint32_t (&valid)[3], const uint8_t (&lengths)[3]) {
    return config(1, 92, {ifh, 1, 0, valid[0], valid[1], valid[2]})
        .put<uint8_t>(75, lengths[0])
        .put<uint8_t>(95, lengths[1])
        .put<uint8_t>(115, lengths[2]);
}
message_t prefix(uint32_t op_code, uint32_t add, uint8_t first_byte, uint8_t len, uint32_t kind) {
    return config(op_code, 24, {add}).put<uint8_t>(40, first_byte).put<uint8_t>(55, len).put<uint32_t>(56, kind);
}
message_t pool(uint32_t id, uint32_t param, uint32_t id2, uint32_t start, uint32_t end) {
    return config(4, 24, {id, param, 3, id2, start, end});
}
message_t range(uint32_t op_code, uint32_t id, uint32_t family, uint32_t start, uint32_t end, uint32_t one = 1) {
    message_t msg = config(op_code, op_code == 6 ? 44 : 48, {id, family, start});
    msg.put<uint32_t>(60, family).put<uint32_t>(64, end);
    return op_code == 6 ? msg : msg.put<uint32_t>(80, one);
}
message_t logging(uint32_t op_code, uint32_t dest, uint16_t port) {
    return config(op_code, 20, {dest, 0}).put<uint16_t>(44, port).put<uint32_t>(48, 1);
}

using totals_t = std::array<uint64_t, 9>;

class config_t : public model_fixture_t {
protected:
    /** Numbers of interfaces, prefixes, static and dynamic mappings, pools, ranges, loggings, rules and sessions. */
    totals_t totals() const { return std::bit_cast<totals_t>(model_->totals()); }
    void take(const std::vector<step_t> &steps) {
        for (const step_t &step : steps) {
            const message_t reply = reply_to(step.command);
            EXPECT_EQ(reply.u32(32), step.result) << step.what;
            if (!step.words.empty()) {
                EXPECT_EQ(reply.words(40, 6), step.words) << step.what;
            }
        }
    }
};

TEST_F(config_t, keeps_settings_and_refuses_their_types) {
    take({
        {"timeout 0", config(14, 8, {0, 1}), value_refused},
        {"timeout 1", config(14, 8, {1, 60}), 0},
        {"timeout 7", config(14, 8, {7, 120}), 0},
        {"timeout 8", config(14, 8, {8, 1}), value_refused},
        {"no limit yet", config(16, 8, {1, 0}), no_entry},
        {"limit", config(15, 8, {1, 5000}), 0},
        {"limit again", config(15, 8, {1, 6000}), 0},
        {"limit of type 2", config(15, 8, {2, 1}), value_refused},
        {"delete of limit of type 2", config(16, 8, {2, 0}), value_refused},
        {"no service yet", config(20, 12, {0, 1, 0}), no_entry},
        {"service", config(20, 12, {1, 1, 9}), 0},
        {"service of type 2", config(20, 12, {1, 2, 9}), value_refused},
        {"service flag 2", config(20, 12, {2, 1, 9}), value_refused},
        {"adjacency 0", config(26, 24, {0}), value_refused},
        {"adjacency 13", config(26, 24, {13, 0, net(10, 0, 0, 1)}), 0},
        {"adjacency 14", config(26, 24, {14}), value_refused},
        {"replication", config(29, 12, {5, 1, 6}), 0},
        {"replication whose word is 0", config(29, 12, {5, 0, 6}), value_refused},
        {"settings", config(28, 16, {0x03020100, 0x07060504, 0, 0xff000000}), 0},
    });
    EXPECT_EQ(model_->timeout(7), 120u);
    EXPECT_EQ(model_->timeout(8), std::nullopt);
    const settings_t &settings = model_->config().settings;
    EXPECT_EQ(settings.limits.get(1).value_or(fwx_nat64_limit_t{}).value, 6000u);
    EXPECT_EQ(settings.services.get(1).value_or(fwx_nat64_service_payload_t{}).service.value, 9u);
    take({
        {"replication taken back with its word set", config(31, 12, {5, 1, 6}), value_refused},
        {"replication taken back", config(31, 12, {5, 0, 6}), 0},
        {"limit deleted", config(16, 8, {1, 0}), 0},
        {"service deleted", config(20, 12, {0, 1, 0}), 0},
    });
    EXPECT_FALSE(settings.replication.has_value());
    EXPECT_FALSE(settings.limits.get(1).has_value());
    EXPECT_FALSE(settings.services.get(1).has_value());
}

TEST_F(config_t, keeps_interfaces_and_global_prefixes) {
    take({
        {"interface", interface(5, {1, 1, 1}, {96, 32, 64}), 0},
        {"interface set again", interface(5, {1, 0, 0}, {64, 0, 0}), 0},
        {"stateless prefix of 97 bits", interface(6, {1, 0, 0}, {97, 0, 0}), length_refused},
        {"stateful prefix of 65 bits", interface(6, {0, 1, 0}, {0, 65, 0}), length_refused},
        {"prefix of no bits from IPv6 to IPv4", interface(6, {0, 0, 1}, {0, 0, 0}), length_refused},
        {"lengths that do not count", interface(6, {0, 0, 0}, {97, 65, 0}), 0},
        {"NVI on an interface not yet set", config(2, 92, {7, 1, 1}), 0},
        {"prefix of kind 1", prefix(3, 1, 0x20, 96, 1), 0},
        {"the same again", prefix(3, 1, 0x20, 96, 1), 0},
        {"another length", prefix(3, 1, 0x20, 64, 1), 0},
        {"another kind", prefix(3, 1, 0x20, 96, 4), 0},
        {"kind 2", prefix(27, 1, 0x20, 96, 2), 0},
        {"kind 2 in the other command", prefix(3, 1, 0x20, 96, 2), value_refused},
        {"kind 1 in the command of kind 2", prefix(27, 1, 0x20, 96, 1), value_refused},
        {"kind 5", prefix(3, 1, 0x20, 96, 5), value_refused},
        {"flag 2", prefix(3, 2, 0x20, 96, 1), value_refused},
        {"delete of what is not there", prefix(3, 0, 0x30, 96, 1), no_entry},
        {"delete", prefix(3, 0, 0x20, 64, 1), 0},
    });
    EXPECT_EQ(totals(), (totals_t{3, 3, 0, 0, 0, 0, 0, 0, 0}));
    const std::set<uint8_t> lengths = {32, 40, 48, 56, 64, 96};
    for (uint8_t length = 0; length <= 128; ++length) {
        const uint32_t result = lengths.count(length) != 0 ? 0 : length_refused;
        EXPECT_EQ(result_of(prefix(3, 1, 0x30, length, 3)), result) << uint32_t{length};
        EXPECT_EQ(result_of(prefix(27, 1, 0x30, length, 2)), result) << uint32_t{length};
    }
}

TEST_F(config_t, keeps_mappings_pools_ranges_and_loggings) {
    const uint32_t first = net(192, 0, 2, 1), last = net(192, 0, 2, 254);
    take({
        {"static mapping", config(8, 84, {1}), 0},
        {"the same id again", config(8, 84, {1}), exists},
        {"delete of another", config(9, 8, {2, 1}), no_entry},
        {"delete with a wrong second word", config(9, 8, {1, 0}), value_refused},
        {"dynamic mapping of the same id", config(11, 80, {1, 0, 0, 7}), 0},
        {"dynamic again", config(11, 80, {1, 0, 0, 7}), exists},
        {"dynamic of type 8", config(11, 80, {2, 0, 0, 8}), value_refused},
        {"dynamic of id 0", config(11, 80, {0, 0, 0, 1}), value_refused},
        {"dynamic modified", config(13, 80, {1, 0, 0, 2}), 0},
        {"dynamic modified to type 8", config(13, 80, {1, 0, 0, 8}), value_refused},
        {"modify of what is not there", config(13, 80, {2, 0, 0, 2}), no_entry},
        {"dynamic delete of what is not there", config(12, 8, {2, 1}), no_entry},
        {"pool", pool(1, 1, 1, first, last), 0},
        {"pool modified", pool(1, 2, 1, first, first), 0},
        {"pool whose end is before its start", pool(2, 1, 2, last, first), value_refused},
        {"pool of id 0", pool(0, 1, 0, first, last), value_refused},
        {"pool without param", pool(2, 0, 2, first, last), value_refused},
        {"pool with two ids", pool(2, 1, 3, first, last), value_refused},
        {"range of no pool", range(6, 9, 0, first, last), no_pool},
        {"range outside the pool", range(6, 1, 0, net(203, 0, 113, 0), net(203, 0, 113, 9)), 0},
        {"the same range again", range(6, 1, 0, net(203, 0, 113, 0), net(203, 0, 113, 9)), exists},
        {"IPv6 range", range(6, 1, 1, 1, 1), 0},
        {"range whose end is before its start", range(6, 1, 0, last, first), value_refused},
        {"range of two families", range(6, 1, 0, first, last).put<uint32_t>(60, 1), value_refused},
        {"delete of a range that is not there", range(7, 1, 0, first, last), no_entry},
        {"delete of a range of no pool", range(7, 9, 0, first, last), no_pool},
        {"delete with a wrong last word", range(7, 1, 1, 1, 1, 0), value_refused},
        {"delete of a range", range(7, 1, 1, 1, 1), 0},
        {"logging", logging(23, first, 2055), 0},
        {"logging again", logging(23, first, 2055), exists},
        {"logging to another port", logging(23, first, 2056), 0},
        {"logging modified", logging(24, first, 2055), 0},
        {"modify of what is not there", logging(24, last, 2055), no_entry},
        {"logging to port 0", logging(23, first, 0), value_refused},
        {"logging to nowhere", logging(23, 0, 2055), value_refused},
        {"logging in another mode", logging(23, first, 2057).put<uint32_t>(48, 2), value_refused},
        {"logging deleted", logging(25, first, 2056), 0},
        {"delete again", logging(25, first, 2056), no_entry},
    });
    EXPECT_EQ(totals(), (totals_t{0, 0, 1, 1, 1, 1, 1, 0, 1})); /* the session belongs to the static mapping */
    take({
        {"pool deleted before its range", config(5, 8, {1, 1}), has_ranges},
        {"its range deleted", range(7, 1, 0, net(203, 0, 113, 0), net(203, 0, 113, 9)), 0},
        {"pool deleted", config(5, 8, {1, 1}), 0},
        {"pool deleted again", config(5, 8, {1, 1}), no_entry},
        {"static mapping deleted", config(9, 8, {1, 1}), 0},
        {"dynamic mapping deleted", config(12, 8, {1, 1}), 0},
    });
    EXPECT_EQ(totals(), (totals_t{0, 0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST_F(config_t, keeps_the_addresses_of_one_pool_from_every_other) {
    const auto pool_at = [](uint32_t id, uint8_t start, uint8_t end) {
        return pool(id, 1, id, net(10, 0, 0, start), net(10, 0, 0, end));
    };
    const auto range_at = [](uint32_t op_code, uint32_t id, uint8_t start, uint8_t end) {
        return range(op_code, id, 0, net(10, 0, 0, start), net(10, 0, 0, end));
    };
    take({
        {"first pool", pool_at(1, 10, 19), 0},
        {"one that begins in it", pool_at(2, 19, 30), overlap},
        {"one that ends in it", pool_at(2, 1, 10), overlap},
        {"one around it", pool_at(2, 1, 99), overlap},
        {"one inside it", pool_at(2, 12, 13), overlap},
        {"one beside it", pool_at(2, 20, 29), 0},
        {"range in its own pool", range_at(6, 1, 11, 12), 0},
        {"the same range again", range_at(6, 1, 11, 12), exists},
        {"range in the other pool, behind a short range", range_at(6, 2, 15, 15), overlap},
        {"range between its own pool and the other", range_at(6, 2, 19, 20), overlap},
        {"the same bits as an IPv6 address", range(6, 2, 1, net(10, 0, 0, 10), net(10, 0, 0, 19)), 0},
        {"pool that grows into the other", pool_at(1, 10, 20), overlap},
        {"pool that moves away", pool_at(1, 100, 109), 0},
        {"pool where it was, around its range", pool_at(3, 10, 19), overlap},
        {"pool where it was, behind its range", pool_at(3, 13, 19), 0},
        {"range deleted", range_at(7, 1, 11, 12), 0},
        {"pool where the range was", pool_at(4, 11, 12), 0},
        {"pool deleted", config(5, 8, {3, 1}), 0},
        {"range where that pool was", range_at(6, 1, 13, 19), 0},
    });
    EXPECT_EQ(totals(), (totals_t{0, 0, 0, 0, 3, 2, 0, 0, 0}));
}

TEST_F(config_t, gives_rules_the_lowest_free_index_and_deleting_the_last_orders_a_clean_up_if_enabled) {
    EXPECT_EQ(result_of(basic(1, 1, 1)), 0u);
    EXPECT_EQ(reply_to(basic(3, 1, 1)).u32(56), 0u) << "no clean-up unless it is told to order one";
    model_->order_cleanup(true);
    take({
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
        {"rule 0", basic(1, 0, 1), value_refused, {0, 1, 0, 1, 0, 0}},
        {"IPv6 length 65", basic(1, 15, 1).put<uint8_t>(56, 65), value_refused, {15, 1, 0, 1, 0, 0}},
        {"IPv4 length 33", basic(1, 15, 1).put<uint8_t>(64, 33), value_refused, {15, 1, 0, 1, 0, 0}},
        {"modified", basic(2, 14, 0), value_refused, {14, 0, 0, 2, 0, 0}},
        {"default rule", by_default(1, 7), 0, {7, 0, 1, 1, 0, 0}},
        {"default rule again", by_default(1, 7), exists, {7, 0, 1, 1, 0, 0}},
        {"default rule modified", by_default(2, 7), 0, {7, 0, 1, 2, 0, 0}},
        {"default rule 0", by_default(1, 0), value_refused, {0, 0, 1, 1, 0, 0}},
        {"operation 0", by_default(0, 7), value_refused, {7, 0, 1, 0, 0, 0}},
        {"delete of another default rule", by_default(3, 8), no_entry, {8, 0, 1, 3, 0, 0}},
        {"default rule deleted", by_default(3, 7), 0, {7, 0, 1, 3, 0, 0}},
        {"down to two", basic(3, 11, 1), 0, {11, 1, 0, 3, 0, 3}},
        {"down to one", basic(3, 12, 0), 0, {12, 0, 0, 3, 0, 1}},
        {"whatever its lengths", basic(3, 14, 0).put<uint8_t>(56, 65).put<uint8_t>(64, 33), 0, {14, 0, 0, 3, 0, 4}},
        {"the last", basic(3, 13, 0), 0, {13, 0, 0, 3, 1, 2}},
        {"from 1 again", basic(1, 20, 0), 0, {20, 0, 0, 1, 0, 1}},
    });
    EXPECT_EQ(totals(), (totals_t{0, 0, 0, 0, 0, 0, 0, 1, 0}));
}

}  // namespace
