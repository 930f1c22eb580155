/* The engine of the gateway: refuses what Linux cannot do, commits the configuration to the kernel, ends the sessions
 * of deleted mappings and addresses, and serves sessions from a cache. A change that the kernel refuses is rolled back:
 * the configuration in force replaces the changed one. */
#include "gateway/engine.h"

#include <arpa/inet.h>
#include <linux/capability.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fwx_host/loop.h"
#include "records/value.h"

namespace {

constexpr uint32_t longest_timeout_s = 2147483; /* limit of the kernel, which holds milliseconds */
constexpr int start_patience_ms = 5000;         /* wait for the translator at the start */
constexpr int watch_patience_ms = 300;          /* shorter wait while the gateway serves clients */
constexpr uint64_t old_read_ms = 1000;
constexpr uint64_t old_read_factor = 20; /* a walk spends at most 1/20 of its time on reading */

template <typename record_t>
record_t read(const void *payload) {
    record_t record;
    std::memcpy(&record, payload, sizeof record);
    return record;
}

template <size_t size>
bool is_zero(const uint8_t (&bytes)[size]) {
    return std::all_of(std::begin(bytes), std::end(bytes), [](uint8_t byte) { return byte == 0; });
}

bool is_in(const source_rule_t &rule, const uint8_t *address) {
    return has_prefix(address, rule.prefix.data(), rule.prefix_len);
}

/** Returns true if one of the networks contains `network`. No two of them could be merged into one. */
bool has_network(const std::vector<ipv4_network_t> &networks, const ipv4_network_t &network) {
    const auto behind = std::upper_bound(networks.begin(), networks.end(), ipv4_network_t{network.address, 32});
    return behind != networks.begin() && std::prev(behind)->contains(network.address) &&
           std::prev(behind)->prefix_len <= network.prefix_len;
}

bool may_administer_network() {
    __user_cap_header_struct head = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2] = {};
    return syscall(SYS_capget, &head, sets) == 0 && (sets[0].effective & (1U << CAP_NET_ADMIN)) != 0;
}

uint32_t prefix_refusal(const fwx_nat64_glb_prefix_payload_t &payload) {
    const fwx_nat64_prefix_t &prefix = payload.prefix;
    const bool is_here = prefix.kind == FWX_NAT64_PREFIX_STATEFUL && prefix.prefix_len == translator_prefix_len;
    if (!is_here) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    const bool is_own = std::equal(translator_prefix.begin(), translator_prefix.end(), prefix.prefix);
    return is_own ? FWX_NAT64_MODEL_ERR_VALUE : 0;
}

uint32_t pool_refusal(const fwx_nat64_pool_payload_t &pool) {
    if (pool.hsl_id != 0) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    return pool.param > most_pool_ports ? FWX_NAT64_MODEL_ERR_VALUE : 0;
}

}  // namespace

std::string gateway_engine_t::open() {
    if (!may_administer_network()) return "the gateway may not change the network: it needs CAP_NET_ADMIN";
    std::string error = translator_.check();
    if (error.empty()) error = kernel_.check();
    if (error.empty()) error = sessions_.open();
    if (error.empty()) error = translator_.ensure(kernel_.routes(), start_patience_ms);
    return error;
}

void gateway_engine_t::watch_translator() {
    /* The kernel deletes all routes of a device that goes down or is deleted. */
    const bool has_routes = kernel_.routes().set_up_device(NLM_F_EXCL) == EEXIST;
    const bool is_served = kernel_.routes().is_device_served();
    if (has_routes && is_served && trouble_.empty()) return;
    if (trouble_.empty()) {
        log_(is_served ? std::string("device ") + translator_device + " has lost its routes, and gets them again"
                       : "the translator has died, and is started again");
    }
    std::string error = translator_.ensure(kernel_.routes(), watch_patience_ms);
    if (error.empty()) {
        kernel_.forget();
        error = kernel_.apply(plan_of(in_force_));
    }
    if (!error.empty() && error != trouble_) log_(error);
    trouble_ = error;
}

std::string gateway_engine_t::remove() {
    if (!may_administer_network()) return "the gateway may not change the network: it needs CAP_NET_ADMIN";
    std::string error = kernel_.remove_table();
    if (!error.empty()) return error;
    if (sessions_.open().empty()) sessions_.end_if([](const session_t &) { return true; });
    error = translator_.end();
    const std::string failed = kernel_.remove_device();
    if (error.empty()) error = failed;
    return error;
}

