/* Answers that take more than one turn: session walks, and lists of many entries. Each finds and sends a page, and the
 * next when that one has gone out and the loop comes round. All together look at so many entries a turn, so that none
 * holds anybody up; and none goes on while its client is behind with reading. */
#ifndef MODEL_PAGER_H
#define MODEL_PAGER_H

#include <deque>
#include <map>
#include <memory>

#include "model/outbox.h"
#include "model/request.h"

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
