/* Every operation that can be made to fail: the armed call fails with the code or with null, the calls around it work.
 */
#include <deque>
#include <map>
#include <string>
#include <utility>

#include "platform/cgm.h"
#include "platform/runtime.h"
#include "platform/smc.h"
#include "tests/support/zero_server.h"
#include "tree_bitmap_fixture.h"

namespace {

constexpr uint32_t code = 0x7777;
constexpr uint32_t null_returned = 1; /* what a call reports when the operation returned null */
constexpr uint32_t unprepared = 2;    /* what a call reports that found nothing to work on */
constexpr uint16_t handler_key[] = {0xc000, 96};
constexpr uint8_t leaf_keys[] = {0, 1, 2, 3, 4, 5, 6, 7};

uint32_t ignore_notice(uint32_t, void **, uint32_t, uint32_t, void *, void *) {
    return 0;
}
void ignore_message(void *, void *, void *, size_t) {}

constexpr cgm_client_reg_t cgm_client{ignore_notice, 21, 0};

const std::vector<uint32_t> strides = {4, 4};

/** Things for the operations to work on, and a place for what they make. */
struct world_t {
    world_t() {
        new_list();
        new_table();
        fwx_host_server_register("faults", loop, &zero_server_ops, nullptr, &server);
        new_channel();
        new_buffer();
        new_leaf(true);
        leaf = new_leaf(false);
    }
    world_t(const world_t &) = delete;
    world_t &operator=(const world_t &) = delete;

    ~world_t() {
        for (tbm_leaf_t *made : leaves) {
            tbm_leaf_delete(tree, made, nullptr);
            fwx_free_named(made);
        }
        for (void *made : contexts) {
            fwx_free_named(made);
        }
        for (void *made : buffers) {
            smc_msg_tx_buffer_free(made);
        }
        fwx_host_server_unregister(server);
        fwx_host_loop_destroy(loop); /* with its channels */
        chunk_destroy(pool);
        for (fwx_cl_hash_t *made : tables) {
            fwx_cl_hash_destroy(made, 1);
        }
        for (fwx_list_t *made : lists) {
            fwx_list_destroy(made);
        }
    }

    uint32_t new_list() { return fwx_list_init(&lists.emplace_back(), 1); }
    uint32_t new_table() { return fwx_cl_hash_create("fault", 2, 3, nullptr, nullptr, &tables.emplace_back()); }
    uint32_t new_channel() { return smc_msg_chan_open("faults", event, 0, nullptr, &chans.emplace_back()); }
    uint32_t new_buffer() { return smc_msg_tx_buffer_alloc(16, &buffers.emplace_back()); }
    uint32_t new_listed() { return fwx_list_insert_tail(lists[0], &links.emplace_back()); }
    uint32_t new_key() { return fwx_cl_hash_add(tables[0], ++last_key, this); }
    tbm_leaf_t *new_leaf(bool is_inserted) {
        const uint32_t leaf_size = tbm_get_leaf_size(tree, nullptr);
        leaves.push_back(static_cast<tbm_leaf_t *>(fwx_calloc_named(96, 1, leaf_size + 16)));
        tbm_leaf_init(tree, leaves.back(), &leaf_keys[leaves.size() - 1], 8, nullptr);
        if (is_inserted) tbm_leaf_insert(tree, leaves.back(), nullptr);
        return leaves.back();
    }

