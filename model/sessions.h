/* The session table: one session for each static mapping, and made ones that are computed from their number. */
#ifndef MODEL_SESSIONS_H
#define MODEL_SESSIONS_H

#include <map>
#include <vector>

#include "model/address.h"
#include "model/command.h"

/** Which sessions; what is 0 or unspecified lets all through. */
struct session_filter_t {
    uint32_t protocol;
    address_t src;
    address_t dst;
    uint32_t pool_addr; /* host order */
    uint16_t port;
};
session_filter_t filter_of(const fwx_nat64_sess_walk_filter_t &record);

/** Addresses that sessions are translated to. */
struct session_pool_t {
    uint32_t id;
    uint32_t first; /* host order */
    uint32_t count; /* not 0 */
};

class sessions_t {
public:
    /** Opens the session of a static mapping, its addresses as on the wire. */
    void open_static(const fwx_nat64_smapping_t &mapping);
    void close_static(uint32_t mapping_id) { statics.erase(mapping_id); }

    /** Replaces the made sessions by `count` new ones, spread over these owners; identifiers ascend. */
    void generate(uint64_t count, std::vector<uint32_t> mapping_ids, std::vector<session_pool_t> of_pools);
    void close_of_mapping(uint32_t mapping_id) { close_of(mappings, mapping_id); }
    void close_of_pool(uint32_t pool_id) { close_of(pools, pool_id); }

    uint32_t clear(const fwx_nat64_session_filter_t &record);

    uint64_t size() const { return statics.size() + made_live; }
    uint64_t count_of_static(uint32_t mapping_id) const { return statics.count(mapping_id); }
    uint64_t count_of_mapping(uint32_t mapping_id) const { return mappings.count_of(mapping_id); }
    uint64_t count_of_pool(uint32_t pool_id) const { return pools.count_of(pool_id); }

    enum class found_t : uint8_t { none, session, later };
    /** The first session from identifier `from` on that the filter lets through. Looks at no more than `looks` of them,
     * and takes those off it: `later` when they are used up, and the search goes on at the identifier in `session`. */
    found_t next(uint64_t from, const session_filter_t &filter, fwx_nat64_session_t *session, uint64_t &looks) const;
    /** All there is to say of a session that was found but when it ends. */
    fwx_nat64_session_full_t in_full(const fwx_nat64_session_t &session) const;

private:
    struct static_session_t {
        fwx_nat64_addr_t src, dst;
        uint64_t opened_ms;
    };
    /** Made session n belongs to owner n modulo their number. */
    struct owners_t {
        std::vector<uint32_t> ids;
        std::vector<uint64_t> live;

        explicit owners_t(std::vector<uint32_t> owner_ids = {}) : ids(std::move(owner_ids)), live(ids.size(), 0) {}
        uint32_t of(uint64_t n) const { return ids.empty() ? 0 : ids[n % ids.size()]; }
        void add(uint64_t n, uint64_t difference) {
            if (!ids.empty()) live[n % live.size()] += difference;
        }
        uint64_t count_of(uint32_t id) const;
    };

    void close_of(const owners_t &owners, uint32_t id);
    void close_made(uint64_t n);
    fwx_nat64_session_t made_session(uint64_t n) const;
    bool lets_through(const session_filter_t &filter, const fwx_nat64_session_t &session) const;

    std::map<uint32_t, static_session_t> statics; /* by mapping */
    std::vector<bool> made;                       /* whether session n lives */
    uint64_t made_live = 0;
    uint64_t made_ms = 0;
    owners_t mappings, pools;
    std::vector<session_pool_t> made_pools;
};

constexpr config_command_t sessions_commands[] = {
    not_kept<&sessions_t::clear>(FWX_NAT64_CFG_SESSION_CLEAR),
};

#endif
