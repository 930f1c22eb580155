#include <map>
#include <random>
#include <set>

#include "library_fixture.h"
#include "platform/tbm.h"

namespace {

using rule_key_t = std::pair<uint32_t, uint32_t>; /* Rule ID, Domain ID */

fwx_nat64_mapt_bmr_t rule(uint32_t rule_id, uint32_t domain_id, uint8_t v4_third = 2, uint8_t v4_len = 24,
                          uint8_t v6_fourth = 0xb8, uint8_t v6_len = 32) {
    return {rule_id, domain_id, {0x20, 0x01, 0x0d, v6_fourth, 0x12, 0x34, 0x56, 0x78}, v6_len, {192, 0, v4_third, 0},
            v4_len,  {}};
}

class rule_table_test_t : public library_fixture_t {
protected:
    /** The server's answer to an add or delete, as the rule table reads it. */
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
    /** Leaf data under a key, empty when there is no leaf. */
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

const bytes_t v4_key = {0xb0, 0x00, 0x00, 0x80};       /* 192.0.2.0/24 */
const bytes_t v6_key = {0x48, 0x00, 0x43, 0x6e, 0x00}; /* 2001:db8::/32 */

}  // namespace

TEST_F(rule_table_test_t, an_installed_rule_has_both_leaves_with_its_index_big_endian) {
    EXPECT_EQ(install(rule(1, 2), 5), 0u);
    EXPECT_EQ(leaf(v4_key, 26), index_data(5));
    EXPECT_EQ(leaf(v6_key, 34), index_data(5));
    EXPECT_EQ(leaves(), 2u);
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
    EXPECT_EQ(leaves(), 0u);
    EXPECT_EQ(live().pool_elements, 0u);
}

TEST_F(rule_table_test_t, keys_carry_the_tag_in_front_of_the_prefix) {
    struct {
        fwx_nat64_mapt_bmr_t bmr;
        bytes_t v4, v6;
        uint32_t v4_bits, v6_bits;
    } const cases[] = {
        {{1, 0, {}, 0, {}, 0, {}}, {0x80}, {0x40}, 2, 2},
        {{2, 0, {0x20, 0x01, 0x0d, 0xb8, 0x12, 0x34, 0x56, 0x78}, 64, {192, 168, 1, 252}, 30, {}},
         {0xb0, 0x2a, 0x00, 0x7f},
         {0x48, 0x00, 0x43, 0x6e, 0x04, 0x8d, 0x15, 0x9e, 0x00},
         32,
         66},
        {{3, 0, {0x20, 0x01, 0x0d, 0xb8}, 47, {192, 0, 2, 33}, 32, {}},
         {0xb0, 0x00, 0x00, 0x88, 0x40},
         {0x48, 0x00, 0x43, 0x6e, 0x00, 0x00, 0x00},
         34,
         49},
    };
    uint8_t index = 0;
    for (const auto &entry : cases) {
        ASSERT_EQ(install(entry.bmr, ++index), 0u);
        EXPECT_EQ(leaf(entry.v4, entry.v4_bits), index_data(index));
        EXPECT_EQ(leaf(entry.v6, entry.v6_bits), index_data(index));
    }
}

TEST_F(rule_table_test_t, a_pending_rule_waits_for_the_reply_of_its_own_key) {
    const fwx_nat64_mapt_bmr_t a = rule(1, 2);
    const fwx_nat64_mapt_bmr_t b = rule(2, 1, 3);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(1, 2, 5).data()), FWX_NAT64_ERR_INVALID) << "nothing was ever pending";
    EXPECT_EQ(fwx_mapt_plu_add_rule(nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(fwx_mapt_plu_add_pending_rule(&a), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_pending_rule(&b), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_pending_rule(&a), FWX_NAT64_ERR_EXISTS);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(3, 3, 5).data()), 0u);
    EXPECT_EQ(live().pool_elements, 2u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(2, 1, 6).data()), 0u);
    EXPECT_EQ(leaves(), 2u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(2, 1, 7).data()), 0u) << "a duplicate reply finds nothing pending";
    EXPECT_EQ(leaves(), 2u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&a), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(1, 2, 5).data()), 0u) << "deleted while its command was under way";
    EXPECT_EQ(live().pool_elements, 1u);
}