    std::deque<fwx_list_t *> lists;
    std::deque<fwx_list_link_t> links;
    std::deque<fwx_cl_hash_t *> tables;
    std::deque<smc_chan_t> chans;
    std::deque<void *> buffers;
    std::deque<void *> contexts;
    std::deque<tbm_leaf_t *> leaves;
    uint64_t last_key = 0;
    fwx_chunk_t *pool = chunk_create("faults", 32, 4, 1, 4, 0);
    fwx_host_loop_t *loop = fwx_host_loop_create();
    smc_event_t event = reinterpret_cast<smc_event_t>(loop);
    fwx_host_server_t *server = nullptr;
    tbm_t *tree = make_tree(strides, 8, 1, nullptr);
    tbm_leaf_t *leaf = nullptr; /* on no tree */
    void *head = nullptr;
    char reply[4] = {};
};

uint32_t status_of_send(world_t &world) {
    static uint32_t status;
    void *msg = nullptr;
    smc_msg_tx_buffer_alloc(16, &msg);
    const auto note = [](void *cookie, void *, uint32_t its_status) {
        status = its_status;
        smc_msg_tx_buffer_free(cookie);
    };
    const uint32_t refusal = smc_async_msg_sends(world.chans[0], msg, msg, 16, note);
    if (refusal != 0) smc_msg_tx_buffer_free(msg);
    fwx_host_loop_run_until_idle(world.loop);
    return refusal != 0 ? refusal : status;
}

/** Gives back what an operation returned, and tells whether that was null. */
template <typename made_t, typename free_t>
uint32_t made_of(made_t *made, free_t give_back) {
    give_back(made);
    return made == nullptr ? null_returned : 0;
}

/** Calls an operation once and returns its code. */
using call_t = uint32_t (*)(world_t &);

const std::map<fwx_host_op_t, call_t> calls = {
    {FWX_HOST_OP_CALLOC, [](world_t &) { return made_of(fwx_calloc_named(1, 1, 8), fwx_free_named); }},
    {FWX_HOST_OP_LIST_INIT, [](world_t &w) { return w.new_list(); }},
    {FWX_HOST_OP_LIST_HEAD, [](world_t &w) { return fwx_list_head(w.lists[0], &w.head); }},
    {FWX_HOST_OP_LIST_INSERT_TAIL, [](world_t &w) { return w.new_listed(); }},
    {FWX_HOST_OP_LIST_REMOVE,
     [](world_t &w) {
         return w.new_listed() != 0 ? unprepared : fwx_list_remove_element(w.lists[0], &w.links.back());
     }},
    {FWX_HOST_OP_LIST_DESTROY,
     [](world_t &w) {
         return w.new_list() != 0 ? unprepared : fwx_list_destroy(std::exchange(w.lists.back(), nullptr));
     }},
    {FWX_HOST_OP_HASH_CREATE, [](world_t &w) { return w.new_table(); }},
    {FWX_HOST_OP_HASH_ADD, [](world_t &w) { return w.new_key(); }},
    {FWX_HOST_OP_HASH_DELETE,
     [](world_t &w) { return w.new_key() != 0 ? unprepared : fwx_cl_hash_delete(w.tables[0], w.last_key); }},
    {FWX_HOST_OP_HASH_DESTROY,
     [](world_t &w) {
         return w.new_table() != 0 ? unprepared : fwx_cl_hash_destroy(std::exchange(w.tables.back(), nullptr), 1);
     }},
    {FWX_HOST_OP_CHUNK_CREATE, [](world_t &) { return made_of(chunk_create("fault", 32, 4, 1, 4, 0), chunk_destroy); }},
    {FWX_HOST_OP_FWX_CHUNK_CREATE,
     [](world_t &) { return made_of(fwx_chunk_create("fault", 32, 4, 257, 4, 0), fwx_chunk_destroy); }},
    {FWX_HOST_OP_CHUNK_MALLOC,
     [](world_t &w) { return made_of(chunk_malloc(w.pool), [&](void *element) { chunk_free(w.pool, element); }); }},
    {FWX_HOST_OP_EVENT_TO_SMC, [](world_t &w) { return fwx_event_context_to_smc(w.loop, &w.event); }},
    {FWX_HOST_OP_EVENT_CREATE,
     [](world_t &w) { return fwx_event_context_create(&w.event, &w.contexts.emplace_back()); }},
    {FWX_HOST_OP_CHAN_OPEN, [](world_t &w) { return w.new_channel(); }},
    {FWX_HOST_OP_CHAN_CLOSE,
     [](world_t &w) { return w.new_channel() != 0 ? unprepared : smc_msg_chan_close(&w.chans.back()); }},
    {FWX_HOST_OP_FC_SET, [](world_t &w) { return smc_msg_chan_fc_set(w.chans[0], nullptr, 64, 16, nullptr); }},
    {FWX_HOST_OP_RX_BUFFER_SET, [](world_t &w) { return smc_msg_rx_buffer_set(w.chans[0], nullptr, 0, nullptr); }},
    {FWX_HOST_OP_HANDLER_ATTACH,
     [](world_t &w) { return smc_msg_handler_attach(w.chans[0], handler_key, ignore_message, 0, 0xc000, 96); }},
    {FWX_HOST_OP_TX_ALLOC, [](world_t &w) { return w.new_buffer(); }},
    {FWX_HOST_OP_ASYNC_SEND, status_of_send},
    {FWX_HOST_OP_SEND_DONE, status_of_send},
    {FWX_HOST_OP_SYNC_SEND,
     [](world_t &w) { return smc_sync_msg_send(w.chans[0], w.buffers[0], 16, w.reply, sizeof(w.reply)); }},
    {FWX_HOST_OP_CGM_REGISTER, [](world_t &) { return cgm_int_register_client(21, &cgm_client); }},
    {FWX_HOST_OP_TBM_INIT, [](world_t &) { return code_of(make_tree, strides, 8U, 2U); }},
    {FWX_HOST_OP_TBM_LEAF_SIZE, [](world_t &w) { return code_of(tbm_get_leaf_size, w.tree); }},
    {FWX_HOST_OP_TBM_EXACT_MATCH, [](world_t &w) { return code_of(tbm_exact_match, w.tree, leaf_keys, 8U); }},
    {FWX_HOST_OP_TBM_LEAF_INIT, [](world_t &w) { return code_of(tbm_leaf_init, w.tree, w.leaf, leaf_keys, 8U); }},
    {FWX_HOST_OP_TBM_LEAF_INSERT, [](world_t &w) { return code_of(tbm_leaf_insert, w.tree, w.new_leaf(false)); }},
    {FWX_HOST_OP_TBM_LEAF_DELETE, [](world_t &w) { return code_of(tbm_leaf_delete, w.tree, w.new_leaf(true)); }},
    {FWX_HOST_OP_TBM_FIRST_LEAF, [](world_t &w) { return code_of(tbm_first_leaf, w.tree, leaf_keys, 0U); }},
};

using fault_t = host_fixture_t;

TEST_F(fault_t, strikes_the_call_that_it_was_armed_for_and_no_other) {
    for (int number = 0; number < FWX_HOST_OP_COUNT; ++number) {
        const auto op = static_cast<fwx_host_op_t>(number);
        SCOPED_TRACE(fwx_host_op_name(op));
        const call_t call = calls.at(op);
        world_t world;
        fwx_host_fault_reset();
        EXPECT_EQ(call(world), 0u);
        EXPECT_EQ(fwx_host_fault_calls(op), 1u);
        fwx_host_fault_arm(op, 2, code);
        EXPECT_EQ(call(world), 0u);
        const uint32_t failed = call(world);
        EXPECT_TRUE(failed == code || failed == null_returned) << failed;
        EXPECT_EQ(call(world), 0u);
        EXPECT_EQ(fwx_host_fault_calls(op), 4u);
    }
}

TEST_F(fault_t, a_fault_without_a_code_has_one_of_its_own_and_can_be_disarmed) {
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

TEST_F(fault_t, a_number_that_is_no_operation_is_harmless) {
    fwx_host_fault_arm(FWX_HOST_OP_COUNT, 1, code);
    EXPECT_EQ(fwx_host_fault_calls(FWX_HOST_OP_COUNT), 0u);
    EXPECT_STREQ(fwx_host_op_name(FWX_HOST_OP_COUNT), "no operation");
}

}  // namespace
