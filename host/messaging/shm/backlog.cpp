/*
 * The backlog's memory: blocks from mmap, at least 256 KiB each, in which messages stand one behind the other. The
 * blocks of all backlogs count against a common limit.
 */
#include "host/messaging/shm/backlog.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#include "host/runtime/inspect.h"

namespace {

constexpr uint64_t block_bytes = uint64_t{256} << 10;
constexpr uint64_t page_bytes = 4096;
constexpr uint64_t limit_of_one = uint64_t{64} << 20;
/* The limit of all clients together. A client's limit is what is left of it, if that is less than limit_of_one. */
constexpr uint64_t limit_of_all = uint64_t{512} << 20;

/** A message is stored as its length and its bytes, each padded to whole units. */
constexpr uint64_t unit = 8;
uint64_t footprint(uint32_t size) {
    return unit + (size + unit - 1) / unit * unit;
}

}  // namespace

backlog_t::~backlog_t() {
    while (first_ != nullptr) {
        free_first();
    }
}

bool backlog_t::has_room_for(uint64_t bytes) const {
    return bytes_ + bytes <= std::min(limit_of_one, limit_of_all - host_peers.queued_bytes);
}

backlog_room_t backlog_t::push(const void *bytes, uint32_t size) {
    const uint64_t needed = footprint(size);
    if (last_ == nullptr || last_->bytes - last_->end < needed) {
        const uint64_t whole = (sizeof(block_t) + needed + page_bytes - 1) / page_bytes * page_bytes;
        const uint64_t made_bytes = std::max(whole, block_bytes);
        if (!has_room_for(made_bytes)) return backlog_room_t::FULL;
        void *memory = mmap(nullptr, made_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) return backlog_room_t::NO_MEMORY;
        auto *block = static_cast<block_t *>(memory);
        *block = {nullptr, static_cast<uint32_t>(made_bytes), sizeof(block_t), sizeof(block_t)};
        (last_ == nullptr ? first_ : last_->next) = block;
        last_ = block;
        bytes_ += made_bytes;
        host_peers.queued_bytes += made_bytes;
    }
    auto *at = reinterpret_cast<uint8_t *>(last_) + last_->end;
    memcpy(at, &size, sizeof(size));
    if (size != 0) memcpy(at + unit, bytes, size);
    last_->end += static_cast<uint32_t>(needed);
    count_ += 1;
    return backlog_room_t::THERE;
}

backlog_t::message_t backlog_t::front() const {
    const uint8_t *at = reinterpret_cast<const uint8_t *>(first_) + first_->begin;
    message_t message = {at + unit, 0};
    memcpy(&message.size, at, sizeof(message.size));
    return message;
}

void backlog_t::pop() {
    first_->begin += static_cast<uint32_t>(footprint(front().size));
    count_ -= 1;
    if (first_->begin == first_->end) free_first();
}

void backlog_t::free_first() {
    block_t *block = first_;
    first_ = block->next;
    if (first_ == nullptr) last_ = nullptr;
    bytes_ -= block->bytes;
    host_peers.queued_bytes -= block->bytes;
    munmap(block, block->bytes);
}
