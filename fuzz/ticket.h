/*
 * A ticket is the fuzzer's record of one command of the PAL. Its address is the command's context. It checks the order
 * of the callbacks, and that the command ends at most once. received_t is the data that a callback receives.
 */
#ifndef FUZZ_TICKET_H
#define FUZZ_TICKET_H

#include <algorithm>

#include "fwx_nat64/wire.h"
#include "input.h"

class ticket_t {
public:
    ticket_t(uint32_t its_binding, bool stops, bool is_query)
        : binding(its_binding), stops_(stops), is_query_(is_query) {}

    /** Sending it returned an error. */
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

inline void read_bytes(const void *data, uint64_t size) {
    for (uint64_t i = 0; i < size; ++i) {
        (void)static_cast<const volatile uint8_t *>(data)[i];
    }
}

/** A received message. */
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

#endif
