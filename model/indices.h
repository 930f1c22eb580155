/* Numbers from 1 on that are given out, the lowest free one first. What is free is kept as runs, so a lone high number
 * costs no more than a low one. */
#ifndef MODEL_INDICES_H
#define MODEL_INDICES_H

#include <cstdint>
#include <iterator>
#include <map>

class indices_t {
public:
    uint32_t lowest() const { return free_.begin()->first; }
    /** Takes a number; false when it is not free. */
    bool take(uint32_t index) {
        const auto above = free_.upper_bound(index);
        if (above == free_.begin()) return false;
        const auto run = std::prev(above);
        const uint32_t last = run->second;
        if (last < index) return false;
        if (last > index) free_.emplace(index + 1, last);
        run->second = index - 1;
        if (run->first == index) free_.erase(run);
        return true;
    }
    /** Gives a number back that was taken. */
    void release(uint32_t index) {
        const auto above = free_.upper_bound(index);
        const bool meets_above = above != free_.end() && above->first == index + 1;
        const uint32_t last = meets_above ? above->second : index;
        if (meets_above) free_.erase(above);
        const auto run = free_.upper_bound(index);
        const bool meets_below = run != free_.begin() && std::prev(run)->second == index - 1;
        if (meets_below) {
            std::prev(run)->second = last;
        } else {
            free_.emplace(index, last);
        }
    }

private:
    std::map<uint32_t, uint32_t> free_{{1, UINT32_MAX}}; /* first and last number of each run; no two meet */
};

#endif
