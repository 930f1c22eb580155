/*
 * A configuration: what a server is to hold, or holds. Its items stand in one order, by family and key, whatever order
 * they came in.
 *
 * An interface and its virtual interface are one item, of the family `interface`. In a family without a delete a value
 * that stands for "absent" makes no item: an interface that is off without prefixes and MTU, a timeout of 0.
 *
 * Records lie behind each other, so a million rules take about 60 MB.
 */
#ifndef CONFIG_DOCUMENT_H
#define CONFIG_DOCUMENT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "config/problem.h"
#include "records/family.h"

struct config_item_t {
    const record_family_t *family;
    const uint8_t *record; /* the document's, until it is changed */
    uint32_t line;         /* where it stands in what was read; 0 when it was not read */
    bool is_nvi;           /* an interface that is a virtual one too */
};

class document_t {
public:
    /** Takes a command that a server has carried out; `settle` must follow before anything is looked at. */
    void carry_out(const record_family_t &family, uint32_t op, const void *record) { take(family, op, record, 0); }
    /** Takes an item of another document, likewise. */
    void add(const config_item_t &item);
    /** Takes a line, likewise. */
    void add(const record_family_t &family, const void *record, uint32_t line) {
        take(family, FWX_NAT64_OP_ADD, record, line);
    }

    /** Makes items of the commands that were taken, in the order they came in. */
    void settle();
    /** Makes items of the lines that were taken, whose order does not matter: an item may stand in one alone. */
    void settle(notation_t notation, problems_t &problems);

    size_t size() const { return entries_.size(); }
    config_item_t item(size_t index) const;
    /** Index of the first item of a family, or of the one before which it would stand. */
    size_t begin_of(const record_family_t &family) const;
    size_t end_of(const record_family_t &family) const;

private:
    enum class says_t : uint8_t { record, nvi, both };
    struct entry_t {
        size_t at;     /* of its record in bytes_ */
        uint32_t line; /* 0: none */
        uint8_t rank;  /* of the item's family */
        uint8_t op;    /* FWX_NAT64_OP_; an item adds */
        says_t says;
    };
    struct reading_t {
        notation_t notation;
        problems_t &problems;
    };
    class fold_t;

    void take(const record_family_t &family, uint32_t op, const void *record, uint32_t line);
    void settle(const reading_t *reading);
    const uint8_t *record_of(const entry_t &entry) const { return bytes_.data() + entry.at; }
    int compare(const entry_t &a, const entry_t &b) const;

    std::vector<uint8_t> bytes_;
    std::vector<entry_t> entries_;
    size_t settled_ = 0; /* entries that are items; the others are commands */
};

/** The families that have items, in the order of the items. */
const std::vector<const record_family_t *> &item_families();

/** The family of commands that make items of that family virtual interfaces too; null: there is none. */
const record_family_t *nvi_family_of(const record_family_t &family);

/** The record of the command that makes an item a virtual interface too. */
record_buffer_t nvi_record_of(const config_item_t &item);

/** Whether an item is more than what the command that makes it a virtual interface says. */
bool has_own_value(const config_item_t &item);

/** Orders items of any documents as they stand in one; less than 0, 0 or more than 0 as memcmp. */
int compare_items(const config_item_t &a, const config_item_t &b);

/** Whether two items of one key say the same. */
bool is_same_value(const config_item_t &a, const config_item_t &b);

#endif
