/*
 * Answers to the statistics queries. A reply to a list query tells how many further replies follow, so the entries are
 * counted before the first page is sent. A short list is answered at once, a long one by the pager. The query for the
 * whole configuration is always answered by the pager.
 */
#include "fwx_host/inspect.h"
#include "server/state.h"

namespace {

constexpr uint64_t looks_per_entry = 16; /* an entry's cost, in units of examining one session in a walk */
constexpr uint64_t looks_at_once = 1024 * looks_per_entry;

/* Fills the head of replies of types 5 and 8. */
void fill(fwx_nat64_stats_intf_reply_t *head, uint32_t count, uint64_t) {
    head->value = count;
}
/* Fills the head of replies of types 6 and 7. */
void fill(fwx_nat64_stats_all_reply_t *head, uint32_t count, uint64_t next_key) {
    head->value = next_key;
    head->value2 = count;
}

enum class shown_t { all, enough, later };

/** Makes a list function over `table`. Called with a key `from`, the function passes `take` each entry from that key
 * on: its key, which is the table's key plus `base`, and a function that makes the reply's entry by `make`. It stops at
 * the end (all), when `take` returns false (enough), or when `looks` is used up (later). */
template <typename value_t, typename make_t>
auto list_of(const std::map<uint32_t, value_t> &table, make_t make, uint64_t base = 0) {
    return [&table, make, base](uint64_t from, uint64_t &looks, auto take) {
        if (from > base + UINT32_MAX) return shown_t::all;
        const uint32_t first = from > base ? static_cast<uint32_t>(from - base) : 0;
        for (auto it = table.lower_bound(first); it != table.end(); ++it) {
            if (looks < looks_per_entry) return shown_t::later;
            looks -= looks_per_entry;
            if (!take(base + it->first, [&] { return make(it->first, it->second); })) return shown_t::enough;
        }
        return shown_t::all;
    };
}

/** The answer to a list query. `list_t` is a list function as list_of makes it. Another query can continue at an
 * entry's key. */
template <typename head_t, typename entry_t, typename list_t>
class list_answer_t : public paged_t {
public:
    list_answer_t(const request_t &of, uint64_t first, uint64_t most, list_t entries, outbox_t &replies)
        : paged_t(of), outbox(replies), list(entries), from(first), left(most), count_from(first) {}

    bool is_counted(uint64_t &looks) {
        const auto count = [this](uint64_t key, auto) {
            count_from = key + 1;
            return ++counted < left;
        };
        counting = counting && list(count_from, looks, count) == shown_t::later;
        return !counting;
    }

    step_t go_on(uint64_t id, uint64_t &looks) override {
        if (!is_counted(looks)) return step_t::again;
        const size_t per_reply = outbox.entries_per_reply(sizeof(entry_t));
        const size_t room = std::min<uint64_t>(per_reply, left);
        uint64_t next_key = 0;
        const shown_t shown = list(from, looks, [&](uint64_t key, auto make) {
            if (page.size() == room) {
                next_key = key;
                return false;
            }
            page.push_back(make());
            from = key + 1;
            return true;
        });
        if (shown == shown_t::later) return step_t::again;

        left -= page.size();
        counted -= std::min<uint64_t>(counted, page.size());
        const bool goes_on = shown == shown_t::enough && left != 0;
        const uint64_t more = goes_on ? std::max<uint64_t>(1, (counted + per_reply - 1) / per_reply) : 0;
        return send_page(0, static_cast<uint32_t>(more), next_key, id) && goes_on ? step_t::sent : step_t::ended;
    }

    void refuse(uint32_t code) { send_page(code, 0, 0, 0); }

private:
    bool send_page(uint32_t code, uint32_t more, uint64_t next_key, uint64_t id) {
        head_t head{};
        head.more = more;
        fill(&head, static_cast<uint32_t>(page.size()), next_key);
        const std::vector<uint8_t> msg = request.listing(code, head, page.data(), page.size());
        page.clear();
        return outbox.post(request.client, msg.data(), msg.size(), more != 0 ? id : 0);
    }

