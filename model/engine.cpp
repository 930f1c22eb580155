/*
 * Sessions of the model. A generated session is computed from its number n, so that a million of them need only a bit
 * each, which tells whether the session is open.
 */
#include "model/engine.h"

#include <arpa/inet.h>

#include <algorithm>

#include "fwx_host/loop.h"
#include "server/record.h"

namespace {

/* Session identifiers. Those of static mappings' sessions are below those of generated sessions. No session has 0. */
constexpr uint64_t first_static_id = uint64_t{1} << 32;
constexpr uint64_t first_generated_id = uint64_t{2} << 32;

constexpr uint32_t family_ipv6 = 1;
constexpr uint32_t protocol_tcp = 6;
constexpr uint32_t protocol_udp = 17;
constexpr uint64_t generated_destinations = 131072;
constexpr uint64_t generated_source_ports = 64512;
constexpr uint16_t first_generated_port = 1024;

uint32_t age_s(uint64_t since_ms) {
    return static_cast<uint32_t>((fwx_host_clock_ms() - since_ms) / 1000);
}

void write_big_endian(uint32_t value, uint8_t *at) {
    for (int i = 3; i >= 0; --i, value >>= 8) {
        at[i] = static_cast<uint8_t>(value);
    }
}

uint16_t generated_port(uint64_t n) {
    return static_cast<uint16_t>(first_generated_port + n % generated_source_ports);
}

}  // namespace

void model_engine_t::changed(uint32_t op_code, const void *payload) noexcept {
    switch (op_code) {
        case FWX_NAT64_CFG_SMAPPING_ADD: {
            const auto mapping = read_record<fwx_nat64_smapping_t>(payload);
            statics[mapping.id] = {mapping.addr1, mapping.addr2, fwx_host_clock_ms()};
            break;
        }
        case FWX_NAT64_CFG_SMAPPING_DEL:
            statics.erase(read_record<fwx_nat64_delete_payload_t>(payload).id);
            break;
        case FWX_NAT64_CFG_DMAPPING_DEL:
            close_sessions_of(mappings, read_record<fwx_nat64_delete_payload_t>(payload).id);
            break;
        case FWX_NAT64_CFG_POOL_DEL:
            close_sessions_of(pools, read_record<fwx_nat64_delete_payload_t>(payload).id);
            break;
        case record_kept_basic_rule_del: {
            const auto rule = read_record<kept_rule_t>(payload).rule;
            lookups.erase({rule.rule_id, rule.domain_id});
            break;
        }
        default:
            break;
    }
}

void model_engine_t::generate(uint64_t count) {
    std::vector<uint32_t> mapping_ids;
    for (const auto &[id, mapping] : config.mappings.dynamic.entries) {
        mapping_ids.push_back(id);
    }
    std::vector<uint32_t> pool_ids;
    std::vector<session_pool_t> of_pools;
    for (const auto &[id, pool] : config.pools.pools.entries) {
        const uint32_t first = ntohl(pool.start_addr);
        of_pools.push_back({id, first, std::max(1U, ntohl(pool.end_addr) - first + 1)});
        pool_ids.push_back(id);
    }
    generated.assign(count, true);
    generated_live = count;
    generated_ms = fwx_host_clock_ms();
    mappings = owners_t(std::move(mapping_ids));
    pools = owners_t(std::move(pool_ids));
    generated_pools = std::move(of_pools);
    for (uint64_t n = 0; n < count; ++n) {
        mappings.add(n, 1);
        pools.add(n, 1);
    }
}

uint32_t model_engine_t::session_clear(const session_filter_t &filter) {
    fwx_nat64_session_t session;
    uint64_t looks = UINT64_MAX;
    for (uint64_t from = 0; session_next(from, filter, &session, looks) == found_t::session; from = session.id + 1) {
        if (session.id < first_generated_id) {
            statics.erase(session.mapping_id);
        } else {
            close_generated(session.id - first_generated_id);
        }
    }
    return 0;
}

engine_t::found_t model_engine_t::session_next(uint64_t from, const session_filter_t &filter,
                                               fwx_nat64_session_t *session, uint64_t &looks) const {
    if (from < first_generated_id) {
        const auto start = from < first_static_id ? statics.begin()
                                                  : statics.lower_bound(static_cast<uint32_t>(from - first_static_id));
        for (auto it = start; it != statics.end(); ++it) {
            *session = {};
            session->id = first_static_id + it->first;
            if (looks == 0) return found_t::later;
            --looks;
            session->src = it->second.src;
            session->dst = it->second.dst;
            session->mapping_id = it->first;
            session->age_s = age_s(it->second.opened_ms);
            if (matches(filter, *session)) return found_t::session;
        }
        from = first_generated_id;
    }
    for (uint64_t n = from - first_generated_id; n < generated.size(); ++n) {
        if (looks == 0) {
            session->id = first_generated_id + n;
            return found_t::later;
        }
        --looks;
        if (!generated[n]) continue;
        *session = generated_session(n);
        if (matches(filter, *session)) return found_t::session;
    }
    return found_t::none;
}

