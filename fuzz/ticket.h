/* A command of the PAL, and what may happen to it: it is told at most once, by whoever ends it; and the data that its
 * callback is handed. */
#ifndef FUZZ_TICKET_H
#define FUZZ_TICKET_H

#include <algorithm>

#include "fwx_nat64/wire.h"
#include "input.h"

/** Its address is the context that comes back. */
class ticket_t {
public:
    ticket_t(uint32_t its_binding, bool stops, bool is_query)
        : binding(its_binding), stops_(stops), is_query_(is_query) {}

    /** Its send returned a code. */
    void refused() {
        FUZZ_CHECK(!has_ended_);
        has_ended_ = true;
    }
    /** Its callback is called, in this binding. */
    void begin_call(uint32_t present_binding, bool is_last) {
        FUZZ_CHECK(mark_ == right_mark && binding == present_binding && !has_ended_);
        has_ended_ = is_last;
        ++calls_;
    }
    /** Its callback returns this. */
    uint32_t end_call() {
        --calls_;
        has_ended_ = has_ended_ || stops_;
        return stops_ ? 1 : 0;
    }
    /** The classifier manager is told its context: a classifier's reply can name any command, and a query's callback
     * hears of it before. */
    void returned() {
        FUZZ_CHECK(mark_ == right_mark && !is_returned_ && (is_query_ || !has_ended_));
        has_ended_ = is_returned_ = true;
    }
    /** Whether a flush of its binding has, or will have, left nothing of it: it ended, or is in a callback. */
    bool is_flushed() const { return has_ended_ || calls_ != 0; }

    const uint32_t binding; /* in which it was sent */

private:
    static constexpr uint32_t right_mark = 0x7e57ab1e;

    const uint32_t mark_ = right_mark;
    const bool stops_; /* its callback asks for no more */
    const bool is_query_;
    bool has_ended_ = false;
    bool is_returned_ = false;
    uint32_t calls_ = 0; /* that have not returned */
};

inline void read_bytes(const void *data, uint64_t size) {
    for (uint64_t i = 0; i < size; ++i) {
        (void)static_cast<const volatile uint8_t *>(data)[i];
    }
}

/** A received message. */
struct received_t {
    const uint8_t *at;
    size_t size;

    /** Reads of the `bytes` that the server says are at `data` those that it sent. */
    void read(const void *data, uint64_t bytes) const {
        if (data == nullptr || bytes == 0) return;
        const auto *from = static_cast<const uint8_t *>(data);
        FUZZ_CHECK(from > at && from <= at + sizeof(fwx_nat64_sess_walk_reply_t));
        if (from < at + size) read_bytes(from, std::min<uint64_t>(bytes, static_cast<uint64_t>(at + size - from)));
    }
};

#endif
