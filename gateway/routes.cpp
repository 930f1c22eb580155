/* Routes and device of the translator, over rtnetlink. Routes of the device in other tables than main are ignored. */
#include "gateway/routes.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>

namespace {

constexpr size_t address_size(uint8_t family) {
    return family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr);
}

}  // namespace

bool routes_t::is_device_served() {
    bool is_served = false;
    netlink_request_t<ifinfomsg> request(RTM_GETLINK, NLM_F_ACK);
    mnl_attr_put_strz(request.message(), IFLA_IFNAME, translator_device);
    netlink_.ask(request.message(), [&is_served](const nlmsghdr *answer) {
        each_attribute(answer, sizeof(ifinfomsg), [&is_served](const nlattr *attribute) {
            if (mnl_attr_get_type(attribute) == IFLA_CARRIER) is_served = mnl_attr_get_u8(attribute) != 0;
        });
    });
    return is_served;
}

int routes_t::set_up_device(uint16_t flag) {
    netlink_request_t<ifinfomsg> request(RTM_NEWLINK, NLM_F_ACK);
    mnl_attr_put_strz(request.message(), IFLA_IFNAME, translator_device);
    request->ifi_flags = request->ifi_change = IFF_UP;
    const int failed = netlink_.ask(request.message());
    if (failed != 0) return failed;
    std::array<uint8_t, sizeof(in6_addr)> prefix{};
    std::copy(translator_prefix.begin(), translator_prefix.end(), prefix.begin());
    return change(RTM_NEWROUTE, static_cast<uint16_t>(NLM_F_CREATE | flag), AF_INET6, prefix.data(),
                  translator_prefix_len);
}

int routes_t::delete_device() {
    netlink_request_t<ifinfomsg> request(RTM_DELLINK, NLM_F_ACK);
    mnl_attr_put_strz(request.message(), IFLA_IFNAME, translator_device);
    return netlink_.ask(request.message());
}

int routes_t::read(std::vector<ipv4_network_t> &networks) {
    networks.clear();
    const uint32_t device = if_nametoindex(translator_device);
    if (device == 0) return 0;
    netlink_request_t<rtmsg> request(RTM_GETROUTE, NLM_F_DUMP);
    request->rtm_family = AF_INET;
    const int failed = netlink_.ask(request.message(), [&](const nlmsghdr *answer) {
        const auto *route = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(answer));
        ipv4_network_t network{0, route->rtm_dst_len};
        uint32_t out = 0;
        each_attribute(answer, sizeof *route, [&](const nlattr *attribute) {
            const uint16_t type = mnl_attr_get_type(attribute);
            if (type == RTA_DST) network.address = ntohl(mnl_attr_get_u32(attribute));
            if (type == RTA_OIF) out = mnl_attr_get_u32(attribute);
        });
        if (route->rtm_table == RT_TABLE_MAIN && out == device) networks.push_back(network);
    });
    std::sort(networks.begin(), networks.end());
    return failed;
}

int routes_t::add(const ipv4_network_t &network) {
    const uint32_t address = htonl(network.address);
    return change(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL, AF_INET, &address, network.prefix_len);
}

int routes_t::remove(const ipv4_network_t &network) {
    const uint32_t address = htonl(network.address);
    return change(RTM_DELROUTE, 0, AF_INET, &address, network.prefix_len);
}

int routes_t::change(uint16_t type, uint16_t flags, uint8_t family, const void *address, uint8_t prefix_len) {
    const uint32_t device = if_nametoindex(translator_device);
    if (device == 0) return ENODEV; /* the kernel would take 0 as every device */
    netlink_request_t<rtmsg> request(type, static_cast<uint16_t>(NLM_F_ACK | flags));
    request->rtm_family = family;
    request->rtm_dst_len = prefix_len;
    request->rtm_table = RT_TABLE_MAIN;
    request->rtm_protocol = type == RTM_DELROUTE ? RTPROT_UNSPEC : RTPROT_STATIC;     /* delete: any protocol */
    request->rtm_scope = type == RTM_DELROUTE ? RT_SCOPE_NOWHERE : RT_SCOPE_UNIVERSE; /* delete: any scope */
    request->rtm_type = RTN_UNICAST;
    mnl_attr_put(request.message(), RTA_DST, address_size(family), address);
    mnl_attr_put_u32(request.message(), RTA_OIF, device);
    return netlink_.ask(request.message());
}