TEST_F(rule_table_test_t, an_installed_rule_made_pending_again_is_refused_by_its_reply_and_keeps_its_leaves) {
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    ASSERT_EQ(install(bmr, 5), 0u);
    EXPECT_EQ(install(bmr, 6), FWX_NAT64_ERR_EXISTS);
    EXPECT_EQ(leaf(v4_key, 26), index_data(5));
    EXPECT_EQ(live().pool_elements, 1u);
    EXPECT_EQ(logged.back(), std::string("error: \nfwx_mapt_plu_add_rule: Add rule hash elem failed, ") +
                                 xerr_strerror(FWX_NAT64_ERR_EXISTS));
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr), 0u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u) << "the pending one goes first";
    EXPECT_EQ(leaves(), 2u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
    EXPECT_EQ(leaves(), 0u);
}

TEST_F(rule_table_test_t, rules_that_share_a_prefix_share_its_leaf_and_the_second_cannot_be_deleted) {
    const fwx_nat64_mapt_bmr_t first = rule(1, 0, 2, 24, 0xb8);
    const fwx_nat64_mapt_bmr_t second = rule(2, 0, 2, 24, 0xb9);
    fwx_nat64_dbg_info_set(1);
    ASSERT_EQ(install(first, 5), 0u);
    logged.clear();
    ASSERT_EQ(install(second, 6), 0u);
    size_t found_lines = 0;
    for (const std::string &line : logged) {
        found_lines +=
            line.find("fwx_mapt_plu_add_rule_v4_subtable: TBM exact match found tbm leaf 0x") != std::string::npos;
    }
    EXPECT_EQ(found_lines, 1u);
    EXPECT_EQ(leaves(), 3u);
    EXPECT_EQ(leaf(v4_key, 26), index_data(5)) << "the leaf carries the rule that made it";
    EXPECT_EQ(fwx_mapt_plu_del_rule(&first), 0u);
    fwx_nat64_dbg_info_set(0);
    logged.clear();
    EXPECT_EQ(fwx_mapt_plu_del_rule(&second), 22u);
    EXPECT_EQ(logged,
              (std::vector<std::string>{
                  "error: \nfwx_mapt_plu_del_rule_v4_subtable:TBM leaf not found, rc(Invalid argument)",
                  "error: \nfwx_mapt_plu_del_rule_from_subtables: Failed to delete rule to V4 subtable rc(Invalid "
                  "argument)",
                  "error: \nfwx_mapt_plu_del_rule_from_fwxs: Failed to delete rule from subtables for fwx (0), "
                  "rc(Invalid argument)",
                  "error: \nfwx_mapt_plu_del_rule:plu rule delete failed, rc(Invalid argument)"}));
    EXPECT_EQ(leaves(), 1u);
    EXPECT_EQ(live().pool_elements, 1u);
}

