/*
 * Settling sorts the entries by key, keeping the order of equal keys, and folds the entries of each key into one item.
 * The same code applies commands, where later ones change the item, and lines, where a second one is an error.
 */
#include "config/document.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "records/families.h"

namespace {

using families_by_rank_t = std::array<const record_family_t *, UINT8_MAX + 1>;

const families_by_rank_t &by_rank() {
    static const families_by_rank_t families = [] {
        families_by_rank_t ranked{};
        size_t count = 0;
        const record_family_t *table = record_families(&count);
        for (size_t i = 0; i < count; ++i) {
            ranked[table[i].rank] = &table[i];
        }
        return ranked;
    }();
    return families;
}

/** The family that the items of a family belong to. */
const record_family_t &item_family(const record_family_t &family) {
    return family.item == family_kind_t::other ? family : record_family_of(family.item);
}

/** The record of the interface that a server creates for a virtual interface: enabled, without prefixes and MTU. */
record_buffer_t interface_of(const record_family_t &nvi, const void *record, const record_family_t &interface) {
    record_buffer_t made;
    record_init(interface, made);
    std::memcpy(made.bytes + interface.fields->offset, static_cast<const uint8_t *>(record) + nvi.fields->offset,
                nvi.fields->width);
    return made;
}

bool is_absent(const record_family_t &family, const record_buffer_t &record) {
    if (record_verb_of(family, FWX_NAT64_OP_DEL) != nullptr) return false;
    record_buffer_t absent = record;
    record_make_absent(family, absent);
    return std::memcmp(absent.bytes, record.bytes, family.record_size) == 0;
}

}  // namespace

/** Computes the item from the commands or lines with its key. */
class document_t::item_builder_t {
public:
    item_builder_t(const record_family_t &family, const reading_t *reading) : family_(family), reading_(reading) {}

    void take(const entry_t &entry, const uint8_t *record) {
        if (entry.origin == origin_t::nvi) return make_nvi(entry, record);
        if (reading_ != nullptr && exists_) return refuse_again(entry, family_, line_);
        if (entry.op == FWX_NAT64_OP_MOD && exists_) {
            modify(record);
        } else {
            set(record);
        }
        exists_ = entry.op != FWX_NAT64_OP_DEL;
        is_nvi_ = entry.origin == origin_t::both;
        line_ = entry.line;
    }

    /** To be called after the last command. False if there is no item. */
    bool end() {
        if (!exists_ || is_nvi_ || !is_absent(family_, record_)) return exists_;
        if (reading_ != nullptr) {
            note(problem_t::kind_t::warning, family_, line_, ": this is the server's default");
        }
        return false;
    }
    const record_buffer_t &record() const { return record_; }
    uint32_t line() const { return line_; }
    bool is_nvi() const { return is_nvi_; }

private:
    void set(const uint8_t *record) {
        record_ = {};
        std::memcpy(record_.bytes, record, family_.record_size);
    }

    void modify(const uint8_t *record) {
        const record_buffer_t before = record_;
        set(record);
        for (const record_field_t *field = family_.fields; field != family_.fields + family_.field_count; ++field) {
            if (!field->is_fixed) continue;
            std::memcpy(record_.bytes + field->offset, before.bytes + field->offset, field->width);
        }
    }

    void make_nvi(const entry_t &entry, const uint8_t *record) {
        const record_family_t &nvi = *nvi_family_of(family_);
        if (reading_ != nullptr && is_nvi_) return refuse_again(entry, nvi, nvi_line_);
        fwx_nat64_intf_info_t interface {};
        if (!exists_) {
            set(record);
            line_ = entry.line;
        }
        std::memcpy(&interface, record_.bytes, sizeof interface);
        if (reading_ != nullptr && interface.enable == 0) {
            note(problem_t::kind_t::error, nvi, entry.line,
                 ": line " + std::to_string(line_) + " turns the interface off");
        }
        interface.enable = 1;
        std::memcpy(record_.bytes, &interface, sizeof interface);
        exists_ = is_nvi_ = true;
        nvi_line_ = entry.line;
    }

