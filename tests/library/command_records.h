/* One valid record of each kind, for the tests of commands. */
#ifndef TESTS_LIBRARY_COMMAND_RECORDS_H
#define TESTS_LIBRARY_COMMAND_RECORDS_H

#include "fwx_nat64/fwx_nat64.h"

constexpr fwx_nat64_addr_t ipv4(uint32_t host_word) {
    return {0,
            {static_cast<uint8_t>(host_word), static_cast<uint8_t>(host_word >> 8),
             static_cast<uint8_t>(host_word >> 16), static_cast<uint8_t>(host_word >> 24), 0xaa}};
}
constexpr fwx_nat64_addr_t ipv6 = {10, {0x20, 1, 0x0d, 0xb8, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};

template <typename record_t>
record_t filled() {
    record_t record;
    auto *bytes = reinterpret_cast<uint8_t *>(&record);
    for (size_t i = 0; i < sizeof(record); ++i)
        bytes[i] = static_cast<uint8_t>(i + 1);
    return record;
}

inline fwx_nat64_prefix_t prefix(uint32_t kind) {
    return {{0x20, 1, 0x0d, 0xb8, 1, 2, 3, 4, 5, 6, 7, 8}, {0xf1, 0xf2, 0xf3}, 96, kind};
}

struct records_t {
    fwx_nat64_global_settings_t settings = filled<fwx_nat64_global_settings_t>();
    fwx_nat64_adj_t adj4 = {13, ipv4(0x0A000001)};
    fwx_nat64_adj_t adj6 = {1, ipv6};
    fwx_nat64_limit_t limit = {1, 0x01020304};
    fwx_nat64_service_t service = {1, 0x01020304};
    fwx_nat64_replication_t repl_set = {1, 7, 9};
    fwx_nat64_replication_t repl_unset = {1, 0, 9};
    fwx_nat64_timeout_t timeout = {7, 300};
    fwx_nat64_session_filter_t clear = {5, ipv6, ipv4(0x0A010203), {0xee}};
    fwx_nat64_intf_info_t intf = {3, 1, 7, prefix(5), 0, prefix(6), 2, prefix(7), 0, 1500};
    fwx_nat64_intf_info_t intf_mtu = {3, 0, 0, prefix(5), 1, prefix(6), 0, prefix(7), 9, 1500};
    fwx_nat64_prefix_t prefix1 = prefix(1);
    fwx_nat64_prefix_t prefix2 = prefix(2);
    fwx_nat64_prefix_t prefix4 = prefix(4);
    fwx_nat64_smapping_t smap = {0, {1, 2, 3, 4}, ipv4(0x0A010203), {5}, ipv4(0x0B010203), {6}};
    fwx_nat64_dmapping_t dmap = {0x11, {1}, 7, {0xe0, 0xe1}, 0x4455, {9}};
    fwx_nat64_pool_t pool = {8, 0, 6, ipv4(0xC0000201), ipv6, 0x77};
    fwx_nat64_pool_range_t range = {8, ipv4(0xC0000201), ipv6};
    fwx_nat64_logging_t log = {1, 1, 0x5a, ipv4(0xC0000209), 2055, 0x0304};
    fwx_nat64_sess_walk_filter_t walk = {{1, 2}, ipv4(0x0A010203), {3}, ipv6, {4}};
    fwx_nat64_mapt_bmr_t bmr = {2, 3, {0x20, 1, 0x0d, 0xb8, 0, 0, 0, 9}, 40, {0xc0, 0, 2, 0}, 24, {16, 6, 8, 0x1234}};
    fwx_nat64_mapt_dmr_t dmr = {4, {0xd0, 0xd1}};
};

#endif
