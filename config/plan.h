/*
 * What leads from one configuration to another: commands in an order in which a server that holds the first takes them
 * all, if it would take the second by itself.
 *
 * First come the deletes, of what others hang on last; then what is added and modified, in order. An item is deleted
 * and added again when no command can change it in place, and when its place is needed first: of pools that go where
 * others stand, which wait for them in turn, one leaves first, with its ranges. In a family without a delete an item
 * goes by being set to what stands for absent.
 *
 * What may be under way together. Commands are sent in their order. All deletes may be under way at the same time; the
 * first command behind them waits for the answers to all of them, since the answer to a rule's command names the rule
 * alone; then all others may be under way at the same time. plan_run_t holds to that, and says what takes back the
 * commands that were carried out.
 *
 * Rules. The library deletes the leaf of a prefix with any of the rules that share it, and installs a rule that the
 * server has refused: whoever sends a rule's command puts that right before the next command of a rule of that prefix.
 */
#ifndef CONFIG_PLAN_H
#define CONFIG_PLAN_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "config/document.h"

struct plan_command_t {
    const record_family_t *family;
    uint32_t op; /* FWX_NAT64_OP_ */
    record_buffer_t record;
    bool ends_sessions; /* those that the item has */
};

class plan_t {
public:
    /** Both are settled and outlive the plan. */
    plan_t(const document_t &from, const document_t &to);
    plan_t(const document_t &&, const document_t &) = delete;
    plan_t(const document_t &, const document_t &&) = delete;

    size_t size() const { return deletes_.size() + changes_.size(); }
    /** How many of the commands, the first ones, are deletes or stand for one. */
    size_t delete_count() const { return deletes_.size(); }
    plan_command_t command(size_t index) const;
    /** Whether one of the commands ends sessions. */
    bool ends_sessions() const { return ends_sessions_; }

    /** Adds the commands, two at most, that take a command back, once those behind it are. */
    void append_undo(size_t index, std::vector<plan_command_t> &commands) const;

private:
    static constexpr uint32_t none = UINT32_MAX;
    enum class kind_t : uint8_t { add, modify, make_nvi };
    struct change_t {
        uint32_t from; /* item of the first configuration, or none */
        uint32_t to;   /* of the second */
        kind_t kind;
    };
    struct segment_t;

    void compare(const segment_t &segment);
    void change_pools(const segment_t &segment);
    void change(uint32_t from, uint32_t to);
    void set(uint32_t from, uint32_t to);
    void remove(uint32_t from);
    bool has_to_leave(const config_item_t &item) const;
    static plan_command_t deletion_of(const config_item_t &item);
    static plan_command_t nvi_command_of(const config_item_t &item);

    const document_t &from_;
    const document_t &to_;
    std::vector<uint32_t> deletes_; /* items of the first configuration */
    std::vector<change_t> changes_;
    std::vector<uint32_t> leaving_pools_; /* identifiers, ascending, of those whose ranges are added again */
    bool ends_sessions_ = false;
};

#endif
