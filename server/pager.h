/*
 * Answers that take more than one turn of the loop: session walks and long lists. An answer finds and sends one page at
 * a time, and continues in a later turn, when the page was sent. The number of entries that all answers together
 * examine in a turn is limited, so that no answer delays other clients. An answer pauses while its client does not
 * read.
 */
#ifndef SERVER_PAGER_H
#define SERVER_PAGER_H

#include <cstring>
#include <deque>
#include <map>
#include <memory>

#include "server/outbox.h"
#include "server/record.h"

/** A received command that is not answered yet. */
struct request_t {
    uint64_t client;
    fwx_nat64_msg_hdr_t hdr;
    const uint8_t *msg; /* the message, valid while it is handled; null if it is malformed */

    uint32_t number() const { return hdr.type & FWX_NAT64_MSG_NUMBER_MASK; }

    /** Reads a record at an offset. The message must be well formed and long enough. */
    template <typename record_t>
    record_t read(size_t offset = 0) const {
        return read_record<record_t>(msg + offset);
    }

    /** The first part of a reply: with the command's context and epoch, and 0 in all fields behind the result. */
    fwx_nat64_reply_t reply(uint32_t msgno, uint32_t result) const {
        fwx_nat64_reply_t reply{};
        reply.hdr.type = static_cast<uint16_t>(FWX_NAT64_MSG_ASYNC | msgno);
        reply.hdr.domain = FWX_NAT64_MSG_DOMAIN;
        reply.hdr.clnt_ctx = hdr.clnt_ctx;
        reply.hdr.epoch = hdr.epoch;
        reply.result = result;
        return reply;
    }

    /** A complete reply with the command's number: `head`, whose first part this fills in, and the entries behind it.
     */
    template <typename head_t, typename entry_t>
    std::vector<uint8_t> listing(uint32_t result, head_t head, const entry_t *entries, size_t count) const {
        head.reply = reply(number(), result);
        std::vector<uint8_t> bytes(sizeof(head) + count * sizeof(entry_t));
        std::memcpy(bytes.data(), &head, sizeof(head));
        if (count != 0) std::memcpy(bytes.data() + sizeof(head), entries, count * sizeof(entry_t));
        return bytes;
    }
};

/** A paged answer. */
class paged_t {
public:
    enum class step_t { again, sent, ended };

    explicit paged_t(const request_t &of) : request(of) { request.msg = nullptr; }
    paged_t(const paged_t &) = delete;
    paged_t &operator=(const paged_t &) = delete;
    virtual ~paged_t() = default;

    /** Continues the search, examining at most `looks` entries and subtracting their number. Posts the page, under the
     * answer's number `id`, when it is complete. Returns `again` if it is not, `sent` if further pages follow, else
     * `ended`. */
    virtual step_t go_on(uint64_t id, uint64_t &looks) = 0;

    request_t request; /* without its message, which is not valid any more */
};

class pager_t {
public:
    pager_t(fwx_host_loop_t *host_loop, outbox_t &replies);
    pager_t(const pager_t &) = delete;
    pager_t &operator=(const pager_t &) = delete;
    ~pager_t() { fwx_host_timer_cancel(loop, timer); }

    /** Whether a client has reached its limit of outstanding paged answers. */
    bool is_full(uint64_t client) const;
    void start(std::unique_ptr<paged_t> answer);
    void forget(uint64_t client);

private:
    void continue_later(uint64_t id);
    void arm(uint64_t delay_ms);
    static void send_pages(void *pager);

    fwx_host_loop_t *loop;
    outbox_t &outbox;
    std::map<uint64_t, std::unique_ptr<paged_t>> answers; /* by number, from 1 */
    uint64_t latest = 0;
    std::deque<uint64_t> ready; /* answers that can continue: their last page was sent, or the search is not complete */
    uint64_t timer = 0;
};

#endif
