/* Faults in each step of installing and deleting rules and of cleaning up. A table row names the fault, and the test
 * checks the result, the log line, and the elements and leaves that remain. */
#include "rule_table_fixture.h"

namespace {

constexpr uint32_t fault = 5;
constexpr uint32_t no_memory = 12;
constexpr uint32_t missing_leaf = 22;

/* A fault: the result of the call that meets it, the start of the first log line, and what remains afterwards. */
struct failure_t {
    fwx_host_op_t op;
    uint32_t nth;
    uint32_t expected;
    const char *line; /* after "fwx_mapt_" */
    uint64_t elements;
    uint64_t leaves;
};

constexpr failure_t installs[] = {
    {FWX_HOST_OP_HASH_CREATE, 1, fault, "plu_add_pending_rule: failed to initialize pending rule hash tabe, ", 0, 0},
    {FWX_HOST_OP_FWX_CHUNK_CREATE, 1, no_memory, "plu_add_pending_rule: failed to create mapt rule hash chunk, ", 0, 0},
    {FWX_HOST_OP_CHUNK_MALLOC, 1, no_memory, "plu_add_pending_rule: no memory available for mapt rule hash", 0, 0},
    {FWX_HOST_OP_HASH_ADD, 1, fault, "add_pending_rule_hash_elem:Adding element to Pending MAPT hash failed", 0, 0},
    {FWX_HOST_OP_HASH_DELETE, 1, 0, "del_pending_rule_hash_elem: Del element to Pending MAPT hash failed", 1, 2},
    {FWX_HOST_OP_HASH_CREATE, 2, fault, "plu_add_rule: failed to initialize rule hash tabe, ", 0, 0},
    {FWX_HOST_OP_HASH_ADD, 2, fault, "add_rule_hash_elem:Adding element to MAPT hash failed for Rule ID 1", 0, 0},
    {FWX_HOST_OP_LIST_INIT, 1, no_memory, "plu_create_tbm: list initialization failed ", 1, 0},
    {FWX_HOST_OP_TBM_INIT, 1, no_memory, "plu_create_tbm: Failed to initialize TBM forfwx(0) ", 1, 0},
    {FWX_HOST_OP_CALLOC, 1, no_memory, "plu_create_tbm: No memory to add elem to complex listfwx(0) ", 1, 0},
    {FWX_HOST_OP_LIST_INSERT_TAIL, 1, no_memory, "plu_create_tbm: list insert failedfwx(0) ", 1, 0},
    {FWX_HOST_OP_TBM_LEAF_SIZE, 1, fault, "plu_add_rule_v4_subtable: unable to get leaf size, rc(", 1, 0},
    {FWX_HOST_OP_TBM_EXACT_MATCH, 1, fault, "plu_add_rule_v4_subtable: TBM exact match lookup failed , ", 1, 0},
    {FWX_HOST_OP_CALLOC, 2, no_memory, "plu_add_rule_v4_subtable:TBM leaf allocation failed, rc(", 1, 0},
    {FWX_HOST_OP_TBM_LEAF_INIT, 1, fault, "plu_add_rule_v4_subtable:leaf initialization failed, rc(", 1, 0},
    {FWX_HOST_OP_TBM_LEAF_INSERT, 1, FWX_NAT64_ERR_PLU_FAILED, "plu_add_rule_v4_subtable", 1, 0},
    {FWX_HOST_OP_CALLOC, 3, no_memory, "plu_add_rule_v6_subtable:TBM leaf allocation failed, rc(", 1, 1},
    {FWX_HOST_OP_TBM_LEAF_INSERT, 2, FWX_NAT64_ERR_PLU_FAILED, "plu_add_rule_v6_subtable", 1, 1},
};

constexpr failure_t removals[] = {
    {FWX_HOST_OP_LIST_HEAD, 1, fault, "plu_del_rule_from_fwxs: reading the complex list failed, rc(", 1, 2},
    {FWX_HOST_OP_TBM_LEAF_SIZE, 1, fault, "plu_del_rule_v4_subtable", 1, 2},
    {FWX_HOST_OP_TBM_EXACT_MATCH, 1, fault, "plu_del_rule_v4_subtable", 1, 2},
    {FWX_HOST_OP_TBM_LEAF_DELETE, 1, fault, "plu_del_rule_v4_subtable", 1, 2},
    {FWX_HOST_OP_TBM_LEAF_DELETE, 2, fault, "plu_del_rule_v6_subtable", 1, 1},
    {FWX_HOST_OP_HASH_DELETE, 1, fault, "del_rule_hash_elem: Del element to MAPT hash failed for Rule ID 1", 1, 0},
};

/* During a clean-up, a leaf that cannot be found or deleted stays in its tree. */
constexpr failure_t clean_ups[] = {
    {FWX_HOST_OP_LIST_HEAD, 1, 0, "plu_cleanup: reading the complex list failed, rc(", 0, 2},
    {FWX_HOST_OP_TBM_LEAF_SIZE, 1, 0, "plu_cleanup: Unable to get leaf size ", 0, 2},
    {FWX_HOST_OP_TBM_FIRST_LEAF, 1, 0, "plu_cleanup: error reading PLU for complex 0 rc(", 0, 2},
    {FWX_HOST_OP_TBM_FIRST_LEAF, 3, 0, "plu_cleanup: error reading PLU for  complex 0 rc(", 0, 0},
    {FWX_HOST_OP_TBM_LEAF_DELETE, 1, 0, "plu_cleanup: leaf delete failed ", 0, 2},
    {FWX_HOST_OP_LIST_DESTROY, 1, 0, "plu_cleanup: Failed to destroy complex list rc(", 0, 0},
    {FWX_HOST_OP_HASH_DELETE, 1, 0, "del_rule_hash_elem: Del element to MAPT hash failed for Rule ID 1", 0, 0},
    {FWX_HOST_OP_HASH_DESTROY, 1, 0, "plu_cleanup: failed to delete mapt rule hash table ", 0, 0},
};

class rule_failure_test_t : public rule_table_test_t {
protected:
    /** Runs `call` with a fault and empties the table. Afterwards the table works as if nothing had failed. */
    template <typename call_t>
    void expect(const failure_t &failure, call_t call) {
        SCOPED_TRACE(std::string(fwx_host_op_name(failure.op)) + " " + std::to_string(failure.nth));
        logged.clear();
        fwx_host_fault_arm(failure.op, failure.nth, fault);
        EXPECT_EQ(call(), failure.expected);
        fwx_host_fault_reset();
        ASSERT_FALSE(logged.empty());
        EXPECT_LT(logged[0].find(std::string("fwx_mapt_") + failure.line), 10u) << logged[0];
        EXPECT_EQ(logged[0].find("error: \n"), 0u) << logged[0];
        EXPECT_EQ(live().pool_elements, failure.elements);
        EXPECT_EQ(leaves(), failure.leaves);
        fwx_mapt_plu_cleanup();
        take_leaves();
        EXPECT_EQ(fwx_host_memory_live(), 0u);
        EXPECT_EQ(live().pools, 0u);
        EXPECT_EQ(install(bmr_, 5), 0u);
        EXPECT_EQ(leaves(), 2u);
    }
    /** Deletes and frees the leaves that a failed clean-up left. */
    static void take_leaves() {
        tbm_t *tree = fwx_host_tbm_of_complex(0);
        uint32_t rc = 0;
        while (tbm_leaf_t *leaf = tree != nullptr ? tbm_first_leaf(tree, v4_key.data(), 0, &rc) : nullptr) {
            tbm_leaf_delete(tree, leaf, &rc);
            fwx_free_named(leaf);
        }
    }
    const fwx_nat64_mapt_bmr_t bmr_ = rule(1, 2);
};

}  // namespace