    void refuse_again(const entry_t &entry, const record_family_t &family, uint32_t first_line) {
        note(problem_t::kind_t::error, family, entry.line, ": line " + std::to_string(first_line) + " has it already");
    }

    void note(problem_t::kind_t kind, const record_family_t &family, uint32_t line, const std::string &reason) {
        const notation_t notation = reading_->notation;
        const std::string key = key_text(family_, record_.bytes, notation);
        const bool has_key = !key.empty();
        reading_->problems.push_back({kind, line, label_of(family, notation),
                                      std::string(has_key ? label_of(*family_.fields, notation) : ""),
                                      has_key ? key + reason : reason.substr(2)});
    }

    const record_family_t &family_;
    const reading_t *reading_; /* null: commands, and later ones change the result of earlier ones */
    record_buffer_t record_{};
    uint32_t line_ = 0;
    uint32_t nvi_line_ = 0;
    bool exists_ = false;
    bool is_nvi_ = false;
};

document_t::content_t &document_t::own() {
    if (!content_) content_ = std::make_shared<content_t>();
    if (content_.use_count() != 1) content_ = std::make_shared<content_t>(*content_);
    return *content_;
}

void document_t::take(const record_family_t &family, uint32_t op, const void *record, uint32_t line) {
    const record_family_t &owner = item_family(family);
    const bool is_nvi = &owner != &family;
    const record_buffer_t interface = is_nvi ? interface_of(family, record, owner) : record_buffer_t{};
    const auto *from = is_nvi ? interface.bytes : static_cast<const uint8_t *>(record);
    content_t &content = own();
    content.entries.push_back(
        {content.bytes.size(), line, owner.rank, static_cast<uint8_t>(op), is_nvi ? origin_t::nvi : origin_t::record});
    content.bytes.insert(content.bytes.end(), from, from + owner.record_size);
}

void document_t::add(const config_item_t &item) {
    if (has_own_value(item)) carry_out(*item.family, FWX_NAT64_OP_ADD, item.record);
    if (item.is_nvi) carry_out(*nvi_family_of(*item.family), FWX_NAT64_OP_ADD, nvi_record_of(item).bytes);
}

void document_t::settle() {
    settle(nullptr);
}

void document_t::settle(notation_t notation, problems_t &problems) {
    const reading_t reading{notation, problems};
    settle(&reading);
}

void document_t::settle(const reading_t *reading) {
    if (!content_ || content_->settled == size()) return;
    content_t &content = own();
    std::vector<entry_t> &entries = content.entries;
    auto comes_before = [&](const entry_t &a, const entry_t &b) {
        const int order = content.compare(a, b);
        return order != 0 ? order < 0 : reading != nullptr && a.origin < b.origin;
    };
    const bool is_sorted = std::is_sorted(entries.begin(), entries.end(), comes_before);
    if (!is_sorted) {
        const auto added = entries.begin() + static_cast<std::ptrdiff_t>(content.settled);
        std::stable_sort(added, entries.end(), comes_before);
        std::inplace_merge(entries.begin(), added, entries.end(), comes_before);
    }
    size_t count = 0;
    for (size_t first = 0; first < entries.size();) {
        const record_family_t &family = *by_rank()[entries[first].rank];
        const size_t at = entries[first].at;
        item_builder_t builder(family, reading);
        size_t next = first;
        for (; next < entries.size() && content.compare(entries[first], entries[next]) == 0; ++next) {
            builder.take(entries[next], content.record_of(entries[next]));
        }
        const uint8_t rank = entries[first].rank;
        first = next;
        if (!builder.end()) continue;
        const origin_t origin = builder.is_nvi() ? origin_t::both : origin_t::record;
        entries[count++] = {at, builder.line(), rank, FWX_NAT64_OP_ADD, origin};
        std::memcpy(content.bytes.data() + at, builder.record().bytes, family.record_size);
    }
    const bool is_compact = is_sorted && count == entries.size();
    entries.resize(count);
    content.settled = count;
    if (is_compact) return;
    std::vector<uint8_t> bytes;
    bytes.reserve(content.bytes.size());
    for (entry_t &entry : entries) {
        const uint8_t *record = content.record_of(entry);
        entry.at = bytes.size();
        bytes.insert(bytes.end(), record, record + by_rank()[entry.rank]->record_size);
    }
    content.bytes.swap(bytes);
}

