#include <algorithm>
#include <cstdint>
#include <cstring>

#include "host_fixture.h"
#include "platform/runtime.h"

namespace {

using memory_t = host_fixture_t;

#ifndef ADDRESS_SANITIZER /* it aborts at the second free */
TEST_F(memory_t, a_reused_small_block_is_zeroed_and_a_second_free_is_refused) {
    void *kept = fwx_calloc_named(1, 1, 24);
    void *block = fwx_calloc_named(1, 1, 24);
    memset(block, 0xee, 24);
    fwx_free_named(block);
    fwx_free_named(block);
    EXPECT_EQ(errors().bad_frees, 1u);
    EXPECT_EQ(fwx_host_memory_live_tag(1), 24u);
    auto *again = static_cast<uint8_t *>(fwx_calloc_named(2, 1, 20));
    EXPECT_EQ(again, block);
    EXPECT_TRUE(std::all_of(again, again + 20, [](uint8_t byte) { return byte == 0; }));
    fwx_free_named(again);
    fwx_free_named(kept);
    EXPECT_EQ(live().memory_blocks, 0u);
}
#endif

TEST_F(memory_t, a_fault_has_a_code_of_its_own_and_can_be_disarmed) {
    fwx_list_t *list = nullptr;
    fwx_host_fault_arm(FWX_HOST_OP_LIST_INIT, 1, 0);
    EXPECT_EQ(fwx_list_init(&list, 1), FWX_HOST_ERR_FAULT);
    for (void (*disarm)() : {+[] { fwx_host_fault_arm(FWX_HOST_OP_LIST_INIT, 0, 0); }, fwx_host_fault_reset}) {
        fwx_host_fault_arm(FWX_HOST_OP_LIST_INIT, 1, 0);
        disarm();
        EXPECT_EQ(fwx_list_init(nullptr, 1), FWX_HOST_ERR_BAD_ARG);
    }
    EXPECT_EQ(fwx_host_fault_calls(FWX_HOST_OP_LIST_INIT), 1u);
    fwx_host_fault_arm(FWX_HOST_OP_COUNT, 1, 0);
    EXPECT_EQ(fwx_host_fault_calls(FWX_HOST_OP_COUNT), 0u);
}

}  // namespace
