/* Fixture of the rule table: drives it through the library's exported functions and through replies of the server. */
#ifndef TESTS_LIBRARY_RULE_TABLE_FIXTURE_H
#define TESTS_LIBRARY_RULE_TABLE_FIXTURE_H

#include "library_fixture.h"
#include "platform/tbm.h"

inline fwx_nat64_mapt_bmr_t rule(uint32_t rule_id, uint32_t domain_id, uint8_t v4_third = 2, uint8_t v4_len = 24,
                                 uint8_t v6_fourth = 0xb8, uint8_t v6_len = 32) {
    return {rule_id, domain_id, {0x20, 0x01, 0x0d, v6_fourth, 0x12, 0x34, 0x56, 0x78}, v6_len, {192, 0, v4_third, 0},
            v4_len,  {}};
}

const bytes_t v4_key = {0xb0, 0x00, 0x00, 0x80}; /* 192.0.2.0/24 */

class rule_table_test_t : public library_fixture_t {
protected:
    /** Returns the server's answer to an add or delete, with the fields that the rule table reads. */
    static bytes_t answer(uint32_t rule_id, uint32_t domain_id, uint32_t index, uint32_t op = 1, uint32_t cleanup = 0) {
        bytes_t reply(64);
        put(reply, 40, rule_id);
        put(reply, 44, domain_id);
        put(reply, 52, op);
        put(reply, 56, cleanup);
        put(reply, 60, index);
        return reply;
    }
    static uint32_t install(const fwx_nat64_mapt_bmr_t &bmr, uint32_t index) {
        const uint32_t rc = fwx_mapt_plu_add_pending_rule(&bmr);
        return rc != 0 ? rc : fwx_mapt_plu_add_rule(answer(bmr.rule_id, bmr.domain_id, index).data());
    }
    static uint64_t leaves() {
        fwx_host_tbm_counts_t counts{};
        tbm_t *tree = fwx_host_tbm_of_complex(0);
        if (tree != nullptr) fwx_host_tbm_counts_get(tree, &counts);
        return counts.leaves;
    }
    static std::string leaf(const bytes_t &key, uint32_t bits) {
        tbm_t *tree = fwx_host_tbm_of_complex(0);
        uint32_t rc = 0;
        bytes_t padded = key;
        padded.resize(64);
        const tbm_leaf_t *found = tbm_exact_match(tree, padded.data(), bits, &rc);
        if (rc != 0 || found == nullptr) return "";
        const uint8_t *data = fwx_host_tbm_leaf_data(tree, found);
        return hex(bytes_t(data, data + 16));
    }
    static std::string index_data(uint8_t index) {
        return "00 00 00 00 00 00 00 " + hex({index}) + " 00 00 00 00 00 00 00 00";
    }
    void SetUp() override {
        library_fixture_t::SetUp();
        ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    }
};

#endif
