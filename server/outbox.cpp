/*
 * A reply passes up to three stages, in this order: it waits for the commit of a change (unsaved), it is held or
 * delayed because a test has asked for that, and it is delivered.
 */
#include "server/outbox.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>

bool outbox_t::post(uint64_t client, const void *msg, size_t size, uint64_t walk) {
    const size_t change = std::exchange(answered_change, 0);
    if (silent) return false;
    const auto *bytes = static_cast<const uint8_t *>(msg);
    if (is_saving) {
        unsaved.push_back({client, walk, {bytes, bytes + size}, change});
    } else {
        pass_on(client, msg, size, walk);
    }
    return true;
}

void outbox_t::pass_on(uint64_t client, const void *msg, size_t size, uint64_t walk) {
    if (!holding && delay_ms == 0) return deliver(client, msg, size, walk);
    const auto *bytes = static_cast<const uint8_t *>(msg);
    reply_t reply{client, walk, {bytes, bytes + size}};
    if (holding) {
        held.push_back(std::move(reply));
        return;
    }
    const auto place = delayed.emplace(fwx_host_clock_ms() + delay_ms, std::move(reply));
    if (place == delayed.begin()) arm();
}

void outbox_t::release_unsaved(const std::vector<uint32_t> &codes, const std::function<void(uint32_t code)> &refused) {
    is_saving = false;
    answered_change = 0;
    std::vector<reply_t> replies = std::move(unsaved);
    unsaved.clear();
    for (reply_t &reply : replies) {
        const uint32_t code = reply.change == 0 ? 0 : codes[reply.change - 1];
        if (code != 0) {
            std::memcpy(&reply.bytes[offsetof(fwx_nat64_reply_t, result)], &code, sizeof code);
            refused(code);
        }
        pass_on(reply.client, reply.bytes.data(), reply.bytes.size(), reply.walk);
    }
}

void outbox_t::release(reply_order_t order) {
    holding = false;
    std::vector<reply_t> replies = std::move(held);
    held.clear();
    if (order == reply_order_t::reverse) std::reverse(replies.begin(), replies.end());
    if (order == reply_order_t::shuffled) {
        std::mt19937 random(1);  // NOLINT(bugprone-random-generator-seed): the shuffle must be the same in every run
        std::shuffle(replies.begin(), replies.end(), random);
    }
    for (const reply_t &reply : replies) {
        deliver(reply);
    }
}

void outbox_t::forget(uint64_t client) {
    const auto is_theirs = [&](const reply_t &reply) { return reply.client == client; };
    for (std::vector<reply_t> *replies : {&unsaved, &held}) {
        std::erase_if(*replies, is_theirs);
    }
    std::erase_if(delayed, [&](const auto &entry) { return is_theirs(entry.second); });
}

void outbox_t::deliver(uint64_t client, const void *msg, size_t size, uint64_t walk) {
    for (uint32_t copy = 0; copy < copies; ++copy) {
        /* Looked up for each copy, because a send may end the client. */
        const client_t *receiver = clients.find(client);
        if (receiver == nullptr) return;
        if (fwx_host_peer_send(receiver->peer, msg, size) == 0) ++sent;
    }
    if (walk != 0) page_sent(walk);
}

void outbox_t::arm() {
    fwx_host_timer_cancel(loop, timer);
    timer = 0;
    if (delayed.empty()) return;
    const uint64_t now = fwx_host_clock_ms();
    const uint64_t due = delayed.begin()->first;
    timer = fwx_host_timer_add(loop, due > now ? due - now : 0, deliver_due, this);
}

void outbox_t::deliver_due(void *outbox) {
    auto &self = *static_cast<outbox_t *>(outbox);
    self.timer = 0;
    const uint64_t now = fwx_host_clock_ms();
    while (!self.delayed.empty() && self.delayed.begin()->first <= now) {
        const reply_t reply = std::move(self.delayed.begin()->second);
        self.delayed.erase(self.delayed.begin());
        self.serve(reply.client, [&] { self.deliver(reply); });
    }
    self.arm();
}