TEST_F(rule_table_test_t, the_log_tells_the_life_of_a_rule_line_by_line) {
    fwx_nat64_dbg_info_set(1);
    logged.clear();
    ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    EXPECT_EQ(logged, (std::vector<std::string>{"info: \nfwx_mapt_plu_init Initialzing PLU for MAPT",
                                                "info: \nfwx_mapt_plu_init_stride_map Initialzing Stride MAP "}));
    logged.clear();
    const fwx_nat64_mapt_bmr_t bmr = {1,  2, {0x20, 0x01, 0x0d, 0xb8, 0x12, 0x34, 0x56, 0x78}, 40, {192, 0, 2, 0},
                                      24, {}};
    ASSERT_EQ(install(bmr, 5), 0u);
    ASSERT_EQ(logged.size(), 9u) << testing::PrintToString(logged);
    EXPECT_EQ(logged[0], "info: \nfwx_mapt_add_pending_rule_hash_elem Added hash elem Rule ID 1,Domain ID 2");
    EXPECT_EQ(logged[1], "info: \nfwx_mapt_add_rule_hash_elem Added elem Rule ID 1,Domain ID 2");
    EXPECT_EQ(logged[2],
              "info: \nfwx_mapt_plu_add_rule_v4_subtable Prefixes being added BMR V4 prefix(0xc0000200)/24 Effective "
              "prefix:(0xb00000800000000000000000/26)");
    EXPECT_EQ(logged[3].find("info: \nfwx_mapt_plu_add_rule_v4_subtable:new TBM leaf(0x"), 0u);
    EXPECT_EQ(logged[4].find("info: \n fwx_mapt_tbm_plu_leaf_contents_func_t_v2 : fwx_mapt_app_leaf mapt_bmr 5   "
                             "app_leaf("),
              0u);
    EXPECT_EQ(logged[5],
              "info: \nfwx_mapt_plu_add_rule_v6_subtable Prefixes being added BMR V6 prefix(0x20010db812345678/40) "
              "Effective prefix:(0x4800436e0480000000000000/42) Temp prefix:(0x20010db81200000000000000)");
    EXPECT_EQ(logged[8], "info: \nfwx_mapt_plu_add_rule Adding to PLU successful");
    logged.clear();
    ASSERT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
    EXPECT_EQ(logged, (std::vector<std::string>{
                          "info: \nfwx_mapt_plu_del_rule_v4_subtable Deleting from PLU v4 table successful",
                          "info: \nfwx_mapt_plu_del_rule_v6_subtable Deleting from PLU v6 table successful",
                          "info: \nfwx_mapt_plu_del_rule Deleting rule successful"}));
    logged.clear();
    fwx_mapt_plu_cleanup();
    fwx_mapt_plu_cleanup();
    EXPECT_EQ(logged, (std::vector<std::string>(2, "info: \nfwx_mapt_plu_cleanup Cleaning up MAPT PLU")));
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr), 0u);
    ASSERT_EQ(fwx_mapt_plu_add_rule(answer(1, 2, 3).data()), 0u) << "the table works again in a fresh tree";
    EXPECT_EQ(leaves(), 2u);
}

