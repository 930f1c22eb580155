/* Fuzzes the library with a server that may send anything and a PAL whose callbacks may call anything: they read the
 * data that was sent, unbind, bind again, flush, send, make synchronous calls and run the loop. Platform operations
 * fail at random. In all cases a command's end is reported at most once, and all resources are released. The lower
 * three bits of a byte of input choose an action, the others are its operand. */
#include <deque>
#include <functional>

#include "fwx_nat64/fwx_nat64.h"
#include "platform/runtime.h"
#include "platform/smc.h"
#include "tests/support/outstanding.h"
#include "tests/support/platform_watch.h"
#include "wild_server.h"

namespace {

constexpr uint32_t deepest = 4; /* limit of nested actions, that is actions from callbacks */
constexpr size_t question_bytes = sizeof(fwx_nat64_sync_init_msg_t);
constexpr uint8_t untouched = 0xee;

/** Operations that may fail. Not the list operations: when one fails, a command can end without a callback, which other
 * tests cover. */
constexpr fwx_host_op_t failing_ops[] = {FWX_HOST_OP_SEND_DONE,    FWX_HOST_OP_CALLOC,         FWX_HOST_OP_TX_ALLOC,
                                         FWX_HOST_OP_CHUNK_MALLOC, FWX_HOST_OP_CHAN_OPEN,      FWX_HOST_OP_ASYNC_SEND,
                                         FWX_HOST_OP_SYNC_SEND,    FWX_HOST_OP_TBM_LEAF_INSERT};

/** One command of the PAL; its address is the context. Checks the order of callbacks, and that it ends at most once. */
class ticket_t {
public:
    ticket_t(uint32_t its_binding, bool stops, bool is_query)
        : binding(its_binding), stops_(stops), is_query_(is_query) {}

    void refused() {
        FUZZ_CHECK(!has_ended_);
        has_ended_ = true;
    }
    /** Its callback begins, under this binding. */
    void begin_call(uint32_t present_binding, bool is_last) {
        FUZZ_CHECK(mark_ == right_mark && binding == present_binding && !has_ended_);
        has_ended_ = is_last;
        ++calls_;
    }
    /** Its callback ends. Returns the callback's return value. */
    uint32_t end_call() {
        --calls_;
        has_ended_ = has_ended_ || stops_;
        return stops_ ? 1 : 0;
    }
    /** The classifier manager receives its context. A classifier's reply can name any command. For a query, its
     * callback is called first. */
    void returned() {
        FUZZ_CHECK(mark_ == right_mark && !is_returned_ && (is_query_ || !has_ended_));
        has_ended_ = is_returned_ = true;
    }
    /** Whether it is no longer outstanding after a flush of its binding: it has ended, or its callback is running. */
    bool is_flushed() const { return has_ended_ || calls_ != 0; }

    const uint32_t binding; /* the binding under which it was sent */

private:
    static constexpr uint32_t right_mark = 0x7e57ab1e;

    const uint32_t mark_ = right_mark;
    const bool stops_; /* its callback returns 1, which ends the query */
    const bool is_query_;
    bool has_ended_ = false;
    bool is_returned_ = false;
    uint32_t calls_ = 0; /* callbacks that have not returned */
};

void read_bytes(const void *data, uint64_t size) {
    for (uint64_t i = 0; i < size; ++i) {
        (void)static_cast<const volatile uint8_t *>(data)[i];
    }
}

struct received_t {
    const uint8_t *at;
    size_t size;

