/* The counters of live things and of errors, which everything here keeps. */
#ifndef HOST_RUNTIME_INSPECT_H
#define HOST_RUNTIME_INSPECT_H

#include "fwx_host/inspect.h"

/* Never destroyed, and of trivial types: the library's unload destructor runs after static destructors. */
[[gnu::visibility("hidden")]] extern fwx_host_live_t host_live;
[[gnu::visibility("hidden")]] extern fwx_host_errors_t host_errors;
[[gnu::visibility("hidden")]] extern fwx_host_peers_t host_peers;

#endif