namespace {

/* A fault during the install of a rule: what it returns, what is logged first, and what survives. */
struct install_failure_t {
    const char *step;
    fwx_host_op_t op;
    uint32_t nth;
    uint32_t expected;
    const char *first_line;
    uint64_t elements;
    uint64_t leaves;
};

constexpr install_failure_t install_failures[] = {
    {"pending table", FWX_HOST_OP_HASH_CREATE, 1, 5,
     "fwx_mapt_plu_add_pending_rule: failed to initialize pending rule hash tabe, Input/output error", 0, 0},
    {"pool", FWX_HOST_OP_FWX_CHUNK_CREATE, 1, 12,
     "fwx_mapt_plu_add_pending_rule: failed to create mapt rule hash chunk, Cannot allocate memory", 0, 0},
    {"element", FWX_HOST_OP_CHUNK_MALLOC, 1, 12,
     "fwx_mapt_plu_add_pending_rule: no memory available for mapt rule hash chunk, Cannot allocate memory", 0, 0},
    {"pending add", FWX_HOST_OP_HASH_ADD, 1, 5,
     " fwx_mapt_add_pending_rule_hash_elem:Adding element to Pending MAPT hash failed for Rule ID 1 Domain ID 2- "
     "Input/output error",
     0, 0},
    {"pending removal", FWX_HOST_OP_HASH_DELETE, 1, 0,
     "fwx_mapt_del_pending_rule_hash_elem: Del element to Pending MAPT hash failed for Rule ID 1 Domain ID 2- "
     "Input/output error",
     1, 2},
    {"installed table", FWX_HOST_OP_HASH_CREATE, 2, 5,
     "fwx_mapt_plu_add_rule: failed to initialize rule hash tabe, Input/output error", 0, 0},
    {"installed add", FWX_HOST_OP_HASH_ADD, 2, 5, nullptr, 0, 0},
    {"complex list", FWX_HOST_OP_LIST_INIT, 1, 12,
     "fwx_mapt_plu_create_tbm: list initialization failed Input/output error", 1, 0},
    {"tree", FWX_HOST_OP_TBM_INIT, 1, 12,
     "fwx_mapt_plu_create_tbm: Failed to initialize TBM forfwx(0) Input/output error", 1, 0},
    {"complex record", FWX_HOST_OP_CALLOC, 1, 12,
     "fwx_mapt_plu_create_tbm: No memory to add elem to complex listfwx(0) Cannot allocate memory", 1, 0},
    {"complex insert", FWX_HOST_OP_LIST_INSERT_TAIL, 1, 12,
     "fwx_mapt_plu_create_tbm: list insert failedfwx(0) Input/output error", 1, 0},
    {"leaf size", FWX_HOST_OP_TBM_LEAF_SIZE, 1, 5,
     "fwx_mapt_plu_add_rule_v4_subtable: unable to get leaf size, rc(Input/output error) ", 1, 0},
    {"exact match", FWX_HOST_OP_TBM_EXACT_MATCH, 1, 5,
     "fwx_mapt_plu_add_rule_v4_subtable: TBM exact match lookup failed , Input/output error", 1, 0},
    {"IPv4 leaf", FWX_HOST_OP_CALLOC, 2, 12,
     "fwx_mapt_plu_add_rule_v4_subtable:TBM leaf allocation failed, rc(Cannot allocate memory) ", 1, 0},
    {"IPv4 leaf init", FWX_HOST_OP_TBM_LEAF_INIT, 1, 5,
     "fwx_mapt_plu_add_rule_v4_subtable:leaf initialization failed, rc(Input/output error)", 1, 0},
    {"IPv4 leaf insert", FWX_HOST_OP_TBM_LEAF_INSERT, 1, FWX_NAT64_ERR_PLU_FAILED, nullptr, 1, 0},
    {"IPv6 leaf", FWX_HOST_OP_CALLOC, 3, 12,
     "fwx_mapt_plu_add_rule_v6_subtable:TBM leaf allocation failed, rc(Cannot allocate memory)", 1, 1},
    {"IPv6 leaf insert", FWX_HOST_OP_TBM_LEAF_INSERT, 2, FWX_NAT64_ERR_PLU_FAILED, nullptr, 1, 1},
};

}  // namespace

TEST_F(rule_table_test_t, every_failure_of_an_install_returns_its_code_and_leaves_what_belongs_to_its_step) {
    for (const install_failure_t &failure : install_failures) {
        SCOPED_TRACE(failure.step);
        logged.clear();
        fwx_host_fault_arm(failure.op, failure.nth, 5);
        EXPECT_EQ(install(rule(1, 2), 5), failure.expected);
        fwx_host_fault_reset();
        ASSERT_FALSE(logged.empty());
        if (failure.first_line != nullptr) {
            EXPECT_EQ(logged[0], std::string("error: \n") + failure.first_line);
        }
        EXPECT_EQ(live().pool_elements, failure.elements);
        EXPECT_EQ(leaves(), failure.leaves);
        const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
        if (failure.leaves == 2) {
            EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u) << "leaves the pending table";
            EXPECT_EQ(live().pool_elements, 1u) << "and is still installed";
            EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
            EXPECT_EQ(live().pool_elements, 0u);
        }
        fwx_mapt_plu_cleanup();
        EXPECT_EQ(fwx_host_memory_live(), 0u);
        EXPECT_EQ(install(bmr, 5), 0u);
        EXPECT_EQ(leaves(), 2u);
        fwx_mapt_plu_cleanup();
    }
}

