/*
 * What the library guards itself against though no PAL can bring it about: its hidden functions are called here as only
 * a fault in another part of it would call them, and one of them is made to fail.
 */
#include "library_fixture.h"
#include "mapt/plu.h"
#include "platform/smc.h"
#include "transport/handler_table.h"

namespace {

uint32_t stride_map_failure;
smc_send_done_fn_t last_done_fn;
smc_chan_err_fn_t last_err_fn;
smc_rx_buffer_fn_t last_rx_fn;
std::function<void()> on_send; /* what happens inside a hand-over, which this platform does not let happen */

}  // namespace

/* The linker has the library call these instead of the function and the platform's operation. */
uint32_t real_stride_map(uint32_t *map) asm("__real__Z28fwx_mapt_plu_init_stride_mapPj");
uint32_t wrapped_stride_map(uint32_t *map) asm("__wrap__Z28fwx_mapt_plu_init_stride_mapPj");
uint32_t wrapped_stride_map(uint32_t *map) {
    return stride_map_failure != 0 ? stride_map_failure : real_stride_map(map);
}

uint32_t real_send(smc_chan_t chan, void *msg, void *cookie, size_t size,
                   smc_send_done_fn_t done_fn) asm("__real_smc_async_msg_sends");
uint32_t wrapped_send(smc_chan_t chan, void *msg, void *cookie, size_t size,
                      smc_send_done_fn_t done_fn) asm("__wrap_smc_async_msg_sends");
uint32_t wrapped_send(smc_chan_t chan, void *msg, void *cookie, size_t size, smc_send_done_fn_t done_fn) {
    last_done_fn = done_fn;
    const uint32_t rc = real_send(chan, msg, cookie, size, done_fn);
    if (on_send) on_send();
    return rc;
}

uint32_t real_open(const char *name, smc_event_t ev, uint32_t arg3, smc_chan_err_fn_t err_fn,
                   smc_chan_t *chan) asm("__real_smc_msg_chan_open");
uint32_t wrapped_open(const char *name, smc_event_t ev, uint32_t arg3, smc_chan_err_fn_t err_fn,
                      smc_chan_t *chan) asm("__wrap_smc_msg_chan_open");
uint32_t wrapped_open(const char *name, smc_event_t ev, uint32_t arg3, smc_chan_err_fn_t err_fn, smc_chan_t *chan) {
    last_err_fn = err_fn;
    return real_open(name, ev, arg3, err_fn, chan);
}

uint32_t real_rx_buffer_set(smc_chan_t chan, void *buf, size_t size,
                            smc_rx_buffer_fn_t rx_fn) asm("__real_smc_msg_rx_buffer_set");
uint32_t wrapped_rx_buffer_set(smc_chan_t chan, void *buf, size_t size,
                               smc_rx_buffer_fn_t rx_fn) asm("__wrap_smc_msg_rx_buffer_set");
uint32_t wrapped_rx_buffer_set(smc_chan_t chan, void *buf, size_t size, smc_rx_buffer_fn_t rx_fn) {
    last_rx_fn = rx_fn;
    return real_rx_buffer_set(chan, buf, size, rx_fn);
}

namespace {

constexpr uint32_t no_memory = 12;
constexpr uint32_t exists = 17;
constexpr uint32_t invalid = 22;

class guard_test_t : public library_fixture_t {
protected:
    void SetUp() override {
        library_fixture_t::SetUp();
        plu.tbm_info = {};
        stride_map_failure = 0;
        on_send = nullptr;
    }

    void install(fwx_nat64_mapt_bmr_t &bmr) {
        ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr), 0u);
        fwx_nat64_mapt_reply_t reply{};
        reply.rule_id = bmr.rule_id;
        reply.domain_id = bmr.domain_id;
        ASSERT_EQ(fwx_mapt_plu_add_rule(&reply), 0u);
    }

    fwx_nat64_mapt_bmr_t bmr_ = {1, 2, {0x20, 0x01, 0x0d, 0xb8}, 32, {192, 0, 2, 0}, 24, {}};
    tbm_t *tree_ = nullptr;
};