TEST_F(rule_failure_test_t, a_failure_of_an_install_leaves_what_belongs_to_its_step) {
    for (const failure_t &failure : installs) {
        fwx_mapt_plu_cleanup();
        expect(failure, [&] { return install(bmr_, 5); });
    }
}

TEST_F(rule_failure_test_t, a_failure_of_a_delete_keeps_the_rule) {
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr_), 0u);
    const failure_t pending = {FWX_HOST_OP_HASH_DELETE, 1, fault, "del_pending_rule_hash_elem: ", 1, 0};
    expect(pending, [&] { return fwx_mapt_plu_del_rule(&bmr_); });
    for (const failure_t &failure : removals) {
        expect(failure, [&] { return fwx_mapt_plu_del_rule(&bmr_); });
    }
    fwx_host_fault_arm(FWX_HOST_OP_HASH_DELETE, 1, fault);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr_), fault);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr_), missing_leaf) << "it is installed without leaves";
}

TEST_F(rule_failure_test_t, a_clean_up_goes_on_whatever_fails) {
    ASSERT_EQ(install(bmr_, 5), 0u);
    for (const failure_t &failure : clean_ups) {
        expect(failure, [] { return fwx_mapt_plu_cleanup(), 0u; });
    }
}

TEST_F(rule_failure_test_t, an_element_that_stands_in_both_tables_is_released_once) {
    const auto install_both = [&] {
        fwx_host_fault_arm(FWX_HOST_OP_HASH_DELETE, 1, fault);
        return install(bmr_, 5);
    };
    ASSERT_EQ(install_both(), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(1, 2, 5).data()), FWX_NAT64_ERR_EXISTS); /* a duplicate reply */
    EXPECT_EQ(live().pool_elements, 1u) << "the installed rule must not lose its element";
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr_), 0u);
    EXPECT_EQ(live().pool_elements, 0u);
    ASSERT_EQ(install_both(), 0u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr_), 0u) << "leaves the pending table";
    EXPECT_EQ(live().pool_elements, 1u) << "and is still installed";
    fwx_mapt_plu_cleanup();
    ASSERT_EQ(install_both(), 0u);
    fwx_mapt_plu_cleanup();
    EXPECT_EQ(live().pools, 0u);
    for (const fwx_host_op_t op : {FWX_HOST_OP_HASH_CREATE, FWX_HOST_OP_HASH_ADD}) { /* the rule stays pending */
        fwx_host_fault_arm(op, 2, fault);
        EXPECT_EQ(install_both(), fault);
        EXPECT_EQ(live().pool_elements, 1u);
        EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr_), 0u);
        EXPECT_EQ(live().pool_elements, 0u);
        fwx_mapt_plu_cleanup();
    }
}
