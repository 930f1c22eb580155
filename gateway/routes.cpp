/* Routes and device of the translator, over rtnetlink. Routes of the device in other tables than main are ignored. */
#include "gateway/routes.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>

bool routes_t::is_device_served() {
    bool is_served = false;
    netlink_request_t<ifinfomsg> request(RTM_GETLINK, NLM_F_ACK);
    mnl_attr_put_strz(request.message(), IFLA_IFNAME, translator_device);
    netlink_.ask(request.message(), [&is_served](const nlmsghdr *answer) {
        const nlattr *carrier = find_attribute(answer, sizeof(ifinfomsg), IFLA_CARRIER);
        is_served = carrier != nullptr && mnl_attr_get_u8(carrier) != 0;
    });
    return is_served;
}

int routes_t::set_up_device(uint16_t flag) {
    netlink_request_t<ifinfomsg> request(RTM_NEWLINK, NLM_F_ACK);
    mnl_attr_put_strz(request.message(), IFLA_IFNAME, translator_device);
    request->ifi_flags = request->ifi_change = IFF_UP;
    const int failed = netlink_.ask(request.message());
    if (failed != 0) return failed;
    return change(RTM_NEWROUTE, static_cast<uint16_t>(NLM_F_CREATE | flag), AF_INET6, translator_prefix.data(),
                  translator_prefix_len);
}

int routes_t::delete_device() {
    netlink_request_t<ifinfomsg> request(RTM_DELLINK, NLM_F_ACK);
    mnl_attr_put_strz(request.message(), IFLA_IFNAME, translator_device);
    return netlink_.ask(request.message());
}

int routes_t::read(networks_t &networks) {
    networks.clear();
    const uint32_t device = if_nametoindex(translator_device);
    if (device == 0) return 0;
    netlink_request_t<rtmsg> request(RTM_GETROUTE, NLM_F_DUMP);
    request->rtm_family = AF_INET;
    const int failed = netlink_.ask(request.message(), [&](const nlmsghdr *answer) {
        const auto *route = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(answer));
        const nlattr *to = find_attribute(answer, sizeof *route, RTA_DST);
        const nlattr *out = find_attribute(answer, sizeof *route, RTA_OIF);
        const bool is_ours = route->rtm_table == RT_TABLE_MAIN && out != nullptr && mnl_attr_get_u32(out) == device;
        if (is_ours) networks.push_back({to == nullptr ? 0 : ntohl(mnl_attr_get_u32(to)), route->rtm_dst_len});
    });
    std::sort(networks.begin(), networks.end());
    return failed;
}

int routes_t::change(uint16_t type, const ipv4_network_t &network) {
    const uint32_t address = htonl(network.address);
    const uint16_t flags = type == RTM_NEWROUTE ? NLM_F_CREATE | NLM_F_EXCL : 0;
    return change(type, flags, AF_INET, &address, network.prefix_len);
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
    mnl_attr_put(request.message(), RTA_DST, family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr), address);
    mnl_attr_put_u32(request.message(), RTA_OIF, device);
    return netlink_.ask(request.message());
}
