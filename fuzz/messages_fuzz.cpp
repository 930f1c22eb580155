/*
 * Messages of a server that may send anything, to a library with commands of every kind outstanding: built from the
 * message description, cut, mistyped, repeated, of other bindings. The contexts that they name are those of commands
 * that the library has sent; of a server that makes contexts up nothing can be promised.
 */
#include <cstring>
#include <deque>
#include <vector>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "input.h"
#include "platform/runtime.h"
#include "wire/messages.h"

namespace {

/** A command of the PAL; its address is the context that comes back. */
struct ticket_t {
    uint32_t binding; /* in which it was sent */
    bool stops;       /* its callback asks for no more */
    bool is_sent = false;
    uint32_t ends = 0;

    static constexpr uint32_t right_mark = 0x7e57ab1e;
    uint32_t mark = right_mark;

    static uint32_t called(void *ctx, bool is_last) {
        auto *ticket = static_cast<ticket_t *>(ctx);
        FUZZ_CHECK(ticket->mark == right_mark && ticket->is_sent && ticket->ends == 0);
        if (is_last || ticket->stops) ++ticket->ends;
        return ticket->stops ? 1 : 0;
    }
};

/** What the server knows of a command. */
struct command_t {
    uint64_t ctx;
    uint32_t epoch;
};

uint64_t touched; /* keeps what is read of the data of a callback */

void touch(const void *data, size_t size) {
    for (size_t i = 0; data != nullptr && i < size; ++i) {
        touched += static_cast<const volatile uint8_t *>(data)[i];
    }
}

void verdict_cb(fwx_nat64_cmd_result_t *result) {
    ticket_t::called(result->pal_ctx, true);
}
uint32_t sys_cb(void *ctx, uint32_t more, void *) {
    return ticket_t::called(ctx, more == 0);
}
uint32_t intf_cb(void *ctx, uint32_t more, uint32_t, void *) {
    return ticket_t::called(ctx, more == 0);
}
uint32_t all_cb(void *ctx, uint32_t more, uint64_t, uint32_t, void *data) {
    const bool is_notification = ctx == nullptr;
    if (is_notification) touch(data, sizeof(fwx_nat64_stats_mapping_entry_t));
    return is_notification ? 0 : ticket_t::called(ctx, more == 0);
}
uint32_t walk_cb(void *ctx, uint32_t, void *, uint64_t, uint32_t, uint32_t status) {
    FUZZ_CHECK(status >= FWX_NAT64_WALK_STOPPED && status <= FWX_NAT64_WALK_ERROR);
    return ticket_t::called(ctx, status != FWX_NAT64_WALK_MORE);
}
constexpr fwx_nat64_reply_cbs_t reply_cbs = {verdict_cb, sys_cb, intf_cb, all_cb, intf_cb, all_cb};
constexpr fwx_nat64_unsol_cbs_t unsol_cbs = {nullptr, [](uint32_t, const void *record) { touch(record, 12); }, [] {}};

class session_t {
public:
    explicit session_t(input_t &input) : input_(input), loop_(fwx_host_loop_create()) {
        FUZZ_CHECK(fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop_, &server_ops, this, &server_) == 0);
        fwx_host_cgm_observe([](void *, uint32_t, void *ctx, uint32_t) { ended_by_manager(ctx); }, nullptr);
        fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
        bind();
    }
    ~session_t() {
        flush();
        fwx_nat64_unbind();
        fwx_mapt_plu_cleanup();
        pump();
        fwx_host_server_unregister(server_);
        fwx_host_loop_destroy(loop_);
        fwx_host_live_t live;
        fwx_host_live_get(&live);
        FUZZ_CHECK(live.memory_blocks == 0 && live.pool_elements == 0 && live.tx_buffers == 0);
        FUZZ_CHECK(live.lists == 0 && live.hash_tables == 0 && live.pools == 0 && live.channels == 0);
        fwx_host_errors_t errors;
        fwx_host_errors_get(&errors);
        FUZZ_CHECK(errors.bad_frees == 0);
    }
    session_t(const session_t &) = delete;
    session_t &operator=(const session_t &) = delete;

