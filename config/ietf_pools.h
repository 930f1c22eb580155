/* Pools as the standard form has them: one prefix each. */
#ifndef CONFIG_IETF_POOLS_H
#define CONFIG_IETF_POOLS_H

#include "config/document.h"
#include "config/problem.h"

/** The document with a pool for each prefix that the addresses of its pools and ranges are; the first of a pool keeps
 * its number. Warns of each pool that becomes several and of each range. */
document_t cut_pools(const document_t &document, problems_t &problems);

#endif
