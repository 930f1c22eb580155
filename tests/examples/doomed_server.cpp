/*
 * A process with the server model that kills itself after REFUSALS refused commands. It writes a line when it listens.
 * usage: doomed_server NAME REFUSALS
 */
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/client.h"
#include "model/model.h"

int main(int argc, char **argv) {
    if (argc != 3) return 2;
    int refusals = atoi(argv[2]);
    fwx_host_loop_t *loop = fwx_host_loop_create();
    const auto model = fwx_nat64_model_t::create(loop, FWX_NAT64_CHANNEL_NAME);
    if (model == nullptr) return 1;
    const auto count_down = [](void *left, const fwx_host_peer_t *, const void *, size_t, uint32_t) {
        if (--*static_cast<int *>(left) == 0) raise(SIGKILL);
    };
    model->observe_refusals(count_down, &refusals);
    if (fwx_host_server_listen(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME), argv[1]) != 0) return 1;
    puts("ready");
    fflush(stdout);
    for (;;) {
        fwx_host_loop_run_once(loop, -1);
    }
}
