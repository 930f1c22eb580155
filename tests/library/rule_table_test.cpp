/* Rules from pending to installed to deleted, through the exported functions and the server's replies, compared with a
 * simple reference. A table has the faults in each step, each with its result, log line and what then remains. */
#include <map>
#include <random>
#include <set>

#include "library_fixture.h"

namespace {

using rule_key_t = std::pair<uint32_t, uint32_t>; /* Rule ID, Domain ID */

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
    const fwx_nat64_mapt_bmr_t bmr_ = rule(1, 2);
};

}  // namespace

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

TEST_F(rule_table_test_t, null_arguments_are_refused_and_told) {
    EXPECT_EQ(fwx_mapt_plu_add_pending_rule(nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(logged.back(), "error: \nfwx_mapt_plu_add_pending_rule: BMR is NULL");
    EXPECT_EQ(fwx_mapt_tbm_plu_leaf_contents_func_t_v2(nullptr, nullptr, nullptr, nullptr), 1u);
    EXPECT_EQ(logged.back(), "error: \nfwx_mapt_tbm_plu_leaf_contents_func_t_v2: buffer((nil)) app_handle((nil))");
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(fwx_mapt_plu_del_rule(nullptr), FWX_NAT64_ERR_INVALID);
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
        if (any(200) == 0) {
            fwx_mapt_plu_cleanup();
            reference = {};
            table_exists = false;
        } else if (step % 3 == 0) {
            ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&r), reference.add(r));
            table_exists = true;
        } else if (step % 3 == 1) {
            ASSERT_EQ(fwx_mapt_plu_add_rule(answer(key.first, key.second, any(1000)).data()),
                      reference.reply(key, table_exists));
        } else {
            ASSERT_EQ(fwx_mapt_plu_del_rule(&r), reference.del(key));
        }
        ASSERT_EQ(live().pool_elements, reference.pending.size() + reference.installed.size());
        ASSERT_EQ(leaves(), reference.v4.size() + reference.v6.size());
        const uint64_t complex_record = fwx_host_memory_blocks_tag(96) - leaves();
        ASSERT_LE(complex_record, 1u);
    }
}

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
