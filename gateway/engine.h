/* The engine of the gateway: Linux translates, and this says how. A change comes into force by commit, as one nftables
 * transaction. Where memory is out in a commit the process ends; a new one finds what is in the kernel. */
#ifndef GATEWAY_ENGINE_H
#define GATEWAY_ENGINE_H

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "gateway/kernel.h"
#include "gateway/sessions.h"
#include "gateway/translator.h"
#include "server/engine.h"

class gateway_engine_t : public engine_t {
public:
    using log_fn_t = std::function<void(const std::string &)>;

    gateway_engine_t(const translator_options_t &options, log_fn_t log)
        : kernel_(options.gateway), translator_(options), log_(std::move(log)) {}

    /** Checks what is needed and starts the translator; returns what is missing. */
    std::string open();
    /** To be called now and then: starts the translator again when it has died. */
    void watch_translator();
    /** To be called after each turn of the loop: what was read of the sessions is then old. */
    void turn_ended() { is_old_ = true; }
    /** Takes away all that a gateway has made in the kernel; returns what went wrong. */
    std::string remove();

    uint32_t refusal(uint32_t op_code, const void *payload) const override;
    void changed(uint32_t op_code, const void *payload) override;
    bool needs_commit() const override { return true; }
    uint32_t commit() noexcept override;

    uint64_t session_count() const override { return read_sessions(false).size(); }
    uint64_t session_count_of_pool(uint32_t pool_id) const override;
    uint64_t session_count_of_mapping(uint32_t kind, uint32_t mapping_id) const override;
    uint64_t failed_session_count() const override { return sessions_t::failed_count(); }
    uint32_t session_clear(const session_filter_t &filter) override;
    found_t session_next(uint64_t from, const session_filter_t &filter, fwx_nat64_session_t *session,
                         uint64_t &looks) const override;
    fwx_nat64_session_full_t session_in_full(const fwx_nat64_session_t &session) const override;

private:
    using session_t = sessions_t::session_t;
    struct change_t {
        uint32_t op_code;
        std::vector<uint8_t> payload;
    };
    struct static_t {
        address_t inside, outside;
        auto operator<=>(const static_t &other) const = default;
    };

    uint32_t pool_delete_refusal(uint32_t pool_id) const;
    uint32_t refusal_of(const fwx_nat64_smapping_t &mapping) const;
    uint32_t refusal_of(const fwx_nat64_dmapping_t &mapping, bool is_new) const;
    void end_sessions(const std::set<static_t> &ended, const std::vector<ipv4_network_t> &before);
    const std::vector<session_t> &read_sessions(bool goes_on) const;
    void name_owners() const;

    kernel_t kernel_;
    translator_t translator_;
    mutable sessions_t sessions_;
    const log_fn_t log_;
    std::string trouble_; /* with the translator, which is told once */
    bool has_lost_device_ = false;
    configuration_t in_force_;
    std::vector<change_t> pending_;
    std::map<uint32_t, static_t> statics_; /* those of `config`, by identifier */
    std::set<address_t> static_addresses_; /* both of each */
    std::set<static_t> ended_;             /* those that pending changes delete */

    /* What was read of connection tracking last. */
    mutable std::vector<session_t> read_;
    mutable bool is_old_ = true;
    mutable uint64_t read_until_ms_ = 0; /* so long a walk goes on in it when it is old */
    mutable std::map<uint32_t, uint64_t> of_pools_;
    mutable std::map<std::pair<uint32_t, uint32_t>, uint64_t> of_mappings_; /* by kind and identifier */
};

#endif
