#include "model/walks.h"

#include <algorithm>

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
    if (code != 0) {
        const auto refusal = request.listing<fwx_nat64_sess_walk_reply_t, fwx_nat64_session_t>(code, {}, nullptr, 0);
        outbox.post(request.client, refusal.data(), refusal.size());
        return code;
    }
    walk_t walk{request, filter_of(command.filter), command.count, command.arg != 0, command.arg, command.cookie};
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

bool walks_t::send_page(uint64_t id, walk_t &walk) {
    std::vector<fwx_nat64_session_t> page;
    const size_t page_size = std::min<size_t>(walk.count, outbox.entries_per_reply(sizeof(fwx_nat64_session_t)));
    const size_t room = walk.limited ? std::min<size_t>(page_size, walk.left) : page_size;
    fwx_nat64_session_t session;
    bool found = sessions.next(walk.from, walk.filter, &session);
    for (; found && page.size() < room; found = sessions.next(session.id + 1, walk.filter, &session)) {
        page.push_back(session);
    }
    walk.from = found ? session.id : 0;
    walk.left -= walk.limited ? static_cast<uint32_t>(page.size()) : 0;

    fwx_nat64_sess_walk_reply_t head{};
    head.count = static_cast<uint32_t>(page.size());
    head.stopped = found && walk.limited && walk.left == 0 ? 1 : 0;
    head.more = found && head.stopped == 0 ? 1 : 0;
    head.value = walk.from;

    const std::vector<uint8_t> msg = walk.request.listing(0, head, page.data(), page.size());
    const bool goes_on = head.more != 0;
    return outbox.post(walk.request.client, msg.data(), msg.size(), goes_on ? id : 0) && goes_on;
}

void walks_t::continue_later(uint64_t id) {
    ready.push_back(id);
    if (timer == 0) timer = fwx_host_timer_add(loop, 0, send_pages, this);
}

void walks_t::send_pages(void *walks) {
    auto &self = *static_cast<walks_t *>(walks);
    self.timer = 0;
    const std::vector<uint64_t> ready = std::move(self.ready);
    self.ready.clear();
    for (const uint64_t id : ready) {
        const auto walk = self.walks.find(id);
        if (walk == self.walks.end()) continue;
        const bool goes_on = self.send_page(id, walk->second);
        if (!goes_on) self.walks.erase(id);
    }
}
