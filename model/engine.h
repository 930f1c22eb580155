/* The engine of the model. It does not translate traffic, so every change is in force at once. It simulates sessions:
 * one for each static mapping, and generated sessions, which are computed from their number. */
#ifndef MODEL_ENGINE_H
#define MODEL_ENGINE_H

#include <map>
#include <unordered_map>
#include <vector>

#include "server/engine.h"

/** A pool of addresses to which sessions are translated. */
struct session_pool_t {
    uint32_t id;
    uint32_t first; /* host order */
    uint32_t count; /* not 0 */
};

class model_engine_t : public engine_t {
public:
    /** Replaces the generated sessions by `count` new ones, distributed over the current dynamic mappings and pools.
     * Identifiers ascend. */
    void generate(uint64_t count);

    std::unordered_map<rule_key_t, uint64_t, rule_key_hash_t> lookups; /* number of lookups that found the rule */

    uint32_t refusal(uint32_t, const void *) const override { return 0; }
    /** Deleting a mapping or a pool ends its sessions. Deleting a rule drops its count of lookups. */
    void changed(uint32_t op_code, const void *payload) noexcept override;
    bool needs_commit() const override { return false; }
    uint32_t commit() noexcept override { return 0; }

    uint64_t session_count() const override { return statics.size() + generated_live; }
    uint64_t session_count_of_pool(uint32_t pool_id) const override { return pools.count_of(pool_id); }
    uint64_t session_count_of_mapping(uint32_t kind, uint32_t mapping_id) const override {
        return kind == FWX_NAT64_MAPPING_STATIC ? statics.count(mapping_id) : mappings.count_of(mapping_id);
    }
    uint32_t session_clear(const session_filter_t &filter) override;
    found_t session_next(uint64_t from, const session_filter_t &filter, fwx_nat64_session_t *session,
                         uint64_t &looks) const override;
    fwx_nat64_session_full_t session_in_full(const fwx_nat64_session_t &session) const override;

private:
    struct static_session_t {
        fwx_nat64_addr_t src, dst;
        uint64_t opened_ms;
    };
    /** Dynamic mappings or pools, and the number of their open sessions. Generated session n belongs to owner n modulo
     * the number of owners. */
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

    uint32_t lifetime_s(uint32_t protocol) const;
    void close_sessions_of(const owners_t &owners, uint32_t id);
    void close_generated(uint64_t n);
    fwx_nat64_session_t generated_session(uint64_t n) const;
    bool matches(const session_filter_t &filter, const fwx_nat64_session_t &session) const;

    std::map<uint32_t, static_session_t> statics; /* by the mapping's identifier */
    std::vector<bool> generated;                  /* whether generated session n is open */
    uint64_t generated_live = 0;
    uint64_t generated_ms = 0;
    owners_t mappings, pools;
    std::vector<session_pool_t> generated_pools;
};

#endif
