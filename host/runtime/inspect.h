/* The counters of live objects and of errors, which all of the platform's code updates. */
#ifndef HOST_RUNTIME_INSPECT_H
#define HOST_RUNTIME_INSPECT_H

#include "fwx_host/inspect.h"

/* Trivial and never destroyed, because the library's unload destructor runs after static destructors. */
[[gnu::visibility("hidden")]] extern fwx_host_live_t host_live;
[[gnu::visibility("hidden")]] extern fwx_host_errors_t host_errors;
[[gnu::visibility("hidden")]] extern fwx_host_peers_t host_peers;

#endif
