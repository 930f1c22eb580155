/*
 * A PAL on libuv. Its loop watches the host loop's descriptor, which is readable whenever the host loop has work.
 *     cc libuv.c -o libuv $(pkg-config --cflags --libs fwx_nat64 fwx_host libuv)
 */
#define _DEFAULT_SOURCE /* srandom, arc4random */
#include <fwx_host/fwx_host.h>
#include <fwx_nat64/fwx_nat64.h>
#include <stdio.h>
#include <stdlib.h>
#include <uv.h>

static uint32_t answered, last_code;
static uv_loop_t *uv;

static void on_readable(uv_poll_t *watch, int status, int events) {
    if (status == 0 && (events & UV_READABLE)) fwx_host_loop_process(watch->data);
}

static void on_timer(uv_timer_t *timer) {
    const fwx_nat64_limit_t limit = {.type = 1, .value = answered + 1};
    last_code = fwx_nat64_limit_set_a(FWX_NAT64_OP_ADD, &limit, NULL); /* outside the descriptor's callback */
    if (last_code != 0) uv_stop(timer->loop);
}

static void on_reply(fwx_nat64_cmd_result_t *result) {
    static uv_timer_t timer;
    last_code = result->result;
    if (last_code != 0 || ++answered == 40) {
        uv_stop(uv);
        return;
    }
    if (answered == 1) uv_timer_init(uv, &timer);
    uv_timer_start(&timer, on_timer, 1, 0);
}

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    srandom(arc4random()); /* the binding's epoch is drawn with random */
    uv = uv_default_loop();
    fwx_host_loop_t *loop = fwx_host_loop_create();
    uv_poll_t watch = {.data = loop};
    uv_poll_init(uv, &watch, fwx_host_loop_fd(loop));
    uv_poll_start(&watch, UV_READABLE, on_readable);
    const fwx_nat64_reply_cbs_t callbacks = {.cfg_reply_cb = on_reply};
    uint32_t code = fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, argv[1]);
    if (code == 0) code = fwx_nat64_bind("PAL1", loop, NULL, &callbacks);
    const fwx_nat64_limit_t limit = {.type = 1, .value = 1};
    if (code == 0) code = fwx_nat64_limit_set_a(FWX_NAT64_OP_ADD, &limit, NULL);
    if (code == 0) uv_run(uv, UV_RUN_DEFAULT);
    if (code == 0) code = last_code;
    fwx_nat64_unbind();
    if (code != 0) fprintf(stderr, "%s: %s\n", argv[1], xerr_strerror(code));
    printf("%u commands: ok\n", answered);
    return code == 0 && answered == 40 ? 0 : 1;
}
