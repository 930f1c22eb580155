/* Finds rules by a key of theirs: a hash table that holds only the rules' numbers, since a document may have a million
 * rules. */
#ifndef RECONCILE_RULE_INDEX_H
#define RECONCILE_RULE_INDEX_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "fwx_nat64/mapt.h"

/** Slots with open addressing: a number is in the first slots from its key's hash on that are not free. The keys are
 * in the rules. No two numbers have the same key. */
class rule_index_t {
public:
    using key_t = std::pair<uint64_t, uint8_t>; /* a name, or the bits of a prefix and their number */
    using key_of_t = key_t(const fwx_nat64_mapt_bmr_t &);
    /** `rules` must outlive the index. */
    rule_index_t(const std::deque<fwx_mapt_rule_hash_elem_t> &rules, key_of_t *key) : rules_(rules), key_of_(key) {}
    rule_index_t(const rule_index_t &) = delete;
    rule_index_t &operator=(const rule_index_t &) = delete;

    key_t key_of(uint32_t number) const { return key_of_(rules_[number].rule); }
    /** The number of the rule with that key, or null. Another number with the same key may take its place. */
    const uint32_t *find(const key_t &key) const {
        const uint32_t *slot = slots_.empty() ? nullptr : &slots_[place_of(key)];
        return slot == nullptr || *slot == vacant ? nullptr : slot;
    }
    uint32_t *find(const key_t &key) { return const_cast<uint32_t *>(std::as_const(*this).find(key)); }
    size_t size() const { return count_; }
    template <typename see_t>
    void for_each(const see_t &see) const {
        for (const uint32_t number : slots_) {
            if (number != vacant) see(number);
        }
    }

    /** Requires: find() returns null for the key of the number. */
    void insert(uint32_t number) {
        if ((count_ + 1) * 2 > slots_.size()) grow();
        slots_[place_of(key_of(number))] = number;
        ++count_;
    }
    /** Removes a number that find() has returned. Those behind it move up to where a search looks for them. */
    void erase(const uint32_t *found) {
        --count_;
        auto hole = static_cast<size_t>(found - slots_.data());
        for (size_t at = next(hole); slots_[at] != vacant; at = next(at)) {
            const size_t first = first_place_of(key_of(slots_[at]));
            const bool is_found_from_hole = ((at - first) & mask()) >= ((at - hole) & mask());
            if (is_found_from_hole) slots_[std::exchange(hole, at)] = slots_[at];
        }
        slots_[hole] = vacant;
    }
    void clear() {
        slots_ = std::vector<uint32_t>();
        count_ = 0;
    }

private:
    static constexpr uint32_t vacant = UINT32_MAX;

    size_t mask() const { return slots_.size() - 1; }
    size_t next(size_t at) const { return (at + 1) & mask(); }
    /** Mixes all bits of the key, because keys are often consecutive (the finalizer of MurmurHash3). */
    size_t first_place_of(const key_t &key) const {
        uint64_t hash = key.first ^ key.second;
        for (const uint64_t factor : {0xff51afd7ed558ccd, 0xc4ceb9fe1a85ec53}) {
            hash = (hash ^ hash >> 33) * factor;
        }
        return (hash ^ hash >> 33) & mask();
    }
    /** The slot of a key, or the free one where it is not. */
    size_t place_of(const key_t &key) const {
        size_t at = first_place_of(key);
        while (slots_[at] != vacant && key_of(slots_[at]) != key) {
            at = next(at);
        }
        return at;
    }
    void grow() {
        const std::vector<uint32_t> before =
            std::exchange(slots_, std::vector<uint32_t>(slots_.empty() ? 16 : 2 * slots_.size(), vacant));
        for (const uint32_t number : before) {
            if (number != vacant) slots_[place_of(key_of(number))] = number;
        }
    }

    const std::deque<fwx_mapt_rule_hash_elem_t> &rules_;
    key_of_t *const key_of_;
    std::vector<uint32_t> slots_; /* a power of two */
    size_t count_ = 0;
};

#endif
