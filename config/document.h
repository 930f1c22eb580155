/*
 * A configuration: the desired or actual state of a server, as a list of items sorted by family and key.
 *
 * Commands or lines are added first, in any order; `settle` then turns them into items. An interface and its virtual
 * interface are one item, of the family `interface`. A family without a delete has a value that means "absent": an
 * interface that is off, without prefixes and MTU, or a timeout of 0. Such a value makes no item.
 *
 * Records are stored one after the other in one buffer, so a million rules take about 50 MB. Copies of a document share
 * them until one of them changes.
 */
#ifndef CONFIG_DOCUMENT_H
#define CONFIG_DOCUMENT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "config/problem.h"
#include "records/family.h"

struct config_item_t {
    const record_family_t *family;
    const uint8_t *record; /* points into the document; valid until the document changes */
    uint32_t line;         /* in the text that was read; 0: not read from a text */
    bool is_nvi;           /* an interface that is also a NAT virtual interface */
};

class document_t {
public:
    /** Adds a command that a server has carried out. Call `settle` before reading items. */
    void carry_out(const record_family_t &family, uint32_t op, const void *record) { take(family, op, record, 0); }
    /** Adds an item of another document. Call `settle` before reading items. */
    void add(const config_item_t &item);
    /** Adds the record of a line. Call `settle` before reading items. */
    void add(const record_family_t &family, const void *record, uint32_t line) {
        take(family, FWX_NAT64_OP_ADD, record, line);
    }

    /** Makes items of the commands. Commands on the same key apply in the order in which they were added. */
    void settle();
    /** Makes items of the lines. Their order does not matter, because a second line of an item is an error. */
    void settle(notation_t notation, problems_t &problems);

    size_t size() const { return content_ ? content_->entries.size() : 0; }
    config_item_t item(size_t index) const;
    /** True if both have the same items because one is a copy of the other. False says nothing. */
    bool shares_items_with(const document_t &other) const { return content_ == other.content_; }
    /** Index of the first item of a family, or where it would be inserted. */
    size_t begin_of(const record_family_t &family) const;
    /** Index behind the last item of a family. */
    size_t end_of(const record_family_t &family) const;

private:
    enum class origin_t : uint8_t { record, nvi, both };
    struct entry_t {
        size_t at;     /* offset of the record in bytes_ */
        uint32_t line; /* 0: none */
        uint8_t rank;  /* of the item's family */
        uint8_t op;    /* FWX_NAT64_OP_; an item has the one of an add */
        origin_t origin;
    };
    struct reading_t {
        notation_t notation;
        problems_t &problems;
    };
    class item_builder_t;

    void take(const record_family_t &family, uint32_t op, const void *record, uint32_t line);
    void settle(const reading_t *reading);
    struct content_t {
        std::vector<uint8_t> bytes;
        std::vector<entry_t> entries;
        size_t settled = 0; /* the first entries, which are items; the others are commands */

        const uint8_t *record_of(const entry_t &entry) const { return bytes.data() + entry.at; }
        int compare(const entry_t &a, const entry_t &b) const;
    };
    /** The content, for a change: no copy of this document shares it. */
    content_t &own();

    std::shared_ptr<content_t> content_; /* null: empty */
};

/** The families that have items, in the order of the items of a document. */
const std::vector<const record_family_t *> &item_families();

/** The family `nvi` for the family `interface`, null for any other. */
const record_family_t *nvi_family_of(const record_family_t &family);

/** The record of the command that makes an interface a virtual interface. */
record_buffer_t nvi_record_of(const config_item_t &item);

/** False if the item is a virtual interface and its nvi command alone makes it: it needs no command of its own. */
bool has_own_value(const config_item_t &item);

/** Compares two items, maybe of different documents, by family and key. The result is less than, equal to or more than
 * 0, as with memcmp. */
int compare_items(const config_item_t &a, const config_item_t &b);

/** True if two items with the same key have the same value. */
bool is_same_value(const config_item_t &a, const config_item_t &b);

/** True if two settled documents have the same items. Takes no time if one is a copy of the other. */
bool has_same_items(const document_t &a, const document_t &b);

#endif
