/* Routes to the translator's device, and the device itself, through rtnetlink. */
#ifndef GATEWAY_ROUTES_H
#define GATEWAY_ROUTES_H

#include <string>
#include <vector>

#include "gateway/netlink.h"
#include "gateway/plan.h"

class routes_t {
public:
    routes_t() : netlink_(NETLINK_ROUTE) {}

    /** Whether the device is there, and whether a program translates behind it. */
    struct device_t {
        bool is_there;
        bool is_served;
    };
    device_t device();
    /** Sets the device up and routes the translator's prefix to it. Returns 0 or an errno value, as all below. */
    int set_up_device();
    int delete_device();

    /** The IPv4 networks that are routed to the device. */
    int read(std::vector<ipv4_network_t> &networks);
    int add(const ipv4_network_t &network);
    int remove(const ipv4_network_t &network);

private:
    int change(uint16_t type, uint16_t flags, uint8_t family, const void *address, uint8_t prefix_len);

    netlink_t netlink_;
};

#endif
