/* Answers session walks, page by page, and reads the session filters of walks and clear commands. */
#include <algorithm>

#include "server/state.h"

namespace {

session_filter_t filter_of(const fwx_nat64_sess_walk_filter_t &record) {
    const auto where = read_record<fwx_nat64_session_where_t>(record.opaque60);
    return {read_record<uint32_t>(record.opaque0), address_of(record.src), address_of(where.dst),
            ipv4_of(where.pool_addr), where.port};
}

class walk_t : public paged_t {
public:
    walk_t(const request_t &of, const fwx_nat64_sess_walk_msg_t &command, const engine_t &knows_sessions,
           outbox_t &replies)
        : paged_t(of),
          engine(knows_sessions),
          outbox(replies),
          is_full(command.walk_arg == FWX_NAT64_WALK_FULL),
          filter(filter_of(command.filter)),
          count(command.count),
          limited(command.arg != 0),
          left(command.arg),
          from(command.cookie) {}

    step_t go_on(uint64_t id, uint64_t &looks) override {
        const size_t page_size = std::min<size_t>(count, outbox.entries_per_reply(entry_size()));
        const size_t room = limited ? std::min<size_t>(page_size, left) : page_size;
        fwx_nat64_session_t session{};
        for (;;) {
            const engine_t::found_t found = engine.session_next(from, filter, &session, looks);
            from = session.id;
            if (found == engine_t::found_t::later) return step_t::again;
            const bool has_found = found == engine_t::found_t::session;
            if (!has_found || count_in_page == room) return send_page(id, has_found);
            if (is_full) {
                append(engine.session_in_full(session));
            } else {
                append(session);
            }
            from += 1;
        }
    }

private:
    size_t entry_size() const { return is_full ? sizeof(fwx_nat64_session_full_t) : sizeof(fwx_nat64_session_t); }

    template <typename entry_t>
    void append(const entry_t &entry) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&entry);
        page.insert(page.end(), bytes, bytes + sizeof entry);
        ++count_in_page;
    }

    step_t send_page(uint64_t id, bool found_more) {
        if (!found_more) from = 0;
        left -= limited ? count_in_page : 0;

        fwx_nat64_sess_walk_reply_t head{};
        head.count = count_in_page;
        head.stopped = found_more && limited && left == 0 ? 1 : 0;
        head.more = found_more && head.stopped == 0 ? 1 : 0;
        head.value = from;
        head.value2 = is_full ? FWX_NAT64_WALK_FULL : 0;

        const std::vector<uint8_t> msg = request.listing(0, head, page.data(), page.size());
        page.clear();
        count_in_page = 0;
        const bool goes_on = head.more != 0;
        return outbox.post(request.client, msg.data(), msg.size(), goes_on ? id : 0) && goes_on ? step_t::sent
                                                                                                : step_t::ended;
    }

    const engine_t &engine;
    outbox_t &outbox;
    const bool is_full;
    const session_filter_t filter;
    const uint32_t count; /* requested number of sessions in a page */
    const bool limited;
    uint32_t left;             /* maximum number of further sessions, if limited */
    uint64_t from;             /* identifier at which to continue */
    std::vector<uint8_t> page; /* sessions found for the next page */
    uint32_t count_in_page = 0;
};

}  // namespace

session_filter_t filter_of(const fwx_nat64_session_filter_t &record) {
    const auto where = read_record<fwx_nat64_session_where_t>(record.opaque);
    return {record.value, address_of(record.src), address_of(record.dst), ipv4_of(where.pool_addr), where.port};
}

uint32_t answer_walk(server_state_t &server, const request_t &request, uint32_t code) {
    fwx_nat64_sess_walk_msg_t command{};
    if (code == 0) {
        command = request.read<fwx_nat64_sess_walk_msg_t>();
        if (command.count == 0) code = FWX_NAT64_MODEL_ERR_VALUE;
    }
    if (code == 0 && server.pager.is_full(request.client)) code = FWX_NAT64_MODEL_ERR_TOO_MANY;
    if (code == 0) {
        server.pager.start(std::make_unique<walk_t>(request, command, *server.engine, server.outbox));
        return 0;
    }
    const auto refusal = request.listing<fwx_nat64_sess_walk_reply_t, fwx_nat64_session_t>(code, {}, nullptr, 0);
    server.outbox.post(request.client, refusal.data(), refusal.size());
    return code;
}