    /** Reads as many of the `bytes` claimed at `data` as the message contains. */
    void read(const void *data, uint64_t bytes) const {
        if (data == nullptr || bytes == 0) return;
        const auto *from = static_cast<const uint8_t *>(data);
        FUZZ_CHECK(from > at && from <= at + sizeof(fwx_nat64_sess_walk_reply_t));
        if (from < at + size) read_bytes(from, std::min<uint64_t>(bytes, static_cast<uint64_t>(at + size - from)));
    }
};

class session_t {
public:
    explicit session_t(input_t &input) : input_(input), loop_(fwx_host_loop_create()), server_(input, loop_) {
        session = this;
        fwx_host_cgm_observe(returned, this);
        fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
        fwx_host_tap_set(
            [](void *self, fwx_host_direction_t direction, const void *msg, size_t size) {
                if (direction != FWX_HOST_RECEIVED) return;
                static_cast<session_t *>(self)->received_ = {static_cast<const uint8_t *>(msg), size};
            },
            this);
        debug_flags_set(1, 0); /* because the server of an earlier input may have set them */
        bind();
    }
    ~session_t() {
        fwx_host_fault_reset();
        server_.pause(0);
        flush();
        unbind();
        fwx_mapt_plu_cleanup();
        pump();
        server_.end();
        fwx_host_loop_destroy(loop_);
        fwx_host_tap_set(nullptr, nullptr);
        FUZZ_CHECK(watch_.left().empty() && watch_.errors().bad_frees == 0);
    }
    session_t(const session_t &) = delete;
    session_t &operator=(const session_t &) = delete;

    void act() {
        const uint32_t choice = input_.byte();
        const uint32_t operand = choice / 8;
        if (!is_bound_ && operand % 2 == 1) bind();
        const uint32_t kind = choice % 8;
        bool is_pumped = kind == 0 || kind == 2;
        if (kind == 1 || kind == 2) send(operand);
        if (kind == 3 || kind == 4) {
            server_.answer(operand % 16, operand % 16 == 15 ? 2 : 1);
            is_pumped = operand / 16 == 0;
        }
        if (kind == 5) is_pumped = server_.deliver();
        if (kind == 6) ask(operand);
        if (kind == 7) turn(operand);
        if (is_pumped) pump();
    }

    /** Called by the library's callbacks. `bytes` is the length of the data according to the server. */
    static uint32_t called(void *ctx, bool is_last, const void *data, uint64_t bytes) {
        return session->call(*static_cast<ticket_t *>(ctx), is_last, data, bytes);
    }
    static uint32_t notified(const void *data, size_t size) {
        read_bytes(data, size);
        session->react();
        return 0;
    }

private:
    static session_t *session;
    static const fwx_nat64_reply_cbs_t reply_cbs;
    static const fwx_nat64_unsol_cbs_t unsol_cbs;

    template <typename entry_t>
    static uint32_t counted(void *ctx, uint32_t more, uint32_t value, void *data) {
        return called(ctx, more == 0, data, uint64_t{value} * sizeof(entry_t));
    }
    template <typename entry_t>
    static uint32_t paged(void *ctx, uint32_t more, uint64_t, uint32_t value, void *data) {
        return counted<entry_t>(ctx, more, value, data);
    }
    static uint32_t walk_cb(void *ctx, uint32_t count, void *data, uint64_t, uint32_t, uint32_t status) {
        FUZZ_CHECK(status >= FWX_NAT64_WALK_STOPPED && status <= FWX_NAT64_WALK_ERROR);
        return called(ctx, status != FWX_NAT64_WALK_MORE, data, uint64_t{count} * sizeof(fwx_nat64_session_t));
    }
    static void returned(void *self, uint32_t, void *ctx, uint32_t) {
        if (ctx == nullptr) return;
        static_cast<ticket_t *>(ctx)->returned();
        static_cast<session_t *>(self)->react();
    }

    uint32_t call(ticket_t &ticket, bool is_last, const void *data, uint64_t bytes) {
        ticket.begin_call(binding_, is_last);
        const received_t received = received_;
        received.read(data, bytes);
        react();
        if (ticket.binding == binding_) received.read(data, bytes); /* still valid, until the callback returns */
        return ticket.end_call();
    }
    void react() {
        if (depth_ == deepest || input_.byte() % 2 == 0) return;
        ++depth_;
        act();
        --depth_;
    }

