#include "model/statistics.h"

#include <cstring>

#include "fwx_host/inspect.h"

namespace {

/** Entries that answer a query, each with a key from which another query can go on. */
template <typename entry_t>
struct listing_t {
    std::vector<entry_t> entries;
    std::vector<uint64_t> keys; /* of the entries, and last that of the first one left out, or 0 */
};

template <typename entry_t>
uint64_t key_after(const listing_t<entry_t> &listing, size_t entries) {
    return entries < listing.keys.size() ? listing.keys[entries] : 0;
}

/* Types 5 and 8. */
void fill(fwx_nat64_stats_intf_reply_t *head, uint32_t count, uint64_t) {
    head->value = count;
}
/* Types 6 and 7. */
void fill(fwx_nat64_stats_all_reply_t *head, uint32_t count, uint64_t next_key) {
    head->value = next_key;
    head->value2 = count;
}

template <typename head_t, typename entry_t>
void post_listing(outbox_t &outbox, const request_t &request, uint32_t code, const listing_t<entry_t> &listing) {
    const size_t per_reply = outbox.entries_per_reply(sizeof(entry_t));
    const size_t total = listing.entries.size();
    size_t posted = 0;
    do {
        const size_t count = std::min(per_reply, total - posted);
        const size_t left = total - posted - count;
        head_t head{};
        head.more = static_cast<uint32_t>((left + per_reply - 1) / per_reply);
        fill(&head, static_cast<uint32_t>(count), key_after(listing, posted + count));
        const std::vector<uint8_t> msg = request.listing(code, head, listing.entries.data() + posted, count);
        outbox.post(request.client, msg.data(), msg.size());
        posted += count;
    } while (posted < total);
}

/* Lists the entries of `table` from key `from` on until `listing` holds `most`. Their keys are `base` and above. */
template <typename entry_t, typename value_t, typename make_t>
void list(const std::map<uint32_t, value_t> &table, uint64_t base, uint64_t from, size_t most, make_t make,
          listing_t<entry_t> *listing) {
    if (from > base + UINT32_MAX) return;
    auto it = table.lower_bound(from > base ? static_cast<uint32_t>(from - base) : 0);
    for (; it != table.end() && listing->keys.size() <= most; ++it) {
        listing->keys.push_back(base + it->first);
        if (listing->entries.size() < most) listing->entries.push_back(make(it->first, it->second));
    }
}

uint32_t answer_system(model_state_t &model, const request_t &request, uint32_t code) {
    uint8_t record[sizeof(fwx_nat64_stats_sys_entry_t)] = {};
    const auto fill_record = [&record](const auto &with) { std::memcpy(record, &with, sizeof record); };
    const uint32_t sel = code == 0 ? request.read<fwx_nat64_stats_sys_msg_t>().sel : 0;
    if (sel == FWX_NAT64_MODEL_SEL_COUNTS) {
        fill_record(counts_of(model));
    } else if (sel == FWX_NAT64_MODEL_SEL_BOOT) {
        fill_record(boot_of(model));
    } else {
        fill_record(totals_of(model));
    }
    const auto msg = request.listing(code, fwx_nat64_stats_sys_reply_t{}, record, code == 0 ? sizeof record : 0);
    model.outbox.post(request.client, msg.data(), msg.size());
    return code;
}

uint32_t answer_interfaces(model_state_t &model, const request_t &request, uint32_t code) {
    listing_t<fwx_nat64_stats_intf_entry_t> listing;
    const auto make = [](uint32_t ifh, const fwx_nat64_intf_payload_t &interface) {
        return fwx_nat64_stats_intf_entry_t{ifh,           interface.enable,        interface.nvi,
                                            interface.mtu, prefix_count(interface), 0};
    };
    if (code == 0) list(model.config.interfaces.interfaces.entries, 0, 0, SIZE_MAX, make, &listing);
    post_listing<fwx_nat64_stats_intf_reply_t>(model.outbox, request, code, listing);
    return code;
}

uint32_t answer_limits(model_state_t &model, const request_t &request, uint32_t code) {
    listing_t<fwx_nat64_stats_limit_entry_t> listing;
    const auto make = [&](uint32_t type, const fwx_nat64_limit_t &limit) {
        return fwx_nat64_stats_limit_entry_t{type, limit.value, model.config.sessions.size()};
    };
    if (code == 0) {
        const auto query = request.read<fwx_nat64_stats_limit_msg_t>();
        if (query.count == 0 || query.one != 1) code = FWX_NAT64_MODEL_ERR_VALUE;
        if (code == 0) list(model.config.settings.limits.entries, 0, 0, query.count, make, &listing);
    }
    post_listing<fwx_nat64_stats_intf_reply_t>(model.outbox, request, code, listing);
    return code;
}

uint32_t query_code(const fwx_nat64_stats_all_msg_t &query) {
    return query.count != 0 && query.one == 1 && query.zero == 0 ? 0 : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t answer_pools(model_state_t &model, const request_t &request, uint32_t code) {
    listing_t<fwx_nat64_stats_pool_entry_t> listing;
    const auto make = [&](uint32_t, const fwx_nat64_pool_payload_t &pool) {
        return model.config.pools.statistics(pool);
    };
    if (code == 0) {
        const auto query = request.read<fwx_nat64_stats_all_msg_t>();
        code = query_code(query);
        if (code == 0) list(model.config.pools.pools.entries, 0, query.cookie, query.count, make, &listing);
    }
    post_listing<fwx_nat64_stats_all_reply_t>(model.outbox, request, code, listing);
    return code;
}

uint32_t answer_mappings(model_state_t &model, const request_t &request, uint32_t code) {
    listing_t<fwx_nat64_stats_mapping_entry_t> listing;
    const auto make = [&](uint32_t kind) {
        return [&model, kind](uint32_t id, const auto &) {
            const uint64_t sessions = kind == FWX_NAT64_MAPPING_STATIC ? model.config.sessions.count_of_static(id)
                                                                       : model.config.sessions.count_of_mapping(id);
            return fwx_nat64_stats_mapping_entry_t{id, kind, 1, 0, sessions};
        };
    };
    if (code == 0) {
        const auto query = request.read<fwx_nat64_stats_all_msg_t>();
        code = query_code(query);
        const auto list_kind = [&](uint32_t kind, const auto &table) {
            list(table, uint64_t{kind} << 32, query.cookie, query.count, make(kind), &listing);
        };
        if (code == 0) {
            list_kind(FWX_NAT64_MAPPING_STATIC, model.config.mappings.fixed.entries);
            list_kind(FWX_NAT64_MAPPING_DYNAMIC, model.config.mappings.dynamic.entries);
        }
    }
    post_listing<fwx_nat64_stats_all_reply_t>(model.outbox, request, code, listing);
    return code;
}

}  // namespace

fwx_nat64_model_counts_t counts_of(const model_state_t &model) {
    fwx_host_peers_t peers{};
    fwx_host_peers_get(&peers);
    return {model.commands,     model.malformed,        model.refused,
            model.outbox.sent,  model.outbox.waiting(), model.clients.open.size(),
            peers.queued_bytes, peers.dropped,          peers.refused};
}

fwx_nat64_model_boot_t boot_of(const model_state_t &model) {
    return {model.boot_id, model.changes.count(), {}};
}

fwx_nat64_stats_sys_entry_t totals_of(const model_state_t &model) {
    const configuration_t &config = model.config;
    return {config.interfaces.interfaces.entries.size(),
            config.interfaces.prefixes.entries.size() + config.interfaces.prefixes_kind2.entries.size(),
            config.mappings.fixed.entries.size(),
            config.mappings.dynamic.entries.size(),
            config.pools.pools.entries.size(),
            config.pools.ranges.entries.size(),
            config.loggings.loggings.entries.size(),
            config.rules.basic.size() + config.rules.defaults.entries.size(),
            config.sessions.size()};
}

uint32_t answer_statistics(model_state_t &model, const request_t &request, uint32_t code) {
    switch (request.number()) {
        case FWX_NAT64_MSG_STATS_SYS:
            return answer_system(model, request, code);
        case FWX_NAT64_MSG_STATS_INTF:
            return answer_interfaces(model, request, code);
        case FWX_NAT64_MSG_STATS_POOL_ALL:
            return answer_pools(model, request, code);
        case FWX_NAT64_MSG_STATS_MAPPING_ALL:
            return answer_mappings(model, request, code);
        default:
            return answer_limits(model, request, code);
    }
}