    outbox_t &outbox;
    const list_t list;
    uint64_t from;             /* key at which to continue */
    uint64_t left;             /* maximum number of further entries */
    std::vector<entry_t> page; /* entries found for the next page */
    bool counting = true;
    uint64_t count_from;  /* key at which to continue counting */
    uint64_t counted = 0; /* number of entries not sent yet */
};

/** Answers a list query: at once if `code` refuses it or the list is short, else by the pager. */
template <typename head_t, typename entry_t, typename list_t>
uint32_t answer_list(server_state_t &server, const request_t &request, uint32_t code, uint64_t from, uint64_t most,
                     list_t list) {
    auto answer = std::make_unique<list_answer_t<head_t, entry_t, list_t>>(request, from, most, list, server.outbox);
    uint64_t looks = looks_at_once;
    const bool is_long = code == 0 && !answer->is_counted(looks);
    if (is_long && server.pager.is_full(request.client)) code = FWX_NAT64_MODEL_ERR_TOO_MANY;
    if (code != 0) {
        answer->refuse(code);
    } else if (is_long) {
        server.pager.start(std::move(answer));
    } else {
        looks = UINT64_MAX;
        while (answer->go_on(0, looks) == paged_t::step_t::sent) {
        }
    }
    return code;
}

/** The bytes of one page of the configuration. */
class config_page_t {
public:
    size_t size() const { return bytes_.size(); }
    void add(uint32_t op_code, const void *payload, size_t size) {
        const auto *bytes = static_cast<const uint8_t *>(payload);
        if (op_code == record_kept_basic_rule) return add_basic_rule(bytes);
        if (op_code == record_kept_default_rule) return add_default_rule(bytes);
        append(FWX_NAT64_MSG_CONFIG, static_cast<uint16_t>(op_code), bytes, size);
    }
    /** Returns the page, and starts the next one. */
    std::vector<uint8_t> take(const server_state_t &server) {
        const auto size = static_cast<uint32_t>(sizeof(fwx_nat64_config_page_t) + bytes_.size());
        const fwx_nat64_config_page_t head = {FWX_NAT64_CONFIG_MAGIC, size, std::exchange(entries_, 0), server.boot_id,
                                              server.changes.count()};
        std::vector<uint8_t> page(sizeof head);
        std::memcpy(page.data(), &head, sizeof head);
        page.insert(page.end(), bytes_.begin(), bytes_.end());
        bytes_.clear();
        return page;
    }

private:
    void add_basic_rule(const uint8_t *bytes) {
        const auto rule = read_record<kept_rule_t>(bytes);
        const fwx_nat64_bmr_msg_t command = command_of(rule.rule);
        fwx_nat64_config_bmr_t payload{};
        std::memcpy(payload.request, &command.rule_type, sizeof payload.request);
        payload.index = rule.index;
        append(FWX_NAT64_MSG_MAPT_RULE, FWX_NAT64_MAPT_RULE_BMR, reinterpret_cast<const uint8_t *>(&payload),
               sizeof payload);
    }
    void add_default_rule(const uint8_t *bytes) {
        fwx_nat64_dmr_msg_t command{};
        command.rule_type = FWX_NAT64_MAPT_RULE_DMR;
        command.op = FWX_NAT64_OP_ADD;
        std::memcpy(&command.dmr, bytes, sizeof command.dmr);
        append(FWX_NAT64_MSG_MAPT_RULE, FWX_NAT64_MAPT_RULE_DMR, reinterpret_cast<const uint8_t *>(&command.rule_type),
               FWX_NAT64_DMR_MSG_SIZE - offsetof(fwx_nat64_dmr_msg_t, rule_type));
    }
    void append(uint16_t number, uint16_t op_code, const uint8_t *payload, size_t size) {
        const fwx_nat64_config_entry_t head = {number, op_code, static_cast<uint32_t>(size)};
        const auto *begin = reinterpret_cast<const uint8_t *>(&head);
        bytes_.insert(bytes_.end(), begin, begin + sizeof head);
        bytes_.insert(bytes_.end(), payload, payload + size);
        bytes_.resize((bytes_.size() + 7) / 8 * 8);
        ++entries_;
    }

