/* Queries a server for the values that its metrics and status displays show. */
#ifndef RECONCILE_SCRAPE_H
#define RECONCILE_SCRAPE_H

#include <cstdint>
#include <optional>
#include <vector>

#include "fwx_nat64/fwx_nat64.hpp"

/** The first entries of a list, up to a limit. */
template <class entry_type>
struct counted_list_t {
    std::vector<entry_type> entries;
    bool has_more = false;
};

struct scrape_t {
    std::optional<fwx_nat64_stats_sys_entry_t> totals;
    counted_list_t<fwx_nat64_stats_pool_entry_t> pools;
    counted_list_t<fwx_nat64_stats_mapping_entry_t> mappings;
    std::vector<fwx_nat64_stats_limit_entry_t> limits;
};

/**
 * Sends one query of each kind. A query that fails leaves its part of the result empty.
 * @param client either outlives the task, or ends the queries when it is destroyed
 * @param most   greatest number of pools, and of mappings
 */
fwx::nat64::task<scrape_t> scrape(fwx::nat64::client &client, uint32_t most);

#endif
