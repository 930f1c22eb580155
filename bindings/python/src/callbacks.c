/*
 * The library's callbacks. They find the slot of the command, and turn what they get into a result or a message for
 * Python. A context without a slot belongs to a command that has ended, and is ignored.
 *
 * The library hides the server's own result: for a rule it reports the rule table's, and for a query none. So a tap
 * notes the result of each message before the callback for it is called.
 */
#include "callbacks.h"

#include <string.h>

uint32_t callbacks_starting;
uint32_t callbacks_throttled;

/* The reply that is being delivered, as the tap has seen it. */
static struct {
    uint64_t wire_ctx; /* 0: none */
    uint32_t result;
    uint32_t bmr_index;
} reply;

/* --- Answers --- */

static int is_reply_to(const slot_t *slot) {
    return reply.wire_ctx != 0 && reply.wire_ctx == slot->wire_ctx;
}

void callbacks_drop_pending(const slot_t *slot) {
    if (slot->rule_op == FWX_NAT64_OP_ADD) fwx_mapt_plu_del_rule(&slot->rule);
}

/* Replaces a rule in the table, because the server now has it under another index. */
static uint32_t reinstall(const fwx_nat64_mapt_bmr_t *rule, uint32_t bmr_index) {
    fwx_nat64_mapt_reply_t installed = {.rule_id = rule->rule_id, .domain_id = rule->domain_id, .bmr_index = bmr_index};
    uint32_t code = fwx_mapt_plu_del_rule(rule);
    if (code == 0) code = fwx_mapt_plu_add_pending_rule(rule);
    return code == 0 ? fwx_mapt_plu_add_rule(&installed) : code;
}

/* Returns the server's verdict on a rule, and corrects the library's table, which installs a rule whatever the server
 * answers. */
static uint32_t judge_rule(const slot_t *slot, uint32_t table_code) {
    if (!is_reply_to(slot)) { /* there is no reply: the library has flushed the command */
        callbacks_drop_pending(slot);
        return table_code;
    }
    const int is_done = reply.result == 0 || reply.result == FWX_NAT64_MODEL_ERR_NOT_SAVED;
    if (slot->rule_op == FWX_NAT64_OP_ADD) {
        if (!is_done && table_code == 0) fwx_mapt_plu_del_rule(&slot->rule);
        if (is_done && table_code == FWX_NAT64_ERR_EXISTS) table_code = reinstall(&slot->rule, reply.bmr_index);
    }
    return reply.result != 0 ? reply.result : table_code;
}

static void configured(fwx_nat64_cmd_result_t *result) {
    slot_t *slot = slot_find((uintptr_t)result->pal_ctx);
    if (slot == NULL) return;
    const int is_rule = slot->wire_ctx != 0;
    slot_finish(slot, is_rule ? judge_rule(slot, result->result) : result->result);
}

/* Queues a reply to a query as a page, or ends the query with an error. Returns what the library's callback must
 * return. `head` has the numbers of the page. */
static uint32_t take_page(void *ctx, const nat64_message_t *head, const void *data, size_t entry_size) {
    slot_t *slot = slot_find((uintptr_t)ctx);
    if (slot == NULL) return 1;
    const size_t size = head->count * entry_size;
    const int has_code = is_reply_to(slot) && reply.result != 0;
    uint32_t code = has_code ? reply.result : 0;
    if (code == 0 && data == NULL) code = is_reply_to(slot) ? FWX_HOST_ERR_BAD_ANSWER : FWX_NAT64_ERR_AGAIN;
    if (code == 0 && fwx_host_smc_bytes_behind(data) < size) code = FWX_HOST_ERR_BAD_ANSWER;
    nat64_message_t *page = code == 0 ? message_make(NAT64_PAGE, data, size) : NULL;
    if (page == NULL) {
        slot_finish(slot, code == 0 ? FWX_NAT64_ERR_NOMEM : code);
        return 1;
    }
    page->id = slot_id(slot);
    page->more = head->more;
    page->cookie = head->cookie;
    page->value2 = head->value2;
    page->count = head->count;
    message_add(page);
    if (page->more == 0) {
        slot_release(slot);
    } else if (slot->timeout_ms != 0) {
        slot->deadline = fwx_host_clock_ms() + slot->timeout_ms;
    }
    return 0;
}