    std::vector<uint8_t> bytes_;
    uint32_t entries_ = 0;
};

/** The answer to a query for the whole configuration. */
class config_answer_t : public paged_t {
public:
    config_answer_t(const request_t &of, server_state_t &server)
        : paged_t(of), server_(server), items_(server.config) {}

    step_t go_on(uint64_t id, uint64_t &looks) override {
        if (server_.changes.are_pending()) return step_t::again; /* because pending changes may be undone */
        bool is_out_of_looks = false;
        const bool is_last = items_.give([&](uint32_t op_code, const void *payload, size_t size) {
            is_out_of_looks = looks < looks_per_entry;
            if (is_out_of_looks || page_.size() >= server_.outbox.reply_limit) return false;
            looks -= looks_per_entry;
            page_.add(op_code, payload, size);
            return true;
        });
        if (is_out_of_looks) return step_t::again;
        fwx_nat64_stats_sys_reply_t head{};
        head.sel = FWX_NAT64_SEL_CONFIG;
        head.more = is_last ? 0 : 1;
        const std::vector<uint8_t> page = page_.take(server_);
        const std::vector<uint8_t> msg = request.listing(0, head, page.data(), page.size());
        const bool is_sent = server_.outbox.post(request.client, msg.data(), msg.size(), is_last ? 0 : id);
        return is_sent && !is_last ? step_t::sent : step_t::ended;
    }

private:
    server_state_t &server_;
    configuration_reader_t items_;
    config_page_t page_;
};

uint32_t answer_system(server_state_t &server, const request_t &request, uint32_t code) {
    fwx_nat64_stats_sys_reply_t head{};
    const auto post = [&](const auto &record) {
        const auto msg = request.listing(code, head, &record, code == 0 ? 1 : 0);
        server.outbox.post(request.client, msg.data(), msg.size());
        return code;
    };
    const uint32_t sel = code == 0 ? request.read<fwx_nat64_stats_sys_msg_t>().sel : 0;
    head.sel = sel >= FWX_NAT64_SEL_COUNTS && sel <= FWX_NAT64_SEL_CONFIG ? sel : 0;
    switch (sel) {
        case FWX_NAT64_SEL_CONFIG:
            if (server.pager.is_full(request.client)) {
                code = FWX_NAT64_MODEL_ERR_TOO_MANY;
                return post(totals_of(server));
            }
            server.pager.start(std::make_unique<config_answer_t>(request, server));
            return 0;
        case FWX_NAT64_SEL_COUNTS:
            return post(counts_of(server));
        case FWX_NAT64_SEL_BOOT:
            return post(boot_of(server));
        case FWX_NAT64_SEL_SYSTEM: {
            fwx_nat64_stats_system_t system = server.causes;
            system.holds = totals_of(server);
            system.failed_sessions = server.engine->failed_session_count();
            return post(system);
        }
        default:
            return post(totals_of(server));
    }
}

uint32_t answer_interfaces(server_state_t &server, const request_t &request, uint32_t code) {
    using entry_t = fwx_nat64_stats_intf_entry_t;
    const auto list = list_of(server.config.interfaces.interfaces.entries, [](uint32_t ifh, const auto &interface) {
        return entry_t{ifh, interface.enable, interface.nvi, interface.mtu, prefix_count(interface), 0};
    });
    return answer_list<fwx_nat64_stats_intf_reply_t, entry_t>(server, request, code, 0, UINT64_MAX, list);
}

uint32_t answer_limits(server_state_t &server, const request_t &request, uint32_t code) {
    using entry_t = fwx_nat64_stats_limit_entry_t;
    const auto list = list_of(server.config.settings.limits.entries, [&server](uint32_t type, const auto &limit) {
        return entry_t{type, limit.value, server.engine->session_count()};
    });
    const auto query = code == 0 ? request.read<fwx_nat64_stats_limit_msg_t>() : fwx_nat64_stats_limit_msg_t{};
    if (code == 0 && (query.count == 0 || query.one != 1)) code = FWX_NAT64_MODEL_ERR_VALUE;
    return answer_list<fwx_nat64_stats_intf_reply_t, entry_t>(server, request, code, 0, query.count, list);
}

/* Answers queries of types 6 and 7. */
template <typename entry_t, typename list_t>
uint32_t answer_query(server_state_t &server, const request_t &request, uint32_t code, list_t list) {
    const auto query = code == 0 ? request.read<fwx_nat64_stats_all_msg_t>() : fwx_nat64_stats_all_msg_t{};
    const bool is_valid = query.count != 0 && query.one == 1 && query.zero == 0;
    if (code == 0 && !is_valid) code = FWX_NAT64_MODEL_ERR_VALUE;
    return answer_list<fwx_nat64_stats_all_reply_t, entry_t>(server, request, code, query.cookie, query.count, list);
}

uint32_t answer_pools(server_state_t &server, const request_t &request, uint32_t code) {
    using entry_t = fwx_nat64_stats_pool_entry_t;
    const auto list = list_of(server.config.pools.pools.entries, [&server](uint32_t id, const auto &pool) {
        entry_t entry = server.config.pools.statistics(pool);
        entry.sessions = server.engine->session_count_of_pool(id);
        return entry;
    });
    return answer_query<entry_t>(server, request, code, list);
}

uint32_t answer_mappings(server_state_t &server, const request_t &request, uint32_t code) {
    using entry_t = fwx_nat64_stats_mapping_entry_t;
    const auto list_kind = [&server](uint32_t kind, const auto &table) {
        const auto make = [&server, kind](uint32_t id, const auto &) {
            return entry_t{id, kind, 1, 0, server.engine->session_count_of_mapping(kind, id)};
        };
        return list_of(table, make, uint64_t{kind} << 32);
    };
    const auto fixed = list_kind(FWX_NAT64_MAPPING_STATIC, server.config.mappings.fixed.entries);
    const auto dynamic = list_kind(FWX_NAT64_MAPPING_DYNAMIC, server.config.mappings.dynamic.entries);
    const auto list = [fixed, dynamic](uint64_t from, uint64_t &looks, auto take) {
        const shown_t shown = fixed(from, looks, take);
        return shown == shown_t::all ? dynamic(from, looks, take) : shown;
    };
    return answer_query<entry_t>(server, request, code, list);
}

}  // namespace

