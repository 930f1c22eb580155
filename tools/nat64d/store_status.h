/* The part of nat64d's status that is about the store of its document. */
#ifndef TOOLS_NAT64D_STORE_STATUS_H
#define TOOLS_NAT64D_STORE_STATUS_H

#include <cstdint>
#include <string>

struct store_status_t {
    bool is_up = false;     /* it answers, and confirms which document this gateway is to hold */
    std::string reason;     /* why not; empty: it is up */
    uint64_t version = 0;   /* of the document in force; 0: it is not from the store */
    double confirmed_s = 0; /* time of the last confirmation, in seconds since the epoch; 0: none since the start */
    uint64_t refused_version = 0; /* the wanted version, if it was refused; 0: none */
    std::string refused_document; /* its SHA-256 */
    std::string refused_reason;
};

#endif
