#include "model/walks.h"

#include <algorithm>

namespace {

constexpr uint64_t looks_per_turn = 16384; /* of all walks: about a millisecond */
constexpr std::ptrdiff_t most_of_a_client = 64;

}  // namespace

walks_t::walks_t(fwx_host_loop_t *host_loop, outbox_t &replies, const sessions_t &table)
    : loop(host_loop), outbox(replies), sessions(table) {
    outbox.page_sent = [this](uint64_t id) { continue_later(id); };
}

uint32_t walks_t::start(const request_t &request, uint32_t code) {
    fwx_nat64_sess_walk_msg_t command{};
    if (code == 0) {
        command = request.read<fwx_nat64_sess_walk_msg_t>();
        if (command.count == 0) code = FWX_NAT64_MODEL_ERR_VALUE;
    }
    const auto is_theirs = [&](const auto &walk) { return walk.second.request.client == request.client; };
    if (code == 0 && std::count_if(walks.begin(), walks.end(), is_theirs) >= most_of_a_client) {
        code = FWX_NAT64_MODEL_ERR_WALKS;
    }
    if (code != 0) {
        const auto refusal = request.listing<fwx_nat64_sess_walk_reply_t, fwx_nat64_session_t>(code, {}, nullptr, 0);
        outbox.post(request.client, refusal.data(), refusal.size());
        return code;
    }
    walk_t walk{request, filter_of(command.filter), command.count, command.arg != 0, command.arg, command.cookie, {}};
    walk.request.msg = nullptr;
    const uint64_t id = ++latest;
    walks.emplace(id, walk);
    continue_later(id);
    return 0;
}

void walks_t::forget(uint64_t client) {
    for (auto it = walks.begin(); it != walks.end();) {
        it = it->second.request.client == client ? walks.erase(it) : std::next(it);
    }
}

bool walks_t::go_on(uint64_t id, walk_t &walk, uint64_t &looks) {
    const size_t page_size = std::min<size_t>(walk.count, outbox.entries_per_reply(sizeof(fwx_nat64_session_t)));
    const size_t room = walk.limited ? std::min<size_t>(page_size, walk.left) : page_size;
    fwx_nat64_session_t session{};
    for (;;) {
        const sessions_t::found_t found = sessions.next(walk.from, walk.filter, &session, looks);
        walk.from = session.id;
        if (found == sessions_t::found_t::later) {
            continue_later(id);
            return true;
        }
        const bool has_found = found == sessions_t::found_t::session;
        if (!has_found || walk.page.size() == room) return send_page(id, walk, has_found);
        walk.page.push_back(session);
        walk.from += 1;
    }
}

bool walks_t::send_page(uint64_t id, walk_t &walk, bool found_more) {
    const std::vector<fwx_nat64_session_t> page = std::move(walk.page);
    walk.page.clear();
    if (!found_more) walk.from = 0;
    walk.left -= walk.limited ? static_cast<uint32_t>(page.size()) : 0;

    fwx_nat64_sess_walk_reply_t head{};
    head.count = static_cast<uint32_t>(page.size());
    head.stopped = found_more && walk.limited && walk.left == 0 ? 1 : 0;
    head.more = found_more && head.stopped == 0 ? 1 : 0;
    head.value = walk.from;

    const std::vector<uint8_t> msg = walk.request.listing(0, head, page.data(), page.size());
    const bool goes_on = head.more != 0;
    return outbox.post(walk.request.client, msg.data(), msg.size(), goes_on ? id : 0) && goes_on;
}

void walks_t::continue_later(uint64_t id) {
    ready.push_back(id);
    arm();
}

void walks_t::send_pages(void *walks) {
    auto &self = *static_cast<walks_t *>(walks);
    self.timer = 0;
    uint64_t looks = looks_per_turn;
    for (size_t turns = self.ready.size(); turns > 0 && looks > 0; --turns) {
        const uint64_t id = self.ready.front();
        self.ready.pop_front();
        const auto walk = self.walks.find(id);
        if (walk == self.walks.end()) continue;
        const bool goes_on = self.go_on(id, walk->second, looks);
        if (!goes_on) self.walks.erase(id);
    }
    if (!self.ready.empty()) self.arm();
}

void walks_t::arm() {
    if (timer == 0) timer = fwx_host_timer_add(loop, 0, send_pages, this);
}
