/* `natctl watch`: shows a server's notifications as they arrive. */
#ifndef TOOLS_NATCTL_WATCH_H
#define TOOLS_NATCTL_WATCH_H

#include "tools/natctl/output.h"
#include "tools/natctl/pal.h"

/** Binds, and shows each notification until an interrupt, which is a success, until the server goes away, or until the
 * output cannot be written. */
outcome_t watch(pal_t &pal, output_t &output);

#endif
