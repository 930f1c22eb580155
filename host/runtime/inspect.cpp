#include "host/runtime/inspect.h"

fwx_host_live_t host_live;
fwx_host_errors_t host_errors;
fwx_host_peers_t host_peers;

extern "C" {

void fwx_host_live_get(fwx_host_live_t *live) {
    if (live != nullptr) *live = host_live;
}

void fwx_host_errors_get(fwx_host_errors_t *errors) {
    if (errors != nullptr) *errors = host_errors;
}

void fwx_host_peers_get(fwx_host_peers_t *peers) {
    if (peers != nullptr) *peers = host_peers;
}

}  // extern "C"
