/* Reads sessions from connection tracking. An entry has the addresses of both directions, before and after translation.
 * The direction with both addresses in the translator's prefix tells which side opened the session, and gives the IPv4
 * addresses. */
#include "gateway/sessions.h"

#include <arpa/inet.h>
#include <libnetfilter_conntrack/libnetfilter_conntrack.h>
#include <libnetfilter_conntrack/libnetfilter_conntrack_tcp.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>

#include "gateway/netlink.h"
#include "gateway/plan.h"
#include "records/value.h"

namespace {

constexpr uint32_t family_ipv6 = 1;
constexpr uint64_t ns_per_s = 1000000000;
using entry_ptr_t = std::unique_ptr<nf_conntrack, void (*)(nf_conntrack *)>;

const uint8_t *address_in(const nf_conntrack *entry, nf_conntrack_attr attribute) {
    return static_cast<const uint8_t *>(nfct_get_attr(entry, attribute));
}
bool is_translated(const uint8_t *address) {
    return address != nullptr && has_prefix(address, translator_prefix.data(), translator_prefix_len);
}
fwx_nat64_addr_t ipv6(const uint8_t *address) {
    fwx_nat64_addr_t record{family_ipv6, {}};
    std::copy_n(address, sizeof record.addr, record.addr);
    return record;
}
/** Returns the IPv4 address that an address in the translator's prefix embeds. */
fwx_nat64_addr_t ipv4(const uint8_t *address) {
    fwx_nat64_addr_t record{};
    std::copy_n(address + translator_prefix_len / 8, sizeof(uint32_t), record.addr);
    return record;
}

/** Returns the ICMP identifier of the reply, which libnetfilter_conntrack parses but does not expose. */
uint16_t reply_icmp_id(const nlmsghdr *message) {
    const nlattr *tuple = find_attribute(message, sizeof(nfgenmsg), CTA_TUPLE_REPLY);
    const nlattr *id = find_attribute(find_attribute(tuple, CTA_TUPLE_PROTO), CTA_PROTO_ICMPV6_ID);
    return id == nullptr ? 0 : ntohs(mnl_attr_get_u16(id));
}

uint32_t state_of(const nf_conntrack *entry, uint32_t protocol, bool is_from_inside) {
    if (protocol != IPPROTO_TCP) return FWX_NAT64_SESSION_ACTIVE;
    switch (nfct_get_attr_u8(entry, ATTR_TCP_STATE)) {
        case TCP_CONNTRACK_SYN_SENT:
        case TCP_CONNTRACK_SYN_RECV:
            return is_from_inside ? FWX_NAT64_SESSION_V6_INIT : FWX_NAT64_SESSION_V4_INIT;
        case TCP_CONNTRACK_ESTABLISHED:
            return FWX_NAT64_SESSION_ESTABLISHED;
        case TCP_CONNTRACK_LAST_ACK:
        case TCP_CONNTRACK_TIME_WAIT:
            return FWX_NAT64_SESSION_FIN;
        default:
            return FWX_NAT64_SESSION_TRANS;
    }
}

/** The kernel's identifier of an entry has only 32 random bits, so two entries may share it; a hash of an address and
 * the ports then distinguishes their sessions. */
uint64_t session_id(uint32_t entry_id, const uint8_t *address, uint32_t ports) {
    const std::string_view bytes(reinterpret_cast<const char *>(address), sizeof(in6_addr));
    const uint32_t hash = ports ^ static_cast<uint32_t>(std::hash<std::string_view>{}(bytes));
    return std::max<uint64_t>(1, uint64_t{entry_id} << 32 | hash);
}

/** Converts an entry to a session; false for an entry that does not pass the translator. */
bool read_session(const nf_conntrack *entry, const nlmsghdr *message, fwx_nat64_session_full_t &session) {
    const uint8_t *from = address_in(entry, ATTR_ORIG_IPV6_SRC);
    const uint8_t *to = address_in(entry, ATTR_ORIG_IPV6_DST);
    const uint8_t *reply_from = address_in(entry, ATTR_REPL_IPV6_SRC);
    const uint8_t *reply_to = address_in(entry, ATTR_REPL_IPV6_DST);
    if (from == nullptr || to == nullptr || reply_from == nullptr || reply_to == nullptr) return false;
    const bool is_from_inside = is_translated(reply_from) && is_translated(reply_to);
    if (!is_from_inside && !(is_translated(from) && is_translated(to))) return false;

    session = {};
    session.protocol = nfct_get_attr_u8(entry, ATTR_L4PROTO);
    session.state = state_of(entry, session.protocol, is_from_inside);
    session.src = ipv6(is_from_inside ? from : reply_from);
    session.dst_ipv6 = ipv6(is_from_inside ? to : reply_to);
    session.pool_addr = ipv4(is_from_inside ? reply_to : to);
    session.dst = ipv4(is_from_inside ? reply_from : from);
    const bool is_icmp = session.protocol == IPPROTO_ICMPV6;
    const auto port = [&](nf_conntrack_attr inside, nf_conntrack_attr outside) {
        return ntohs(nfct_get_attr_u16(entry, is_from_inside ? inside : outside));
    };
    session.src_port = is_icmp ? port(ATTR_ICMP_ID, ATTR_ICMP_ID) : port(ATTR_ORIG_PORT_SRC, ATTR_ORIG_PORT_DST);
    session.pool_port = is_icmp ? reply_icmp_id(message) : port(ATTR_REPL_PORT_DST, ATTR_REPL_PORT_SRC);
    session.dst_port = is_icmp ? uint16_t{0} : port(ATTR_ORIG_PORT_DST, ATTR_ORIG_PORT_SRC);
    session.packets_out = nfct_get_attr_u64(entry, ATTR_ORIG_COUNTER_PACKETS);
    session.bytes_out = nfct_get_attr_u64(entry, ATTR_ORIG_COUNTER_BYTES);
    session.packets_in = nfct_get_attr_u64(entry, ATTR_REPL_COUNTER_PACKETS);
    session.bytes_in = nfct_get_attr_u64(entry, ATTR_REPL_COUNTER_BYTES);
    if (!is_from_inside) {
        std::swap(session.src_port, session.pool_port);
        std::swap(session.packets_out, session.packets_in);
        std::swap(session.bytes_out, session.bytes_in);
    }
    session.id =
        session_id(nfct_get_attr_u32(entry, ATTR_ID), from, uint32_t{session.src_port} << 16 | session.pool_port);
    session.remaining_s = nfct_get_attr_u32(entry, ATTR_TIMEOUT);
    const uint64_t start_s = nfct_get_attr_u64(entry, ATTR_TIMESTAMP_START) / ns_per_s;
    const auto now_s = static_cast<uint64_t>(std::time(nullptr));
    session.age_s = start_s == 0 || start_s > now_s ? 0 : static_cast<uint32_t>(now_s - start_s);
    return true;
}

}  // namespace

