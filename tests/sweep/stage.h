/* What a scenario plays on: the library bound over a server model, and a ticket for every command that was sent. */
#ifndef TESTS_SWEEP_STAGE_H
#define TESTS_SWEEP_STAGE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "model/model.h"

enum class answer_t : uint8_t { verdict, query, walk };

/** A command; its address is the context that the library hands back. */
struct ticket_t {
    const char *what;
    answer_t answer;
    bool stops;        /* its callback asks to stop at the first part */
    uint32_t expected; /* of `code`, while nothing fails; as the next one */
    uint32_t expected_verdict;
    uint32_t code = 0;     /* what the send returned */
    uint32_t verdict = 0;  /* what the server answered */
    uint32_t calls = 0;    /* of its callback */
    uint32_t ends = 0;     /* final calls, and the one that asked to stop */
    bool released = false; /* the library has told that nothing follows */

    /** Notes a call of the callback; returns what the callback returns. */
    uint32_t called(bool is_last) {
        ++calls;
        released = is_last;
        if (is_last || stops) ++ends;
        return stops ? 1 : 0;
    }
    bool is_sent() const { return code == 0; }
    bool is_open() const { return is_sent() && ends == 0; }
};

/** A call that has its result at once. */
struct result_t {
    const char *what;
    uint32_t code;
};

class stage_t {
public:
    stage_t();
    ~stage_t();
    stage_t(const stage_t &) = delete;
    stage_t &operator=(const stage_t &) = delete;

    void bind();
    void pump() { fwx_host_loop_run_until_idle(loop_); }
    /** Sends a command; `hand_over` gets its context. `expected` results are those while nothing fails. */
    template <typename send_t>
    void send(const char *what, send_t hand_over, uint32_t expected = 0, uint32_t expected_verdict = 0) {
        start({what, answer_t::verdict, false, expected, expected_verdict}, hand_over);
    }
    /** Sends a query or a walk twice: heard to its end, and stopped at the first part. */
    template <typename send_t>
    void ask(const char *what, answer_t answer, send_t hand_over) {
        for (const bool stops : {false, true}) {
            start({what, answer, stops, 0, 0}, hand_over);
            pump();
        }
    }
    void call(const char *what, uint32_t code) { results.push_back({what, code}); }

    /** Commands that neither ended nor failed at once. */
    uint64_t open() const;

    static uint32_t walk_cb(void *ctx, uint32_t count, void *data, uint64_t value, uint32_t value2, uint32_t status);

    std::unique_ptr<fwx_nat64_model_t> model;
    std::deque<ticket_t> tickets;
    std::deque<result_t> results;

private:
    template <typename send_t>
    void start(const ticket_t &ticket, send_t hand_over) {
        ticket_t &kept = tickets.emplace_back(ticket);
        kept.code = hand_over(&kept);
    }

    fwx_host_loop_t *loop_;
};

struct scenario_t {
    const char *name;
    void (*play)(stage_t &stage);
    bool is_answered; /* every command has its answer when nothing fails */
};
extern const scenario_t scenarios[];
extern const size_t scenario_count;

#endif
