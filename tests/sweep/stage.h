/* The environment of a scenario: the library, bound to a server model, and a ticket for every command that was sent. */
#ifndef TESTS_SWEEP_STAGE_H
#define TESTS_SWEEP_STAGE_H

#include <algorithm>
#include <deque>
#include <memory>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "model/model.h"
#include "tests/support/outstanding.h"

enum class answer_t : uint8_t { verdict, query, walk };

/** A record of one command. Its address is the command's context. */
struct ticket_t {
    const char *what;
    answer_t answer;
    bool stops;                /* its callback stops the answer at the first part */
    uint32_t expected;         /* value of `code` without a fault */
    uint32_t expected_verdict; /* value of `verdict` without a fault */
    uint32_t code = 0;         /* the result of the send */
    uint32_t verdict = 0;      /* the server's result */
    uint32_t calls = 0;        /* calls of its callback */
    uint32_t ends = 0;         /* final calls, and calls that stopped the answer */
    bool released = false;     /* the last call was a final one */

    /** Records a call of the callback; returns the callback's return value. */
    uint32_t called(bool is_last) {
        ++calls;
        released = is_last;
        if (is_last || stops) ++ends;
        return stops ? 1 : 0;
    }
    bool is_sent() const { return code == 0; }
    bool is_open() const { return is_sent() && ends == 0; }
};

struct result_t {
    const char *what;
    uint32_t code;
};

class stage_t {
public:
    /** Enables all logging, into a sink that ignores it, because log lines must also work when operations fail. */
    stage_t() {
        model = fwx_nat64_model_t::create(loop_, FWX_NAT64_CHANNEL_NAME);
        debug_flags_set(1, 1);
        fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
        fwx_host_cgm_observe([](void *, uint32_t, void *ctx, uint32_t result) { verdict(ctx, result); }, nullptr);
    }
    ~stage_t() {
        fwx_host_cgm_observe(nullptr, nullptr);
        fwx_host_debug_sink_set(nullptr, nullptr);
        debug_flags_set(0, 0);
        model.reset();
        fwx_host_loop_destroy(loop_);
    }
    stage_t(const stage_t &) = delete;
    stage_t &operator=(const stage_t &) = delete;

    void bind() {
        static constexpr fwx_nat64_reply_cbs_t reply_cbs = {
            [](fwx_nat64_cmd_result_t *result) { verdict(result->pal_ctx, result->result); },
            [](void *ctx, uint32_t more, void *) { return ticket_of(ctx).called(more == 0); },
            value_cb,
            page_cb,
            value_cb,
            page_cb,
        };
        static constexpr fwx_nat64_unsol_cbs_t unsol_cbs = {nullptr, [](uint32_t, const void *) {}, [] {}};
        call("bind", fwx_nat64_bind("PAL1", loop_, &unsol_cbs, &reply_cbs));
        pump();
    }
    void pump() { fwx_host_loop_run_until_idle(loop_); }
    /** Sends a command by calling `hand_over` with its context. The expected results are those without a fault. */
    template <typename send_t>
    void send(const char *what, send_t hand_over, uint32_t expected = 0, uint32_t expected_verdict = 0) {
        start({what, answer_t::verdict, false, expected, expected_verdict}, hand_over);
    }
    /** Sends a query or a walk twice: once received to its end, once stopped at the first part. */
    template <typename send_t>
    void ask(const char *what, answer_t answer, send_t hand_over) {
        for (const bool stops : {false, true}) {
            start({what, answer, stops, 0, 0}, hand_over);
            pump();
        }
    }
    void call(const char *what, uint32_t code) { results.push_back({what, code}); }

    uint64_t open() const {
        const auto is_open = [](const ticket_t &ticket) { return ticket.is_open(); };
        return static_cast<uint64_t>(std::count_if(tickets.begin(), tickets.end(), is_open));
    }

    static uint32_t walk_cb(void *ctx, uint32_t, void *, uint64_t, uint32_t, uint32_t status) {
        return ticket_of(ctx).called(status != FWX_NAT64_WALK_MORE);
    }

    std::unique_ptr<fwx_nat64_model_t> model;
    std::deque<ticket_t> tickets;
    std::deque<result_t> results;

private:
    template <typename send_t>
    void start(const ticket_t &ticket, send_t hand_over) {
        ticket_t &kept = tickets.emplace_back(ticket);
        kept.code = hand_over(&kept);
    }
    static ticket_t &ticket_of(void *ctx) { return *static_cast<ticket_t *>(ctx); }
    static void verdict(void *ctx, uint32_t result) {
        ticket_of(ctx).verdict = result;
        ticket_of(ctx).called(true);
    }
    static uint32_t value_cb(void *ctx, uint32_t more, uint32_t, void *) { return ticket_of(ctx).called(more == 0); }
    static uint32_t page_cb(void *ctx, uint32_t more, uint64_t, uint32_t, void *) {
        const bool is_notification = ctx == nullptr;
        return is_notification ? 0 : ticket_of(ctx).called(more == 0);
    }

    fwx_host_loop_t *loop_ = fwx_host_loop_create();
};

#endif