    void bind() {
        ++binding_;
        is_bound_ = fwx_nat64_bind("PAL1", loop_, &unsol_cbs, &reply_cbs) == 0;
        if (!is_bound_) fwx_nat64_unbind();
    }
    void unbind() {
        ++binding_;
        is_bound_ = false;
        fwx_nat64_unbind();
    }
    void pump() { fwx_host_loop_run_until_idle(loop_); }

    /** Ends all outstanding commands, and checks that every command of this binding has ended. */
    void flush() {
        const uint32_t binding = binding_;
        const size_t sent = tickets_.size();
        FUZZ_CHECK(fwx_nat64_clnt_cleanup() == 0);
        if (!is_bound_ || binding_ != binding) return;
        void *head = nullptr;
        FUZZ_CHECK(fwx_list_head(fwx_nat64_client_info_get()->clnt_ctx_list, &head) == 0 && head == nullptr);
        for (size_t i = 0; i < sent; ++i) {
            if (tickets_[i].binding == binding) FUZZ_CHECK(tickets_[i].is_flushed());
        }
    }

    void turn(uint32_t operand) {
        const uint32_t kind = operand % 8;
        if (kind < 2) unbind();
        if (kind == 1) bind();
        if (kind == 2) server_.drop();
        if (kind == 3) flush();
        if (kind == 4 || kind == 5) server_.pause(kind == 4 ? 1 : 0);
        if (kind > 5) fwx_host_fault_arm(failing_ops[operand / 8 + operand % 2 * 4], 1 + input_.below(8), 0);
    }

    void send(uint32_t operand) {
        constexpr uint32_t queries = 6;
        const std::function<uint32_t(ticket_t *)> commands[] = {
            [](ticket_t *ctx) { return fwx_nat64_stats_sys_query_a(0, ctx); },
            [](ticket_t *ctx) { return fwx_nat64_stats_intf_query_a(ctx); },
            [](ticket_t *ctx) { return fwx_nat64_stats_pool_all_query_a(0, nullptr, 1, 0, ctx); },
            [](ticket_t *ctx) { return fwx_nat64_stats_mapping_all_query_a(0, nullptr, 1, 0, ctx); },
            [](ticket_t *ctx) { return fwx_nat64_stats_limit_all_query_a(0, 1, ctx); },
            [](ticket_t *ctx) {
                const fwx_nat64_sess_walk_filter_t filter{};
                return fwx_nat64_session_walk_a(1, &filter, 0, 0, 0, walk_cb, ctx);
            },
            [this](ticket_t *ctx) { return send_rule(FWX_NAT64_OP_ADD, ctx); },
            [this](ticket_t *ctx) { return send_rule(FWX_NAT64_OP_DEL, ctx); },
            [](ticket_t *ctx) {
                const fwx_nat64_mapt_dmr_t default_rule = {1, {}};
                return fwx_nat64_mapt_dmr_set_a(FWX_NAT64_OP_ADD, &default_rule, ctx);
            },
            [this](ticket_t *ctx) { return notify_classifier(1, ctx); },
            [](ticket_t *ctx) { return fwx_nat64_ipalias_upload_a(ctx); },
        };
        const uint32_t kind = operand % std::size(commands);
        ticket_t &ticket = tickets_.emplace_back(binding_, operand >= std::size(commands), kind < queries);
        if (commands[kind](&ticket) != 0) ticket.refused();
    }
    /** Uses few distinct rules, so that rules collide. */
    uint32_t send_rule(uint32_t op, ticket_t *ctx) {
        const uint8_t which = input_.byte();
        fwx_nat64_mapt_bmr_t rule{};
        rule.rule_id = 1 + which % 4;
        rule.v4_prefix[0] = which & 0xc0;
        rule.v4_prefix_len = which % 34;
        rule.v6_prefix[0] = which & 0xe0;
        rule.v6_prefix_len = which % 66;
        return fwx_nat64_mapt_bmr_set_a(op, &rule, ctx);
    }
    uint32_t notify_classifier(uint32_t async, ticket_t *ctx) {
        uint8_t update[24] = {};
        void *data = update;
        const uint32_t op = input_.flag() ? FWX_NAT64_CGM_OP_END_BATCH : FWX_NAT64_CGM_OP_CLASSIFIER_UPDATE;
        return fwx_host_cgm_notify(FWX_NAT64_CGM_CLIENT_ID, op, &data, 1, async, ctx);
    }

