/* Changes of one client on a server that others change too. All documents here are settled. */
#ifndef CONFIG_MERGE_H
#define CONFIG_MERGE_H

#include <vector>

#include "config/document.h"

/**
 * Takes back, in the configuration that there is now, the change that led from `before` to `after`: an item that the
 * change added, changed or removed, and that still is as it left it, becomes what it was before.
 * @param kept gets the items of the change that are another now; they are left as they are. An item that is gone now is
 *             named as the change left it. Their records are those of the arguments.
 * @return what there should be, settled.
 */
document_t take_back(const document_t &before, const document_t &after, const document_t &now,
                     std::vector<config_item_t> &kept);

/**
 * What a server should hold that has `now` if its client wants `wanted`, and has seen to `owned` so far: `wanted`, and
 * of the items with other keys those that are not the client's.
 * @param foreign gets those. Their records are those of `now`.
 */
document_t keep_foreign(const document_t &owned, const document_t &wanted, const document_t &now,
                        std::vector<config_item_t> &foreign);

#endif
