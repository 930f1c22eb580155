/*
 * What stands between the server and whatever carries its configuration out. The server checks requests, holds the
 * configuration, answers and journals. An engine makes the configuration take effect, and knows the sessions.
 *
 * The server calls an engine from its loop only, never from inside another call of the engine. Functions that return a
 * code return 0 or the code that the client gets, one of FWX_NAT64_MODEL_ERR_ or the engine's own. They may throw
 * std::bad_alloc: the client that is being served is then dropped, but see commit.
 */
#ifndef SERVER_ENGINE_H
#define SERVER_ENGINE_H

#include "server/address.h"
#include "server/configuration.h"

/** Which sessions; a field that is 0 or unspecified matches all. */
struct session_filter_t {
    uint32_t protocol;
    address_t src;
    address_t dst;
    uint32_t pool_addr; /* host order */
    uint16_t port;      /* of the source, the pool's or the destination */
};

class engine_t {
public:
    engine_t() = default;
    engine_t(const engine_t &) = delete;
    engine_t &operator=(const engine_t &) = delete;
    virtual ~engine_t() = default;

    /** Wanted by the clients. The server changes it; an engine reads it, and writes it in commit only. */
    configuration_t config;

    /** Returns the code with which this engine refuses a configuration command, before the configuration has seen it:
     * the command may still be one that the configuration does not accept. Rules come as record_kept_basic_rule and so
     * on, with index 0. `payload` has the size that belongs to `op_code`. */
    virtual uint32_t refusal(uint32_t op_code, const void *payload) const = 0;
    /** Hears of each change that `config` has accepted and already holds, be it a command's or one that is restored,
     * before the command is answered. Arguments as for refusal; a rule that a command sets has its index. */
    virtual void changed(uint32_t op_code, const void *payload) = 0;
    /** True if changes come into force by commit only: until then the server holds their answers, and all behind them.
     * Never changes. */
    virtual bool needs_commit() const = 0;
    /**
     * Brings the changes since the last call into force. An engine that needs it gets it from nat64_server_t::commit,
     * once for the commands of a turn, before the journal gets the changes.
     * @return 0, or a code with which each of these changes is answered. The engine has then set `config` back to what
     * is in force, and the journal does not get them.
     */
    virtual uint32_t commit() noexcept = 0;

    /** Sessions that there are now. A mapping is named by kind, FWX_NAT64_MAPPING_STATIC or _DYNAMIC, and identifier.
     */
    virtual uint64_t session_count() const = 0;
    virtual uint64_t session_count_of_pool(uint32_t pool_id) const = 0;
    virtual uint64_t session_count_of_mapping(uint32_t kind, uint32_t mapping_id) const = 0;
    /** Flows that became no session because no address and port was free for them. */
    virtual uint64_t failed_session_count() const { return 0; }
    /** Ends the sessions that match. */
    virtual uint32_t session_clear(const session_filter_t &filter) = 0;

    enum class found_t : uint8_t { none, session, later };
    /** Finds the first session with an identifier not below `from` that matches. Identifiers are not 0, and those of
     * sessions that stay do not change, because walks go on by them in later turns. Looks at no more than `looks`
     * sessions and takes those off it: `later` when they are used up, and the search goes on at the identifier in
     * `session`. */
    virtual found_t session_next(uint64_t from, const session_filter_t &filter, fwx_nat64_session_t *session,
                                 uint64_t &looks) const = 0;
    /** Returns the long form of a session that was just found. */
    virtual fwx_nat64_session_full_t session_in_full(const fwx_nat64_session_t &session) const = 0;
};

#endif
