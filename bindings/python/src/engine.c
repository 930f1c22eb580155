/*
 * The binding, the sending of commands, batches (loads), and the turn in which Python gives the host's loop time to
 * run. Deadlines and lost channels are checked once per turn.
 */
#define _DEFAULT_SOURCE
#include "engine.h"

#include <stdlib.h>
#include <string.h>
#include <sys/random.h>

#include "callbacks.h"
#include "slots.h"

/* Limit of passes of the host's loop per turn: enough for a window of commands and their answers, but few enough that
 * Python's own loop is not blocked. While the loop is busy, deadlines are extended by `busy_grace_ms`. */
enum { passes_per_turn = 32, busy_grace_ms = 1000 };

static fwx_host_loop_t *bound_loop;
static nat64_load_t *loads;

/* --- The binding --- */

/* Seeds random(), which the library draws its epochs from. */
static void draw_epochs_at_random(void) {
    static int is_seeded;
    unsigned seed = 0;
    if (!is_seeded && getrandom(&seed, sizeof seed, 0) == sizeof seed) srandom(seed);
    is_seeded = 1;
}

uint32_t nat64_open(const char *server, const char client_id[4], fwx_host_loop_t *loop, uint32_t timeout_ms) {
    draw_epochs_at_random();
    fwx_nat64_model_add_error_texts();
    if (timeout_ms != 0) fwx_host_sync_timeout_set_ms(timeout_ms);
    uint32_t code = fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, server);
    if (code != 0) return code;
    fwx_host_tap_set(callbacks_tap, NULL);
    bound_loop = loop;
    code = fwx_nat64_bind(client_id, loop, &callbacks_unsolicited, &callbacks_replies);
    if (code == 0) {
        fwx_nat64_client_info_get()->throttle_cb = callbacks_throttle;
        fwx_host_loop_run_until_idle(loop); /* the server gets the initial commands before the caller's first one */
    } else {
        nat64_close();
    }
    return code;
}

static void release_each(slot_t *slot, void *arg) {
    (void)arg;
    slot_release(slot);
}

void nat64_close(void) {
    fwx_nat64_unbind();
    while (loads != NULL) {
        nat64_load_stop(loads);
    }
    slots_each(release_each, NULL);
    slots_take_results();
    callbacks_throttled = 0;
    for (nat64_message_t *message = nat64_message_take(); message != NULL; message = nat64_message_take()) {
        nat64_message_free(message);
    }
    fwx_host_loop_run_until_idle(bound_loop); /* returns the transmit buffers */
    fwx_mapt_plu_cleanup();
    fwx_host_tap_set(NULL, NULL);
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, NULL);
}

static void end_disconnected(slot_t *slot, void *arg) {
    (void)arg;
    callbacks_drop_pending(slot);
    slot_finish(slot, FWX_HOST_ERR_CHANNEL_DOWN);
}

/* Ends the outstanding commands if the channel is gone, because no answer can arrive. Commands that the server had not
 * taken end first, with their own code, when the loop runs. */
static void end_if_disconnected(void) {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == NULL || info->connected != 0) return;
    if (callbacks_throttled) callbacks_throttle(1, NULL); /* a new channel is empty */
    if (slots_outstanding == 0) return;
    fwx_host_loop_run_until_idle(bound_loop);
    slots_each(end_disconnected, NULL);
}

static void end_if_late(slot_t *slot, void *now) {
    if (slot->deadline <= *(const uint64_t *)now) {
        slot_finish(slot, FWX_HOST_ERR_NO_ANSWER);
    } else if (slot->deadline < slots_next_deadline) {
        slots_next_deadline = slot->deadline;
    }
}

static void end_late(uint64_t now) {
    if (now < slots_next_deadline) return;
    slots_next_deadline = SLOT_NO_DEADLINE;
    slots_each(end_if_late, &now);
}

/* --- Commands --- */

/* Completes start() with the code of the library's function. Returns the slot or the query's id, or the negative code;
 * after an error the slot is free. */
static int64_t started(slot_t *slot, uint32_t code) {
    callbacks_starting = 0;
    if (code == 0) return slot->is_query ? (int64_t)slot_id(slot) : slot_number(slot);
    if (code == FWX_HOST_ERR_CHANNEL_DOWN) code = FWX_NAT64_ERR_AGAIN; /* because the server has not got it */
    if (code == FWX_NAT64_ERR_AGAIN) callbacks_drop_pending(slot);
    slot_release(slot);
    return -(int64_t)code;
}

/* Takes a slot for a command that is about to be sent. */
static slot_t *start(uint32_t timeout_ms) {
    end_if_disconnected();
    slot_t *slot = slot_take(timeout_ms);
    if (slot != NULL) callbacks_starting = slot_number(slot);
    return slot;
}

int64_t nat64_send(const char *command, size_t size, uint32_t timeout_ms) {
    static int32_t basic_rules = -2;
    if (basic_rules == -2) basic_rules = nat64_family("mapt_bmr", sizeof(fwx_nat64_mapt_bmr_t));
    slot_t *slot = start(timeout_ms);
    if (slot == NULL) return -(int64_t)FWX_NAT64_ERR_NOMEM;
    uint16_t words[2] = {UINT16_MAX, 0};
    if (size >= sizeof words) memcpy(words, command, sizeof words);
    if (words[0] == basic_rules && size == NAT64_COMMAND_HEADER + sizeof slot->rule) {
        slot->rule_op = words[1];
        memcpy(&slot->rule, command + NAT64_COMMAND_HEADER, sizeof slot->rule);
    }
    const uint32_t code = nat64_command_send(command, size, slot_context(slot));
    return started(slot, code);
}