    /** Sends a synchronous command of one of four kinds. The input chooses the answer. */
    void ask(uint32_t operand) {
        server_.next_answer = {};
        if ((operand & 4) != 0) server_.next_answer.length = input_.byte();
        server_.next_answer.is_foreign = (operand & 8) != 0;
        server_.next_answer.is_dropped = (operand & 16) != 0;
        server_.next_answer.result = input_.byte();
        if (operand % 4 == 3) notify_classifier(0, nullptr);
        if (operand % 4 == 2) {
            unbind();
            bind();
            FUZZ_CHECK(!is_bound_ || !server_.next_answer.is_sound() || server_.next_answer.result == 0);
        }
        void *msg = nullptr;
        if (operand % 4 > 1 || fwx_nat64_client_sync_cmd_init(question_bytes, FWX_NAT64_MSG_CONFIG, &msg) != 0) return;
        if (operand % 4 == 1) return ask_for_all(msg);
        server_.next_answer.check(fwx_nat64_client_sync_cmd_send(msg, question_bytes));
    }
    void ask_for_all(void *msg) {
        const size_t offset = input_.below(4);
        bytes_t reply(offset + input_.byte(), untouched);
        const size_t capacity = reply.size() - offset;
        const uint32_t code = fwx_nat64_client_sync_cmd_rsp_send(msg, question_bytes, reply.data() + offset, capacity);
        if (capacity < answer_bytes) { /* refused, so the caller still owns the message */
            FUZZ_CHECK(code == FWX_NAT64_ERR_BAD_ARG && !server_.next_answer.is_given);
            smc_msg_tx_buffer_free(msg);
            return;
        }
        server_.next_answer.check(code);
        for (size_t i = answer_bytes; i < capacity && server_.next_answer.is_sound(); ++i) {
            FUZZ_CHECK(reply[offset + i] == (i < server_.next_answer.length ? answer_filler : untouched));
        }
    }

    const platform_watch_t watch_;
    input_t &input_;
    fwx_host_loop_t *loop_;
    wild_server_t server_;
    uint32_t binding_ = 0;
    bool is_bound_ = false;
    uint32_t depth_ = 0;
    received_t received_ = {};
    std::deque<ticket_t> tickets_;
};

session_t *session_t::session;

const fwx_nat64_reply_cbs_t session_t::reply_cbs = {
    [](fwx_nat64_cmd_result_t *result) { called(result->pal_ctx, true, nullptr, 0); },
    [](void *ctx, uint32_t more, void *data) { return counted<fwx_nat64_stats_sys_entry_t>(ctx, more, 1, data); },
    counted<fwx_nat64_stats_intf_entry_t>,
    paged<fwx_nat64_stats_pool_entry_t>,
    counted<fwx_nat64_stats_limit_entry_t>,
    [](void *ctx, uint32_t more, uint64_t next, uint32_t value, void *data) {
        using entry_t = fwx_nat64_stats_mapping_entry_t;
        return ctx == nullptr ? notified(data, sizeof(entry_t)) : paged<entry_t>(ctx, more, next, value, data);
    },
};
const fwx_nat64_unsol_cbs_t session_t::unsol_cbs = {
    nullptr, [](uint32_t, const void *record) { notified(record, 3 * sizeof(uint32_t)); },
    [] { notified(nullptr, 0); }};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {  // NOLINT(readability-identifier-naming)
    input_t input(data, size);
    session_t session(input);
    while (!input.is_empty()) {
        session.act();
    }
    return 0;
}
