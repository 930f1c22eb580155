/* Three-way merges: both functions walk three sorted documents side by side, key by key. */
#include "config/merge.h"

#include <optional>

namespace {

/** Iterates over the items of a document. */
class walk_t {
public:
    explicit walk_t(const document_t &document) : document_(document) {}
    std::optional<config_item_t> next() const {
        if (at_ == document_.size()) return std::nullopt;
        return document_.item(at_);
    }
    /** Returns the next item and moves on if it has that key. */
    std::optional<config_item_t> take(const config_item_t &key) {
        const std::optional<config_item_t> item = next();
        if (!item || compare_items(*item, key) != 0) return std::nullopt;
        ++at_;
        return item;
    }

private:
    const document_t &document_;
    size_t at_ = 0;
};

using maybe_item_t = std::optional<config_item_t>;

bool is_same(const maybe_item_t &a, const maybe_item_t &b) {
    return a && b ? is_same_value(*a, *b) : a.has_value() == b.has_value();
}

/** Calls `use` for each key of the three documents, in order, with the item of each document or nothing. */
template <typename use_t>
void for_each_key(const document_t &a, const document_t &b, const document_t &c, use_t use) {
    walk_t walks[] = {walk_t(a), walk_t(b), walk_t(c)};
    for (;;) {
        maybe_item_t key;
        for (const walk_t &walk : walks) {
            const maybe_item_t item = walk.next();
            if (item && (!key || compare_items(*item, *key) < 0)) key = item;
        }
        if (!key) return;
        const maybe_item_t of_a = walks[0].take(*key);
        const maybe_item_t of_b = walks[1].take(*key);
        use(of_a, of_b, walks[2].take(*key));
    }
}

}  // namespace

document_t roll_back(const document_t &before, const document_t &after, const document_t &now,
                     std::vector<config_item_t> &kept) {
    document_t result;
    const auto merge = [&](const maybe_item_t &was, const maybe_item_t &made, const maybe_item_t &is) {
        const bool is_of_change = !is_same(was, made);
        const bool is_untouched = is_same(is, made);
        /* Not kept if somebody else has undone the change already. */
        if (is_of_change && !is_untouched && !is_same(is, was)) kept.push_back(is ? *is : made ? *made : *was);
        const maybe_item_t &stays = is_of_change && is_untouched ? was : is;
        if (stays) result.add(*stays);
    };
    for_each_key(before, after, now, merge);
    result.settle();
    return result;
}

document_t keep_foreign(const document_t &owned, const document_t &wanted, const document_t &now,
                        std::vector<config_item_t> &foreign) {
    if (owned.shares_items_with(now)) return wanted;
    for_each_key(owned, wanted, now, [&](const maybe_item_t &own, const maybe_item_t &want, const maybe_item_t &is) {
        if (is && !own && !want) foreign.push_back(*is);
    });
    document_t result = wanted; /* without foreign items it shares its items with `wanted` */
    for (const config_item_t &item : foreign) {
        result.add(item);
    }
    result.settle();
    return result;
}
