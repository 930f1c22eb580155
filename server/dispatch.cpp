/*
 * Receives messages: checks their frame, dispatches them by message number, executes commands and posts the replies of
 * commands whose answer is a result. Counts malformed and refused messages. statistics.cpp and walks.cpp answer
 * queries.
 */
#include "server/state.h"
#include "wire/messages.h"

namespace {

constexpr uint32_t form_mask = 0xffffU & ~FWX_NAT64_MSG_NUMBER_MASK;

server_state_t &server_of(void *ctx) {
    return *static_cast<server_state_t *>(ctx);
}

/* Whether a message of this type, in either form, has a selector word behind its header. */
bool has_selector(uint32_t type) {
    const uint32_t number = type & FWX_NAT64_MSG_NUMBER_MASK;
    return number == FWX_NAT64_MSG_CONFIG || number == FWX_NAT64_MSG_MAPT_RULE;
}

/* Code for a message that the description does not know. */
uint32_t unknown_code(wire_form_t form, const void *msg, size_t size) {
    if (size < sizeof(fwx_nat64_sync_hdr_t)) return FWX_NAT64_MODEL_ERR_MALFORMED;
    const auto type = static_cast<uint32_t>(wire_read(msg, sizeof(uint16_t)));
    const bool form_ok = (type & form_mask) == (form == wire_form_t::async ? FWX_NAT64_MSG_ASYNC : FWX_NAT64_MSG_SYNC);
    const size_t header = form == wire_form_t::async ? sizeof(fwx_nat64_msg_hdr_t) : sizeof(fwx_nat64_sync_hdr_t);
    const bool length_ok = size >= header + (has_selector(type) ? sizeof(uint32_t) : 0);
    return form_ok && length_ok ? FWX_NAT64_MODEL_ERR_UNKNOWN : FWX_NAT64_MODEL_ERR_MALFORMED;
}

/* Checks a message's frame, and counts the message. Returns 0 or the code with which to refuse it. */
uint32_t admit(server_state_t &server, fwx_host_peer_t *peer, wire_form_t form, const void *msg, size_t size) {
    const wire_message_t *message = wire_find(wire_direction_t::to_server, msg, size);
    if (message != nullptr && message->form == form && wire_frame_ok(*message, msg, size)) {
        ++server.commands;
        return 0;
    }
    ++server.malformed;
    fwx_host_peer_malformed(peer);
    return message == nullptr ? unknown_code(form, msg, size) : FWX_NAT64_MODEL_ERR_MALFORMED;
}

uint32_t take_armed_failure(server_state_t &server) {
    if (server.armed_failures == 0) return 0;
    --server.armed_failures;
    return server.armed_code;
}

uint32_t init_code(uint32_t code) {
    return code == FWX_NAT64_INIT_CODE ? 0 : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t set_up_notifications(server_state_t &server, uint64_t client_id) {
    client_t *client = server.clients.find(client_id);
    if (client != nullptr) client->wants_notifications = true;
    return 0;
}

/* Executes a configuration command and records the change. */
uint32_t configure(server_state_t &server, uint32_t op_code, const void *payload) {
    const uint32_t code = carry_out(server, op_code, payload);
    const size_t size = configuration_t::kept_size(op_code);
    if (code == 0 && size != 0) server.changes.note(op_code, payload, size);
    return code;
}

/* Executes a command whose answer is only a result. */
uint32_t result_of(server_state_t &server, const request_t &request) {
    switch (request.number()) {
        case FWX_NAT64_MSG_UNSOL_SETUP:
            return set_up_notifications(server, request.client);
        case FWX_NAT64_MSG_INIT:
            return init_code(request.read<fwx_nat64_init_msg_t>().init_code);
        case FWX_NAT64_MSG_CONFIG:
            return configure(server, request.read<uint32_t>(offsetof(fwx_nat64_cfg_msg_t, op_code)),
                             request.msg + offsetof(fwx_nat64_cfg_msg_t, payload));
        default:
            return 0; /* the client may send again, but this server has nothing to resume */
    }
}

/* Message number of the reply to a command whose answer is only a result. */
uint32_t result_number(const request_t &request) {
    if (request.msg == nullptr || request.number() != FWX_NAT64_MSG_CONFIG) return FWX_NAT64_MSG_RESULT;
    switch (request.read<uint32_t>(offsetof(fwx_nat64_cfg_msg_t, op_code))) {
        case FWX_NAT64_CFG_END_BATCH:
            return FWX_NAT64_MSG_CGM_REPLY;
        case FWX_NAT64_CFG_CLASSIFIER_UPDATE:
            return FWX_NAT64_MSG_CGM_REPLY2;
        default:
            return FWX_NAT64_MSG_RESULT;
    }
}

uint32_t answer_result(server_state_t &server, const request_t &request, uint32_t code) {
    if (code == 0) code = result_of(server, request);
    const fwx_nat64_reply_t reply = request.reply(result_number(request), code);
    server.outbox.post(request.client, &reply, sizeof(reply));
    return code;
}

uint32_t set_basic_rule(server_state_t &server, const fwx_nat64_bmr_msg_t &command, uint32_t code,
                        fwx_nat64_mapt_reply_t *reply) {
    reply->rule_id = command.rule_id;
    reply->domain_id = command.domain_id;
    reply->op = command.op;
    const bool is_added = command.op == FWX_NAT64_OP_ADD;
    const uint32_t op_code = is_added ? record_kept_basic_rule : record_kept_basic_rule_del;
    kept_rule_t rule{};
    rule.rule.rule_id = command.rule_id;
    rule.rule.domain_id = command.domain_id;
    if (is_added) rule.rule = rule_of(command);
    if (code == 0) code = server.engine->refusal(op_code, &rule);
    if (code == 0) code = server.config.rules.basic_set(command, reply);
    if (code != 0) return code;
    rule.index = reply->bmr_index;
    server.engine->changed(op_code, &rule);
    server.changes.note(op_code, &rule, sizeof rule);
    return 0;
}

uint32_t set_default_rule(server_state_t &server, const request_t &request, uint32_t code,
                          fwx_nat64_mapt_reply_t *reply) {
    const auto rule = request.read<fwx_nat64_mapt_dmr_t>(offsetof(fwx_nat64_dmr_msg_t, dmr));
    reply->rule_id = rule.id;
    reply->rule_type = FWX_NAT64_MAPT_RULE_DMR;
    reply->op = request.read<uint32_t>(offsetof(fwx_nat64_dmr_msg_t, op));
    constexpr uint32_t kept_as[] = {record_kept_default_rule, record_kept_default_rule_mod,
                                    record_kept_default_rule_del};
    const uint32_t op = reply->op - FWX_NAT64_OP_ADD;
    if (code == 0) code = op < std::size(kept_as) ? configure(server, kept_as[op], &rule) : FWX_NAT64_MODEL_ERR_VALUE;
    return code;
}

uint32_t answer_rule(server_state_t &server, const request_t &request, uint32_t code) {
    fwx_nat64_mapt_reply_t reply{};
    if (request.msg != nullptr) {
        const bool is_basic =
            request.read<uint32_t>(offsetof(fwx_nat64_bmr_msg_t, rule_type)) == FWX_NAT64_MAPT_RULE_BMR;
        code = is_basic ? set_basic_rule(server, request.read<fwx_nat64_bmr_msg_t>(), code, &reply)
                        : set_default_rule(server, request, code, &reply);
    }
    reply.reply = request.reply(FWX_NAT64_MSG_MAPT_RULE, code);
    server.outbox.post(request.client, &reply, sizeof(reply));
    return code;
}

uint32_t answer(server_state_t &server, const request_t &request, uint32_t code) {
    switch (request.number()) {
        case FWX_NAT64_MSG_STATS_SYS:
        case FWX_NAT64_MSG_STATS_INTF:
        case FWX_NAT64_MSG_STATS_POOL_ALL:
        case FWX_NAT64_MSG_STATS_MAPPING_ALL:
        case FWX_NAT64_MSG_STATS_LIMIT_ALL:
            return answer_statistics(server, request, code);
        case FWX_NAT64_MSG_SESSION_WALK:
            return answer_walk(server, request, code);
        case FWX_NAT64_MSG_MAPT_RULE:
            return answer_rule(server, request, code);
        default:
            return answer_result(server, request, code);
    }
}

/* Counts a message that was answered with `code`, and calls the observer, if the code is an error. */
void note_answer(server_state_t &server, const fwx_host_peer_t *peer, bool is_well_formed, const void *msg, size_t size,
                 uint32_t code) {
    if (code == 0) return;
    if (is_well_formed) ++server.refused;
    ++refusals_for(server.causes, code);
    if (server.refusal_fn != nullptr) server.refusal_fn(server.refusal_arg, peer, msg, size, code);
}

void connected(void *ctx, fwx_host_peer_t *peer) {
    serve_or_drop(peer, [&] { server_of(ctx).clients.add(peer); });
}

void disconnected(void *ctx, fwx_host_peer_t *peer) {
    server_state_t &server = server_of(ctx);
    const client_t *client = server.clients.find(peer);
    if (client == nullptr) return;
    server.outbox.forget(client->id);
    server.pager.forget(client->id);
    server.clients.remove(peer);
}

void receive(server_state_t &server, fwx_host_peer_t *peer, const void *msg, size_t size) {
    uint32_t code = admit(server, peer, wire_form_t::async, msg, size);
    const bool is_well_formed = code == 0;
    const client_t *client = server.clients.find(peer);
    /* Without a complete asynchronous header there is no context to which to reply. */
    if (client == nullptr || size < sizeof(fwx_nat64_msg_hdr_t)) {
        note_answer(server, peer, is_well_formed, msg, size, code);
        return;
    }
    request_t request{client->id, {}, is_well_formed ? static_cast<const uint8_t *>(msg) : nullptr};
    std::memcpy(&request.hdr, msg, sizeof(request.hdr));
    if (is_well_formed) code = take_armed_failure(server);
    if ((request.hdr.type & form_mask) == FWX_NAT64_MSG_ASYNC) code = answer(server, request, code);
    note_answer(server, peer, is_well_formed, msg, size, code);
}

void received(void *ctx, fwx_host_peer_t *peer, const void *msg, size_t size) {
    serve_or_drop(peer, [&] { receive(server_of(ctx), peer, msg, size); });
}

uint32_t carry_out_sync(server_state_t &server, const uint8_t *msg) {
    const uint64_t type = wire_read(msg, sizeof(uint16_t));
    if (type == (FWX_NAT64_MSG_SYNC | FWX_NAT64_MSG_INIT)) {
        return init_code(
            static_cast<uint32_t>(wire_read(msg + offsetof(fwx_nat64_sync_init_msg_t, init_code), sizeof(uint32_t))));
    }
    return carry_out(server,
                     static_cast<uint32_t>(wire_read(msg + offsetof(fwx_nat64_ctrl_msg_t, op_code), sizeof(uint32_t))),
                     msg + sizeof(fwx_nat64_ctrl_msg_t));
}

size_t reply_to(server_state_t &server, fwx_host_peer_t *peer, const void *msg, size_t size, void *reply,
                size_t reply_cap) {
    fwx_nat64_sync_reply_t answer{};
    answer.result = admit(server, peer, wire_form_t::sync, msg, size);
    const bool is_well_formed = answer.result == 0;
    if (is_well_formed) answer.result = take_armed_failure(server);
    if (answer.result == 0) answer.result = carry_out_sync(server, static_cast<const uint8_t *>(msg));
    note_answer(server, peer, is_well_formed, msg, size, answer.result);
    if (server.outbox.silent || size < sizeof(uint32_t)) return 0;
    std::memcpy(&answer.hdr, msg, sizeof(uint32_t)); /* by which the client recognises the answer to its message */
    const size_t length = std::min(reply_cap, sizeof(answer));
    std::memcpy(reply, &answer, length);
    return length;
}

size_t asked(void *ctx, fwx_host_peer_t *peer, const void *msg, size_t size, void *reply, size_t reply_cap) {
    size_t length = 0;
    serve_or_drop(peer, [&] { length = reply_to(server_of(ctx), peer, msg, size, reply, reply_cap); });
    return length;
}

}  // namespace

uint32_t carry_out(server_state_t &server, uint32_t op_code, const void *payload) {
    const uint32_t refusal = server.engine->refusal(op_code, payload);
    if (refusal != 0) return refusal;
    if (op_code == FWX_NAT64_CFG_SESSION_CLEAR) {
        return server.engine->session_clear(filter_of(read_record<fwx_nat64_session_filter_t>(payload)));
    }
    const uint32_t code = server.config.carry_out(op_code, payload);
    if (code == 0 && configuration_t::kept_size(op_code) != 0) server.engine->changed(op_code, payload);
    return code;
}

uint64_t &refusals_for(fwx_nat64_stats_system_t &refusals, uint32_t code) {
    switch (code) {
#define COUNT_OF(each, cause, text) \
    case each:                      \
        return refusals.cause;
        FWX_NAT64_MODEL_RESULTS(COUNT_OF)
#undef COUNT_OF
        default:
            return refusals.ordered;
    }
}

const fwx_host_server_ops_t server_ops = {connected, disconnected, received, asked};
