/* Invalid arguments to the platform's operations. Each operation returns a code or null, and has no effect. */
#include "host_fixture.h"
#include "platform/cgm.h"
#include "platform/runtime.h"
#include "platform/smc.h"
#include "tests/support/checked_tree.h"
#include "tests/support/zero_server.h"

namespace {

using arguments_t = host_fixture_t;
using codes_t = std::vector<uint32_t>;

constexpr uint8_t zero_key[9] = {};

/** Calls a tree operation and returns the code that it writes through its last argument, which may also be null. */
template <typename operation_t, typename... args_t>
uint32_t code_of(operation_t operation, args_t... args) {
    uint32_t code = 0;
    operation(args..., &code);
    operation(args..., nullptr);
    return code;
}

TEST_F(arguments_t, that_are_invalid_are_refused_by_lists_tables_loops_and_registrations) {
    const cgm_client_reg_t empty = {nullptr, 7, 0};
    const cgm_client_reg_t other = {[](uint32_t, void **, uint32_t, uint32_t, void *, void *) { return 0u; }, 9, 0};
    fwx_cl_hash_t *table = nullptr;
    const fwx_host_fn_t no_effect = [](void *) {};
    uint64_t cell = 0;
    void *made = nullptr;
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_server_t *server = nullptr;
    fwx_host_server_ops_t deaf = zero_server_ops;
    deaf.received = nullptr;
    fwx_host_server_ops_t mute = zero_server_ops;
    mute.asked = nullptr;
    const codes_t codes = {
        fwx_host_server_register("bad", loop, &deaf, nullptr, &server),
        fwx_host_server_register("bad", loop, &mute, nullptr, &server),
        fwx_list_init(nullptr, 1),
        fwx_list_head(nullptr, &made),
        fwx_list_insert_tail(nullptr, &cell),
        fwx_list_remove_element(nullptr, &cell),
        fwx_list_destroy(nullptr),
        fwx_cl_hash_create("bad", 31, 3, nullptr, nullptr, &table),
        fwx_cl_hash_create("bad", 10, 3, &cell, nullptr, &table),
        fwx_cl_hash_create("bad", 10, 3, nullptr, nullptr, nullptr),
        fwx_cl_hash_add(nullptr, 1, &cell),
        fwx_cl_hash_delete(nullptr, 1),
        fwx_cl_hash_destroy(nullptr, 1),
        fwx_event_context_to_smc(nullptr, &cell),
        fwx_event_context_create(nullptr, &made),
        fwx_host_loop_watch(nullptr, 0, no_effect, nullptr),
        cgm_int_register_client(7, nullptr),
        cgm_int_register_client(7, &empty),
        cgm_int_register_client(7, &other),
    };
    EXPECT_EQ(codes, codes_t(codes.size(), FWX_HOST_ERR_BAD_ARG));
    fwx_host_loop_destroy(loop);
    fwx_host_timer_cancel(nullptr, 1);
    fwx_host_loop_unwatch(nullptr, 0);
    EXPECT_EQ(fwx_host_timer_add(nullptr, 0, no_effect, nullptr), 0u);
    EXPECT_EQ(fwx_host_loop_run_once(nullptr, -1) + fwx_host_loop_run_until_idle(nullptr), 0u);
    EXPECT_EQ(fwx_host_cgm_notify(7, 1, nullptr, 0, 0, nullptr), FWX_HOST_ERR_NO_CLIENT);
}

TEST_F(arguments_t, that_are_invalid_give_no_memory_and_no_pool) {
    const std::vector<void *> made = {fwx_calloc_named(1, SIZE_MAX / 2, 3), fwx_calloc_named(1, 1, SIZE_MAX),
                                      chunk_create("empty", 0, 4, 1, 4, 0), chunk_create("empty", 40, 0, 1, 4, 0),
                                      chunk_malloc(nullptr)};
    EXPECT_EQ(made, std::vector<void *>(made.size(), nullptr));
}

TEST_F(arguments_t, that_are_invalid_are_refused_by_trees) {
    const std::vector<uint32_t> strides = {6, 6};
    tbm_t *tree = make_tree(strides, 12, 1, nullptr);
    alignas(16) uint8_t memory[256] = {};
    auto *leaf = reinterpret_cast<tbm_leaf_t *>(memory);
    auto *shifted = reinterpret_cast<tbm_leaf_t *>(memory + 1);
    tbm_leaf_init(tree, leaf, zero_key, 12, nullptr);
    const auto init = [&](const uint32_t *map, uint16_t slots, uint32_t bits, tbm_leaf_contents_fn_t contents) {
        uint32_t code = 0;
        tbm_init_v4(7, 6, slots, 2, map, 1, 0, nullptr, contents, nullptr, bits, nullptr, &code);
        return code;
    };
    tbm_t *const none = nullptr;
    const uint8_t *const no_key = nullptr;
    const uint32_t too_wide[] = {6, 7};
    const uint32_t gap[] = {6, 0, 6};
    fwx_host_tbm_counts_get(tree, nullptr);
    const codes_t codes = {
        init(too_wide, 2, 8, give_leaf_contents),
        init(gap, 3, 8, give_leaf_contents),
        init(strides.data(), 2, 13, give_leaf_contents),
        init(strides.data(), 0, 1, give_leaf_contents),
        init(strides.data(), 2, 12, nullptr),
        code_of(tbm_get_leaf_size, none),
        code_of(tbm_exact_match, none, zero_key, 0u),
        code_of(tbm_exact_match, tree, no_key, 0u),
        code_of(tbm_exact_match, tree, zero_key, 13u),
        code_of(tbm_first_leaf, none, zero_key, 0u),
        code_of(tbm_first_leaf, tree, zero_key, 1u),
        code_of(tbm_leaf_init, none, leaf, zero_key, 1u),
        code_of(tbm_leaf_init, tree, shifted, zero_key, 1u),
        code_of(tbm_leaf_init, tree, leaf, zero_key, 13u),
        code_of(tbm_leaf_insert, none, leaf),
        code_of(tbm_leaf_insert, tree, shifted),
        code_of(tbm_leaf_delete, none, leaf),
        code_of(tbm_leaf_delete, tree, shifted),
    };
    EXPECT_EQ(fwx_host_tbm_longest_match(none, zero_key, 0, nullptr), nullptr);
    EXPECT_EQ(fwx_host_tbm_longest_match(tree, zero_key, 13, nullptr), nullptr);
    EXPECT_EQ(codes, codes_t(codes.size(), FWX_HOST_ERR_BAD_ARG));
    EXPECT_EQ(code_of(tbm_leaf_delete, tree, leaf), FWX_HOST_ERR_NO_KEY);
}

}  // namespace
