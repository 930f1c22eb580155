/* A topological sort by depth-first search. The stack is explicit, because chains of pools can be long. */
#include "config/pools.h"

#include <algorithm>
#include <cstring>

#include "fwx_nat64/config.h"

namespace {

uint32_t ipv4_of(const fwx_nat64_addr_t &address) {
    uint32_t word = 0;
    std::memcpy(&word, address.addr, sizeof word);
    return word;
}

/** Orders each move after those that it waits for. */
class mover_t {
public:
    explicit mover_t(std::vector<pool_move_t> &moves) : moves_(moves), states_(moves.size(), state_t::waits) {
        for (size_t i = 0; i < moves.size(); ++i) {
            if (moves[i].is_there) standing_.push_back(i);
        }
        std::sort(standing_.begin(), standing_.end(),
                  [&moves](size_t a, size_t b) { return moves[a].from.first < moves[b].from.first; });
    }

    std::vector<size_t> order() {
        for (size_t i = 0; i < moves_.size(); ++i) {
            if (states_[i] == state_t::waits) visit(i);
        }
        return std::move(order_);
    }

private:
    enum class state_t : uint8_t { waits, is_visited, is_done };
    /** A move, and the pools that occupy its new addresses: indices of standing_ from `next` to `end`. */
    struct frame_t {
        size_t move;
        size_t next;
        size_t end;
    };

    void visit(size_t root) {
        open(root);
        while (!path_.empty()) {
            frame_t &frame = path_.back();
            if (frame.next == frame.end) {
                states_[frame.move] = state_t::is_done;
                order_.push_back(frame.move);
                path_.pop_back();
                continue;
            }
            const size_t other = standing_[frame.next++];
            const bool is_in_its_way = other != frame.move && !moves_[other].must_leave;
            if (!is_in_its_way) continue;
            if (states_[other] == state_t::is_visited) moves_[other].must_leave = true;
            if (states_[other] == state_t::waits) open(other);
        }
    }

    void open(size_t move) {
        const pool_span_t &to = moves_[move].to;
        const auto first = std::partition_point(standing_.begin(), standing_.end(),
                                                [&](size_t each) { return moves_[each].from.last < to.first; });
        const auto end = std::partition_point(first, standing_.end(),
                                              [&](size_t each) { return moves_[each].from.first <= to.last; });
        states_[move] = state_t::is_visited;
        path_.push_back(
            {move, static_cast<size_t>(first - standing_.begin()), static_cast<size_t>(end - standing_.begin())});
    }

    std::vector<pool_move_t> &moves_;
    std::vector<state_t> states_;
    std::vector<size_t> standing_; /* moves of existing pools, sorted by their present addresses */
    std::vector<frame_t> path_;
    std::vector<size_t> order_;
};

}  // namespace

pool_span_t pool_span_of(const config_item_t &item) {
    if (item.family->kind == family_kind_t::pool) {
        fwx_nat64_pool_t pool;
        std::memcpy(&pool, item.record, sizeof pool);
        return {ipv4_of(pool.start_addr), ipv4_of(pool.end_addr), pool.id};
    }
    fwx_nat64_pool_range_t range;
    std::memcpy(&range, item.record, sizeof range);
    return {ipv4_of(range.start_addr), ipv4_of(range.end_addr), range.id};
}

std::vector<size_t> order_pool_moves(std::vector<pool_move_t> &moves) {
    return mover_t(moves).order();
}
