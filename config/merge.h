/* Merges the changes of one client with those of others on the same server. All documents here are settled. */
#ifndef CONFIG_MERGE_H
#define CONFIG_MERGE_H

#include <vector>

#include "config/document.h"

/**
 * Undoes a change, which led from `before` to `after`, in the current configuration `now`. An item that the change
 * added, changed or removed gets its value of `before`, unless somebody else has changed it since.
 * @param kept gets the items of the change that were changed again since and are therefore kept. An item that was
 *             deleted since has its value of `after`. The records point into the arguments.
 * @return the desired configuration, settled.
 */
document_t roll_back(const document_t &before, const document_t &after, const document_t &now,
                     std::vector<config_item_t> &kept);

/**
 * Computes the desired configuration of a server that holds `now`, for a client that owned the items of `owned` so far
 * and now wants `wanted`. The result has the items of `wanted`, and the foreign items: those of `now` with keys that
 * are neither in `owned` nor in `wanted`.
 * @param foreign empty; gets the foreign items. The records point into `now`.
 * @return the desired configuration, settled.
 */
document_t keep_foreign(const document_t &owned, const document_t &wanted, const document_t &now,
                        std::vector<config_item_t> &foreign);

#endif