bool model_engine_t::matches(const session_filter_t &filter, const fwx_nat64_session_t &session) const {
    const bool protocol_ok = filter.protocol == 0 || filter.protocol == session.protocol;
    const bool ends_ok = protocol_ok && is_wanted(filter.src, session.src) && is_wanted(filter.dst, session.dst);
    if (!ends_ok || (filter.pool_addr == 0 && filter.port == 0)) return ends_ok;
    return filter.has_pool_addr_and_port_of(session_in_full(session));
}

fwx_nat64_session_full_t model_engine_t::session_in_full(const fwx_nat64_session_t &session) const {
    fwx_nat64_session_full_t full{};
    full.id = session.id;
    full.protocol = session.protocol;
    full.src = session.src;
    full.dst = session.dst;
    full.src_port = session.src_port;
    full.dst_port = session.dst_port;
    full.mapping_id = session.mapping_id;
    full.age_s = session.age_s;
    const uint32_t lifetime = lifetime_s(session.protocol);
    full.remaining_s = lifetime - std::min(lifetime, session.age_s);
    if (session.id < first_generated_id) { /* a static mapping's session: its second address is the outside one */
        full.state = FWX_NAT64_SESSION_ACTIVE;
        full.pool_addr = session.dst;
        full.dst = {};
        return full;
    }
    constexpr uint8_t well_known_prefix[] = {0x00, 0x64, 0xff, 0x9b};
    const uint64_t n = session.id - first_generated_id;
    full.state = session.protocol == protocol_tcp ? FWX_NAT64_SESSION_ESTABLISHED : FWX_NAT64_SESSION_ACTIVE;
    full.dst_ipv6.family = family_ipv6;
    std::copy(std::begin(well_known_prefix), std::end(well_known_prefix), full.dst_ipv6.addr);
    std::copy_n(session.dst.addr, sizeof(uint32_t), full.dst_ipv6.addr + sizeof(in6_addr) - sizeof(uint32_t));
    if (!generated_pools.empty()) {
        const session_pool_t &pool = generated_pools[n % generated_pools.size()];
        const uint64_t place = n / generated_pools.size();
        full.pool_id = pool.id;
        write_big_endian(pool.first + static_cast<uint32_t>(place % pool.count), full.pool_addr.addr);
        full.pool_port = generated_port(place / pool.count);
    }
    full.packets_out = 1 + n % 97;
    full.bytes_out = 120 * full.packets_out;
    full.packets_in = full.packets_out + n % 3;
    full.bytes_in = 1400 * full.packets_in;
    return full;
}

/* Lifetime, in seconds, of a session of an IP protocol without traffic; for TCP, of an established session. */
uint32_t model_engine_t::lifetime_s(uint32_t protocol) const {
    struct lifetime_t {
        uint32_t type;
        uint32_t default_s;
    };
    lifetime_t lifetime = {FWX_NAT64_TIMEOUT_UDP, 300};
    if (protocol == IPPROTO_TCP) lifetime = {FWX_NAT64_TIMEOUT_TCP_EST, 7440};
    if (protocol == IPPROTO_ICMP || protocol == IPPROTO_ICMPV6) lifetime = {FWX_NAT64_TIMEOUT_ICMP, 60};
    const auto set = config.settings.timeouts.get(lifetime.type);
    return set && set->value != 0 ? set->value : lifetime.default_s;
}

uint64_t model_engine_t::owners_t::count_of(uint32_t id) const {
    const auto found = std::lower_bound(ids.begin(), ids.end(), id);
    if (found == ids.end() || *found != id) return 0;
    return live[static_cast<size_t>(found - ids.begin())];
}

void model_engine_t::close_sessions_of(const owners_t &owners, uint32_t id) {
    if (owners.count_of(id) == 0) return;
    for (uint64_t n = 0; n < generated.size(); ++n) {
        if (generated[n] && owners.of(n) == id) close_generated(n);
    }
}

void model_engine_t::close_generated(uint64_t n) {
    generated[n] = false;
    --generated_live;
    mappings.add(n, UINT64_MAX); /* subtracts 1 */
    pools.add(n, UINT64_MAX);
}

fwx_nat64_session_t model_engine_t::generated_session(uint64_t n) const {
    constexpr uint8_t network[] = {0x20, 0x01, 0x0d, 0xb8, 0x00, 0x64};
    constexpr uint32_t first_destination = 0xc6120000; /* 198.18.0.0 */
    fwx_nat64_session_t session{};
    session.id = first_generated_id + n;
    session.src.family = family_ipv6;
    std::copy(std::begin(network), std::end(network), session.src.addr);
    write_big_endian(static_cast<uint32_t>(n), session.src.addr + sizeof(session.src.addr) - sizeof(uint32_t));
    write_big_endian(first_destination + static_cast<uint32_t>(n % generated_destinations), session.dst.addr);
    session.src_port = generated_port(n);
    session.dst_port = 443;
    session.protocol = n % 2 == 0 ? protocol_tcp : protocol_udp;
    session.mapping_id = mappings.of(n);
    session.age_s = age_s(generated_ms);
    return session;
}
