/* Refuses what Linux cannot do, commits the configuration to the kernel, ends the sessions of deleted mappings and
 * addresses, and serves sessions from a cache. */
#include "gateway/engine.h"

#include <linux/capability.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fwx_host/loop.h"
#include "records/value.h"
#include "server/record.h"

namespace {

constexpr uint32_t longest_timeout_s = 2147483; /* limit of the kernel, which holds milliseconds */
constexpr int start_patience_ms = 5000;         /* wait for the translator at the start */
constexpr int watch_patience_ms = 300;          /* shorter wait while the gateway serves clients */
constexpr uint64_t old_read_ms = 1000;
constexpr uint64_t old_read_factor = 20; /* a walk spends at most 1/20 of its time on reading */

template <size_t size>
bool is_zero(const uint8_t (&bytes)[size]) {
    return std::all_of(std::begin(bytes), std::end(bytes), [](uint8_t byte) { return byte == 0; });
}

std::pair<address_t, address_t> addresses_of(const fwx_nat64_smapping_t &mapping) {
    return {address_of(mapping.addr1), address_of(mapping.addr2)};
}

bool may_administer_network() {
    __user_cap_header_struct head = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2] = {};
    return syscall(SYS_capget, &head, sets) == 0 && (sets[0].effective & (1U << CAP_NET_ADMIN)) != 0;
}

uint32_t prefix_refusal(const fwx_nat64_prefix_t &prefix) {
    const bool is_here = prefix.kind == FWX_NAT64_PREFIX_STATEFUL && prefix.prefix_len == translator_prefix_len;
    if (!is_here) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    const bool is_own = has_prefix(prefix.prefix, translator_prefix.data(), translator_prefix_len);
    return is_own ? FWX_NAT64_MODEL_ERR_VALUE : 0;
}

uint32_t pool_refusal(const fwx_nat64_pool_payload_t &pool) {
    if (pool.hsl_id != 0) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    return pool.param > most_pool_ports ? FWX_NAT64_MODEL_ERR_VALUE : 0;
}

uint32_t pool_delete_refusal(const configuration_t &config, uint32_t pool_id) {
    for (const auto &[id, payload] : config.mappings.dynamic.entries) {
        if (source_rule_of(payload.map)->pool_id == pool_id) return FWX_NAT64_MODEL_ERR_IN_USE;
    }
    return 0;
}

uint32_t dynamic_refusal(const configuration_t &config, const fwx_nat64_dmapping_t &mapping, bool is_new) {
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
        const uint8_t shorter = std::min(rule->prefix_len, other->prefix_len); /* 0: for sources that none names */
        const bool is_nested = shorter != 0 && has_prefix(rule->prefix.data(), other->prefix.data(), shorter);
        if (is_nested) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    }
    return 0;
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

void gateway_engine_t::watch() {
    const std::string standstill = std::exchange(standstill_, kernel_t::check_forwarding());
    if (!standstill_.empty() && standstill_ != standstill) log_(standstill_);
    std::string lost;
    const bool has_table = kernel_.has_table();
    if (!has_table) lost = "another program has deleted or replaced the nftables table, which is made again";
    /* The kernel deletes all routes of a device that goes down or is deleted. The first network stands for all. */
    const networks_t &networks = kernel_.in_force().networks;
    const bool has_routes = kernel_.routes().set_up_device(NLM_F_EXCL) == EEXIST &&
                            (networks.empty() || kernel_.routes().change(RTM_NEWROUTE, networks.front()) == EEXIST);
    if (!has_routes) lost = std::string("device ") + translator_device + " has lost its routes, and gets them again";
    if (!kernel_.routes().is_device_served()) lost = "the translator has died, and is started again";
    if (lost.empty() && trouble_.empty()) return;
    if (trouble_.empty()) log_(lost);
    std::string error = translator_.ensure(kernel_.routes(), watch_patience_ms);
    if (error.empty()) {
        kernel_.forget();
        error = kernel_.apply(plan_of(in_force_));
    }
    if (error.empty() && !has_table) end_untranslated();
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
    return error.empty() ? failed : error;
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
            return read_record<fwx_nat64_timeout_t>(payload).value > longest_timeout_s ? FWX_NAT64_MODEL_ERR_VALUE : 0;
        case FWX_NAT64_CFG_GLB_PREFIX:
            return prefix_refusal(read_record<fwx_nat64_glb_prefix_payload_t>(payload).prefix);
        case FWX_NAT64_CFG_INTF_SET:
        case FWX_NAT64_CFG_NVI_INTF_ENABLE:
            return interface_refusal(read_record<fwx_nat64_intf_payload_t>(payload));
        case FWX_NAT64_CFG_POOL_ADD:
            return pool_refusal(read_record<fwx_nat64_pool_payload_t>(payload));
        case FWX_NAT64_CFG_POOL_DEL:
            return pool_delete_refusal(config, read_record<fwx_nat64_delete_payload_t>(payload).id);
        case FWX_NAT64_CFG_POOL_RANGE_ADD:
            return read_record<fwx_nat64_pool_range_t>(payload).start_addr.family == FWX_NAT64_FAMILY_IPV4
                       ? 0
                       : FWX_NAT64_MODEL_ERR_NOT_HERE;
        case FWX_NAT64_CFG_SMAPPING_ADD:
            return static_refusal(read_record<fwx_nat64_smapping_t>(payload));
        case FWX_NAT64_CFG_DMAPPING_ADD:
        case FWX_NAT64_CFG_DMAPPING_MOD: /* a modification keeps the second part */
            return dynamic_refusal(config, read_record<fwx_nat64_dmapping_payload_t>(payload).map,
                                   op_code == FWX_NAT64_CFG_DMAPPING_ADD);
        default:
            return FWX_NAT64_MODEL_ERR_NOT_HERE;
    }
}

