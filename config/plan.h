/*
 * A plan: the commands that change a server from one configuration to another. Their order is one in which the server
 * accepts them all, if an empty server would accept the second configuration.
 *
 * Deletes come first, in reverse order, so that an item goes before the items that it depends on. Then come adds and
 * modifies, in order. An item is deleted and added again if no command can change it in place. That is also done with a
 * pool if pools wait for each other's addresses in a circle: one of them is deleted first, with its ranges. In a family
 * without a delete, an item is set to the value that means "absent".
 *
 * Commands are sent in their order, and many can be outstanding. But the first command behind the deletes waits for the
 * answers to all deletes, because the answer to a rule's command names the rule and not the command. plan_run_t
 * observes this, and has the commands for a rollback.
 *
 * The library's rule table needs care. A delete of a rule also removes the leaf of a prefix that other rules share, and
 * the library installs a rule even if the server refuses it. The sender must correct the table before it sends the next
 * command for a rule with that prefix (reconcile/rule_book.h does it).
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
    bool ends_sessions; /* the command ends the sessions of the item */
};

class plan_t {
public:
    /** Both documents must be settled and outlive the plan. */
    plan_t(const document_t &from, const document_t &to);
    plan_t(const document_t &&, const document_t &) = delete;
    plan_t(const document_t &, const document_t &&) = delete;

    size_t size() const { return deletes_.size() + changes_.size(); }
    /** Number of deletes, including those by a value that means "absent". They are the first commands. */
    size_t delete_count() const { return deletes_.size(); }
    plan_command_t command(size_t index) const;

    /** Appends the commands, at most two, that undo a command. Requires: all later commands of the plan are undone. */
    void append_undo(size_t index, std::vector<plan_command_t> &commands) const;

private:
    static constexpr uint32_t none = UINT32_MAX;
    enum class kind_t : uint8_t { add, modify, make_nvi };
    struct change_t {
        uint32_t from; /* item of the first configuration, or none */
        uint32_t to;   /* item of the second */
        kind_t kind;
    };
    struct segment_t;

    void compare(const segment_t &segment);
    void change_pools(const segment_t &segment);
    void change(uint32_t from, uint32_t to);
    void set(uint32_t from, uint32_t to);
    bool has_to_leave(const config_item_t &item) const;
    static plan_command_t deletion_of(const config_item_t &item);
    static plan_command_t nvi_command_of(const config_item_t &item);

    const document_t &from_;
    const document_t &to_;
    std::vector<uint32_t> deletes_; /* items of the first configuration */
    std::vector<change_t> changes_;
    std::vector<uint32_t> leaving_pools_; /* identifiers, ascending, of pools that are deleted and added again */
};

#endif
