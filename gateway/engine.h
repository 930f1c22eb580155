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
    /** Call this regularly: it restores what other programs have taken from the kernel (the translator, the routes of
     * its device, the nftables table), and logs when the kernel does not forward packets any more. */
    void watch();
    /** Call this after each turn of the loop: it marks the sessions that were read as outdated. */
    void turn_ended() { is_old_ = true; }
    /** Removes everything that a gateway has created in the kernel; returns what went wrong. */
    std::string remove();

    uint32_t refusal(uint32_t op_code, const void *payload) const override;
    void changed(uint32_t op_code, const void *payload) noexcept override;
    bool needs_commit() const override { return true; }
    uint32_t commit() noexcept override;

    uint64_t session_count() const override { return read_sessions(false).size(); }
    uint64_t session_count_of_pool(uint32_t pool_id) const override { return count_of({pool_kind, pool_id}); }
    uint64_t session_count_of_mapping(uint32_t kind, uint32_t id) const override { return count_of({kind, id}); }
    uint64_t failed_session_count() const override { return sessions_t::failed_count(); }
    uint32_t session_clear(const session_filter_t &filter) override;
    found_t session_next(uint64_t from, const session_filter_t &filter, fwx_nat64_session_t *session,
                         uint64_t &looks) const override;
    fwx_nat64_session_full_t session_in_full(const fwx_nat64_session_t &session) const override;

private:
    using session_t = sessions_t::session_t;
    using addresses_t = std::pair<address_t, address_t>; /* inside and outside */
    using owner_t = std::pair<uint32_t, uint32_t>;       /* kind of mapping or pool_kind, and identifier */
    static constexpr uint32_t pool_kind = 0;

    uint32_t interface_refusal(const fwx_nat64_intf_payload_t &interface) const;
    uint32_t static_refusal(const fwx_nat64_smapping_t &mapping) const;
    void end_sessions(const std::set<addresses_t> &ended, const networks_t &before);
    void end_untranslated();
    uint64_t count_of(const owner_t &owner) const;
    const std::vector<session_t> &read_sessions(bool goes_on) const;
    void name_owners() const;

    kernel_t kernel_;
    translator_t translator_;
    mutable sessions_t sessions_;
    const log_fn_t log_;
    std::string trouble_;      /* last error of a restoration, so that it is logged only once */
    std::string standstill_;   /* why the kernel does not forward packets, likewise */
    bool is_restoring_ = true; /* until the first commit */
    configuration_t in_force_;
    std::map<uint32_t, addresses_t> statics_;  /* static mappings of `config`, by identifier */
    std::map<address_t, uint32_t> static_ids_; /* their identifiers, by inside and by outside address */
    std::set<addresses_t> ended_;              /* static mappings that were deleted since the last commit */

    /* Cache of the sessions that were last read from connection tracking. */
    mutable std::vector<session_t> read_;
    mutable bool is_old_ = true;
    mutable uint64_t read_until_ms_ = 0; /* until then a walk continues in an outdated cache */
    mutable std::map<owner_t, uint64_t> counts_;
};

#endif
