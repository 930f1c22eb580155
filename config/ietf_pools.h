/* Splits pools for the standard form, in which each pool is one prefix. */
#ifndef CONFIG_IETF_POOLS_H
#define CONFIG_IETF_POOLS_H

#include "config/document.h"
#include "config/problem.h"

/**
 * Splits the addresses of each pool and range into the fewest prefixes, and makes a pool of each prefix. The first
 * prefix of a pool keeps the pool's number, the others get free numbers.
 * @param problems gets a warning for each pool that is split and for each range.
 * @return the document with these pools, settled.
 */
document_t cut_pools(const document_t &document, problems_t &problems);

#endif
