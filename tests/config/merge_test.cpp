/* Merges on a server that other clients change too: undoing a change, and keeping the items of others. */
#include "config/merge.h"

#include <gtest/gtest.h>

#include "config/notation.h"
#include "tests/config/loaded.h"

namespace {

/** A document of three items: the timeouts of udp, tcp-est and icmp as digits, `-` for a missing one. */
document_t document_of(const std::string &values) {
    const char *const types[] = {"udp", "tcp-est", "icmp"};
    std::string text = std::string(version_mark) + "1\n";
    for (size_t i = 0; i < values.size(); ++i) {
        if (values[i] != '-') text += std::string("timeout set --type ") + types[i] + " --value " + values[i] + "\n";
    }
    return loaded(text);
}

std::string values_of(const document_t &document) {
    std::string values(3, '-');
    for (size_t i = 0; i < document.size(); ++i) {
        const auto *timeout = reinterpret_cast<const fwx_nat64_timeout_t *>(document.item(i).record);
        const size_t at = timeout->type == FWX_NAT64_TIMEOUT_UDP ? 0 : timeout->type == FWX_NAT64_TIMEOUT_ICMP ? 2 : 1;
        values[at] = static_cast<char>('0' + timeout->value);
    }
    return values;
}

}  // namespace

TEST(merge_test, an_undo_keeps_items_that_others_have_changed_since) {
    const struct {
        const char *what, *before, *after, *now, *result;
        size_t kept;
    } rows[] = {
        {"nobody else", "12-", "1-3", "1-3", "12-", 0},
        {"others added", "1--", "2--", "2-9", "1-9", 0},
        {"others changed what was changed", "1--", "2--", "3--", "3--", 1},
        {"others changed what was added", "---", "2--", "3--", "3--", 1},
        {"others added again what was removed", "1--", "---", "3--", "3--", 1},
        {"others removed what was added", "---", "2--", "---", "---", 0},
        {"others removed what was changed", "1--", "2--", "---", "---", 1},
        {"others put back what was removed", "1--", "---", "1--", "1--", 0},
        {"others changed what the change left alone", "11-", "12-", "32-", "31-", 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        const document_t before = document_of(row.before);
        const document_t after = document_of(row.after);
        const document_t now = document_of(row.now);
        std::vector<config_item_t> kept;
        EXPECT_EQ(values_of(roll_back(before, after, now, kept)), row.result);
        EXPECT_EQ(kept.size(), row.kept);
    }
}

TEST(merge_test, items_of_other_clients_stay) {
    const struct {
        const char *owned, *wanted, *now, *result;
        size_t foreign;
    } rows[] = {
        {"1--", "-2-", "1-9", "-29", 1}, {"---", "12-", "--3", "123", 1}, {"11-", "1--", "11-", "1--", 0},
        {"1--", "2--", "3--", "2--", 0}, {"---", "---", "123", "123", 3},
    };
    for (const auto &row : rows) {
        const document_t now = document_of(row.now);
        std::vector<config_item_t> foreign;
        EXPECT_EQ(values_of(keep_foreign(document_of(row.owned), document_of(row.wanted), now, foreign)), row.result)
            << row.owned << ' ' << row.wanted << ' ' << row.now;
        EXPECT_EQ(foreign.size(), row.foreign);
    }
}
