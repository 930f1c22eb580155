/* Answers that take more than one turn: session walks, and lists of many entries. Each finds and sends a page, and the
 * next when that one has gone out and the loop comes round. All together look at so many entries a turn, so that none
 * holds anybody up; and none goes on while its client is behind with reading. */
#ifndef SERVER_PAGER_H
#define SERVER_PAGER_H

#include <cstring>
#include <deque>
#include <map>
#include <memory>

#include "server/outbox.h"

/** A command on its way to its reply. */
struct request_t {
    uint64_t client;
    fwx_nat64_msg_hdr_t hdr;
    const uint8_t *msg; /* the whole message, valid while it is handled; null unless it is well formed */

    uint32_t number() const { return hdr.type & FWX_NAT64_MSG_NUMBER_MASK; }

    /** The bytes at an offset of a well-formed message that holds them. */
    template <typename record_t>
    record_t read(size_t offset = 0) const {
        record_t record;
        std::memcpy(&record, msg + offset, sizeof(record));
        return record;
    }

    /** The beginning of a reply: context and epoch echoed, everything behind the result 0. */
    fwx_nat64_reply_t reply(uint32_t msgno, uint32_t result) const {
        fwx_nat64_reply_t reply{};
        reply.hdr.type = static_cast<uint16_t>(FWX_NAT64_MSG_ASYNC | msgno);
        reply.hdr.domain = FWX_NAT64_MSG_DOMAIN;
        reply.hdr.clnt_ctx = hdr.clnt_ctx;
        reply.hdr.epoch = hdr.epoch;
        reply.result = result;
        return reply;
    }

    /** A whole reply of the command's own number: `head`, its beginning filled in, and the entries behind it. */
    template <typename head_t, typename entry_t>
    std::vector<uint8_t> listing(uint32_t result, head_t head, const entry_t *entries, size_t count) const {
        head.reply = reply(number(), result);
        std::vector<uint8_t> bytes(sizeof(head) + count * sizeof(entry_t));
        std::memcpy(bytes.data(), &head, sizeof(head));
        if (count != 0) std::memcpy(bytes.data() + sizeof(head), entries, count * sizeof(entry_t));
        return bytes;
    }
};

/** One such answer. */
class paged_t {
public:
    enum class step_t { again, sent, ended };

    explicit paged_t(const request_t &of) : request(of) { request.msg = nullptr; }
    paged_t(const paged_t &) = delete;
    paged_t &operator=(const paged_t &) = delete;
    virtual ~paged_t() = default;

    /** Searches on with what is left of `looks`, and posts a page under the answer's number if it is found. */
    virtual step_t go_on(uint64_t id, uint64_t &looks) = 0;

    request_t request; /* its message is gone */
};

class pager_t {
public:
    pager_t(fwx_host_loop_t *host_loop, outbox_t &replies);
    pager_t(const pager_t &) = delete;
    pager_t &operator=(const pager_t &) = delete;
    ~pager_t() { fwx_host_timer_cancel(loop, timer); }

    /** Whether a client has as many answers under way as it may. */
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
    std::deque<uint64_t> ready; /* whose latest page has gone out, or that search on */
    uint64_t timer = 0;
};

#endif
