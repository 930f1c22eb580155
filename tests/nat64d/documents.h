/* Documents of any size, and the statistics of a server that holds one. */
#ifndef TESTS_NAT64D_DOCUMENTS_H
#define TESTS_NAT64D_DOCUMENTS_H

#include <cstdint>
#include <string>

inline std::string address_in(uint32_t net, uint32_t number) {
    std::string text = std::to_string(net);
    for (const uint32_t shift : {16U, 8U, 0U}) {
        text += '.';
        text += std::to_string(number >> shift & 0xff);
    }
    return text;
}

/** A timeout whose value is `edition`, and `count` each of pools, static mappings and rules, numbered from 1. */
inline std::string document_text(uint32_t count, uint32_t edition) {
    std::string text = "timeout set --type udp --value " + std::to_string(edition) + '\n';
    for (uint32_t i = 1; i <= count; ++i) {
        const std::string id = std::to_string(i);
        const std::string address = address_in(10, i);
        text += "pool add --id " + id + " --param 1 --start " + address + " --end " + address;
        text += "\nsmapping add --id " + id + " --addr1 " + address_in(20, i) + " --addr2 " + address_in(30, i) + '\n';
        text += "mapt bmr add --rule " + id + " --domain 1 --v4 " + address_in(40, i) + "/32";
        const std::string high = std::to_string(i / 10000);
        text += " --v6 2001:db8:" + high + ":" + std::to_string(i % 10000) + "::/64\n";
    }
    return text;
}

#endif