TEST_F(rule_table_test_t, an_element_that_stands_in_both_tables_is_released_once) {
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    for (const bool by_duplicate_reply : {true, false}) {
        fwx_host_fault_arm(FWX_HOST_OP_HASH_DELETE, 1, 5);
        ASSERT_EQ(install(bmr, 5), 0u);
        if (by_duplicate_reply) {
            EXPECT_EQ(fwx_mapt_plu_add_rule(answer(1, 2, 5).data()), FWX_NAT64_ERR_EXISTS);
            EXPECT_EQ(live().pool_elements, 1u) << "the installed rule must not lose its element";
            EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
            EXPECT_EQ(live().pool_elements, 0u);
        } else {
            fwx_mapt_plu_cleanup();
            EXPECT_EQ(live().pools, 0u);
        }
    }
}

TEST_F(rule_table_test_t, failures_of_a_delete_keep_the_rule_installed) {
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    EXPECT_EQ(fwx_mapt_plu_del_rule(nullptr), FWX_NAT64_ERR_INVALID);
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr), 0u);
    fwx_host_fault_arm(FWX_HOST_OP_HASH_DELETE, 1, 5);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 5u);
    EXPECT_EQ(logged.back(),
              "error: \nfwx_mapt_plu_del_rule : Removing prefix from pending hash failed Input/output error ");
    ASSERT_EQ(fwx_mapt_plu_add_rule(answer(1, 2, 5).data()), 0u);
    struct {
        fwx_host_op_t op;
        uint32_t nth;
        uint64_t leaves; /* afterwards */
    } const failures[] = {{FWX_HOST_OP_TBM_LEAF_SIZE, 1, 2},
                          {FWX_HOST_OP_TBM_EXACT_MATCH, 1, 2},
                          {FWX_HOST_OP_TBM_LEAF_DELETE, 1, 2},
                          {FWX_HOST_OP_TBM_LEAF_DELETE, 2, 1}};
    for (const auto &failure : failures) {
        fwx_host_fault_arm(failure.op, failure.nth, 5);
        EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 5u);
        EXPECT_EQ(leaves(), failure.leaves);
        EXPECT_EQ(live().pool_elements, 1u);
    }
    fwx_mapt_plu_cleanup();
    ASSERT_EQ(install(bmr, 5), 0u);
    fwx_host_fault_arm(FWX_HOST_OP_HASH_DELETE, 1, 5);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 5u);
    EXPECT_EQ(leaves(), 0u);
    EXPECT_EQ(live().pool_elements, 1u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 22u) << "installed without leaves";
}

TEST_F(rule_table_test_t, a_clean_up_goes_on_whatever_fails) {
    struct {
        const char *step;
        fwx_host_op_t op;
        const char *line;
        bool leaves_leak; /* the tree could not be emptied */
    } const failures[] = {
        {"leaf size", FWX_HOST_OP_TBM_LEAF_SIZE, "Unable to get leaf size ", true},
        {"first leaf", FWX_HOST_OP_TBM_FIRST_LEAF, "error reading PLU for complex 0 rc(", true},
        {"leaf delete", FWX_HOST_OP_TBM_LEAF_DELETE, "leaf delete failed ", true},
        {"list destroy", FWX_HOST_OP_LIST_DESTROY, "Failed to destroy complex list rc(", false},
        {"element", FWX_HOST_OP_HASH_DELETE, "failed to delete hash element ", false},
        {"installed table", FWX_HOST_OP_HASH_DESTROY, "failed to delete mapt rule hash table ", false},
    };
    for (const auto &failure : failures) {
        SCOPED_TRACE(failure.step);
        ASSERT_EQ(install(rule(1, 2), 5), 0u);
        const fwx_nat64_mapt_bmr_t pending = rule(3, 4);
        ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&pending), 0u);
        tbm_t *tree = fwx_host_tbm_of_complex(0);
        logged.clear();
        fwx_host_fault_arm(failure.op, 1, 5);
        fwx_mapt_plu_cleanup();
        bool told = false;
        for (const std::string &line : logged) {
            told = told || line.find(std::string("error: \nfwx_mapt_plu_cleanup: ") + failure.line) == 0;
        }
        EXPECT_TRUE(told) << testing::PrintToString(logged);
        EXPECT_EQ(live().pools, 0u);
        EXPECT_EQ(fwx_mapt_plu_add_rule(answer(3, 4, 5).data()), FWX_NAT64_ERR_INVALID);
        EXPECT_EQ(leaves(), failure.leaves_leak ? 2u : 0u);
        uint32_t rc = 0;
        while (tbm_leaf_t *leaf = tbm_first_leaf(tree, v4_key.data(), 0, &rc)) { /* what the clean-up had to leave */
            tbm_leaf_delete(tree, leaf, &rc);
            fwx_free_named(leaf);
        }
    }
}