uint32_t gateway_engine_t::refusal(uint32_t op_code, const void *payload) const {
    switch (op_code) {
        case FWX_NAT64_CFG_LIMIT_SET:
        case FWX_NAT64_CFG_LIMIT_DEL:
        case FWX_NAT64_CFG_SESSION_CLEAR:
        case FWX_NAT64_CFG_POOL_RANGE_DEL:
        case FWX_NAT64_CFG_SMAPPING_DEL:
        case FWX_NAT64_CFG_DMAPPING_DEL:
            return 0;
        case FWX_NAT64_CFG_TIMEOUT_SET:
            return read<fwx_nat64_timeout_t>(payload).value > longest_timeout_s ? FWX_NAT64_MODEL_ERR_VALUE : 0;
        case FWX_NAT64_CFG_GLB_PREFIX:
            return prefix_refusal(read<fwx_nat64_glb_prefix_payload_t>(payload));
        case FWX_NAT64_CFG_INTF_SET:
        case FWX_NAT64_CFG_NVI_INTF_ENABLE:
            return refusal_of(read<fwx_nat64_intf_payload_t>(payload));
        case FWX_NAT64_CFG_POOL_ADD:
            return pool_refusal(read<fwx_nat64_pool_payload_t>(payload));
        case FWX_NAT64_CFG_POOL_DEL:
            return pool_delete_refusal(read<fwx_nat64_delete_payload_t>(payload).id);
        case FWX_NAT64_CFG_POOL_RANGE_ADD: {
            const auto range = read<fwx_nat64_pool_range_t>(payload);
            const bool is_ipv4 = range.start_addr.family == FWX_NAT64_FAMILY_IPV4;
            return is_ipv4 ? 0 : FWX_NAT64_MODEL_ERR_NOT_HERE;
        }
        case FWX_NAT64_CFG_SMAPPING_ADD:
            return refusal_of(read<fwx_nat64_smapping_t>(payload));
        case FWX_NAT64_CFG_DMAPPING_ADD:
            return refusal_of(read<fwx_nat64_dmapping_payload_t>(payload).map, true);
        case FWX_NAT64_CFG_DMAPPING_MOD: /* a modification keeps the second part */
            return refusal_of(read<fwx_nat64_dmapping_payload_t>(payload).map, false);
        default:
            return FWX_NAT64_MODEL_ERR_NOT_HERE;
    }
}

uint32_t gateway_engine_t::pool_delete_refusal(uint32_t pool_id) const {
    for (const auto &[id, payload] : config.mappings.dynamic.entries) {
        if (source_rule_of(payload.map)->pool_id == pool_id) return FWX_NAT64_MODEL_ERR_IN_USE;
    }
    return 0;
}

