/*
 * The checks of a settled document. Each check walks the items of one family, which are sorted by key. Checks for
 * overlaps and shared prefixes sort a copy first, so that a million rules take one pass.
 */
#include "config/check.h"

#include <algorithm>
#include <cstring>

#include "config/pools.h"
#include "records/embedding.h"
#include "records/families.h"
#include "records/map_address.h"

namespace {

constexpr uint32_t loopback_net = 127;
constexpr uint32_t first_multicast_net = 224;

/** True if a host can have each of the addresses from first to last, in host order. */
bool are_unicast(uint32_t first, uint32_t last) {
    const uint32_t first_net = first >> 24;
    const uint32_t last_net = last >> 24;
    const bool has_loopback = first_net <= loopback_net && last_net >= loopback_net;
    return first_net != 0 && last_net < first_multicast_net && !has_loopback;
}

struct span_t {
    pool_span_t addresses;
    config_item_t item;
};

/** A prefix of a rule. */
struct rule_prefix_t {
    uint64_t bits;
    uint32_t index; /* of the rule in the document */
    uint8_t length;

    bool is_same_as(const rule_prefix_t &other) const { return bits == other.bits && length == other.length; }
    friend bool operator<(const rule_prefix_t &a, const rule_prefix_t &b) {
        if (a.bits != b.bits) return a.bits < b.bits;
        return a.length != b.length ? a.length < b.length : a.index < b.index;
    }
};

class checker_t {
public:
    checker_t(const document_t &document, notation_t notation, problems_t &problems)
        : document_(document), notation_(notation), problems_(problems) {}

    void check_pools() {
        const record_family_t &pool = record_family_of(family_kind_t::pool);
        const record_family_t &range = record_family_of(family_kind_t::pool_range);
        /* A pool with an error is not in the document. Its ranges must not be reported as ranges without a pool. */
        const bool knows_all_pools = std::none_of(problems_.begin(), problems_.end(),
                                                  [name = label_of(pool, notation_)](const problem_t &problem) {
                                                      return problem.is_error() && problem.command == name;
                                                  });
        std::vector<span_t> spans;
        size_t next_pool = document_.begin_of(pool);
        for (const record_family_t *family : {&pool, &range}) {
            for (size_t i = document_.begin_of(*family); i < document_.end_of(*family); ++i) {
                const config_item_t item = document_.item(i);
                const pool_span_t addresses = pool_span_of(item);
                if (family == &range) {
                    while (next_pool < document_.end_of(pool) && pool_id_at(next_pool) < addresses.pool_id) {
                        ++next_pool;
                    }
                    const bool has_pool =
                        next_pool < document_.end_of(pool) && pool_id_at(next_pool) == addresses.pool_id;
                    if (!has_pool && knows_all_pools) note_error(item, "id", "there is no such pool");
                }
                if (addresses.last < addresses.first) {
                    note_error(item, "end", "must be " + text_of(item, "start") + " or above");
                    continue;
                }
                if (!are_unicast(addresses.first, addresses.last)) {
                    note_error(item, "start",
                               "the addresses up to " + text_of(item, "end") +
                                   " must be unicast: within 1.0.0.0 to 223.255.255.255, without 127.0.0.0/8");
                }
                spans.push_back({addresses, item});
            }
        }
        check_overlaps(std::move(spans));
    }

    void check_prefixes() {
        size_t count = 0;
        const record_family_t *families = record_families(&count);
        for (const record_family_t *family = families; family != families + count; ++family) {
            for (size_t i = 0; i < family->field_count; ++i) {
                if (family->fields[i].embeds_ipv4) check_prefixes(*family, family->fields[i]);
            }
        }
    }

    void check_loggings() {
        for_each_item(family_kind_t::logging, [this](const config_item_t &item) {
            const bool goes_nowhere = text_of(item, "dest") == "0.0.0.0";
            if (goes_nowhere) note_error(item, "dest", "must be the address of a host");
        });
    }

    void check_static_mappings() {
        for_each_item(family_kind_t::smapping, [this](const config_item_t &item) {
            fwx_nat64_smapping_t mapping;
            std::memcpy(&mapping, item.record, sizeof mapping);
            const bool is_within_ipv6 =
                mapping.addr1.family != FWX_NAT64_FAMILY_IPV4 && mapping.addr2.family != FWX_NAT64_FAMILY_IPV4;
            if (is_within_ipv6) note_error(item, "addr2", "must be an IPv4 address behind " + text_of(item, "addr1"));
        });
    }

    void check_rules() {
        const record_family_t &rules = record_family_of(family_kind_t::basic_rule);
        for_each_item(family_kind_t::basic_rule, [&](const config_item_t &item) {
            fwx_nat64_mapt_bmr_t rule;
            std::memcpy(&rule, item.record, sizeof rule);
            const map_fault_t fault = map_rule_fault(rule);
            /* Quotes the value of the fault: the record may have 0 where other parameters imply the value. */
            if (fault.field != nullptr) {
                note(problem_t::kind_t::error, item, record_field_of(rules, fault.field), std::to_string(fault.value),
                     "must be " + fault.allowed);
            }
        });
        for (const char *name : {"v4", "v6"}) {
            check_shared(rules, record_field_of(rules, name));
        }
    }

private:
    template <typename use_t>
    void for_each_item(family_kind_t kind, use_t use) const {
        const record_family_t &family = record_family_of(kind);
        for (size_t i = document_.begin_of(family); i < document_.end_of(family); ++i) {
            use(document_.item(i));
        }
    }

    uint32_t pool_id_at(size_t index) const { return pool_span_of(document_.item(index)).pool_id; }

