/*
 * A PAL with an event loop of its own. It sends 10,000 commands to a server in another process, up to 256 outstanding.
 * It obeys flow control, reconnects when the server has restarted, and accounts for every command. cc -std=c11 pal.c -o
 * pal $(pkg-config --cflags --libs fwx_nat64 fwx_host) natctl serve alpha & ./pal alpha
 */
#define _DEFAULT_SOURCE /* srandom, arc4random */
#include <fwx_host/fwx_host.h>
#include <fwx_nat64/fwx_nat64.h>
#include <fwx_nat64/server_result.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

enum { commands = 10000, window = 256, retry_ms = 50, give_up_ms = 10000 };
typedef enum { WAITING, OK, REFUSED, LOST, STRAY } verdict_t; /* LOST: the server may have executed it */
static verdict_t verdicts[commands];
static uint32_t sent, settled, told[STRAY + 1], last_refusal, may_send = 1;

/* A command's context is a number, not an address, because a faulty server may return a context that is not ours. */
static void settle(void *pal_ctx, verdict_t verdict) {
    uintptr_t number = (uintptr_t)pal_ctx - 1;
    const int is_ours = number < commands && verdicts[number] == WAITING;
    if (is_ours) verdicts[number] = verdict;
    settled += is_ours ? 1 : 0;
    told[is_ours ? verdict : STRAY] += 1;
}

static void on_verdict(fwx_nat64_cmd_result_t *result) {
    const int is_lost = result->result == FWX_NAT64_ERR_AGAIN;
    if (result->result != 0 && !is_lost) last_refusal = result->result;
    settle(result->pal_ctx, result->result == 0 ? OK : is_lost ? LOST : REFUSED);
}

static uint32_t on_statistics(void *pal_ctx, uint32_t count, void *data) {
    if (count == 0) settle(pal_ctx, data != NULL ? OK : LOST); /* count > 0: further replies follow */
    return 0;
}

/* Off when FWX_NAT64_FC_HIGH_BYTES wait for the server, on when only FWX_NAT64_FC_LOW_BYTES are left. */
static void on_throttle(uint32_t is_on, void *ctx) {
    *(uint32_t *)ctx = is_on;
}

static uint32_t send_command(uint32_t number) {
    void *ctx = (void *)((uintptr_t)number + 1);
    fwx_nat64_timeout_t timeout = {.type = FWX_NAT64_TIMEOUT_UDP, .value = 300};
    fwx_nat64_limit_t limit = {.type = FWX_NAT64_LIMIT_TYPE, .value = 1 + number};
    fwx_nat64_dmapping_t mapping = {.id = 1 + number, .type = FWX_NAT64_DMAPPING_EIM};
    fwx_nat64_smapping_t absent = {.id = number};
    if (number % 5 == 0) return fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &timeout, ctx);
    if (number % 5 == 1) return fwx_nat64_limit_set_a(FWX_NAT64_OP_ADD, &limit, ctx);
    if (number % 5 == 2) return fwx_nat64_dmapping_set_a(FWX_NAT64_OP_ADD, &mapping, ctx);
    if (number % 5 == 3) return fwx_nat64_stats_sys_query_a(0, ctx);
    return fwx_nat64_smapping_set_a(FWX_NAT64_OP_DEL, &absent, ctx); /* refused */
}

/* A send reopens the channel if it is down. A failed send is retried later, unless an argument is invalid. */
static void send_more(void) {
    for (; sent < commands && sent - settled < window && may_send != 0; ++sent) {
        const uint32_t code = send_command(sent);
        if (code == FWX_NAT64_ERR_INVALID) settle((void *)((uintptr_t)sent + 1), REFUSED);
        if (code != 0 && code != FWX_NAT64_ERR_INVALID) return;
    }
}

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    srandom(arc4random()); /* the binding's epoch is drawn with random */
#define ADD_TEXT(code, member, text) fwx_host_error_text_add(code, text);
    FWX_NAT64_MODEL_RESULTS(ADD_TEXT) /* the server's codes; xerr_strerror knows all others */
    fwx_nat64_reply_cbs_t callbacks = {.cfg_reply_cb = on_verdict, .sys_stats_cb = on_statistics};
    fwx_host_loop_t *loop = fwx_host_loop_create();
    uint32_t code = fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, argv[1]);
    if (code == 0) code = fwx_nat64_bind("PAL1", loop, NULL, &callbacks);
    if (code != 0) return fprintf(stderr, "%s: %s\n", argv[1], xerr_strerror(code)), 2;
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    info->throttle_cb = on_throttle;
    info->throttle_ctx = &may_send;
    uint32_t seen = 0, reconnections = 0;
    for (uint64_t since = fwx_host_clock_ms(); settled < commands && fwx_host_clock_ms() - since < give_up_ms;
         seen = settled) {
        const uint32_t was_connected = info->connected;
        send_more();
        reconnections += info->connected - was_connected;
        struct pollfd watched = {.fd = fwx_host_loop_fd(loop),
                                 .events = POLLIN}; /* and the program's own descriptors */
        poll(&watched, 1, retry_ms);
        fwx_host_loop_process(loop);
        if (info->connected == 0) fwx_nat64_clnt_cleanup(); /* reports the commands that the dead server had taken */
        if (info->connected == 0) may_send = 1;             /* the next channel will be empty */
        if (seen != settled) since = fwx_host_clock_ms();
    }
    fwx_nat64_unbind();
    fwx_host_loop_destroy(loop);
    printf("%d commands: %u ok, %u refused (%s), %u lost, %u unanswered; %u reconnections\n", commands, told[OK],
           told[REFUSED], xerr_strerror(last_refusal), told[LOST], commands - settled, reconnections);
    return settled == commands && told[STRAY] == 0 ? 0 : 1;
}
