/* Every operation that can be made to fail: the armed call fails with the code or with null, the calls around it work.
 */
#include <functional>
#include <map>
#include <string>

#include "host_fixture.h"
#include "platform/cgm.h"
#include "platform/runtime.h"
#include "platform/smc.h"
#include "platform/tbm.h"

namespace {

constexpr uint32_t code = 0x7777;
constexpr uint32_t null_returned = 1; /* what a case reports when the operation returned null */

uint32_t leaf_contents(void *, void *, void *, void *) {
    return 0;
}
uint32_t ignore_notice(uint32_t, void **, uint32_t, uint32_t, void *, void *) {
    return 0;
}

/** Things for the operations to work on. */
struct world_t {
    world_t() {
        fwx_list_init(&list, 1);
        fwx_list_insert_tail(list, &listed);
        fwx_cl_hash_create("faults", 2, 3, nullptr, nullptr, &table);
        fwx_cl_hash_add(table, 1, this);
        pool = chunk_create("faults", 32, 4, 1, 4, 0);
        loop = fwx_host_loop_create();
        event = reinterpret_cast<smc_event_t>(loop);
        fwx_host_server_register("faults", loop, &ops, nullptr, &server);
        smc_msg_chan_open("faults", event, 0, nullptr, &chan);
        smc_msg_tx_buffer_alloc(16, &msg);
        uint32_t result = 0;
        tree = make_tree(1, &result);
        const uint32_t leaf_size = tbm_get_leaf_size(tree, &result);
        leaf = static_cast<tbm_leaf_t *>(fwx_calloc_named(96, 1, leaf_size + 16));
        tbm_leaf_init(tree, leaf, leaf_key, 8, &result);
    }
    world_t(const world_t &) = delete;
    world_t &operator=(const world_t &) = delete;

    ~world_t() {
        uint32_t result = 0;
        if (tbm_exact_match(tree, leaf_key, 8, &result) != nullptr) tbm_leaf_delete(tree, leaf, &result);
        fwx_free_named(leaf);
        smc_msg_tx_buffer_free(msg);
        fwx_host_server_unregister(server);
        fwx_host_loop_destroy(loop);
        chunk_destroy(pool);
        fwx_cl_hash_destroy(table, 1);
        fwx_list_destroy(list);
    }

    /** An empty tree of the same complex is reclaimed by this. */
    static tbm_t *make_tree(uint32_t complex_mask, uint32_t *result) {
        static const uint32_t strides[] = {4, 4};
        return tbm_init_v4(0, 0, 2, complex_mask, strides, 0, 0, nullptr, leaf_contents, nullptr, 8, nullptr, result);
    }

    static constexpr uint8_t leaf_key[] = {0xc0};
    static inline const fwx_host_server_ops_t ops = {
        nullptr, nullptr, [](void *, fwx_host_peer_t *, const void *, size_t) {},
        [](void *, fwx_host_peer_t *, const void *, size_t, void *, size_t) -> size_t { return 1; }};

