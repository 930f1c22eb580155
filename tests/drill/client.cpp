/*
 * A client that keeps its channel full until it is killed; dies with the drill.
 * usage: drill_client NAME   of the server
 */
#include <sys/prctl.h>

#include <csignal>
#include <cstdio>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"

namespace {

constexpr uint32_t most_outstanding = 512;
uint32_t outstanding;

}  // namespace

int main(int argc, char **argv) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc != 2) return 2;
    fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, argv[1]);
    fwx_host_loop_t *loop = fwx_host_loop_create();
    puts("ready"); /* into a pipe; without the drill at its end this is the end */
    fflush(stdout);
    fwx_nat64_reply_cbs_t callbacks{};
    callbacks.cfg_reply_cb = [](fwx_nat64_cmd_result_t *) { --outstanding; };
    while (fwx_nat64_bind("clnt", loop, nullptr, &callbacks) != 0) { /* the server may just be dead */
        fwx_host_loop_run_once(loop, 1);
    }
    const fwx_nat64_smapping_t absent{};
    for (;;) {
        const bool was_connected = fwx_nat64_client_info_get()->connected != 0;
        if (!was_connected) fwx_nat64_clnt_cleanup(); /* what the dead server took */
        while (outstanding < most_outstanding && fwx_nat64_smapping_set_a(FWX_NAT64_OP_DEL, &absent, nullptr) == 0) {
            ++outstanding;
        }
        fwx_host_loop_run_once(loop, was_connected ? 0 : 1);
    }
}
