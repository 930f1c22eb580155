/* What a server is asked for each time that somebody wants to see how it does. */
#ifndef RECONCILE_SCRAPE_H
#define RECONCILE_SCRAPE_H

#include <cstdint>
#include <optional>
#include <vector>

#include "fwx_nat64/fwx_nat64.hpp"

/** Entries of a list up to a limit, and whether there are more. */
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

/** Asks one query of each kind; what is not answered is left out. `most` is the number of pools, and of mappings. The
 * client outlives the task, or ends what it awaits. */
fwx::nat64::task<scrape_t> scrape(fwx::nat64::client &client, uint32_t most);

#endif
