/* Session walks under way: one page at a time, the next when the one before has gone out and the loop comes round. All
 * walks together look at so many sessions a turn, so that one which matches little holds nobody up. */
#ifndef MODEL_WALKS_H
#define MODEL_WALKS_H

#include <deque>
#include <map>
#include <vector>

#include "model/outbox.h"
#include "model/request.h"
#include "model/sessions.h"

class walks_t {
public:
    walks_t(fwx_host_loop_t *host_loop, outbox_t &replies, const sessions_t &table);
    walks_t(const walks_t &) = delete;
    walks_t &operator=(const walks_t &) = delete;
    ~walks_t() { fwx_host_timer_cancel(loop, timer); }

    /** Answers a walk: with `code` at once, or by pages. Returns the result of the command. */
    uint32_t start(const request_t &request, uint32_t code);
    void forget(uint64_t client);

private:
    struct walk_t {
        request_t request; /* its message is gone */
        session_filter_t filter;
        uint32_t count; /* sessions a page, as asked for */
        bool limited;
        uint32_t left;                         /* sessions to go when it is limited */
        uint64_t from;                         /* identifier */
        std::vector<fwx_nat64_session_t> page; /* what is found of the next one */
    };

    /** Searches on with what is left of `looks`, and sends the page if it is found; false when the walk has ended. */
    bool go_on(uint64_t id, walk_t &walk, uint64_t &looks);
    bool send_page(uint64_t id, walk_t &walk, bool found_more);
    void continue_later(uint64_t id);
    void arm();
    static void send_pages(void *walks);

    fwx_host_loop_t *loop;
    outbox_t &outbox;
    const sessions_t &sessions;
    std::map<uint64_t, walk_t> walks; /* by number, from 1 */
    uint64_t latest = 0;
    std::deque<uint64_t> ready; /* walks whose latest page has gone out, or that search on */
    uint64_t timer = 0;
};

#endif
