/*
 * The interface between the server and an engine. The server checks requests, holds the configuration, sends answers
 * and writes the journal. An engine puts the configuration into effect, and manages the sessions.
 *
 * The server calls an engine only from its loop, and never from inside another call of the engine. Functions that
 * return a code return 0 or the code that the client gets: one of FWX_NAT64_MODEL_ERR_ or the engine's own. All
 * functions but `changed` and `commit` may throw std::bad_alloc; the server then drops the client that it is serving.
 */
#ifndef SERVER_ENGINE_H
#define SERVER_ENGINE_H

#include "server/address.h"
#include "server/configuration.h"

/** Selects sessions. A field that is 0 or unspecified matches all. */
struct session_filter_t {
    uint32_t protocol;
    address_t src;
    address_t dst;
    uint32_t pool_addr; /* host order */
    uint16_t port;      /* source, pool or destination port */

    bool has_pool_addr_and_port_of(const fwx_nat64_session_full_t &session) const {
        const bool is_port =
            port == 0 || port == session.src_port || port == session.pool_port || port == session.dst_port;
        return is_port && (pool_addr == 0 || pool_addr == ipv4_of(session.pool_addr.addr));
    }
};

class engine_t {
public:
    engine_t() = default;
    engine_t(const engine_t &) = delete;
    engine_t &operator=(const engine_t &) = delete;
    virtual ~engine_t() = default;

    /** The desired configuration. The server changes it. An engine reads it, and writes it only in commit. */
    configuration_t config;

    /** Returns the code with which this engine refuses a configuration command, or 0. Called before the configuration
     * checks the command, which may still refuse it. Rules are passed as record_kept_basic_rule and so on, with index
     * 0. `payload` has the size that belongs to `op_code`. */
    virtual uint32_t refusal(uint32_t op_code, const void *payload) const = 0;
    /** Called after `config` has accepted and stored a change, of a command or of a restored part, and before the
     * command is answered. The arguments are those of refusal, except that a rule set by a command has its index.
     * Ends the process when memory is exhausted, as the change is in force by then. */
    virtual void changed(uint32_t op_code, const void *payload) noexcept = 0;
    /** True if changes take effect only in commit. The server then holds their answers, and all later ones, until
     * commit. The value never changes. */
    virtual bool needs_commit() const = 0;
    /**
     * Puts the changes since the last call into effect. nat64_server_t::commit calls it if needs_commit(), once for all
     * commands of a turn, before it writes the changes to the journal.
     * @return 0, or a code. The engine has then restored `config` to the configuration in effect. The server carries
     * out several refused changes again, one by one. A single one is answered with the code and not written to the
     * journal.
     */
    virtual uint32_t commit() noexcept = 0;

    /** Number of current sessions. A mapping is named by its kind, FWX_NAT64_MAPPING_STATIC or _DYNAMIC, and its
     * identifier. */
    virtual uint64_t session_count() const = 0;
    virtual uint64_t session_count_of_pool(uint32_t pool_id) const = 0;
    virtual uint64_t session_count_of_mapping(uint32_t kind, uint32_t mapping_id) const = 0;
    /** Number of flows that got no session because no address and port was free. */
    virtual uint64_t failed_session_count() const { return 0; }
    /** Ends the sessions that match. */
    virtual uint32_t session_clear(const session_filter_t &filter) = 0;

    enum class found_t : uint8_t { none, session, later };
    /** Finds the first matching session whose identifier is at least `from`. Identifiers are not 0. A session's
     * identifier never changes, because a walk continues from it in a later turn. Examines at most `looks` sessions and
     * subtracts their number from it. Returns `later` when `looks` is used up; the search continues at the identifier
     * in `session`.
     */
    virtual found_t session_next(uint64_t from, const session_filter_t &filter, fwx_nat64_session_t *session,
                                 uint64_t &looks) const = 0;
    /** Returns the long form of a session that was just found. */
    virtual fwx_nat64_session_full_t session_in_full(const fwx_nat64_session_t &session) const = 0;
};

#endif
