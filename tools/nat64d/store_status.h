/* What nat64d says of the store that its document comes from. */
#ifndef TOOLS_NAT64D_STORE_STATUS_H
#define TOOLS_NAT64D_STORE_STATUS_H

#include <cstdint>
#include <string>

struct store_status_t {
    bool is_up = false;           /* it answers, and has confirmed which document this gateway is to hold */
    std::string reason;           /* why it does not; empty: it does */
    uint64_t version = 0;         /* of the document in force; 0: that is none of the store's */
    double confirmed_s = 0;       /* when the store last confirmed which document this gateway is to hold, in seconds of
                                     the epoch; 0: it has not since the start */
    uint64_t refused_version = 0; /* that is to be held and is not; 0: none */
    std::string refused_document; /* its SHA-256 */
    std::string refused_reason;
};

#endif
