/* Copies a document item by item and replaces pools and ranges by pools of one prefix each. */
#include "config/ietf_pools.h"

#include <cstring>
#include <map>

#include "config/ietf_values.h"
#include "config/pools.h"
#include "fwx_nat64/config.h"
#include "records/families.h"

namespace {

fwx_nat64_addr_t address_of(uint32_t word) {
    fwx_nat64_addr_t address{};
    std::memcpy(address.addr, &word, sizeof word);
    return address;
}

class pool_cutter_t {
public:
    pool_cutter_t(const document_t &document, problems_t &problems) : document_(document), problems_(problems) {
        for (size_t i = document.begin_of(family_); i < document.end_of(family_); ++i) {
            fwx_nat64_pool_t pool;
            std::memcpy(&pool, document.item(i).record, sizeof pool);
            pools_.emplace(pool.id, pool_t{pool, document.item(i).line});
        }
    }

    document_t cut() {
        for (size_t i = 0; i < document_.size(); ++i) {
            const config_item_t item = document_.item(i);
            const bool has_addresses = item.family == &family_ || item.family->kind == family_kind_t::pool_range;
            if (has_addresses) {
                cut(item);
            } else {
                out_.add(*item.family, item.record, item.line);
                if (item.is_nvi) out_.add(*nvi_family_of(*item.family), nvi_record_of(item).bytes, item.line);
            }
        }
        out_.settle();
        return std::move(out_);
    }

private:
    struct pool_t {
        fwx_nat64_pool_t record{};
        uint32_t line = 0;
    };

    void cut(const config_item_t &item) {
        const pool_span_t span = pool_span_of(item);
        const bool is_pool = item.family == &family_;
        auto [pool, line] = pools_.at(span.pool_id);
        std::string numbers;
        size_t count = 0;
        for (const ipv4_piece_t &piece : prefixes_of(span.first, span.last)) {
            const bool keeps_number = is_pool && count == 0;
            if (!keeps_number) pool.id = free_number();
            pool.start_addr = address_of(piece.first);
            pool.end_addr = address_of(piece.last);
            numbers.append(count++ == 0 ? "" : ", ").append(std::to_string(pool.id));
            out_.add(family_, &pool, line);
        }
        const bool is_whole = is_pool && count == 1;
        if (is_whole) return;
        problems_.push_back({problem_t::kind_t::warning, item.line, label_of(*item.family, notation_t::lines), "--id",
                             key_text(*item.family, item.record, notation_t::lines) + ": " + item.family->unmodelled +
                                 ": written as pool " + numbers});
    }

    uint32_t free_number() {
        while (!pools_.emplace(next_, pool_t{}).second) {
            ++next_;
        }
        return next_;
    }

    const document_t &document_;
    problems_t &problems_;
    const record_family_t &family_ = record_family_of(family_kind_t::pool);
    std::map<uint32_t, pool_t> pools_; /* by number, with the new ones */
    uint32_t next_ = 1;
    document_t out_;
};

}  // namespace

document_t cut_pools(const document_t &document, problems_t &problems) {
    return pool_cutter_t(document, problems).cut();
}