TEST_F(rule_table_test_t, an_unreadable_complex_list_is_told_and_deletes_nothing) {
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    ASSERT_EQ(install(bmr, 5), 0u);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_HEAD, 1, 5);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 5u);
    EXPECT_EQ(logged.back(), "error: \nfwx_mapt_plu_del_rule:plu rule delete failed, rc(Input/output error)");
    EXPECT_EQ(leaves(), 2u);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_HEAD, 1, 5);
    EXPECT_EQ(install(rule(3, 4, 3, 24, 0xb9), 6), 5u);
    EXPECT_EQ(leaves(), 2u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
    EXPECT_EQ(leaves(), 0u);
}

TEST_F(rule_table_test_t, random_lives_of_rules_agree_with_a_reference) {
    struct reference_t {
        std::map<rule_key_t, fwx_nat64_mapt_bmr_t> pending, installed;
        std::set<std::pair<int, int>> v4, v6; /* byte, length */
        static std::pair<int, int> v4_of(const fwx_nat64_mapt_bmr_t &r) { return {r.v4_prefix[2], r.v4_prefix_len}; }
        static std::pair<int, int> v6_of(const fwx_nat64_mapt_bmr_t &r) { return {r.v6_prefix[3], r.v6_prefix_len}; }

        uint32_t add(const fwx_nat64_mapt_bmr_t &r) {
            return pending.emplace(rule_key_t{r.rule_id, r.domain_id}, r).second ? 0 : FWX_NAT64_ERR_EXISTS;
        }
        uint32_t reply(rule_key_t key, bool table_exists) {
            if (!table_exists) return FWX_NAT64_ERR_INVALID;
            const auto it = pending.find(key);
            if (it == pending.end()) return 0;
            const fwx_nat64_mapt_bmr_t r = it->second;
            pending.erase(it);
            if (!installed.emplace(key, r).second) return FWX_NAT64_ERR_EXISTS;
            v4.insert(v4_of(r));
            v6.insert(v6_of(r));
            return 0;
        }
        uint32_t del(rule_key_t key) {
            if (pending.erase(key) != 0) return 0;
            const auto it = installed.find(key);
            if (it == installed.end()) return 0;
            if (v4.erase(v4_of(it->second)) == 0 || v6.erase(v6_of(it->second)) == 0) return 22;
            installed.erase(it);
            return 0;
        }
    } reference;
    std::mt19937 random(20241124);
    const auto any = [&random](uint32_t below) { return static_cast<uint32_t>(random() % below); };
    bool table_exists = false;
    fwx_nat64_dbg_error_set(0);
    for (int step = 0; step < 20000; ++step) {
        const fwx_nat64_mapt_bmr_t r =
            rule(1 + any(12), any(3), static_cast<uint8_t>(any(6)), static_cast<uint8_t>(24 + any(2)),
                 static_cast<uint8_t>(any(6)), static_cast<uint8_t>(32 + any(2)));
        const rule_key_t key{r.rule_id, r.domain_id};
        switch (any(200)) {
            case 0:
                fwx_mapt_plu_cleanup();
                reference = {};
                table_exists = false;
                break;
            default:
                switch (step % 3) {
                    case 0:
                        ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&r), reference.add(r));
                        table_exists = true;
                        break;
                    case 1:
                        ASSERT_EQ(fwx_mapt_plu_add_rule(answer(key.first, key.second, any(1000)).data()),
                                  reference.reply(key, table_exists));
                        break;
                    default:
                        ASSERT_EQ(fwx_mapt_plu_del_rule(&r), reference.del(key));
                }
        }
        ASSERT_EQ(live().pool_elements, reference.pending.size() + reference.installed.size());
        ASSERT_EQ(leaves(), reference.v4.size() + reference.v6.size());
        const uint64_t complex_record = fwx_host_memory_blocks_tag(96) - leaves();
        ASSERT_LE(complex_record, 1u);
    }
}