    fwx_list_t *list = nullptr;
    fwx_list_link_t listed{}, unlisted{};
    fwx_cl_hash_t *table = nullptr;
    fwx_chunk_t *pool = nullptr;
    fwx_host_loop_t *loop = nullptr;
    fwx_host_server_t *server = nullptr;
    smc_event_t event = 0;
    smc_chan_t chan = 0;
    void *msg = nullptr;
    tbm_t *tree = nullptr;
    tbm_leaf_t *leaf = nullptr;
};

uint32_t status_of_send(world_t &world) {
    void *msg = nullptr;
    uint32_t status = 0;
    static uint32_t seen;
    smc_msg_tx_buffer_alloc(16, &msg);
    const auto note = [](void *cookie, void *, uint32_t its_status) {
        seen = its_status;
        smc_msg_tx_buffer_free(cookie);
    };
    status = smc_async_msg_sends(world.chan, msg, msg, 16, note);
    if (status != 0) {
        smc_msg_tx_buffer_free(msg);
        return status;
    }
    fwx_host_loop_run_until_idle(world.loop);
    return seen;
}

/** Calls an operation once and returns its code; undoes what it did. */
using call_t = uint32_t (*)(world_t &);

const std::map<fwx_host_op_t, call_t> calls = {
    {FWX_HOST_OP_CALLOC,
     [](world_t &) {
         void *block = fwx_calloc_named(1, 1, 8);
         fwx_free_named(block);
         return block == nullptr ? null_returned : 0;
     }},
    {FWX_HOST_OP_LIST_INIT,
     [](world_t &) {
         fwx_list_t *list = nullptr;
         const uint32_t result = fwx_list_init(&list, 1);
         if (result == 0) fwx_list_destroy(list);
         return result;
     }},
    {FWX_HOST_OP_LIST_HEAD,
     [](world_t &world) {
         void *head = nullptr;
         return fwx_list_head(world.list, &head);
     }},
    {FWX_HOST_OP_LIST_INSERT_TAIL,
     [](world_t &world) {
         const uint32_t result = fwx_list_insert_tail(world.list, &world.unlisted);
         if (result == 0) fwx_list_remove_element(world.list, &world.unlisted);
         return result;
     }},
    {FWX_HOST_OP_LIST_REMOVE,
     [](world_t &world) {
         const uint32_t result = fwx_list_remove_element(world.list, &world.listed);
         fwx_list_insert_tail(world.list, &world.listed);
         return result;
     }},
    {FWX_HOST_OP_LIST_DESTROY,
     [](world_t &) {
         fwx_list_t *list = nullptr;
         fwx_list_init(&list, 1);
         return fwx_list_destroy(list);
     }},
    {FWX_HOST_OP_HASH_CREATE,
     [](world_t &) {
         fwx_cl_hash_t *table = nullptr;
         const uint32_t result = fwx_cl_hash_create("fault", 2, 3, nullptr, nullptr, &table);
         if (result == 0) fwx_cl_hash_destroy(table, 1);
         return result;
     }},
    {FWX_HOST_OP_HASH_ADD,
     [](world_t &world) {
         const uint32_t result = fwx_cl_hash_add(world.table, 2, &world);
         if (result == 0) fwx_cl_hash_delete(world.table, 2);
         return result;
     }},
    {FWX_HOST_OP_HASH_DELETE,
     [](world_t &world) {
         const uint32_t result = fwx_cl_hash_delete(world.table, 1);
         const bool is_kept = fwx_cl_hash_find(world.table, 1) != nullptr;
         EXPECT_EQ(is_kept, result != 0);
         if (!is_kept) fwx_cl_hash_add(world.table, 1, &world);
         return result;
     }},
    {FWX_HOST_OP_HASH_DESTROY,
     [](world_t &) {
         fwx_cl_hash_t *table = nullptr;
         fwx_cl_hash_create("fault", 2, 3, nullptr, nullptr, &table);
         return fwx_cl_hash_destroy(table, 1);
     }},
    {FWX_HOST_OP_CHUNK_CREATE,
     [](world_t &) {
         fwx_chunk_t *pool = chunk_create("fault", 32, 4, 1, 4, 0);
         chunk_destroy(pool);
         return pool == nullptr ? null_returned : 0;
     }},
    {FWX_HOST_OP_FWX_CHUNK_CREATE,
     [](world_t &) {
         fwx_chunk_t *pool = fwx_chunk_create("fault", 32, 4, 257, 4, 0);
         fwx_chunk_destroy(pool);
         return pool == nullptr ? null_returned : 0;
     }},
    {FWX_HOST_OP_CHUNK_MALLOC,
     [](world_t &world) {
         void *element = chunk_malloc(world.pool);
         chunk_free(world.pool, element);
         return element == nullptr ? null_returned : 0;
     }},
    {FWX_HOST_OP_EVENT_TO_SMC,
     [](world_t &world) {
         smc_event_t event = 0;
         return fwx_event_context_to_smc(world.loop, &event);
     }},
    {FWX_HOST_OP_EVENT_CREATE,
     [](world_t &world) {
         void *context = nullptr;
         const uint32_t result = fwx_event_context_create(&world.event, &context);
         fwx_free_named(context);
         return result;
     }},
    {FWX_HOST_OP_CHAN_OPEN,
     [](world_t &world) {
         smc_chan_t chan = 0;
         const uint32_t result = smc_msg_chan_open("faults", world.event, 0, nullptr, &chan);
         if (result == 0) smc_msg_chan_close(&chan);
         return result;
     }},
    {FWX_HOST_OP_CHAN_CLOSE,
     [](world_t &world) {
         smc_chan_t chan = 0;
         smc_msg_chan_open("faults", world.event, 0, nullptr, &chan);
         return smc_msg_chan_close(&chan);
     }},
    {FWX_HOST_OP_FC_SET, [](world_t &world) { return smc_msg_chan_fc_set(world.chan, nullptr, 64, 16, nullptr); }},
    {FWX_HOST_OP_RX_BUFFER_SET, [](world_t &world) { return smc_msg_rx_buffer_set(world.chan, nullptr, 0, nullptr); }},
    {FWX_HOST_OP_HANDLER_ATTACH,
     [](world_t &world) {
         const uint16_t key[] = {0xc000, 96};
         return smc_msg_handler_attach(
             world.chan, key, [](void *, void *, void *, size_t) {}, 0, 0xc000, 96);
     }},
    {FWX_HOST_OP_TX_ALLOC,
     [](world_t &) {
         void *msg = nullptr;
         const uint32_t result = smc_msg_tx_buffer_alloc(16, &msg);
         smc_msg_tx_buffer_free(msg);
         return result;
     }},
    {FWX_HOST_OP_ASYNC_SEND, status_of_send},
    {FWX_HOST_OP_SEND_DONE, status_of_send},
    {FWX_HOST_OP_SYNC_SEND,
     [](world_t &world) {
         char reply[4];
         return smc_sync_msg_send(world.chan, world.msg, 16, reply, sizeof(reply));
     }},
    {FWX_HOST_OP_CGM_REGISTER,
     [](world_t &) {
         const cgm_client_reg_t reg{ignore_notice, 21, 0};
         return cgm_int_register_client(21, &reg);
     }},
    {FWX_HOST_OP_TBM_INIT,
     [](world_t &) {
         uint32_t result = 0;
         tbm_t *tree = world_t::make_tree(2, &result);
         EXPECT_EQ(tree == nullptr, result != 0);
         return result;
     }},
    {FWX_HOST_OP_TBM_LEAF_SIZE,
     [](world_t &world) {
         uint32_t result = 0;
         tbm_get_leaf_size(world.tree, &result);
         return result;
     }},
    {FWX_HOST_OP_TBM_EXACT_MATCH,
     [](world_t &world) {
         uint32_t result = 0;
         tbm_leaf_insert(world.tree, world.leaf, &result);
         tbm_exact_match(world.tree, world_t::leaf_key, 8, &result);
         return result;
     }},
    {FWX_HOST_OP_TBM_LEAF_INIT,
     [](world_t &world) {
         uint32_t result = 0;
         tbm_leaf_init(world.tree, world.leaf, world_t::leaf_key, 8, &result);
         return result;
     }},
    {FWX_HOST_OP_TBM_LEAF_INSERT,
     [](world_t &world) {
         uint32_t result = 0;
         uint32_t undone = 0;
         tbm_leaf_insert(world.tree, world.leaf, &result);
         if (result == 0) tbm_leaf_delete(world.tree, world.leaf, &undone);
         return result;
     }},
    {FWX_HOST_OP_TBM_LEAF_DELETE,
     [](world_t &world) {
         uint32_t result = 0;
         tbm_leaf_insert(world.tree, world.leaf, &result);
         tbm_leaf_delete(world.tree, world.leaf, &result);
         return result;
     }},
    {FWX_HOST_OP_TBM_FIRST_LEAF,
     [](world_t &world) {
         uint32_t result = 0;
         tbm_first_leaf(world.tree, world_t::leaf_key, 0, &result);
         return result;
     }},
};

class fault_t : public host_fixture_t, public testing::WithParamInterface<int> {};

TEST_P(fault_t, strikes_the_call_that_it_was_armed_for_and_no_other) {
    const auto op = static_cast<fwx_host_op_t>(GetParam());
    const auto call = calls.find(op);
    ASSERT_NE(call, calls.end());
    world_t world;
    fwx_host_fault_reset();
    ASSERT_EQ(call->second(world), 0u);
    EXPECT_EQ(fwx_host_fault_calls(op), 1u);
    fwx_host_fault_arm(op, 2, code);
    EXPECT_EQ(call->second(world), 0u);
    const uint32_t failed = call->second(world);
    EXPECT_TRUE(failed == code || failed == null_returned) << failed;
    EXPECT_EQ(call->second(world), 0u);
    EXPECT_EQ(fwx_host_fault_calls(op), 4u);
}

INSTANTIATE_TEST_SUITE_P(operations, fault_t, testing::Range(0, static_cast<int>(FWX_HOST_OP_COUNT)),
                         [](const auto &tested) {
                             std::string name = fwx_host_op_name(static_cast<fwx_host_op_t>(tested.param));
                             for (char &letter : name) {
                                 letter = letter == ' ' ? '_' : letter;
                             }
                             return name;
                         });

using faults_t = host_fixture_t;

TEST_F(faults_t, a_fault_without_a_code_has_one_of_its_own_and_can_be_disarmed) {
    void *head = nullptr;
    fwx_host_fault_arm(FWX_HOST_OP_LIST_HEAD, 1, 0);
    EXPECT_EQ(fwx_list_head(nullptr, &head), FWX_HOST_ERR_FAULT);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_HEAD, 1, 0);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_HEAD, 0, 0);
    EXPECT_EQ(fwx_list_head(nullptr, &head), FWX_HOST_ERR_BAD_ARG);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_HEAD, 1, 0);
    fwx_host_fault_reset();
    EXPECT_EQ(fwx_list_head(nullptr, &head), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(fwx_host_fault_calls(FWX_HOST_OP_LIST_HEAD), 1u);
}

TEST_F(faults_t, a_number_that_is_no_operation_is_harmless) {
    fwx_host_fault_arm(FWX_HOST_OP_COUNT, 1, code);
    EXPECT_EQ(fwx_host_fault_calls(FWX_HOST_OP_COUNT), 0u);
    EXPECT_STREQ(fwx_host_op_name(FWX_HOST_OP_COUNT), "no operation");
}

}  // namespace
