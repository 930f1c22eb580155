/* The table from which the parts of the configuration are built. */
#ifndef SERVER_TABLE_H
#define SERVER_TABLE_H

#include <map>
#include <optional>

#include "fwx_nat64/server_result.h"
#include "fwx_nat64/wire.h"

/** Entries by key. The functions return 0, FWX_NAT64_MODEL_ERR_EXISTS or FWX_NAT64_MODEL_ERR_NO_ENTRY. */
template <typename key_t, typename value_t>
struct table_t {
    std::map<key_t, value_t> entries;

    uint32_t add(const key_t &key, const value_t &value) {
        const size_t before = entries.size();
        entries.emplace_hint(entries.end(), key, value); /* because keys mostly ascend */
        return entries.size() != before ? 0 : FWX_NAT64_MODEL_ERR_EXISTS;
    }
    /** Adds an entry, or replaces the one with this key. */
    uint32_t set(const key_t &key, const value_t &value) {
        entries[key] = value;
        return 0;
    }
    uint32_t modify(const key_t &key, const value_t &value) {
        const auto found = entries.find(key);
        if (found == entries.end()) return FWX_NAT64_MODEL_ERR_NO_ENTRY;
        found->second = value;
        return 0;
    }
    uint32_t erase(const key_t &key) { return entries.erase(key) != 0 ? 0 : FWX_NAT64_MODEL_ERR_NO_ENTRY; }

    std::optional<value_t> get(const key_t &key) const {
        const auto found = entries.find(key);
        return found == entries.end() ? std::nullopt : std::optional<value_t>(found->second);
    }
};

#endif