TEST_F(guard_test_t, a_rule_table_that_cannot_be_initialised_fails_the_bind_and_leaves_it_bound) {
    stride_map_failure = 0x77;
    EXPECT_EQ(bind(), 0x77u);
    EXPECT_NE(info(), nullptr);
    EXPECT_TRUE(
        logged_line("error: \nfwx_mapt_plu_init: failed to initialize stride map " + std::string(xerr_strerror(0x77))));
    EXPECT_TRUE(
        logged_line("error: \nfwx_nat64_bind_cmn: PLU initialization failed: " + std::string(xerr_strerror(0x77))));
    EXPECT_EQ(fwx_mapt_plu_create_tbm(0, &tree_), invalid) << "the parameters of the tree are not there";
    stride_map_failure = 0;
    EXPECT_EQ(fwx_mapt_plu_init_stride_map(nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(fwx_mapt_plu_init_tbm_info(nullptr), invalid);
}

TEST_F(guard_test_t, no_rule_is_no_pending_rule) {
    EXPECT_EQ(fwx_mapt_plu_add_pending_rule(nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(logged.back(), "error: \nfwx_mapt_plu_add_pending_rule: BMR is NULL");
}

TEST_F(guard_test_t, a_clean_up_tells_when_it_cannot_look_for_more_leaves) {
    ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    install(bmr_);
    fwx_host_fault_arm(FWX_HOST_OP_TBM_FIRST_LEAF, 3, 0x77); /* behind its two leaves */
    fwx_mapt_plu_cleanup();
    EXPECT_TRUE(logged_line("error: \nfwx_mapt_plu_cleanup: error reading PLU for  complex 0 rc(" +
                            std::string(xerr_strerror(0x77)) + ")"));
}

TEST_F(guard_test_t, a_rule_without_initialised_trees_stays_installed_without_leaves) {
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr_), 0u);
    fwx_nat64_mapt_reply_t reply{};
    reply.rule_id = 1;
    reply.domain_id = 2;
    EXPECT_EQ(fwx_mapt_pending_rule_hash_elem_exists(1, 2), 1u);
    EXPECT_EQ(fwx_mapt_rule_hash_elem_exists(1, 2), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(&reply), no_memory);
    EXPECT_EQ(fwx_mapt_pending_rule_hash_elem_exists(1, 2), 0u);
    EXPECT_EQ(fwx_mapt_rule_hash_elem_exists(1, 2), 1u);
}

TEST_F(guard_test_t, a_complex_has_one_tree_and_its_handle_needs_a_place) {
    ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    EXPECT_EQ(fwx_mapt_plu_find_tbm(0, nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(fwx_mapt_plu_create_tbm(0, nullptr), invalid);
    ASSERT_EQ(fwx_mapt_plu_create_tbm(0, &tree_), 0u);
    EXPECT_EQ(tree_, fwx_host_tbm_of_complex(0));
    EXPECT_EQ(fwx_mapt_plu_create_tbm(0, &tree_), exists);
    EXPECT_EQ(tree_, nullptr);
    fwx_host_fault_arm(FWX_HOST_OP_LIST_HEAD, 1, 0x77);
    EXPECT_EQ(fwx_mapt_plu_create_tbm(1, &tree_), 0x77u);
}

TEST_F(guard_test_t, a_rule_that_is_not_in_the_tree_of_every_complex_is_told_when_it_is_deleted) {
    EXPECT_EQ(fwx_mapt_plu_del_rule_from_fwxs(&bmr_), 0u) << "there is no complex";
    ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    install(bmr_);
    ASSERT_EQ(fwx_mapt_plu_create_tbm(1, &tree_), 0u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr_), FWX_NAT64_ERR_PLU_FAILED);
    EXPECT_TRUE(logged_line("error: \nfwx_mapt_plu_del_rule_from_fwxs: Failed to delete rules from PLU rc(" +
                            std::string(xerr_strerror(FWX_NAT64_ERR_PLU_FAILED)) + ")"));
}

TEST_F(guard_test_t, a_clean_up_that_fails_for_some_complexes_only_says_so) {
    ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    ASSERT_EQ(fwx_mapt_plu_create_tbm(0, &tree_), 0u);
    ASSERT_EQ(fwx_mapt_plu_create_tbm(1, &tree_), 0u);
    fwx_host_fault_arm(FWX_HOST_OP_TBM_LEAF_SIZE, 2, 0);
    fwx_mapt_plu_cleanup();
    EXPECT_TRUE(logged_line("error: \nfwx_mapt_plu_cleanup: Failed to delete rules from PLU rc(" +
                            std::string(xerr_strerror(FWX_NAT64_ERR_PLU_FAILED)) + ")"));
}

TEST_F(guard_test_t, a_rule_is_deleted_only_from_a_tree_and_with_its_element) {
    ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    ASSERT_EQ(fwx_mapt_plu_create_tbm(0, &tree_), 0u);
    const auto subtables = {fwx_mapt_plu_del_rule_v4_subtable, fwx_mapt_plu_del_rule_v6_subtable};
    for (const auto del_rule : subtables) {
        EXPECT_EQ(del_rule(nullptr, &bmr_), invalid);
        EXPECT_EQ(del_rule(tree_, &bmr_), invalid) << "no rule was installed";
    }
}

TEST_F(guard_test_t, a_completion_without_a_message_is_logged_and_nothing_else) {
    bind_quietly();
    const fwx_nat64_timeout_t timeout = {1, 300};
    ASSERT_EQ(fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &timeout, this), 0u);
    last_done_fn(nullptr, nullptr, 5);
    EXPECT_EQ(logged.back(),
              "error: \nfwx_nat64_client_async_send_callback NULL msg ptr " + std::string(xerr_strerror(5)));
    EXPECT_EQ(outstanding(), 1u);
    EXPECT_TRUE(calls.empty());
}

TEST_F(guard_test_t, no_rule_and_one_with_a_prefix_longer_than_its_field_are_not_inserted) {
    ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    EXPECT_EQ(fwx_mapt_plu_rule_insert(nullptr), FWX_NAT64_ERR_INVALID);
    for (const auto &[v4_len, v6_len] : {std::pair<uint8_t, uint8_t>{33, 64}, {32, 65}}) {
        fwx_mapt_rule_hash_elem_t elem = {bmr_, 1};
        elem.rule.v4_prefix_len = v4_len;
        elem.rule.v6_prefix_len = v6_len;
        EXPECT_EQ(fwx_mapt_plu_rule_insert(&elem), FWX_NAT64_ERR_INVALID);
        EXPECT_EQ(logged.back().find("error: \nfwx_mapt_plu_rule_insert: "), 0u);
    }
    EXPECT_EQ(plu.complex_list, nullptr) << "nothing was made";
}

TEST_F(guard_test_t, a_walk_that_ends_within_its_own_callback_is_not_touched_after_it) {
    bind_quietly();
    const fwx_nat64_sess_walk_filter_t filter{};
    const auto walk = [&] { ASSERT_EQ(fwx_nat64_session_walk_a(1, &filter, 0, 0, 0, walk_cb, this), 0u); };
    const auto reply = [&](uint32_t more) { /* delivered at once, as by a platform whose callbacks nest */
                                            bytes_t bytes = reply_to(received.back(), 9, 96);
                                            put(bytes, 48, more);
                                            fwx_nat64_async_rsp_svr(nullptr, nullptr, bytes.data(), bytes.size());
    };
    walk();
    pump();
    on_call = [&] {
        on_call = nullptr;
        reply(0); /* the last one, which releases the walk */
        walk();   /* and this one takes over its context */
    };
    stop_value = 1;
    reply(1);
    stop_value = 0;
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].status, FWX_NAT64_WALK_MORE);
    EXPECT_EQ(calls[1].status, FWX_NAT64_WALK_DONE);
    pump();
    reply(0);
    EXPECT_EQ(calls.size(), 3u) << "the walk that has taken over was not asked to stop";
}