int64_t nat64_query(uint32_t msgno, uint32_t sel, uint64_t cookie, uint32_t count, uint32_t arg, uint32_t timeout_ms) {
    slot_t *slot = start(timeout_ms);
    if (slot == NULL) return -(int64_t)FWX_NAT64_ERR_NOMEM;
    slot->is_query = 1;
    void *ctx = slot_context(slot), *from = (void *)(uintptr_t)cookie;
    switch (msgno) {
        case FWX_NAT64_MSG_STATS_SYS:
            return started(slot, fwx_nat64_stats_sys_query_a(sel, ctx));
        case FWX_NAT64_MSG_STATS_INTF:
            return started(slot, fwx_nat64_stats_intf_query_a(ctx));
        case FWX_NAT64_MSG_STATS_POOL_ALL:
            return started(slot, fwx_nat64_stats_pool_all_query_a(sel, from, count, arg, ctx));
        case FWX_NAT64_MSG_STATS_MAPPING_ALL:
            return started(slot, fwx_nat64_stats_mapping_all_query_a(sel, from, count, arg, ctx));
        case FWX_NAT64_MSG_STATS_LIMIT_ALL:
            return started(slot, fwx_nat64_stats_limit_all_query_a(sel, count, ctx));
        default:
            return started(slot, FWX_NAT64_ERR_INVALID);
    }
}

int64_t nat64_walk(const char *filter, uint64_t cookie, uint32_t count, uint32_t walk_arg, uint32_t timeout_ms) {
    fwx_nat64_sess_walk_filter_t record;
    memcpy(&record, filter, sizeof record);
    slot_t *slot = start(timeout_ms);
    if (slot == NULL) return -(int64_t)FWX_NAT64_ERR_NOMEM;
    slot->is_query = 1;
    /* Each walk is limited to one page; Python starts the next one when it needs it. */
    return started(
        slot, fwx_nat64_session_walk_a(count, &record, cookie, count, walk_arg, callbacks_walk, slot_context(slot)));
}

void nat64_forget(uint64_t id) {
    slot_t *slot = slot_find(id);
    if (slot != NULL) slot_release(slot);
}

/* --- Loading --- */

void nat64_load_start(nat64_load_t *load) {
    load->next = loads;
    loads = load;
}

static void release_if_of(slot_t *slot, void *load) {
    if (slot->load == load) slot_release(slot);
}

void nat64_load_stop(nat64_load_t *load) {
    nat64_load_t **link = &loads;
    while (*link != NULL && *link != load)
        link = &(*link)->next;
    if (*link == NULL) return;
    *link = load->next;
    slots_each(release_if_of, load);
}

/* Sends commands of a load until its window is full. Returns the number of commands sent or refused. */
static uint32_t send_more(nat64_load_t *load) {
    uint32_t count = 0;
    for (; load->size != 0 && load->outstanding < load->window; ++count) {
        const size_t size = nat64_command_size(load->commands, load->size);
        const int64_t number = nat64_send(load->commands, size, load->timeout_ms);
        if (number >= 0) {
            slot_t *slot = slot_at((uint32_t)number);
            slot->load = load;
            slot->index = load->sent;
            ++load->outstanding;
        } else {
            load->codes[load->sent] = (uint32_t)-number;
            --load->left;
        }
        ++load->sent;
        load->commands += size;
        load->size = size == 0 ? 0 : load->size - size;
        if (number != -(int64_t)FWX_NAT64_ERR_AGAIN) continue;
        /* There is no server. The rest fails too, without a connection attempt for each command. */
        for (; load->left > load->outstanding; --load->left)
            load->codes[load->sent++] = FWX_NAT64_ERR_AGAIN;
        load->size = 0;
    }
    return count;
}

/* --- Turns --- */

int nat64_turn(fwx_host_loop_t *loop, nat64_results_t *taken) {
    uint32_t calls = 1;
    for (int pass = 0; pass < passes_per_turn && calls != 0; ++pass) {
        calls = 0;
        for (nat64_load_t **link = &loads; *link != NULL;) {
            nat64_load_t *load = *link;
            calls += send_more(load);
            if (load->left == 0) {
                *link = load->next;
            } else {
                link = &load->next;
            }
        }
        calls += fwx_host_loop_process(loop);
    }
    end_if_disconnected();
    /* If the last pass did something, it may have made room for more of a load. */
    int timeout_ms = calls != 0 ? 0 : fwx_host_loop_next_timeout_ms(loop);
    const uint64_t now = fwx_host_clock_ms();
    /* While the loop is busy, an answer may have arrived that is not processed yet. */
    end_late(timeout_ms == 0 && now > busy_grace_ms ? now - busy_grace_ms : now);
    *taken = slots_take_results();
    if (timeout_ms != 0 && slots_next_deadline != SLOT_NO_DEADLINE) {
        const uint64_t left = slots_next_deadline > now ? slots_next_deadline - now : 0;
        if (timeout_ms < 0 || left < (uint64_t)timeout_ms) timeout_ms = left > INT32_MAX ? INT32_MAX : (int)left;
    }
    return timeout_ms;
}
