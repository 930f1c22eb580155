/* Checks of a whole configuration that need no server. */
#ifndef CONFIG_CHECK_H
#define CONFIG_CHECK_H

#include "config/document.h"
#include "config/problem.h"

/**
 * Checks a settled document and appends what it finds to `problems`. Errors are ranges without a pool, ranges that end
 * before they start, pools that overlap, pools with addresses that no host can have, static mappings from IPv6 to IPv6,
 * prefixes in which no IPv4 address can be embedded, logging to 0.0.0.0, and MAP-T rules with contradictory parameters.
 * Rules that share a prefix give a warning.
 */
void check_document(const document_t &document, notation_t notation, problems_t &problems);

#endif
