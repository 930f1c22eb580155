/* The engine of the gateway: the part of the server that has Linux carry out the configuration. Linux translates the
 * packets; this engine turns the configuration into a plan, applies it to the kernel, and reads sessions from
 * connection tracking. Changes take effect at commit, as one nftables transaction. If memory is out during a commit,
 * the process ends; a restarted gateway finds in the kernel what is in force. */
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

    /** Checks the requirements and starts the translator; returns what is missing, or an empty text. */
    std::string open();
    /** Call this regularly: it restarts the translator after it has died, and restores routes that its device
     * has lost. */
    void watch_translator();
    /** Call this after each turn of the loop: it marks the sessions that were read as outdated. */
    void turn_ended() { is_old_ = true; }
    /** Removes everything that a gateway has created in the kernel; returns what went wrong. */
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
    uint32_t refusal_of(const fwx_nat64_intf_payload_t &interface) const;
    uint32_t refusal_of(const fwx_nat64_smapping_t &mapping) const;
    uint32_t refusal_of(const fwx_nat64_dmapping_t &mapping, bool is_new) const;
    void end_sessions(const std::set<static_t> &ended, const std::vector<ipv4_network_t> &before);
    const std::vector<session_t> &read_sessions(bool goes_on) const;
    void name_owners() const;

    kernel_t kernel_;
    translator_t translator_;
    mutable sessions_t sessions_;
    const log_fn_t log_;
    std::string trouble_;      /* last error of the translator, so that it is logged only once */
    bool is_restoring_ = true; /* until the first commit */
    configuration_t in_force_;
    std::vector<change_t> pending_;
    std::map<uint32_t, static_t> statics_; /* static mappings of `config`, by identifier */
    std::set<address_t> static_addresses_; /* inside and outside address of each static mapping */
    std::set<static_t> ended_;             /* static mappings that pending changes delete */

    /* Cache of the sessions that were last read from connection tracking. */
    mutable std::vector<session_t> read_;
    mutable bool is_old_ = true;
    mutable uint64_t read_until_ms_ = 0; /* until then a walk continues in an outdated cache */
    mutable std::map<uint32_t, uint64_t> of_pools_;
    mutable std::map<std::pair<uint32_t, uint32_t>, uint64_t> of_mappings_; /* session count by kind and identifier */
};

#endif
