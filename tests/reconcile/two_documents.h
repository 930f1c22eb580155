/* Two documents and the plan between them, for tests that carry it out, and what the rule table finds. */
#ifndef TESTS_RECONCILE_TWO_DOCUMENTS_H
#define TESTS_RECONCILE_TWO_DOCUMENTS_H

#include <string>
#include <vector>

#include "model/model.h"
#include "tests/config/loaded.h"

inline const std::string before =
    "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.10\n"
    "timeout set --type 1 --value 10\n"
    "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.2.0/24\n";
inline const std::string after =
    "timeout set --type 1 --value 20\n"
    "pool add --id 2 --param 1 --start 192.0.2.1 --end 192.0.2.10\n"
    "dmapping add --id 3 --type 1\n"
    "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.3.0/24\n";
inline const std::vector<std::string> steps = {
    "mapt bmr del --rule 5 --domain 6",
    "pool del --id 1",
    "timeout set --type udp --value 20",
    "pool add --id 2 --param 1 --start 192.0.2.1 --end 192.0.2.10",
    "dmapping add --id 3 --type address-dependent",
    "mapt bmr add --rule 5 --domain 6 --v6 2001:db8::/40 --v4 192.0.3.0/24",
};

/** The ID of the rule that the library's table finds for an address of 192.0.2.0/24, or 0. */
inline uint32_t rule_found_by(const fwx_nat64_model_t &model) {
    const fwx_nat64_addr_t address{FWX_NAT64_FAMILY_IPV4, {192, 0, 2, 1}};
    fwx_nat64_model_match_t match{};
    return model.lookup(&address, &match) ? match.rule_id : 0;
}

#endif
