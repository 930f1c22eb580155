/* The sessions of the gateway: entries of IPv6 connection tracking that pass the translator. */
#ifndef GATEWAY_SESSIONS_H
#define GATEWAY_SESSIONS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "server/engine.h"

struct nf_conntrack;
struct nfct_handle;
struct nlmsghdr;

/** True if a session matches a filter. Protocols 1 and 58 (ICMP and ICMPv6) are treated as equal. */
bool is_match(const session_filter_t &filter, const fwx_nat64_session_full_t &session);

class sessions_t {
public:
    using session_t = fwx_nat64_session_full_t;
    using match_fn_t = std::function<bool(const session_t &session)>;
    using to_fn_t = std::function<bool(const uint8_t *destination)>;

    /** Connects to connection tracking; returns why that failed, or an empty text. */
    std::string open();
    /** Reads all sessions, sorted by identifier, without pool and mapping. Returns 0 or an errno value. */
    int read(std::vector<session_t> &sessions);
    /** Ends the sessions that match; returns 0 or an errno value. */
    int end_if(const match_fn_t &match);
    /** Ends the flows to destinations that match which began without a translation, and so would never get one. Returns
     * 0 or an errno value. */
    int end_untranslated(const to_fn_t &match);
    /** Returns the number of flows that got no address and port, since this network namespace was created. */
    static uint64_t failed_count();

private:
    using found_fn_t = std::function<void(const nf_conntrack *entry, const nlmsghdr *message)>;
    int dump(const found_fn_t &found);
    int end_entries(const std::function<bool(const nf_conntrack *entry, const nlmsghdr *message)> &match);

    std::unique_ptr<nfct_handle, int (*)(nfct_handle *)> handle_{nullptr, nullptr};
};

#endif