TEST_F(guard_test_t, a_channel_that_fails_under_its_initial_commands_is_opened_by_the_next_send_alone) {
    bind_quietly();
    for (const uint32_t fails_at : {1U, 2U}) { /* the init command, the unsolicited setup */
        SCOPED_TRACE(fails_at);
        break_channel();
        fwx_host_fault_reset();
        uint32_t sends = 0;
        on_send = [&] {
            if (++sends == fails_at) last_err_fn(nullptr);
        };
        EXPECT_EQ(fwx_nat64_ipalias_upload_a(this), FWX_NAT64_ERR_AGAIN);
        on_send = nullptr;
        pump();
        EXPECT_EQ(fwx_host_fault_calls(FWX_HOST_OP_CHAN_OPEN), 1u);
        EXPECT_EQ(fwx_nat64_ipalias_upload_a(this), 0u);
        pump();
        EXPECT_EQ(fwx_host_fault_calls(FWX_HOST_OP_CHAN_OPEN), 2u);
    }
    EXPECT_EQ(fwx_nat64_clnt_cleanup(), 0u);
}

TEST_F(guard_test_t, a_receive_buffer_replaces_the_one_before_and_is_as_long_as_a_connection_announces) {
    bind_quietly();
    const uint64_t bytes = fwx_host_memory_live();
    EXPECT_EQ(last_rx_fn(info()->chan, nullptr, 100), 1u) << "the channel does not say which buffer it had";
    memset(info()->rx_buf, 0xff, 4000);
    EXPECT_EQ(fwx_host_memory_live(), bytes) << "the one before is freed";
    void *present = info()->rx_buf;
    fwx_host_fault_arm(FWX_HOST_OP_RX_BUFFER_SET, 1, 5);
    EXPECT_EQ(last_rx_fn(info()->chan, nullptr, 5000), 0u);
    EXPECT_EQ(info()->rx_buf, present) << "the channel refused the new one";
}

TEST_F(guard_test_t, an_unsolicited_command_is_checked_again_where_it_is_handled) {
    bind_quietly();
    bytes_t short_one(8);
    info()->unsol_hndlr(short_one.data(), short_one.size());
    EXPECT_EQ(logged.back(), "error: \nfwx_nat64_unsol_cmd command of 8 bytes is too short");
    bytes_t wakeup(20);
    put(wakeup, 16, FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP);
    info()->unsol_hndlr(wakeup.data(), wakeup.size());
    EXPECT_TRUE(calls.empty()) << "a wakeup is answered before it comes there";
    EXPECT_TRUE(received.empty());
}

}  // namespace
