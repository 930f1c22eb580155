#include "model/server.h"

#include "model/state.h"
#include "model/statistics.h"
#include "model/walks.h"
#include "wire/messages.h"

namespace {

constexpr uint32_t form_mask = 0xffffU & ~FWX_NAT64_MSG_NUMBER_MASK;

model_state_t &model_of(void *ctx) {
    return *static_cast<model_state_t *>(ctx);
}

/* Whether a message of this type, in either form, is told apart by a word behind its header. */
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

/* Judges a message's frame and counts it. */
uint32_t admit(model_state_t &model, fwx_host_peer_t *peer, wire_form_t form, const void *msg, size_t size) {
    const wire_message_t *message = wire_find(wire_direction_t::to_server, msg, size);
    if (message != nullptr && message->form == form && wire_frame_ok(*message, msg, size)) {
        ++model.commands;
        return 0;
    }
    ++model.malformed;
    fwx_host_peer_malformed(peer);
    return message == nullptr ? unknown_code(form, msg, size) : FWX_NAT64_MODEL_ERR_MALFORMED;
}

uint32_t take_armed_failure(model_state_t &model) {
    if (model.armed_failures == 0) return 0;
    --model.armed_failures;
    return model.armed_code;
}

uint32_t init_code(uint32_t code) {
    return code == FWX_NAT64_INIT_CODE ? 0 : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t set_up_notifications(model_state_t &model, uint64_t client_id) {
    client_t *client = model.clients.find(client_id);
    if (client != nullptr) client->wants_notifications = true;
    return 0;
}

/* Notes that a command was carried out, if it changes what is saved. */
void note_change(model_state_t &model, uint32_t op_code, const void *payload) {
    const size_t size = configuration_t::kept_size(op_code);
    if (size != 0) model.changes.note(op_code, payload, size);
}

uint32_t configure(model_state_t &model, uint32_t op_code, const void *payload) {
    const uint32_t code = model.config.carry_out(op_code, payload);
    if (code == 0) note_change(model, op_code, payload);
    return code;
}

/* Carries out a command whose whole answer is a result. */
uint32_t carry_out(model_state_t &model, const request_t &request) {
    switch (request.number()) {
        case FWX_NAT64_MSG_UNSOL_SETUP:
            return set_up_notifications(model, request.client);
        case FWX_NAT64_MSG_INIT:
            return init_code(request.read<fwx_nat64_init_msg_t>().init_code);
        case FWX_NAT64_MSG_CONFIG:
            return configure(model, request.read<uint32_t>(offsetof(fwx_nat64_cfg_msg_t, op_code)),
                             request.msg + offsetof(fwx_nat64_cfg_msg_t, payload));
        default:
            return 0; /* the client may send again; there is nothing to resume here */
    }
}

/* Message number of the reply to a command whose whole answer is a result. */
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

uint32_t answer_result(model_state_t &model, const request_t &request, uint32_t code) {
    if (code == 0) code = carry_out(model, request);
    const fwx_nat64_reply_t reply = request.reply(result_number(request), code);
    model.outbox.post(request.client, &reply, sizeof(reply));
    return code;
}

uint32_t set_basic_rule(model_state_t &model, const fwx_nat64_bmr_msg_t &command, uint32_t code,
                        fwx_nat64_mapt_reply_t *reply) {
    reply->rule_id = command.rule_id;
    reply->domain_id = command.domain_id;
    reply->op = command.op;
    if (code == 0) code = model.config.rules.basic_set(command, reply);
    const bool is_added = command.op == FWX_NAT64_OP_ADD;
    if (code == 0) {
        indexed_rule_t rule{reply->bmr_index, {}};
        rule.rule.rule_id = command.rule_id;
        rule.rule.domain_id = command.domain_id;
        if (is_added) rule.rule = rule_of(command);
        note_change(model, is_added ? FWX_NAT64_MODEL_SAVED_BASIC_RULE : FWX_NAT64_MODEL_SAVED_BASIC_RULE_DEL, &rule);
    }
    return code;
}

uint32_t set_default_rule(model_state_t &model, const request_t &request, uint32_t code,
                          fwx_nat64_mapt_reply_t *reply) {
    const auto rule = request.read<fwx_nat64_mapt_dmr_t>(offsetof(fwx_nat64_dmr_msg_t, dmr));
    reply->rule_id = rule.id;
    reply->rule_type = FWX_NAT64_MAPT_RULE_DMR;
    reply->op = request.read<uint32_t>(offsetof(fwx_nat64_dmr_msg_t, op));
    if (code == 0) code = model.config.rules.default_set(reply->op, rule);
    constexpr uint32_t saved_as[] = {FWX_NAT64_MODEL_SAVED_DEFAULT_RULE, FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_MOD,
                                     FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_DEL};
    if (code == 0) note_change(model, saved_as[reply->op - FWX_NAT64_OP_ADD], &rule);
    return code;
}

uint32_t answer_rule(model_state_t &model, const request_t &request, uint32_t code) {
    fwx_nat64_mapt_reply_t reply{};
    if (request.msg != nullptr) {
        const bool is_basic =
            request.read<uint32_t>(offsetof(fwx_nat64_bmr_msg_t, rule_type)) == FWX_NAT64_MAPT_RULE_BMR;
        code = is_basic ? set_basic_rule(model, request.read<fwx_nat64_bmr_msg_t>(), code, &reply)
                        : set_default_rule(model, request, code, &reply);
    }
    reply.reply = request.reply(FWX_NAT64_MSG_MAPT_RULE, code);
    model.outbox.post(request.client, &reply, sizeof(reply));
    return code;
}

uint32_t answer(model_state_t &model, const request_t &request, uint32_t code) {
    switch (request.number()) {
        case FWX_NAT64_MSG_STATS_SYS:
        case FWX_NAT64_MSG_STATS_INTF:
        case FWX_NAT64_MSG_STATS_POOL_ALL:
        case FWX_NAT64_MSG_STATS_MAPPING_ALL:
        case FWX_NAT64_MSG_STATS_LIMIT_ALL:
            return answer_statistics(model, request, code);
        case FWX_NAT64_MSG_SESSION_WALK:
            return walk_start(request, code, model.config, model.outbox, model.pager);
        case FWX_NAT64_MSG_MAPT_RULE:
            return answer_rule(model, request, code);
        default:
            return answer_result(model, request, code);
    }
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

/* Counts and tells of a message that was answered with `code`. */
void note_answer(model_state_t &model, bool is_well_formed, const void *msg, size_t size, uint32_t code) {
    if (code == 0) return;
    if (is_well_formed) ++model.refused;
    ++refusals_for(model.causes, code);
    if (model.refusal_fn != nullptr) model.refusal_fn(model.refusal_arg, msg, size, code);
}

void connected(void *ctx, fwx_host_peer_t *peer) {
    serve_or_drop(peer, [&] { model_of(ctx).clients.add(peer); });
}

void disconnected(void *ctx, fwx_host_peer_t *peer) {
    model_state_t &model = model_of(ctx);
    const client_t *client = model.clients.find(peer);
    if (client == nullptr) return;
    model.outbox.forget(client->id);
    model.pager.forget(client->id);
    model.clients.remove(peer);
}

void receive(model_state_t &model, fwx_host_peer_t *peer, const void *msg, size_t size) {
    uint32_t code = admit(model, peer, wire_form_t::async, msg, size);
    const bool is_well_formed = code == 0;
    const client_t *client = model.clients.find(peer);
    /* Without an asynchronous header there is no context to answer to. */
    if (client == nullptr || size < sizeof(fwx_nat64_msg_hdr_t)) {
        note_answer(model, is_well_formed, msg, size, code);
        return;
    }
    request_t request{client->id, {}, is_well_formed ? static_cast<const uint8_t *>(msg) : nullptr};
    std::memcpy(&request.hdr, msg, sizeof(request.hdr));
    if (is_well_formed) code = take_armed_failure(model);
    if ((request.hdr.type & form_mask) == FWX_NAT64_MSG_ASYNC) code = answer(model, request, code);
    note_answer(model, is_well_formed, msg, size, code);
}

void received(void *ctx, fwx_host_peer_t *peer, const void *msg, size_t size) {
    serve_or_drop(peer, [&] { receive(model_of(ctx), peer, msg, size); });
}

uint32_t carry_out_sync(model_state_t &model, const uint8_t *msg) {
    const uint64_t type = wire_read(msg, sizeof(uint16_t));
    if (type == (FWX_NAT64_MSG_SYNC | FWX_NAT64_MSG_INIT)) {
        return init_code(
            static_cast<uint32_t>(wire_read(msg + offsetof(fwx_nat64_sync_init_msg_t, init_code), sizeof(uint32_t))));
    }
    return model.config.carry_out(
        static_cast<uint32_t>(wire_read(msg + offsetof(fwx_nat64_ctrl_msg_t, op_code), sizeof(uint32_t))),
        msg + sizeof(fwx_nat64_ctrl_msg_t));
}

size_t reply_to(model_state_t &model, fwx_host_peer_t *peer, const void *msg, size_t size, void *reply,
                size_t reply_cap) {
    fwx_nat64_sync_reply_t answer{};
    answer.result = admit(model, peer, wire_form_t::sync, msg, size);
    const bool is_well_formed = answer.result == 0;
    if (is_well_formed) answer.result = take_armed_failure(model);
    if (answer.result == 0) answer.result = carry_out_sync(model, static_cast<const uint8_t *>(msg));
    note_answer(model, is_well_formed, msg, size, answer.result);
    if (model.outbox.silent || size < sizeof(uint32_t)) return 0;
    std::memcpy(&answer.hdr, msg, sizeof(uint32_t)); /* by which the answer is known to be one to the question */
    const size_t length = std::min(reply_cap, sizeof(answer));
    std::memcpy(reply, &answer, length);
    return length;
}

size_t asked(void *ctx, fwx_host_peer_t *peer, const void *msg, size_t size, void *reply, size_t reply_cap) {
    size_t length = 0;
    serve_or_drop(peer, [&] { length = reply_to(model_of(ctx), peer, msg, size, reply, reply_cap); });
    return length;
}

}  // namespace

const fwx_host_server_ops_t model_server_ops = {connected, disconnected, received, asked};