TEST_F(rule_table_test_t, a_thousand_cycles_of_a_hundred_rules_leave_the_process_no_larger) {
    fwx_host_live_t after_first{};
    for (int cycle = 0; cycle < 1000; ++cycle) {
        for (uint32_t i = 0; i < 100; ++i) {
            const auto byte = static_cast<uint8_t>(i);
            ASSERT_EQ(install(rule(i + 1, 1, byte, 24, byte, 32), i), 0u);
        }
        fwx_mapt_plu_cleanup();
        const fwx_host_live_t now = live();
        if (cycle == 0) after_first = now;
        ASSERT_EQ(memcmp(&now, &after_first, sizeof(now)), 0) << cycle;
    }
}

TEST_F(rule_table_test_t, the_server_drives_the_table_through_its_replies) {
    bind_quietly();
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    ASSERT_EQ(fwx_nat64_mapt_bmr_set_a(1, &bmr, this), 0u);
    EXPECT_EQ(fwx_nat64_mapt_bmr_set_a(1, &bmr, this), FWX_NAT64_ERR_EXISTS) << "pending already: nothing is sent";
    pump();
    ASSERT_EQ(received.size(), 1u);
    bytes_t reply = reply_to(received[0], 13, 64, 0x6003); /* the server's own result does not count */
    const bytes_t fields = answer(1, 2, 5);
    std::copy(fields.begin() + 40, fields.end(), reply.begin() + 40);
    deliver(reply);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].result, 0u);
    EXPECT_EQ(leaves(), 2u);

    bytes_t wrong_type = reply; /* another rule type never reaches the table */
    ASSERT_EQ(fwx_nat64_mapt_bmr_set_a(1, &bmr, this), 0u);
    pump();
    put(wrong_type, 16, get<uint64_t>(received[1], 16));
    put(wrong_type, 48, 1u);
    deliver(wrong_type);
    EXPECT_EQ(calls.back().result, 0u);
    EXPECT_EQ(live().pool_elements, 2u);

    ASSERT_EQ(fwx_nat64_mapt_bmr_set_a(3, &bmr, this), 0u); /* drops the pending one */
    ASSERT_EQ(fwx_nat64_mapt_bmr_set_a(3, &bmr, this), 0u);
    EXPECT_EQ(leaves(), 0u);
    const fwx_nat64_mapt_bmr_t other = rule(7, 7);
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&other), 0u);
    pump();
    reply = reply_to(received.back(), 13, 64);
    put(reply, 52, 3u);
    put(reply, 56, 1u);
    deliver(reply);
    EXPECT_EQ(calls.back().result, 0u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(7, 7, 1).data()), FWX_NAT64_ERR_INVALID) << "the whole table is gone";
    fwx_nat64_clnt_cleanup();
}

TEST_F(rule_table_test_t, the_leaf_contents_callback_wants_a_buffer) {
    EXPECT_EQ(fwx_mapt_tbm_plu_leaf_contents_func_t_v2(nullptr, nullptr, nullptr, nullptr), 1u);
    EXPECT_EQ(logged.back(), "error: \nfwx_mapt_tbm_plu_leaf_contents_func_t_v2: buffer((nil)) app_handle((nil))");
}
