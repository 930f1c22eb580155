/* A PAL without a server. Binding must return an error and leave the library unbound. */
#include <fwx_host/loop.h>
#include <fwx_nat64/fwx_nat64.h>
#include <stdio.h>

static void on_verdict(fwx_nat64_cmd_result_t *result) {
    (void)result;
}

int main(void) {
    fwx_nat64_reply_cbs_t reply_cbs = {on_verdict, NULL, NULL, NULL, NULL, NULL};
    fwx_host_loop_t *loop = fwx_host_loop_create();
    uint32_t bound = fwx_nat64_bind("PALC", loop, NULL, &reply_cbs);
    int stays_unbound = fwx_nat64_client_info_get() == NULL;
    fwx_host_loop_destroy(loop);
    printf("bind 0x%08x, %s\n", bound, stays_unbound ? "unbound" : "bound");
    return bound == FWX_NAT64_ERR_AGAIN && stays_unbound ? 0 : 1;
}
