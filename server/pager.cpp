/*
 * Schedules paged answers round robin, from a timer. A turn of the loop examines a limited number of entries. An answer
 * whose client has not read enough of what was sent is skipped until the client catches up.
 */
#include "server/pager.h"

#include <algorithm>

#include "fwx_nat64/server_result.h"

namespace {

constexpr uint64_t looks_per_turn = 16384;                /* shared by all answers; takes about a millisecond */
constexpr uint64_t most_unread_bytes = uint64_t{4} << 20; /* a client that has more unread gets no further page */
constexpr uint64_t look_again_ms = 1;

}  // namespace

pager_t::pager_t(fwx_host_loop_t *host_loop, outbox_t &replies) : loop(host_loop), outbox(replies) {
    replies.page_sent = [this](uint64_t id) { continue_later(id); };
}

bool pager_t::is_full(uint64_t client) const {
    const auto is_theirs = [client](const auto &answer) { return answer.second->request.client == client; };
    return std::count_if(answers.begin(), answers.end(), is_theirs) >= FWX_NAT64_MODEL_LISTS_MAX;
}

void pager_t::start(std::unique_ptr<paged_t> answer) {
    const uint64_t id = ++latest;
    answers.emplace(id, std::move(answer));
    continue_later(id);
}

void pager_t::forget(uint64_t client) {
    std::erase_if(answers, [&](const auto &answer) { return answer.second->request.client == client; });
}

void pager_t::continue_later(uint64_t id) {
    ready.push_back(id);
    arm(0);
}

void pager_t::send_pages(void *pager) {
    auto &self = *static_cast<pager_t *>(pager);
    self.timer = 0;
    uint64_t looks = looks_per_turn;
    bool is_waiting = true;
    for (size_t turns = self.ready.size(); turns > 0 && looks > 0; --turns) {
        const uint64_t id = self.ready.front();
        self.ready.pop_front();
        const auto answer = self.answers.find(id);
        if (answer == self.answers.end()) continue;
        if (self.outbox.unread_bytes(answer->second->request.client) > most_unread_bytes) {
            self.ready.push_back(id);
            continue;
        }
        is_waiting = false;
        self.outbox.serve(answer->second->request.client, [&] {
            const paged_t::step_t step = answer->second->go_on(id, looks);
            if (step == paged_t::step_t::again) self.continue_later(id);
            if (step == paged_t::step_t::ended) self.answers.erase(id);
        });
    }
    if (!self.ready.empty()) self.arm(is_waiting ? look_again_ms : 0);
}

void pager_t::arm(uint64_t delay_ms) {
    if (timer == 0) timer = fwx_host_timer_add(loop, delay_ms, send_pages, this);
}
