/* Cases that no call of the PAL can produce: several complexes, although the library creates only one, and an element
 * whose prefix lengths were not checked. The tests call hidden functions of the rule table. */
#include "library_fixture.h"
#include "mapt/plu.h"

namespace {

constexpr uint32_t no_memory = 12;
constexpr uint32_t exists = 17;
constexpr uint32_t invalid = 22;

class guard_test_t : public rule_table_test_t {
protected:
    const fwx_nat64_mapt_bmr_t bmr_ = rule(1, 2);
    tbm_t *tree_ = nullptr;
};

TEST_F(guard_test_t, a_complex_has_one_tree_and_its_handle_needs_a_place) {
    EXPECT_EQ(fwx_mapt_plu_find_tbm(0, nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(fwx_mapt_plu_create_tbm(0, nullptr), invalid);
    ASSERT_EQ(fwx_mapt_plu_create_tbm(0, &tree_), 0u);
    EXPECT_EQ(tree_, fwx_host_tbm_of_complex(0));
    EXPECT_EQ(fwx_mapt_plu_create_tbm(0, &tree_), exists);
    EXPECT_EQ(tree_, nullptr);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_HEAD, 1, 0x77);
    EXPECT_EQ(fwx_mapt_plu_create_tbm(1, &tree_), 0x77u);
}

TEST_F(guard_test_t, a_rule_without_initialised_trees_stays_installed_without_leaves) {
    fwx_mapt_plu_tbm_info = {}; /* as before the first bind of a process */
    EXPECT_EQ(install(bmr_, 5), no_memory);
    EXPECT_EQ(fwx_mapt_pending_rule_hash_elem_exists(1, 2), 0u);
    EXPECT_EQ(fwx_mapt_rule_hash_elem_exists(1, 2), 1u);
}

TEST_F(guard_test_t, a_rule_that_is_not_in_the_tree_of_every_complex_is_told_when_it_is_deleted) {
    EXPECT_EQ(fwx_mapt_plu_del_rule_from_fwxs(&bmr_), 0u) << "there is no complex";
    ASSERT_EQ(install(bmr_, 5), 0u);
    ASSERT_EQ(fwx_mapt_plu_create_tbm(1, &tree_), 0u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr_), FWX_NAT64_ERR_PLU_FAILED);
    EXPECT_TRUE(logged_line("error: \nfwx_mapt_plu_del_rule_from_fwxs: Failed to delete rules from PLU rc(" +
                            std::string(xerr_strerror(FWX_NAT64_ERR_PLU_FAILED)) + ")"));
}

TEST_F(guard_test_t, a_clean_up_that_fails_for_some_complexes_only_says_so) {
    ASSERT_EQ(fwx_mapt_plu_create_tbm(0, &tree_), 0u);
    ASSERT_EQ(fwx_mapt_plu_create_tbm(1, &tree_), 0u);
    fwx_host_fault_arm(FWX_HOST_OP_TBM_LEAF_SIZE, 2, 0);
    fwx_mapt_plu_cleanup();
    EXPECT_TRUE(logged_line("error: \nfwx_mapt_plu_cleanup: Failed to delete rules from PLU rc(" +
                            std::string(xerr_strerror(FWX_NAT64_ERR_PLU_FAILED)) + ")"));
}

TEST_F(guard_test_t, no_rule_and_one_with_a_prefix_longer_than_its_field_are_not_inserted) {
    EXPECT_EQ(fwx_mapt_plu_rule_insert(nullptr), FWX_NAT64_ERR_INVALID);
    for (const auto &[v4_len, v6_len] : {std::pair<uint8_t, uint8_t>{33, 64}, {32, 65}}) {
        fwx_mapt_rule_hash_elem_t elem = {bmr_, 1};
        elem.rule.v4_prefix_len = v4_len;
        elem.rule.v6_prefix_len = v6_len;
        EXPECT_EQ(fwx_mapt_plu_rule_insert(&elem), FWX_NAT64_ERR_INVALID);
        EXPECT_EQ(logged.back().find("error: \nfwx_mapt_plu_rule_insert: "), 0u);
    }
    EXPECT_EQ(fwx_mapt_plu_complex_list, nullptr) << "nothing was made";
}

}  // namespace