fwx_nat64_stats_counts_t counts_of(const server_state_t &server) {
    fwx_host_peers_t peers{};
    fwx_host_peers_get(&peers);
    return {server.commands,    server.malformed,        server.refused,
            server.outbox.sent, server.outbox.waiting(), server.clients.open.size(),
            peers.queued_bytes, peers.dropped,           peers.refused};
}

fwx_nat64_stats_boot_t boot_of(const server_state_t &server) {
    return {server.boot_id, server.changes.count(), {}};
}

fwx_nat64_stats_sys_entry_t totals_of(const server_state_t &server) {
    const configuration_t &config = server.config;
    return {config.interfaces.interfaces.entries.size(),
            config.interfaces.prefixes.entries.size() + config.interfaces.prefixes_kind2.entries.size(),
            config.mappings.fixed.entries.size(),
            config.mappings.dynamic.entries.size(),
            config.pools.pools.entries.size(),
            config.pools.ranges.entries.size(),
            config.loggings.loggings.entries.size(),
            config.rules.basic.size() + config.rules.defaults.entries.size(),
            server.engine->session_count()};
}

uint32_t answer_statistics(server_state_t &server, const request_t &request, uint32_t code) {
    switch (request.number()) {
        case FWX_NAT64_MSG_STATS_SYS:
            return answer_system(server, request, code);
        case FWX_NAT64_MSG_STATS_INTF:
            return answer_interfaces(server, request, code);
        case FWX_NAT64_MSG_STATS_POOL_ALL:
            return answer_pools(server, request, code);
        case FWX_NAT64_MSG_STATS_MAPPING_ALL:
            return answer_mappings(server, request, code);
        default:
            return answer_limits(server, request, code);
    }
}