    void act() {
        switch (input_.below(16)) {
            case 0:
                fwx_nat64_unbind();
                ++binding_;
                bind();
                break;
            case 1:
                if (peer_ != nullptr) fwx_host_peer_drop(peer_);
                peer_ = nullptr;
                break;
            case 2:
                flush();
                break;
            case 3:
            case 4:
                pump();
                break;
            case 5:
            case 6:
            case 7:
            case 8:
                send();
                pump();
                break;
            default:
                deliver();
                break;
        }
    }

private:
    static const fwx_host_server_ops_t server_ops;

    /* The classifier manager is told the context of any command that a classifier's reply names. */
    static void ended_by_manager(void *ctx) {
        if (ctx != nullptr) static_cast<ticket_t *>(ctx)->ends = 1;
    }

    void bind() {
        FUZZ_CHECK(fwx_nat64_bind("PAL1", loop_, &unsol_cbs, &reply_cbs) == 0);
        pump();
    }
    void pump() { fwx_host_loop_run_until_idle(loop_); }

    /** Everything outstanding is reported; then every command of this binding has ended once. */
    void flush() {
        FUZZ_CHECK(fwx_nat64_clnt_cleanup() == 0);
        void *head = nullptr;
        FUZZ_CHECK(fwx_list_head(fwx_nat64_client_info_get()->clnt_ctx_list, &head) == 0 && head == nullptr);
        for (const ticket_t &ticket : tickets_) {
            FUZZ_CHECK(ticket.ends <= 1);
            if (ticket.binding == binding_ && ticket.is_sent) FUZZ_CHECK(ticket.ends == 1);
        }
    }

    void send() {
        ticket_t &ticket = tickets_.emplace_back(ticket_t{binding_, input_.flag()});
        ticket.is_sent = true;
        ticket.is_sent = send_as(&ticket) == 0;
    }
    uint32_t send_as(ticket_t *ctx) {
        const fwx_nat64_sess_walk_filter_t filter{};
        const fwx_nat64_mapt_dmr_t default_rule = {1, {}};
        uint8_t update[24] = {};
        void *data = update;
        switch (input_.below(11)) {
            case 0:
                return fwx_nat64_stats_sys_query_a(0, ctx);
            case 1:
                return fwx_nat64_stats_intf_query_a(ctx);
            case 2:
                return fwx_nat64_stats_pool_all_query_a(0, nullptr, 1, 0, ctx);
            case 3:
                return fwx_nat64_stats_mapping_all_query_a(0, nullptr, 1, 0, ctx);
            case 4:
                return fwx_nat64_stats_limit_all_query_a(0, 1, ctx);
            case 5:
                return fwx_nat64_session_walk_a(1, &filter, 0, 0, 0, walk_cb, ctx);
            case 6:
            case 7:
                return send_rule(ctx);
            case 8:
                return fwx_nat64_mapt_dmr_set_a(FWX_NAT64_OP_ADD, &default_rule, ctx);
            case 9:
                return fwx_host_cgm_notify(FWX_NAT64_CGM_CLIENT_ID, input_.flag() ? 2 : 4, &data, 1, 1, ctx);
            default:
                return fwx_nat64_ipalias_upload_a(ctx);
        }
    }
    uint32_t send_rule(ticket_t *ctx) {
        fwx_nat64_mapt_bmr_t rule{};
        const uint32_t op = input_.flag() ? FWX_NAT64_OP_ADD : FWX_NAT64_OP_DEL;
        rule.rule_id = input_.below(4);
        rule.v4_prefix[0] = input_.byte();
        rule.v4_prefix_len = static_cast<uint8_t>(input_.below(36));
        rule.v6_prefix[0] = input_.byte();
        rule.v6_prefix_len = static_cast<uint8_t>(input_.below(70));
        return fwx_nat64_mapt_bmr_set_a(op, &rule, ctx);
    }

