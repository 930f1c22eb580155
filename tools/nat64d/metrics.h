/* The metrics in Prometheus' text format. Their names and labels are part of the interface: docs/nat64d.md lists them.
 */
#ifndef TOOLS_NAT64D_METRICS_H
#define TOOLS_NAT64D_METRICS_H

#include <string>

#include "reconcile/scrape.h"
#include "tools/nat64d/command_meter.h"
#include "tools/nat64d/status.h"

struct metrics_source_t {
    const daemon_status_t &status;
    std::optional<store_status_t> store; /* none: the document comes from a file */
    const command_meter_t &commands;
    bool is_throttled;
    size_t installed_rules; /* in the library's table */
    const scrape_t &server;
};

std::string metrics_text(const metrics_source_t &source);

#endif
