/*
 * A server model that listens as NAME, and writes a line when it listens. It records refused commands in the view, if
 * it gets one, and kills itself after REFUSALS of them, unless that is 0. It ends when its parent ends. usage:
 * drill_server NAME REFUSALS [VIEW]   VIEW: descriptor of the view
 */
#include <sys/prctl.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "model/model.h"
#include "tests/drill/view.h"

namespace {

int refusals_left;
server_view_t *view;

void note_refusal(void *, const fwx_host_peer_t *, const void *msg, size_t size, uint32_t) {
    uint32_t id = 0; /* identifier of the missing static mapping, which is the command's number */
    constexpr size_t at = offsetof(fwx_nat64_cfg_msg_t, payload);
    if (size >= at + sizeof(id)) memcpy(&id, static_cast<const uint8_t *>(msg) + at, sizeof(id));
    if (id != 0 && view != nullptr) view->refusals_of(id) += 1;
    if (--refusals_left == 0) raise(SIGKILL);
}

}  // namespace

int main(int argc, char **argv) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc < 3) return 2;
    refusals_left = atoi(argv[2]);
    if (argc > 3) view = server_view_t::map(atoi(argv[3]));
    fwx_host_loop_t *loop = fwx_host_loop_create();
    const auto model = fwx_nat64_model_t::create(loop, FWX_NAT64_CHANNEL_NAME);
    if (model == nullptr || (argc > 3 && view == nullptr)) return 1;
    model->observe_refusals(note_refusal, nullptr);
    const uint32_t code = fwx_host_server_listen(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME), argv[1]);
    if (code != 0) {
        fprintf(stderr, "drill_server: cannot listen as %s: 0x%x\n", argv[1], code);
        return 1;
    }
    puts("ready"); /* into a pipe; if the drill is gone, SIGPIPE ends this process */
    fflush(stdout);
    for (;;) {
        fwx_host_loop_run_once(loop, -1);
    }
}