int document_t::content_t::compare(const entry_t &a, const entry_t &b) const {
    if (a.rank != b.rank) return a.rank < b.rank ? -1 : 1;
    return record_compare_keys(*by_rank()[a.rank], record_of(a), record_of(b));
}

config_item_t document_t::item(size_t index) const {
    const entry_t &entry = content_->entries[index];
    return {by_rank()[entry.rank], content_->record_of(entry), entry.line, entry.origin == origin_t::both};
}

size_t document_t::begin_of(const record_family_t &family) const {
    if (!content_) return 0;
    const std::vector<entry_t> &entries = content_->entries;
    const auto found = std::lower_bound(entries.begin(), entries.end(), family.rank,
                                        [](const entry_t &entry, uint8_t rank) { return entry.rank < rank; });
    return static_cast<size_t>(found - entries.begin());
}

size_t document_t::end_of(const record_family_t &family) const {
    if (!content_) return 0;
    const std::vector<entry_t> &entries = content_->entries;
    const auto found = std::upper_bound(entries.begin(), entries.end(), family.rank,
                                        [](uint8_t rank, const entry_t &entry) { return rank < entry.rank; });
    return static_cast<size_t>(found - entries.begin());
}

const std::vector<const record_family_t *> &item_families() {
    static const std::vector<const record_family_t *> families = [] {
        std::vector<const record_family_t *> owners;
        for (const record_family_t *family : by_rank()) {
            if (family != nullptr && family->item == family_kind_t::other) owners.push_back(family);
        }
        return owners;
    }();
    return families;
}

const record_family_t *nvi_family_of(const record_family_t &family) {
    return family.kind == family_kind_t::interface ? &record_family_of(family_kind_t::nvi) : nullptr;
}

record_buffer_t nvi_record_of(const config_item_t &item) {
    const record_family_t &nvi = *nvi_family_of(*item.family);
    record_buffer_t record;
    record_init(nvi, record);
    std::memcpy(record.bytes + nvi.fields->offset, item.record + item.family->fields->offset, nvi.fields->width);
    return record;
}

bool has_own_value(const config_item_t &item) {
    if (!item.is_nvi) return true;
    const record_family_t &nvi = *nvi_family_of(*item.family);
    const record_buffer_t alone = interface_of(nvi, nvi_record_of(item).bytes, *item.family);
    return std::memcmp(alone.bytes, item.record, item.family->record_size) != 0;
}

int compare_items(const config_item_t &a, const config_item_t &b) {
    if (a.family != b.family) return a.family->rank < b.family->rank ? -1 : 1;
    return record_compare_keys(*a.family, a.record, b.record);
}

bool is_same_value(const config_item_t &a, const config_item_t &b) {
    return a.is_nvi == b.is_nvi && std::memcmp(a.record, b.record, a.family->record_size) == 0;
}

bool has_same_items(const document_t &a, const document_t &b) {
    bool is_same = a.size() == b.size();
    for (size_t i = 0; i < a.size() && is_same && !a.shares_items_with(b); ++i) {
        is_same = compare_items(a.item(i), b.item(i)) == 0 && is_same_value(a.item(i), b.item(i));
    }
    return is_same;
}
