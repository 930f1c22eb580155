/* Routes to the translator's device, and the device itself, over rtnetlink. */
#ifndef GATEWAY_ROUTES_H
#define GATEWAY_ROUTES_H

#include <string>
#include <vector>

#include "gateway/netlink.h"
#include "gateway/plan.h"

class routes_t {
public:
    routes_t() : netlink_(NETLINK_ROUTE) {}

    /** Returns true if a program serves the device, which may be down. */
    bool is_device_served();
    /** Sets the device up and routes the translator's prefix to it. With NLM_F_EXCL as `flag`, a route that is there is
     * the error EEXIST; with NLM_F_REPLACE it is replaced. Returns 0 or an errno value, like all functions below. */
    int set_up_device(uint16_t flag);
    int delete_device();

    /** Reads the IPv4 networks that are routed to the device, in ascending order. */
    int read(networks_t &networks);
    /** Adds a route to the device with RTM_NEWROUTE as `type`, or removes it with RTM_DELROUTE. */
    int change(uint16_t type, const ipv4_network_t &network);

private:
    int change(uint16_t type, uint16_t flags, uint8_t family, const void *address, uint8_t prefix_len);

    netlink_t netlink_;
};

#endif