static uint32_t system_stats(void *ctx, uint32_t more, void *data) {
    const nat64_message_t head = {.more = more, .count = data != NULL};
    const size_t behind = data == NULL ? 0 : fwx_host_smc_bytes_behind(data); /* the record's size depends on `sel` */
    uint64_t magic = 0;
    if (behind >= sizeof(fwx_nat64_config_page_t)) memcpy(&magic, data, sizeof magic);
    const int is_whole = magic == FWX_NAT64_CONFIG_MAGIC || behind >= sizeof(fwx_nat64_stats_sys_entry_t);
    return take_page(ctx, &head, data, is_whole ? behind : SIZE_MAX);
}
static uint32_t interface_stats(void *ctx, uint32_t more, uint32_t count, void *data) {
    return take_page(ctx, &(nat64_message_t){.more = more, .count = count}, data, sizeof(fwx_nat64_stats_intf_entry_t));
}
static uint32_t limit_stats(void *ctx, uint32_t more, uint32_t count, void *data) {
    return take_page(ctx, &(nat64_message_t){.more = more, .count = count}, data,
                     sizeof(fwx_nat64_stats_limit_entry_t));
}
static uint32_t pool_stats(void *ctx, uint32_t more, uint64_t cookie, uint32_t count, void *data) {
    const nat64_message_t head = {.more = more, .cookie = cookie, .count = count};
    return take_page(ctx, &head, data, sizeof(fwx_nat64_stats_pool_entry_t));
}
static uint32_t mapping_stats(void *ctx, uint32_t more, uint64_t cookie, uint32_t count, void *data) {
    const nat64_message_t head = {.more = more, .cookie = cookie, .count = count};
    const int is_unsolicited = ctx == NULL && data != NULL;
    if (!is_unsolicited) return take_page(ctx, &head, data, sizeof(fwx_nat64_stats_mapping_entry_t));
    nat64_message_t *message = message_make(NAT64_MAPPING, data, sizeof(fwx_nat64_stats_mapping_entry_t));
    if (message != NULL) message_add(message);
    return 0;
}
uint32_t callbacks_walk(void *ctx, uint32_t count, void *data, uint64_t cookie, uint32_t value2, uint32_t status) {
    const nat64_message_t head = {
        .more = status == FWX_NAT64_WALK_MORE, .cookie = cookie, .value2 = value2, .count = count};
    const int is_full = value2 == FWX_NAT64_WALK_FULL;
    return take_page(ctx, &head, data, is_full ? sizeof(fwx_nat64_session_full_t) : sizeof(fwx_nat64_session_t));
}

/* --- Unsolicited messages and flow control --- */

static void record_noted(uint32_t op, const void *record) {
    nat64_message_t *message = message_make(NAT64_RECORD, record, 3 * sizeof(uint32_t));
    if (message == NULL) return;
    message->more = op;
    message_add(message);
}
static void event_noted(void) {
    nat64_message_t *message = message_make(NAT64_EVENT, NULL, 0);
    if (message != NULL) message_add(message);
}
void callbacks_throttle(uint32_t may_send, void *ctx) {
    (void)ctx;
    callbacks_throttled = may_send == 0;
    nat64_message_t *message = message_make(NAT64_THROTTLE, NULL, 0);
    if (message == NULL) return;
    message->more = may_send;
    message_add(message);
}

void callbacks_tap(void *arg, fwx_host_direction_t direction, const void *msg, size_t size) {
    (void)arg;
    fwx_nat64_msg_hdr_t header;
    if (size < sizeof header) return;
    memcpy(&header, msg, sizeof header);
    const uint32_t msgno = header.type & FWX_NAT64_MSG_NUMBER_MASK;
    if (header.type != (FWX_NAT64_MSG_ASYNC | msgno)) return;
    if (direction == FWX_HOST_SENT) {
        if (reply.wire_ctx == header.clnt_ctx) reply.wire_ctx = 0; /* a new command reuses the context */
        const int is_query = msgno >= FWX_NAT64_MSG_STATS_SYS && msgno <= FWX_NAT64_MSG_SESSION_WALK;
        if (callbacks_starting != 0 && (is_query || msgno == FWX_NAT64_MSG_MAPT_RULE))
            slot_at(callbacks_starting)->wire_ctx = header.clnt_ctx;
        return;
    }
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (size < FWX_NAT64_REPLY_MIN_SIZE || info == NULL || info->epoch != header.epoch) return;
    fwx_nat64_mapt_reply_t said = {0};
    memcpy(&said, msg, size < sizeof said ? size : sizeof said);
    reply.wire_ctx = header.clnt_ctx;
    reply.result = said.reply.result;
    reply.bmr_index = said.bmr_index;
}

const fwx_nat64_reply_cbs_t callbacks_replies = {configured, system_stats, interface_stats,
                                                 pool_stats, limit_stats,  mapping_stats};
const fwx_nat64_unsol_cbs_t callbacks_unsolicited = {NULL, record_noted, event_noted};
