/* What is wrong with a configuration, as far as no server need be asked for it. */
#ifndef CONFIG_CHECK_H
#define CONFIG_CHECK_H

#include "config/document.h"
#include "config/problem.h"

/**
 * Adds to the problems of a settled document: ranges of no pool, ranges that end before they start, pools that overlap,
 * pools of addresses that no host can have, static mappings within IPv6, prefixes behind which no IPv4 address can be
 * embedded, logs that go nowhere, MAP-T rules whose parameters do not agree. Rules that share a prefix are a warning.
 */
void check_document(const document_t &document, notation_t notation, problems_t &problems);

#endif
