#include "model/walks.h"

#include <algorithm>

namespace {

class walk_t : public paged_t {
public:
    walk_t(const request_t &of, const fwx_nat64_sess_walk_msg_t &command, const sessions_t &table, outbox_t &replies)
        : paged_t(of),
          sessions(table),
          outbox(replies),
          filter(filter_of(command.filter)),
          count(command.count),
          limited(command.arg != 0),
          left(command.arg),
          from(command.cookie) {}

    step_t go_on(uint64_t id, uint64_t &looks) override {
        const size_t page_size = std::min<size_t>(count, outbox.entries_per_reply(sizeof(fwx_nat64_session_t)));
        const size_t room = limited ? std::min<size_t>(page_size, left) : page_size;
        fwx_nat64_session_t session{};
        for (;;) {
            const sessions_t::found_t found = sessions.next(from, filter, &session, looks);
            from = session.id;
            if (found == sessions_t::found_t::later) return step_t::again;
            const bool has_found = found == sessions_t::found_t::session;
            if (!has_found || page.size() == room) return send_page(id, has_found);
            page.push_back(session);
            from += 1;
        }
    }

private:
    step_t send_page(uint64_t id, bool found_more) {
        if (!found_more) from = 0;
        left -= limited ? static_cast<uint32_t>(page.size()) : 0;

        fwx_nat64_sess_walk_reply_t head{};
        head.count = static_cast<uint32_t>(page.size());
        head.stopped = found_more && limited && left == 0 ? 1 : 0;
        head.more = found_more && head.stopped == 0 ? 1 : 0;
        head.value = from;

        const std::vector<uint8_t> msg = request.listing(0, head, page.data(), page.size());
        page.clear();
        const bool goes_on = head.more != 0;
        return outbox.post(request.client, msg.data(), msg.size(), goes_on ? id : 0) && goes_on ? step_t::sent
                                                                                                : step_t::ended;
    }

    const sessions_t &sessions;
    outbox_t &outbox;
    const session_filter_t filter;
    const uint32_t count; /* sessions a page, as asked for */
    const bool limited;
    uint32_t left;                         /* sessions to go when it is limited */
    uint64_t from;                         /* identifier */
    std::vector<fwx_nat64_session_t> page; /* what is found of the next one */
};

}  // namespace

uint32_t walk_start(const request_t &request, uint32_t code, const sessions_t &sessions, outbox_t &outbox,
                    pager_t &pager) {
    fwx_nat64_sess_walk_msg_t command{};
    if (code == 0) {
        command = request.read<fwx_nat64_sess_walk_msg_t>();
        if (command.count == 0) code = FWX_NAT64_MODEL_ERR_VALUE;
    }
    if (code == 0 && pager.is_full(request.client)) code = FWX_NAT64_MODEL_ERR_TOO_MANY;
    if (code == 0) {
        pager.start(std::make_unique<walk_t>(request, command, sessions, outbox));
        return 0;
    }
    const auto refusal = request.listing<fwx_nat64_sess_walk_reply_t, fwx_nat64_session_t>(code, {}, nullptr, 0);
    outbox.post(request.client, refusal.data(), refusal.size());
    return code;
}
