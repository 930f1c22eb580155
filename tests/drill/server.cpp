/* The server model for the clients of other processes. usage: drill_server NAME; writes a line when it listens. */
#include <cstdio>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/client.h"
#include "model/model.h"

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    fwx_host_loop_t *loop = fwx_host_loop_create();
    if (loop == nullptr) return 1;
    const auto model = fwx_nat64_model_t::create(loop, FWX_NAT64_CHANNEL_NAME);
    if (model == nullptr) return 1;
    const uint32_t code = fwx_host_server_listen(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME), argv[1]);
    if (code != 0) {
        fprintf(stderr, "drill_server: cannot listen as %s: 0x%x\n", argv[1], code);
        return 1;
    }
    puts("ready");
    fflush(stdout);
    for (;;) {
        fwx_host_loop_run_once(loop, -1);
    }
}