    /** Visits the spans by their first addresses. Remembers the span with the greatest last address so far, and the one
     * with the greatest last address of any other pool. */
    void check_overlaps(std::vector<span_t> spans) {
        std::sort(spans.begin(), spans.end(),
                  [](const span_t &a, const span_t &b) { return a.addresses.first < b.addresses.first; });
        const span_t *farthest = nullptr;
        const span_t *others = nullptr;
        for (const span_t &span : spans) {
            auto is_hit = [&span](const span_t *before) {
                return before != nullptr && before->addresses.pool_id != span.addresses.pool_id &&
                       before->addresses.last >= span.addresses.first;
            };
            const span_t *const hit = is_hit(farthest) ? farthest : is_hit(others) ? others : nullptr;
            if (hit != nullptr) note_overlap(span, *hit);
            const bool is_farthest = farthest == nullptr || span.addresses.last >= farthest->addresses.last;
            const bool is_of_same_pool = farthest != nullptr && span.addresses.pool_id == farthest->addresses.pool_id;
            if (is_farthest) {
                if (!is_of_same_pool) others = farthest;
                farthest = &span;
            } else if (!is_of_same_pool && (others == nullptr || span.addresses.last > others->addresses.last)) {
                others = &span;
            }
        }
    }

    void note_overlap(const span_t &a, const span_t &b) {
        const bool is_later = a.item.line >= b.item.line;
        const span_t &later = is_later ? a : b;
        const span_t &other = is_later ? b : a;
        const bool is_range = other.item.family->kind == family_kind_t::pool_range;
        note_error(later.item, "start",
                   std::string("overlaps ") + (is_range ? "a range of " : "") + "pool " +
                       std::to_string(other.addresses.pool_id) + " in line " + std::to_string(other.item.line));
    }

    void check_prefixes(const record_family_t &family, const record_field_t &field) {
        for (size_t i = document_.begin_of(family); i < document_.end_of(family); ++i) {
            const config_item_t item = document_.item(i);
            const uint8_t length = item.record[field.length_offset];
            const bool is_given = field.valid_offset == record_nowhere ? field.is_key || length != 0
                                                                       : record_field_is_given(field, item.record);
            uint8_t prefix[16] = {};
            std::memcpy(prefix, item.record + field.offset, field.width);
            constexpr uint8_t any[4] = {};
            uint8_t address[16];
            if (is_given && !embed_ipv4(prefix, length, any, address)) note_error(item, field.name, lengths_text());
        }
    }

    static std::string lengths_text() {
        std::string text = "must be a prefix of ";
        for (const uint8_t length : embedding_lengths) {
            const bool is_first = length == *std::begin(embedding_lengths);
            const bool is_last = length == *(std::end(embedding_lengths) - 1);
            text += (is_first ? "" : (is_last ? " or " : ", ")) + std::to_string(length);
        }
        return text + " bits, with zeros in bits 64 to 71";
    }

    void check_shared(const record_family_t &rules, const record_field_t &field) {
        std::vector<rule_prefix_t> prefixes;
        const size_t end = document_.end_of(rules);
        prefixes.reserve(end - document_.begin_of(rules));
        for (size_t i = document_.begin_of(rules); i < end; ++i) {
            const uint8_t *record = document_.item(i).record;
            uint64_t bits = 0;
            for (size_t byte = 0; byte < field.width; ++byte) {
                bits = bits << 8 | record[field.offset + byte];
            }
            prefixes.push_back({bits, static_cast<uint32_t>(i), record[field.length_offset]});
        }
        const bool is_sorted = std::is_sorted(prefixes.begin(), prefixes.end()); /* as in most documents */
        if (!is_sorted) std::sort(prefixes.begin(), prefixes.end());
        for (auto first = prefixes.begin(); first != prefixes.end();) {
            const auto next = std::find_if(first, prefixes.end(),
                                           [first](const rule_prefix_t &other) { return !other.is_same_as(*first); });
            if (next - first > 1) note_shared(field, *first, *std::prev(next), static_cast<size_t>(next - first));
            first = next;
        }
    }

    void note_shared(const record_field_t &field, const rule_prefix_t &first, const rule_prefix_t &last, size_t count) {
        const config_item_t item = document_.item(last.index);
        const config_item_t other = document_.item(first.index);
        const std::string rule = key_text(*other.family, other.record, notation_);
        note(problem_t::kind_t::warning, item, field, record_field_text(field, item.record),
             "shared by " + std::to_string(count) + " rules, of which the first is " + rule + " in line " +
                 std::to_string(other.line));
    }

    std::string text_of(const config_item_t &item, std::string_view name) const {
        return record_field_text(record_field_of(*item.family, name), item.record);
    }

    void note_error(const config_item_t &item, std::string_view name, const std::string &reason) {
        const record_field_t &field = record_field_of(*item.family, name);
        note(problem_t::kind_t::error, item, field, record_field_text(field, item.record), reason);
    }

    void note(problem_t::kind_t kind, const config_item_t &item, const record_field_t &field, const std::string &value,
              const std::string &reason) {
        const std::string label(label_of(field, notation_));
        problems_.push_back(
            {kind, item.line, label_of(*item.family, notation_), label, label + " " + value + ": " + reason});
    }

    const document_t &document_;
    notation_t notation_;
    problems_t &problems_;
};

}  // namespace

void check_document(const document_t &document, notation_t notation, problems_t &problems) {
    checker_t checker(document, notation, problems);
    checker.check_pools();
    checker.check_prefixes();
    checker.check_loggings();
    checker.check_static_mappings();
    checker.check_rules();
}