uint32_t gateway_engine_t::interface_refusal(const fwx_nat64_intf_payload_t &interface) const {
    if (prefix_count(interface) != 0 || interface.mtu_valid != 0) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    /* An interface that no longer exists can still be turned off, because its configuration remains. */
    const bool is_off = interface.enable == 0 && config.interfaces.interfaces.get(interface.ifh);
    char name[IF_NAMESIZE];
    const bool is_ok = is_off || is_restoring_ || if_indextoname(interface.ifh, name) != nullptr;
    return is_ok ? 0 : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t gateway_engine_t::static_refusal(const fwx_nat64_smapping_t &mapping) const {
    const bool is_plain = is_zero(mapping.opaque4) && is_zero(mapping.opaque28) && is_zero(mapping.opaque64);
    if (!is_plain) return FWX_NAT64_MODEL_ERR_NOT_HERE;
    const auto [inside, outside] = addresses_of(mapping);
    const bool is_ok = inside.is_ipv6 && !outside.is_ipv6 && !inside.is_unspecified() && !outside.is_unspecified();
    if (!is_ok) return FWX_NAT64_MODEL_ERR_VALUE;
    return static_ids_.count(inside) + static_ids_.count(outside) != 0 ? FWX_NAT64_MODEL_ERR_EXISTS : 0;
}

void gateway_engine_t::changed(uint32_t op_code, const void *payload) noexcept {
    if (op_code == FWX_NAT64_CFG_SMAPPING_ADD) {
        const auto mapping = read_record<fwx_nat64_smapping_t>(payload);
        const addresses_t addresses = addresses_of(mapping);
        statics_[mapping.id] = addresses;
        static_ids_[addresses.first] = static_ids_[addresses.second] = mapping.id;
    } else if (op_code == FWX_NAT64_CFG_SMAPPING_DEL) {
        const auto found = statics_.find(read_record<fwx_nat64_delete_payload_t>(payload).id);
        if (found == statics_.end()) return;
        static_ids_.erase(found->second.first);
        static_ids_.erase(found->second.second);
        ended_.insert(found->second);
        statics_.erase(found);
    }
}

uint32_t gateway_engine_t::commit() noexcept {
    is_restoring_ = false;
    const std::set<addresses_t> ended = std::exchange(ended_, {});
    const networks_t networks = kernel_.in_force().networks;
    const bool had_table = kernel_.has_table();
    const std::string error = kernel_.apply(plan_of(config));
    if (error.empty()) {
        in_force_ = config;
        end_sessions(ended, networks);
        if (!had_table) end_untranslated();
        return 0;
    }
    log_("refused by the kernel: " + error);
    config = in_force_;
    statics_.clear();
    static_ids_.clear();
    for (const auto &[id, mapping] : config.mappings.fixed.entries) {
        changed(FWX_NAT64_CFG_SMAPPING_ADD, &mapping);
    }
    return FWX_NAT64_MODEL_ERR_NOT_IN_FORCE;
}

/** Ends the sessions of deleted static mappings, and sessions whose address no longer belongs to the gateway. */
void gateway_engine_t::end_sessions(const std::set<addresses_t> &ended, const networks_t &before) {
    const networks_t &networks = kernel_.in_force().networks;
    if (ended.empty() && std::ranges::includes(networks, before)) return;
    const auto is_ours = [&networks](uint32_t address) {
        const auto behind = std::ranges::upper_bound(networks, address, {}, &ipv4_network_t::address);
        return behind != networks.begin() && std::prev(behind)->contains(address);
    };
    const int failed = sessions_.end_if([&](const session_t &session) {
        const addresses_t addresses = {address_of(session.src), address_of(session.pool_addr)};
        return ended.count(addresses) != 0 || !is_ours(ipv4_of(session.pool_addr.addr));
    });
    if (failed != 0) log_(std::string("sessions of what was deleted may go on: ") + std::strerror(failed));
}

/** Ends the flows that began while the table was away. */
void gateway_engine_t::end_untranslated() {
    const auto is_ours = [this](const uint8_t *to) {
        return has_prefix(to, translator_prefix.data(), translator_prefix_len) ||
               std::ranges::any_of(in_force_.interfaces.prefixes.entries, [to](const auto &each) {
                   return has_prefix(to, each.second.prefix.prefix, each.second.prefix.prefix_len);
               });
    };
    const int failed = sessions_.end_untranslated(is_ours);
    if (failed != 0) log_(std::string("flows that are not translated may go on: ") + std::strerror(failed));
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
    std::map<uint32_t, owner_t> spans; /* last address and pool, by first address of the span */
    for (const auto &[pool_id, of_pool] : spans_by_pool(config)) {
        for (const pool_span_t &each : of_pool) {
            uint32_t &last = spans.insert({each.first, {each.last, pool_id}}).first->second.first;
            last = std::max(last, each.last); /* ranges of one pool may overlap */
        }
    }
    std::map<ipv6_bytes_t, std::pair<uint8_t, uint32_t>> sources; /* length and mapping by prefix, disjoint */
    uint32_t of_others = 0;
    for (const auto &[id, payload] : config.mappings.dynamic.entries) {
        const auto rule = source_rule_of(payload.map);
        if (rule->prefix_len == 0) of_others = id;
        if (rule->prefix_len != 0) sources.insert({rule->prefix, {rule->prefix_len, id}});
    }
    counts_.clear();
    for (session_t &session : read_) {
        const address_t inside = address_of(session.src);
        const auto fixed = static_ids_.find(inside);
        if (fixed != static_ids_.end() && statics_.at(fixed->second).second == address_of(session.pool_addr)) {
            session.mapping_id = fixed->second;
            ++counts_[{FWX_NAT64_MAPPING_STATIC, fixed->second}];
            continue;
        }
        const auto behind = sources.upper_bound(inside.bytes);
        const auto source = behind == sources.begin() ? behind : std::prev(behind);
        const bool is_named =
            source != behind && has_prefix(inside.bytes.data(), source->first.data(), source->second.first);
        session.mapping_id = is_named ? source->second.second : of_others;
        if (session.mapping_id != 0) ++counts_[{FWX_NAT64_MAPPING_DYNAMIC, session.mapping_id}];
        const uint32_t address = ipv4_of(session.pool_addr.addr);
        for (auto span = spans.upper_bound(address); span != spans.begin();) {
            --span;
            if (span->second.first < address) continue; /* a short span inside a longer one of the same pool */
            session.pool_id = span->second.second;
            ++counts_[{pool_kind, session.pool_id}];
            break;
        }
    }
}

uint64_t gateway_engine_t::count_of(const owner_t &owner) const {
    read_sessions(false);
    return counts_[owner];
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
    for (auto it = std::ranges::lower_bound(sessions, from, {}, &session_t::id); it != sessions.end(); ++it) {
        *session = {it->id, it->src, it->dst, it->src_port, it->dst_port, it->protocol, it->mapping_id, it->age_s};
        if (looks == 0) return found_t::later;
        --looks;
        if (is_match(filter, *it)) return found_t::session;
    }
    return found_t::none;
}

fwx_nat64_session_full_t gateway_engine_t::session_in_full(const fwx_nat64_session_t &session) const {
    const auto found = std::ranges::lower_bound(read_, session.id, {}, &session_t::id);
    return found != read_.end() && found->id == session.id ? *found : session_t{};
}
