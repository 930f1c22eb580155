/* The commands `natctl stats`, `natctl sessions` and `natctl dev ipalias`: queries, which are lists of entries. */
#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

#include "fwx_nat64/fwx_nat64.hpp"
#include "fwx_nat64/wire.h"
#include "records/value.h"
#include "tools/natctl/decode.h"
#include "tools/natctl/grammar.h"

namespace {

constexpr uint32_t no_limit = UINT32_MAX;

struct query_t {
    uint32_t sel;
    uint64_t cookie;
    uint32_t count = 1000; /* most entries in a reply */
    uint32_t limit = no_limit;
    uint32_t arg;
};

void selector_field(command_spec_t &app, query_t &query) {
    number_field(app, "--sel", query.sel, "selector, passed to the server");
}

void limit_field(command_spec_t &app, uint32_t &limit) {
    number_field(app, "--limit", limit, "the most entries to show, all without it", 1);
}

void limit_query_fields(command_spec_t &app, query_t &query) {
    selector_field(app, query);
    limit_field(app, query.limit);
    number_field(app, "--count", query.limit, "the same as --limit", 1);
}

void all_query_fields(command_spec_t &app, query_t &query) {
    selector_field(app, query);
    limit_field(app, query.limit);
    number_field(app, "--count", query.count, "largest number of entries to ask for at a time, 1000 without it", 1);
    number_field(app, "--cookie", query.cookie, "where to go on, 0 for the start");
    number_field(app, "--arg", query.arg, "argument, passed to the server");
}

void no_fields(command_spec_t &, query_t &) {}

void *cookie_of(const query_t &query) {
    return reinterpret_cast<void *>(query.cookie);
}

struct query_form_t {
    uint16_t msgno;
    const char *verb;
    const char *summary;
    uint32_t (*start)(const query_t &query, void *ctx);
    void (*fields)(command_spec_t &app, query_t &query);
    uint32_t sel = 0; /* the selector if --sel is not given */
};

constexpr query_form_t query_forms[] = {
    {FWX_NAT64_MSG_STATS_SYS, "system", "How many the server holds of each kind, and what it has refused",
     [](const query_t &query, void *ctx) { return fwx_nat64_stats_sys_query_a(query.sel, ctx); }, selector_field,
     FWX_NAT64_SEL_SYSTEM},
    {FWX_NAT64_MSG_STATS_INTF, "interfaces", "Statistics of all interfaces",
     [](const query_t &, void *ctx) { return fwx_nat64_stats_intf_query_a(ctx); }, no_fields},
    {FWX_NAT64_MSG_STATS_POOL_ALL, "pools", "Statistics of all pools",
     [](const query_t &query, void *ctx) {
         return fwx_nat64_stats_pool_all_query_a(query.sel, cookie_of(query), query.count, query.arg, ctx);
     },
     all_query_fields},
    {FWX_NAT64_MSG_STATS_MAPPING_ALL, "mappings", "Statistics of all mappings",
     [](const query_t &query, void *ctx) {
         return fwx_nat64_stats_mapping_all_query_a(query.sel, cookie_of(query), query.count, query.arg, ctx);
     },
     all_query_fields},
    {FWX_NAT64_MSG_STATS_LIMIT_ALL, "limits", "Limits and their use",
     [](const query_t &query, void *ctx) {
         /* This query has no cookie, so asking for one entry more shows whether there are more. */
         const uint32_t count = query.limit == no_limit ? no_limit : query.limit + 1;
         return fwx_nat64_stats_limit_all_query_a(query.sel, count, ctx);
     },
     limit_query_fields},
};

uint32_t start_query(call_t &call, const query_t &query, const query_form_t &form) {
    auto ask = [query, start = form.start](void *pal_ctx, uint64_t cookie, uint64_t wanted) {
        query_t next = query;
        next.cookie = cookie;
        next.count = static_cast<uint32_t>(std::min<uint64_t>(query.count, wanted));
        return start(next, pal_ctx);
    };
    return call.pal.begin_list(call, form.msgno, query.cookie, query.limit, ask);
}

/** The filter of a command on sessions. */
struct matching_t {
    uint32_t protocol;
    fwx_nat64_addr_t src;
    fwx_nat64_addr_t dst;
    fwx_nat64_addr_t pool_addr;
    uint16_t port;
};

/** True if the option of this address was not given. */
bool is_none(const fwx_nat64_addr_t &address) {
    constexpr fwx_nat64_addr_t none{};
    return std::memcmp(&address, &none, sizeof none) == 0;
}

/** True if every session matches. */
bool is_any(const matching_t &matching) {
    return matching.protocol == 0 && matching.port == 0 && is_none(matching.src) && is_none(matching.dst) &&
           is_none(matching.pool_addr);
}

constexpr const char *inside_option = "--inside,--src";

void matching_fields(command_spec_t &app, matching_t &matching) {
    protocol_field(app, "--protocol", matching.protocol, "only those of this IP protocol");
    address_field(app, "--dst", matching.dst, "only those with this destination");
    ipv4_field(app, "--pool-address", matching.pool_addr, "only those that are translated to this address");
    number_field(app, "--port", matching.port, "only those with this port, inside, of the pool or of the destination",
                 1);
}

uint32_t network_word(const fwx_nat64_addr_t &address) {
    uint32_t word = 0;
    std::memcpy(&word, address.addr, sizeof word);
    return htonl(word);
}

/** The part of a filter that the library passes on as bytes. */
fwx_nat64_session_where_t where_of(const matching_t &matching) {
    fwx_nat64_session_where_t where{};
    const uint32_t pool_addr = network_word(matching.pool_addr);
    std::memcpy(where.pool_addr, &pool_addr, sizeof pool_addr);
    where.dst = matching.dst;
    const uint32_t dst = network_word(matching.dst);
    if (matching.dst.family == FWX_NAT64_FAMILY_IPV4) std::memcpy(where.dst.addr, &dst, sizeof dst);
    where.port = matching.port;
    return where;
}

struct walk_t {
    matching_t matching;
    uint64_t cookie;
    uint32_t count = 50;
    uint32_t limit = no_limit;
    fwx_nat64_addr_t net;              /* prefix of the inside host */
    std::optional<uint8_t> net_length; /* in bits; none: any host */
    bool is_wide = false;
};

/** Reads the inside host, or a prefix. */
std::string read_inside(const std::string &text, walk_t &walk) {
    const size_t slash = std::min(text.find('/'), text.size());
    fwx_nat64_addr_t address{};
    const bool is_address = parse_address(text.substr(0, slash), address);
    const uint64_t bits = address.family == FWX_NAT64_FAMILY_IPV4 ? 32 : 128;
    uint64_t length = bits;
    const bool is_length = slash == text.size() || parse_number(text.substr(slash + 1), length);
    if (!is_address || !is_length || length > bits) {
        return record_field_error("--inside", text, "an address, or a prefix such as 2001:db8::/64");
    }
    if (length == bits) walk.matching.src = address;
    if (length == bits) return {};
    walk.net = address;
    walk.net_length = static_cast<uint8_t>(length);
    return {};
}

/** True if the inside host of a session, which may be a full or a short entry, is within the prefix. */
bool is_inside(const wire_message_t &reply, const uint8_t *session, const fwx_nat64_addr_t &net, uint32_t length) {
    const bool is_full = reply.entry_size == sizeof(fwx_nat64_session_full_t);
    const size_t at = is_full ? offsetof(fwx_nat64_session_full_t, src) : offsetof(fwx_nat64_session_t, src);
    fwx_nat64_addr_t host;
    std::memcpy(&host, session + at, sizeof host);
    const bool is_ipv4 = net.family == FWX_NAT64_FAMILY_IPV4;
    if (is_ipv4 != (host.family == FWX_NAT64_FAMILY_IPV4)) return false;
    if (!is_ipv4) return has_prefix(host.addr, net.addr, length);
    const uint32_t words[] = {network_word(host), network_word(net)};
    const auto *bytes = reinterpret_cast<const uint8_t *>(words);
    return has_prefix(bytes, bytes + sizeof words[0], length);
}

/** Sends a query of a walk, with the limit, so that the server sends no more than wanted. */
uint32_t ask_walk(void *pal_ctx, const walk_t &walk, uint64_t cookie, uint64_t wanted) {
    fwx_nat64_sess_walk_filter_t filter{};
    filter.src = walk.matching.src;
    std::memcpy(filter.opaque0, &walk.matching.protocol, sizeof walk.matching.protocol);
    const fwx_nat64_session_where_t where = where_of(walk.matching);
    std::memcpy(filter.opaque60, &where, sizeof where);
    const bool is_whole = walk.limit == no_limit || walk.net_length;
    const uint32_t limit = is_whole ? 0 : static_cast<uint32_t>(wanted);
    return fwx_nat64_session_walk_a(walk.count, &filter, cookie, limit, FWX_NAT64_WALK_FULL,
                                    nat64::client::walk_callback, pal_ctx);
}

uint32_t start_walk(call_t &call, const walk_t &walk) {
    auto ask = [walk](void *pal_ctx, uint64_t cookie, uint64_t wanted) {
        return ask_walk(pal_ctx, walk, cookie, wanted);
    };
    const auto takes = [net = walk.net, length = walk.net_length.value_or(0)](const wire_message_t &reply,
                                                                              const uint8_t *session) {
        return is_inside(reply, session, net, length);
    };
    call.outcome.is_brief = !walk.is_wide;
    return call.pal.begin_list(call, FWX_NAT64_MSG_SESSION_WALK, walk.cookie,
                               walk.limit == no_limit ? UINT64_MAX : walk.limit, ask,
                               walk.net_length ? decltype(list_t::takes)(takes) : nullptr);
}

void add_walk(grammar_t &grammar) {
    auto walk = grammar.record<walk_t>();
    command_spec_t &app =
        grammar.command("walk", "Shows the sessions", [walk](call_t &call) { return start_walk(call, *walk); });
    number_field(app, "--count", walk->count, "sessions in a reply, 50 without it", 1);
    limit_field(app, walk->limit);
    number_field(app, "--cookie", walk->cookie, "where to go on, 0 for the start");
    flag_field(app, "--wide", walk->is_wide, "shows all fields of a session, in a table of more than 100 columns");
    text_field(
        app, inside_option, [walk](const std::string &text) { return read_inside(text, *walk); },
        "only those of this host inside, or of hosts with this prefix", "an address or a prefix");
    matching_fields(app, walk->matching);
}

uint32_t clear(call_t &call, const matching_t &matching) {
    call.outcome.changes = true; /* if the command succeeds */
    fwx_nat64_session_filter_t filter{};
    filter.value = matching.protocol;
    filter.src = matching.src;
    filter.dst = matching.dst;
    fwx_nat64_session_where_t where = where_of(matching);
    where.dst = {};
    std::memcpy(filter.opaque, &where, sizeof where);
    return call.pal.configure(call, [&filter](void *pal_ctx) { return fwx_nat64_session_clear_a(&filter, pal_ctx); });
}

uint32_t count_and_clear(call_t &call, const matching_t &matching) {
    walk_t walk{};
    walk.matching = matching;
    walk.count = 1000;
    auto ask = [walk](void *pal_ctx, uint64_t cookie, uint64_t wanted) {
        return ask_walk(pal_ctx, walk, cookie, wanted);
    };
    return call.pal.begin_count(call, FWX_NAT64_MSG_SESSION_WALK, ask,
                                [matching](call_t &of) { return clear(of, matching); });
}

void add_clear(grammar_t &grammar) {
    struct clear_t {
        matching_t matching;
        bool is_all;
    };
    auto wanted = grammar.record<clear_t>();
    command_spec_t &app =
        grammar.command("clear", "Clears the sessions that match every given option, and says how many matched before",
                        [wanted](call_t &call) {
                            if (wanted->is_all || !is_any(wanted->matching)) {
                                return count_and_clear(call, wanted->matching);
                            }
                            call.awaited = false;
                            refuse(call.outcome, status_t::usage, 0,
                                   "needs an option that says which sessions, or --all to clear every one");
                            return 0U;
                        });
    address_field(app, inside_option, wanted->matching.src, "only those of this host inside");
    matching_fields(app, wanted->matching);
    std::vector<const option_spec_t *> filters;
    for (const option_spec_t &filter : app.options) {
        filters.push_back(&filter);
    }
    option_spec_t &all = flag_field(app, "--all", wanted->is_all, "clears every session");
    for (const option_spec_t *filter : filters) {
        all.excludes(*filter);
    }
}

}  // namespace

void add_ipalias_command(grammar_t &grammar) {
    grammar.family("ipalias", "IP aliases");
    grammar.command("upload", "Asks the server to upload its IP aliases",
                    [](call_t &call) { return call.pal.configure(call, fwx_nat64_ipalias_upload_a); });
}

void add_query_commands(grammar_t &grammar) {
    grammar.family("stats", "Statistics");
    for (const query_form_t &form : query_forms) {
        auto query = grammar.record<query_t>();
        query->sel = form.sel;
        command_spec_t &app = grammar.command(form.verb, form.summary,
                                              [query, &form](call_t &call) { return start_query(call, *query, form); });
        form.fields(app, *query);
    }
    grammar.family("sessions", "Sessions");
    add_walk(grammar);
    add_clear(grammar);
}
