/*
 * Compares two sorted documents family by family. Pools are compared by code of their own, because a pool can only take
 * addresses that no other pool has at that moment.
 */
#include "config/plan.h"

#include <algorithm>
#include <cstring>

#include "config/pools.h"
#include "records/families.h"

/** The items of one family in both configurations. */
struct plan_t::segment_t {
    const record_family_t *family;
    uint32_t from, from_end;
    uint32_t to, to_end;
};

namespace {

plan_command_t command_of(const record_family_t &family, uint32_t op, const void *record) {
    plan_command_t command{&family, op, {}, op == FWX_NAT64_OP_DEL && family.ends_sessions};
    std::memcpy(command.record.bytes, record, family.record_size);
    return command;
}

/** True if a command can change the item in place from one value to the other. */
bool can_modify(const config_item_t &from, const config_item_t &to) {
    const record_family_t &family = *from.family;
    if (family.modify_op == 0) return false;
    return std::all_of(family.fields, family.fields + family.field_count, [&](const record_field_t &field) {
        return !field.is_fixed || std::memcmp(from.record + field.offset, to.record + field.offset, field.width) == 0;
    });
}

bool has_delete(const record_family_t &family) {
    return record_verb_of(family, FWX_NAT64_OP_DEL) != nullptr;
}

/** True if the server need not be sent the record. A virtual interface must be, because only setting the record makes
 * it an ordinary interface again. */
bool is_held(const config_item_t &before, const config_item_t &after) {
    return !before.is_nvi && std::memcmp(before.record, after.record, before.family->record_size) == 0;
}

}  // namespace

plan_t::plan_t(const document_t &from, const document_t &to) : from_(from), to_(to) {
    for (const record_family_t *family : item_families()) {
        const segment_t segment{family, static_cast<uint32_t>(from.begin_of(*family)),
                                static_cast<uint32_t>(from.end_of(*family)),
                                static_cast<uint32_t>(to.begin_of(*family)), static_cast<uint32_t>(to.end_of(*family))};
        family->kind == family_kind_t::pool ? change_pools(segment) : compare(segment);
    }
    std::reverse(deletes_.begin(), deletes_.end());
}

void plan_t::compare(const segment_t &segment) {
    uint32_t from = segment.from;
    uint32_t to = segment.to;
    while (from < segment.from_end || to < segment.to_end) {
        int order = from == segment.from_end ? 1 : -1;
        const bool has_both = from < segment.from_end && to < segment.to_end;
        if (has_both) order = record_compare_keys(*segment.family, from_.item(from).record, to_.item(to).record);
        if (order < 0) {
            deletes_.push_back(from++);
        } else if (order > 0) {
            set(none, to++);
        } else {
            change(from++, to++);
        }
    }
}

void plan_t::change(uint32_t from, uint32_t to) {
    const config_item_t before = from_.item(from);
    const config_item_t after = to_.item(to);
    if (is_same_value(before, after) && !has_to_leave(before)) return;
    const bool can_stay = can_modify(before, after) || !has_delete(*before.family);
    if (can_stay) return set(from, to);
    deletes_.push_back(from);
    set(none, to);
}

void plan_t::change_pools(const segment_t &segment) {
    struct pair_t {
        uint32_t from, to;
    };
    std::vector<pair_t> pairs;
    std::vector<pool_move_t> moves;
    std::vector<uint32_t> gone;
    uint32_t from = segment.from;
    for (uint32_t to = segment.to; to < segment.to_end; ++to) {
        const config_item_t after = to_.item(to);
        const pool_span_t wanted = pool_span_of(after);
        for (; from < segment.from_end && pool_span_of(from_.item(from)).pool_id < wanted.pool_id; ++from) {
            gone.push_back(from);
        }
        const bool is_there = from < segment.from_end && pool_span_of(from_.item(from)).pool_id == wanted.pool_id;
        if (!is_there) {
            pairs.push_back({none, to});
            moves.push_back({wanted, {}, false, false});
            continue;
        }
        const config_item_t before = from_.item(from);
        if (!is_same_value(before, after)) {
            pairs.push_back({from, to});
            moves.push_back({wanted, pool_span_of(before), true, !can_modify(before, after)});
        }
        ++from;
    }
    for (; from < segment.from_end; ++from) {
        gone.push_back(from);
    }
    const std::vector<size_t> order = order_pool_moves(moves);
    for (size_t i = 0; i < moves.size(); ++i) {
        if (!moves[i].must_leave) continue;
        gone.push_back(pairs[i].from);
        leaving_pools_.push_back(moves[i].to.pool_id);
        pairs[i].from = none;
    }
    std::sort(gone.begin(), gone.end());
    for (const uint32_t each : gone) {
        deletes_.push_back(each);
    }
    for (const size_t each : order) {
        set(pairs[each].from, pairs[each].to);
    }
}

/** Adds the changes that create an item, or change it in place. */
void plan_t::set(uint32_t from, uint32_t to) {
    const config_item_t after = to_.item(to);
    const bool is_new = from == none;
    const bool needs_record = is_new ? has_own_value(after) : !is_held(from_.item(from), after);
    if (needs_record) changes_.push_back({from, to, is_new ? kind_t::add : kind_t::modify});
    if (after.is_nvi) changes_.push_back({from, to, kind_t::make_nvi});
}

bool plan_t::has_to_leave(const config_item_t &item) const {
    return item.family->kind == family_kind_t::pool_range &&
           std::binary_search(leaving_pools_.begin(), leaving_pools_.end(), pool_span_of(item).pool_id);
}

plan_command_t plan_t::deletion_of(const config_item_t &item) {
    if (has_delete(*item.family)) return command_of(*item.family, FWX_NAT64_OP_DEL, item.record);
    plan_command_t command = command_of(*item.family, FWX_NAT64_OP_ADD, item.record);
    record_make_absent(*item.family, command.record);
    return command;
}

plan_command_t plan_t::nvi_command_of(const config_item_t &item) {
    return command_of(*nvi_family_of(*item.family), FWX_NAT64_OP_ADD, nvi_record_of(item).bytes);
}

plan_command_t plan_t::command(size_t index) const {
    if (index < deletes_.size()) return deletion_of(from_.item(deletes_[index]));
    const change_t &change = changes_[index - deletes_.size()];
    const config_item_t item = to_.item(change.to);
    switch (change.kind) {
        case kind_t::add:
            break;
        case kind_t::modify:
            return command_of(*item.family, item.family->modify_op, item.record);
        case kind_t::make_nvi:
            return nvi_command_of(item);
    }
    return command_of(*item.family, FWX_NAT64_OP_ADD, item.record);
}

void plan_t::append_undo(size_t index, std::vector<plan_command_t> &commands) const {
    const bool is_delete = index < deletes_.size();
    const change_t change =
        is_delete ? change_t{deletes_[index], none, kind_t::add} : changes_[index - deletes_.size()];
    if (change.from == none) return commands.push_back(deletion_of(to_.item(change.to)));
    const config_item_t item = from_.item(change.from);
    const uint32_t op = is_delete ? FWX_NAT64_OP_ADD : item.family->modify_op;
    commands.push_back(command_of(*item.family, op, item.record));
    if (item.is_nvi) commands.push_back(nvi_command_of(item));
}