bool is_match(const session_filter_t &filter, const fwx_nat64_session_full_t &session) {
    const uint32_t protocol = filter.protocol == IPPROTO_ICMP ? uint32_t{IPPROTO_ICMPV6} : filter.protocol;
    return (protocol == 0 || protocol == session.protocol) && is_wanted(filter.src, session.src) &&
           (is_wanted(filter.dst, session.dst) || is_wanted(filter.dst, session.dst_ipv6)) &&
           filter.has_pool_addr_and_port_of(session);
}

std::string sessions_t::open() {
    handle_ = {nfct_open(CONNTRACK, 0), nfct_close};
    if (handle_ != nullptr && dump([](const nf_conntrack *, const nlmsghdr *) {}) == 0) return "";
    return std::string("cannot read connection tracking (modules nf_conntrack and nf_conntrack_netlink): ") +
           std::strerror(errno);
}

int sessions_t::dump(const found_fn_t &found) {
    const auto read_one = [](const nlmsghdr *message, nf_conntrack_msg_type, nf_conntrack *entry, void *arg) {
        (*static_cast<const found_fn_t *>(arg))(entry, message);
        return static_cast<int>(NFCT_CB_CONTINUE);
    };
    nfct_callback_register2(handle_.get(), NFCT_T_ALL, read_one, const_cast<found_fn_t *>(&found));
    const uint32_t family = AF_INET6;
    const int failed = nfct_query(handle_.get(), NFCT_Q_DUMP, &family) == 0 ? 0 : errno;
    nfct_callback_unregister2(handle_.get());
    return failed;
}

int sessions_t::read(std::vector<session_t> &sessions) {
    sessions.clear();
    const int failed = dump([&sessions](const nf_conntrack *entry, const nlmsghdr *message) {
        session_t session;
        if (read_session(entry, message, session)) sessions.push_back(session);
    });
    std::ranges::sort(sessions, {}, &session_t::id);
    /* The kernel can dump an entry twice when its table grows during the dump. */
    const auto is_same = [](const session_t &a, const session_t &b) { return a.id == b.id; };
    sessions.erase(std::unique(sessions.begin(), sessions.end(), is_same), sessions.end());
    return failed;
}

int sessions_t::end_if(const match_fn_t &match) {
    return end_entries([&match](const nf_conntrack *entry, const nlmsghdr *message) {
        session_t session;
        return read_session(entry, message, session) && match(session);
    });
}

int sessions_t::end_untranslated(const to_fn_t &match) {
    return end_entries([&match](const nf_conntrack *entry, const nlmsghdr *) {
        const uint8_t *to = address_in(entry, ATTR_ORIG_IPV6_DST);
        const uint8_t *reply_from = address_in(entry, ATTR_REPL_IPV6_SRC);
        const bool is_untranslated =
            to != nullptr && reply_from != nullptr && std::memcmp(to, reply_from, sizeof(in6_addr)) == 0;
        return is_untranslated && match(to);
    });
}

int sessions_t::end_entries(const std::function<bool(const nf_conntrack *, const nlmsghdr *)> &match) {
    std::vector<entry_ptr_t> ending;
    int failed = dump([&](const nf_conntrack *entry, const nlmsghdr *message) {
        if (match(entry, message)) ending.emplace_back(nfct_clone(entry), nfct_destroy);
    });
    for (const entry_ptr_t &entry : ending) {
        const bool is_gone = nfct_query(handle_.get(), NFCT_Q_DESTROY, entry.get()) == 0 || errno == ENOENT;
        if (!is_gone) failed = errno;
    }
    return failed;
}

uint64_t sessions_t::failed_count() {
    netlink_t netlink(NETLINK_NETFILTER);
    netlink_request_t<nfgenmsg> request((NFNL_SUBSYS_CTNETLINK << 8) | IPCTNL_MSG_CT_GET_STATS_CPU, NLM_F_DUMP);
    request->version = NFNETLINK_V0;
    uint64_t count = 0;
    netlink.ask(request.message(), [&count](const nlmsghdr *of_processor) {
        const nlattr *failed = find_attribute(of_processor, sizeof(nfgenmsg), CTA_STATS_INSERT_FAILED);
        if (failed != nullptr) count += ntohl(mnl_attr_get_u32(failed));
    });
    return count;
}