uint32_t gateway_engine_t::refusal_of(const fwx_nat64_intf_payload_t &interface) const {
    const bool is_plain = prefix_count(interface) == 0 && interface.mtu_valid == 0;
    if (!is_plain) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    /* An interface that no longer exists can still be turned off, because its configuration remains. */
    const bool is_off = interface.enable == 0 && config.interfaces.interfaces.get(interface.ifh);
    char name[IF_NAMESIZE];
    const bool is_ok = is_off || is_restoring_ || if_indextoname(interface.ifh, name) != nullptr;
    return is_ok ? 0 : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t gateway_engine_t::refusal_of(const fwx_nat64_smapping_t &mapping) const {
    const bool is_plain = is_zero(mapping.opaque4) && is_zero(mapping.opaque28) && is_zero(mapping.opaque64);
    if (!is_plain) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    const address_t inside = address_of(mapping.addr1);
    const address_t outside = address_of(mapping.addr2);
    const bool is_ok = inside.is_ipv6 && !outside.is_ipv6 && !inside.is_unspecified() && !outside.is_unspecified();
    if (!is_ok) return FWX_NAT64_MODEL_ERR_VALUE;
    const bool is_taken = static_addresses_.count(inside) != 0 || static_addresses_.count(outside) != 0;
    return is_taken ? FWX_NAT64_MODEL_ERR_EXISTS : 0;
}

uint32_t gateway_engine_t::refusal_of(const fwx_nat64_dmapping_t &mapping, bool is_new) const {
    /* Connection tracking maps and filters by both addresses and both ports, and cannot do otherwise. */
    const bool is_here =
        mapping.type == FWX_NAT64_DMAPPING_APDM && is_zero(mapping.opaque4) && is_zero(mapping.opaque44);
    if (!is_here) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    if (!is_new || config.mappings.dynamic.get(mapping.id)) return 0;
    const auto rule = source_rule_of(mapping);
    if (!rule) return FWX_NAT64_MODEL_ERR_VALUE;
    if (rule->pool_id != 0 && !config.pools.pools.get(rule->pool_id)) return FWX_NAT64_MODEL_ERR_NO_POOL;
    for (const auto &[id, payload] : config.mappings.dynamic.entries) {
        const auto other = source_rule_of(payload.map);
        if (other->prefix_len == rule->prefix_len && other->prefix == rule->prefix) return FWX_NAT64_MODEL_ERR_EXISTS;
        const bool is_for_others = rule->prefix_len == 0 || other->prefix_len == 0;
        if (is_for_others) continue;
        const bool is_nested = is_in(*other, rule->prefix.data()) || is_in(*rule, other->prefix.data());
        if (is_nested) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    }
    return 0;
}

void gateway_engine_t::changed(uint32_t op_code, const void *payload) {
    const auto *bytes = static_cast<const uint8_t *>(payload);
    pending_.push_back({op_code, {bytes, bytes + configuration_t::payload_size(op_code)}});
    if (op_code == FWX_NAT64_CFG_SMAPPING_ADD) {
        const auto mapping = read<fwx_nat64_smapping_t>(payload);
        const static_t addresses = {address_of(mapping.addr1), address_of(mapping.addr2)};
        statics_[mapping.id] = addresses;
        static_addresses_.insert({addresses.inside, addresses.outside});
    } else if (op_code == FWX_NAT64_CFG_SMAPPING_DEL) {
        const auto found = statics_.find(read<fwx_nat64_delete_payload_t>(payload).id);
        if (found == statics_.end()) return;
        static_addresses_.erase(found->second.inside);
        static_addresses_.erase(found->second.outside);
        ended_.insert(found->second);
        statics_.erase(found);
    }
}

uint32_t gateway_engine_t::commit() noexcept {
    is_restoring_ = false;
    const std::vector<change_t> changes = std::exchange(pending_, {});
    const std::set<static_t> ended = std::exchange(ended_, {});
    const std::vector<ipv4_network_t> networks = kernel_.in_force().networks;
    const std::string error = kernel_.apply(plan_of(config));
    if (error.empty()) {
        for (const change_t &change : changes) {
            in_force_.carry_out(change.op_code, change.payload.data());
        }
        end_sessions(ended, networks);
        return 0;
    }
    log_("refused by the kernel: " + error);
    config = in_force_;
    statics_.clear();
    static_addresses_.clear();
    for (const auto &[id, mapping] : config.mappings.fixed.entries) {
        changed(FWX_NAT64_CFG_SMAPPING_ADD, &mapping);
    }
    pending_.clear();
    return FWX_NAT64_MODEL_ERR_NOT_IN_FORCE;
}

/** Ends the sessions of deleted static mappings, and sessions whose address no longer belongs to the gateway. */
void gateway_engine_t::end_sessions(const std::set<static_t> &ended, const std::vector<ipv4_network_t> &before) {
    const std::vector<ipv4_network_t> &networks = kernel_.in_force().networks;
    const auto is_kept = [&networks](const ipv4_network_t &network) { return has_network(networks, network); };
    const bool keeps_all = std::all_of(before.begin(), before.end(), is_kept);
    if (ended.empty() && keeps_all) return;
    const int failed = sessions_.end_if([&](const session_t &session) {
        const static_t addresses = {address_of(session.src), address_of(session.pool_addr)};
        return ended.count(addresses) != 0 || !has_network(networks, {ipv4_of(session.pool_addr.addr), 32});
    });
    if (failed != 0) log_(std::string("sessions of what was deleted may go on: ") + std::strerror(failed));
}

const std::vector<gateway_engine_t::session_t> &gateway_engine_t::read_sessions(bool goes_on) const {
    const uint64_t now_ms = fwx_host_clock_ms();
    if (!is_old_ || (goes_on && now_ms < read_until_ms_)) return read_;
    const int failed = sessions_.read(read_);
    if (failed != 0) log_(std::string("cannot read all sessions: ") + std::strerror(failed));
    is_old_ = false;
    read_until_ms_ = now_ms + old_read_ms + old_read_factor * (fwx_host_clock_ms() - now_ms);
    name_owners();
    return read_;
}

/** Sets the pool and mapping of each session, and counts the sessions of each. */
void gateway_engine_t::name_owners() const {
    std::map<uint32_t, std::pair<uint32_t, uint32_t>> spans; /* last address and pool, by first address of the span */
    const auto add_span = [&spans](uint32_t pool, uint32_t first, uint32_t last) {
        auto &span = spans.insert({first, {last, pool}}).first->second;
        span.first = std::max(span.first, last); /* ranges of one pool may overlap */
    };
    for (const auto &[id, pool] : config.pools.pools.entries) {
        add_span(id, ntohl(pool.start_addr), ntohl(pool.end_addr));
    }
    for (const auto &[span, range] : config.pools.ranges.entries) {
        add_span(range.id, ipv4_of(range.start_addr.addr), ipv4_of(range.end_addr.addr));
    }
    std::map<static_t, uint32_t> statics;
    for (const auto &[id, addresses] : statics_) {
        statics[addresses] = id;
    }
    std::map<std::array<uint8_t, 16>, std::pair<source_rule_t, uint32_t>> sources; /* by prefix, disjoint */
    uint32_t of_others = 0;
    for (const auto &[id, payload] : config.mappings.dynamic.entries) {
        const auto rule = source_rule_of(payload.map);
        if (rule->prefix_len == 0) of_others = id;
        if (rule->prefix_len != 0) sources.insert({rule->prefix, {*rule, id}});
    }
    of_pools_.clear();
    of_mappings_.clear();
    for (session_t &session : read_) {
        const static_t addresses = {address_of(session.src), address_of(session.pool_addr)};
        const auto fixed = statics.find(addresses);
        if (fixed != statics.end()) {
            session.mapping_id = fixed->second;
            ++of_mappings_[{FWX_NAT64_MAPPING_STATIC, fixed->second}];
            continue;
        }
        const auto behind_source = sources.upper_bound(addresses.inside.bytes);
        const bool is_named = behind_source != sources.begin() &&
                              is_in(std::prev(behind_source)->second.first, addresses.inside.bytes.data());
        session.mapping_id = is_named ? std::prev(behind_source)->second.second : of_others;
        if (session.mapping_id != 0) ++of_mappings_[{FWX_NAT64_MAPPING_DYNAMIC, session.mapping_id}];
        const uint32_t address = ipv4_of(session.pool_addr.addr);
        for (auto span = spans.upper_bound(address); span != spans.begin();) {
            --span;
            if (span->second.first < address) continue; /* a short span inside a longer one of the same pool */
            session.pool_id = span->second.second;
            ++of_pools_[session.pool_id];
            break;
        }
    }
}

uint64_t gateway_engine_t::session_count_of_pool(uint32_t pool_id) const {
    read_sessions(false);
    const auto found = of_pools_.find(pool_id);
    return found == of_pools_.end() ? 0 : found->second;
}

uint64_t gateway_engine_t::session_count_of_mapping(uint32_t kind, uint32_t mapping_id) const {
    read_sessions(false);
    const auto found = of_mappings_.find({kind, mapping_id});
    return found == of_mappings_.end() ? 0 : found->second;
}

uint32_t gateway_engine_t::session_clear(const session_filter_t &filter) {
    is_old_ = true;
    const int failed = sessions_.end_if([&filter](const session_t &session) { return is_match(filter, session); });
    if (failed == 0) return 0;
    log_(std::string("cannot end sessions: ") + std::strerror(failed));
    return FWX_NAT64_MODEL_ERR_NOT_IN_FORCE;
}

engine_t::found_t gateway_engine_t::session_next(uint64_t from, const session_filter_t &filter,
                                                 fwx_nat64_session_t *session, uint64_t &looks) const {
    const std::vector<session_t> &sessions = read_sessions(from != 0);
    const auto is_before = [](const session_t &one, uint64_t id) { return one.id < id; };
    for (auto it = std::lower_bound(sessions.begin(), sessions.end(), from, is_before); it != sessions.end(); ++it) {
        *session = {it->id, it->src, it->dst, it->src_port, it->dst_port, it->protocol, it->mapping_id, it->age_s};
        if (looks == 0) return found_t::later;
        --looks;
        if (is_match(filter, *it)) return found_t::session;
    }
    return found_t::none;
}

fwx_nat64_session_full_t gateway_engine_t::session_in_full(const fwx_nat64_session_t &session) const {
    const auto is_before = [](const session_t &one, uint64_t id) { return one.id < id; };
    const auto found = std::lower_bound(read_.begin(), read_.end(), session.id, is_before);
    return found != read_.end() && found->id == session.id ? *found : session_t{};
}
