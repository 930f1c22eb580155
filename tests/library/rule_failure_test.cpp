/* What fails in the life of rules, step by step. */
#include "rule_table_fixture.h"

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