    /** A message that the description has for clients, with its fields, its length and its type as the input wants. */
    void deliver() {
        if (peer_ == nullptr) return;
        size_t count = 0;
        const wire_message_t *all = wire_messages(&count);
        const wire_message_t &message = all[input_.byte() % count];
        if (message.direction != wire_direction_t::to_client) return;
        const uint32_t how = input_.byte();
        std::vector<uint8_t> bytes(message.size + message.entry_size * (how >> 6));
        const auto put = [&bytes](size_t offset, auto value) {
            if (offset + sizeof(value) <= bytes.size()) std::memcpy(bytes.data() + offset, &value, sizeof(value));
        };
        const uint32_t form = message.form == wire_form_t::async ? FWX_NAT64_MSG_ASYNC : FWX_NAT64_MSG_SYNC;
        const uint32_t number = (how & 1) != 0 ? input_.below(16) : message.msgno;
        put(0, static_cast<uint16_t>(form | number));
        put(2, static_cast<uint16_t>(FWX_NAT64_MSG_DOMAIN));
        if (message.selector_offset != 0) put(message.selector_offset, message.selector);
        for (size_t i = 0; i < message.field_count; ++i) {
            for (uint16_t at = 0; at < message.fields[i].width && (how & 2) != 0; ++at) {
                bytes[message.fields[i].offset + at] = at == 0 ? input_.byte() : uint8_t{0};
            }
        }
        if ((how & 4) != 0) bytes.resize(input_.byte() * bytes.size() / 255);
        if ((how & 8) != 0) bytes.resize(bytes.size() + size_t{32} * input_.byte()); /* also beyond the buffer */
        if (number != FWX_NAT64_MSG_UNSOL_SETUP) {
            const command_t command = choose_command();
            put(offsetof(fwx_nat64_msg_hdr_t, clnt_ctx), command.ctx);
            put(offsetof(fwx_nat64_msg_hdr_t, epoch), command.epoch);
        }
        const uint32_t copies = (how & 16) != 0 ? 2 : 1;
        for (uint32_t i = 0; i < copies; ++i) {
            FUZZ_CHECK(fwx_host_peer_send(peer_, bytes.data(), bytes.size()) == 0);
        }
        if ((how & 32) == 0) pump();
    }
    command_t choose_command() {
        const uint32_t choice = input_.byte();
        const uint32_t epoch = fwx_nat64_client_info_get()->epoch;
        if (commands_.empty() || choice % 16 == 0) return {0, epoch};
        command_t command = commands_[commands_.size() - 1 - choice / 16 % commands_.size()];
        if (choice % 16 == 1) command.epoch = ~command.epoch;
        return command;
    }

    input_t &input_;
    fwx_host_loop_t *loop_;
    fwx_host_server_t *server_ = nullptr;
    fwx_host_peer_t *peer_ = nullptr;
    uint32_t binding_ = 0;
    std::deque<ticket_t> tickets_;
    std::vector<command_t> commands_;
};

const fwx_host_server_ops_t session_t::server_ops = {
    [](void *session, fwx_host_peer_t *peer) { static_cast<session_t *>(session)->peer_ = peer; },
    [](void *session, fwx_host_peer_t *peer) {
        auto *self = static_cast<session_t *>(session);
        if (self->peer_ == peer) self->peer_ = nullptr;
    },
    [](void *session, fwx_host_peer_t *, const void *msg, size_t) {
        const auto *hdr = static_cast<const fwx_nat64_msg_hdr_t *>(msg);
        static_cast<session_t *>(session)->commands_.push_back({hdr->clnt_ctx, hdr->epoch});
    },
    [](void *, fwx_host_peer_t *, const void *msg, size_t, void *reply, size_t) {
        std::memset(reply, 0, sizeof(fwx_nat64_sync_reply_t));
        std::memcpy(reply, msg, sizeof(uint32_t));
        return sizeof(fwx_nat64_sync_reply_t);
    },
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {  // NOLINT(readability-identifier-naming)
    input_t input(data, size);
    session_t session(input);
    while (!input.is_empty()) {
        session.act();
    }
    return 0;
}
