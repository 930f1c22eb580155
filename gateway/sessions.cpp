/* Reads sessions from connection tracking. An entry has the addresses of both directions, before and after translation.
 * The direction with both addresses in the translator's prefix tells which side opened the session, and gives the IPv4
 * addresses. */
#include "gateway/sessions.h"

#include <arpa/inet.h>
#include <libnetfilter_conntrack/libnetfilter_conntrack.h>
#include <libnetfilter_conntrack/libnetfilter_conntrack_tcp.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

#include "gateway/netlink.h"
#include "gateway/plan.h"

namespace {

constexpr uint32_t family_ipv6 = 1;
constexpr uint64_t ns_per_s = 1000000000;
using entry_ptr_t = std::unique_ptr<nf_conntrack, void (*)(nf_conntrack *)>;

const uint8_t *address_in(const nf_conntrack *entry, nf_conntrack_attr attribute) {
    return static_cast<const uint8_t *>(nfct_get_attr(entry, attribute));
}
uint16_t port_in(const nf_conntrack *entry, nf_conntrack_attr attribute) {
    return ntohs(nfct_get_attr_u16(entry, attribute));
}
bool is_translated(const uint8_t *address) {
    return address != nullptr && std::equal(translator_prefix.begin(), translator_prefix.end(), address);
}
fwx_nat64_addr_t ipv6(const uint8_t *address) {
    fwx_nat64_addr_t record{family_ipv6, {}};
    std::copy_n(address, sizeof record.addr, record.addr);
    return record;
}
/** Returns the IPv4 address that an address in the translator's prefix embeds. */
fwx_nat64_addr_t ipv4(const uint8_t *address) {
    fwx_nat64_addr_t record{};
    std::copy_n(address + translator_prefix.size(), sizeof(uint32_t), record.addr);
    return record;
}

/** Returns the ICMP identifier of the reply, which libnetfilter_conntrack parses but does not expose. */
uint16_t reply_icmp_id(const nlmsghdr *message) {
    uint16_t id = 0;
    each_attribute(message, sizeof(nfgenmsg), [&id](const nlattr *tuple) {
        if (mnl_attr_get_type(tuple) != CTA_TUPLE_REPLY) return;
        each_attribute(tuple, [&id](const nlattr *part) {
            if (mnl_attr_get_type(part) != CTA_TUPLE_PROTO) return;
            each_attribute(part, [&id](const nlattr *field) {
                if (mnl_attr_get_type(field) == CTA_PROTO_ICMPV6_ID) id = ntohs(mnl_attr_get_u16(field));
            });
        });
    });
    return id;
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

/** Hashes an address and ports. The kernel's identifier of an entry has only 32 random bits, so two entries may share
 * it; the hash then distinguishes their sessions. */
uint32_t hash_of(const uint8_t *address, uint32_t ports) {
    uint32_t hash = 2166136261U ^ ports;
    for (size_t i = 0; i < sizeof(in6_addr); ++i) {
        hash = (hash ^ address[i]) * 16777619U;
    }
    return hash;
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
    if (session.protocol == IPPROTO_ICMPV6) {
        const uint16_t id = ntohs(nfct_get_attr_u16(entry, ATTR_ICMP_ID));
        const uint16_t reply_id = reply_icmp_id(message);
        session.src_port = is_from_inside ? id : reply_id;
        session.pool_port = is_from_inside ? reply_id : id;
    } else {
        session.src_port = port_in(entry, is_from_inside ? ATTR_ORIG_PORT_SRC : ATTR_REPL_PORT_SRC);
        session.pool_port = port_in(entry, is_from_inside ? ATTR_REPL_PORT_DST : ATTR_ORIG_PORT_DST);
        session.dst_port = port_in(entry, is_from_inside ? ATTR_ORIG_PORT_DST : ATTR_ORIG_PORT_SRC);
    }
    session.id = uint64_t{nfct_get_attr_u32(entry, ATTR_ID)} << 32 |
                 hash_of(from, uint32_t{session.src_port} << 16 | session.pool_port);
    session.id += session.id == 0 ? 1 : 0;
    session.remaining_s = nfct_get_attr_u32(entry, ATTR_TIMEOUT);
    const uint64_t start_s = nfct_get_attr_u64(entry, ATTR_TIMESTAMP_START) / ns_per_s;
    const auto now_s = static_cast<uint64_t>(std::time(nullptr));
    session.age_s = start_s == 0 || start_s > now_s ? 0 : static_cast<uint32_t>(now_s - start_s);
    session.packets_out = nfct_get_attr_u64(entry, ATTR_ORIG_COUNTER_PACKETS);
    session.bytes_out = nfct_get_attr_u64(entry, ATTR_ORIG_COUNTER_BYTES);
    session.packets_in = nfct_get_attr_u64(entry, ATTR_REPL_COUNTER_PACKETS);
    session.bytes_in = nfct_get_attr_u64(entry, ATTR_REPL_COUNTER_BYTES);
    if (!is_from_inside) {
        std::swap(session.packets_out, session.packets_in);
        std::swap(session.bytes_out, session.bytes_in);
    }
    return true;
}

/** True if `wanted` is unspecified or equals one of the two addresses. */
bool is_wanted(const address_t &wanted, const fwx_nat64_addr_t &one, const fwx_nat64_addr_t &other) {
    return wanted.is_unspecified() || wanted == address_of(one) || wanted == address_of(other);
}

}  // namespace

bool is_match(const session_filter_t &filter, const fwx_nat64_session_full_t &session) {
    const uint32_t protocol = filter.protocol == IPPROTO_ICMP ? uint32_t{IPPROTO_ICMPV6} : filter.protocol;
    const bool port_ok = filter.port == 0 || filter.port == session.src_port || filter.port == session.pool_port ||
                         filter.port == session.dst_port;
    return port_ok && (protocol == 0 || protocol == session.protocol) &&
           is_wanted(filter.src, session.src, session.src) && is_wanted(filter.dst, session.dst, session.dst_ipv6) &&
           (filter.pool_addr == 0 || filter.pool_addr == ipv4_of(session.pool_addr.addr));
}

sessions_t::~sessions_t() {
    if (handle_ != nullptr) nfct_close(handle_);
}

std::string sessions_t::open() {
    handle_ = nfct_open(CONNTRACK, 0);
    if (handle_ != nullptr && dump([](const session_t &, const nf_conntrack *) {}) == 0) return "";
    return std::string("cannot read connection tracking (modules nf_conntrack and nf_conntrack_netlink): ") +
           std::strerror(errno);
}

int sessions_t::dump(const found_fn_t &found) {
    const auto read_one = [](const nlmsghdr *message, nf_conntrack_msg_type, nf_conntrack *entry, void *arg) {
        session_t session;
        if (read_session(entry, message, session)) (*static_cast<const found_fn_t *>(arg))(session, entry);
        return static_cast<int>(NFCT_CB_CONTINUE);
    };
    nfct_callback_register2(handle_, NFCT_T_ALL, read_one, const_cast<found_fn_t *>(&found));
    const uint32_t family = AF_INET6;
    const int failed = nfct_query(handle_, NFCT_Q_DUMP, &family) == 0 ? 0 : errno;
    nfct_callback_unregister2(handle_);
    return failed;
}

int sessions_t::read(std::vector<session_t> &sessions) {
    sessions.clear();
    const int failed = dump([&](const session_t &session, const nf_conntrack *) { sessions.push_back(session); });
    const auto is_before = [](const session_t &a, const session_t &b) { return a.id < b.id; };
    const auto is_same = [](const session_t &a, const session_t &b) { return a.id == b.id; };
    std::sort(sessions.begin(), sessions.end(), is_before);
    /* The kernel can dump an entry twice when its table grows during the dump. */
    sessions.erase(std::unique(sessions.begin(), sessions.end(), is_same), sessions.end());
    return failed;
}

int sessions_t::end_if(const match_fn_t &match) {
    std::vector<entry_ptr_t> ending;
    int failed = dump([&](const session_t &session, const nf_conntrack *entry) {
        if (match(session)) ending.emplace_back(nfct_clone(entry), nfct_destroy);
    });
    for (const entry_ptr_t &entry : ending) {
        const bool is_gone = nfct_query(handle_, NFCT_Q_DESTROY, entry.get()) == 0 || errno == ENOENT;
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
        each_attribute(of_processor, sizeof(nfgenmsg), [&count](const nlattr *field) {
            if (mnl_attr_get_type(field) == CTA_STATS_INSERT_FAILED) count += ntohl(mnl_attr_get_u32(field));
        });
    });
    return count;
}
