/* Blocks of memory, faults, and pools of elements: reuse, wrong frees, and the check whether a pool owns an address. */
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <set>

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

constexpr size_t element_size = 40;

class pool_t : public host_fixture_t {
protected:
    void SetUp() override {
        host_fixture_t::SetUp();
        pool_ = chunk_create("tested", element_size, 4, 1, 4, 0);
        ASSERT_NE(pool_, nullptr);
    }

    void TearDown() override {
        watch_.expect_destroyed_in_use(live().pool_elements); /* destroying the pool frees them */
        chunk_destroy(pool_);
        host_fixture_t::TearDown();
    }

    fwx_chunk_t *pool_ = nullptr;
};

TEST_F(pool_t, reuses_the_element_freed_last_unchanged_except_for_cleared_links) {
    void *first = chunk_malloc(pool_);
    auto *second = static_cast<uint8_t *>(chunk_malloc(pool_));
    memset(second, 0x5a, element_size);
    chunk_free(pool_, first);
    chunk_free(pool_, second);
    const std::vector<uint8_t> as_it_was(element_size, 0x5a);
    EXPECT_EQ(std::vector<uint8_t>(second, second + element_size), as_it_was);
    ASSERT_EQ(chunk_malloc(pool_), second);
    EXPECT_EQ(std::vector<uint8_t>(second, second + 16), std::vector<uint8_t>(16, 0));
    EXPECT_EQ(second[16], 0x5a);
    EXPECT_EQ(chunk_malloc(pool_), first);
}

TEST_F(pool_t, refuses_to_free_elements_twice_or_of_another_pool_and_can_be_destroyed_with_elements_in_use) {
    fwx_chunk_t *other = fwx_chunk_create("other", element_size, 4, 257, 4, 0);
    void *element = chunk_malloc(pool_);
    chunk_free(other, element);
    EXPECT_EQ(errors().bad_frees, 1u);
    chunk_free(pool_, element);
    chunk_free(pool_, element);
    EXPECT_EQ(errors().bad_frees, 2u);
    EXPECT_EQ(live().pool_elements, 0u);
    EXPECT_EQ(chunk_malloc(pool_), element);
    EXPECT_NE(chunk_malloc(pool_), element);
    EXPECT_NE(chunk_malloc(other), nullptr);
    EXPECT_EQ(live().pool_elements, 3u);
    EXPECT_EQ(live().pools, 2u);
    chunk_destroy(other); /* the wrong function for this pool, which has an element in use */
    EXPECT_EQ(errors().bad_frees, 3u);
    EXPECT_EQ(live().pool_elements, 2u);
    EXPECT_EQ(live().pools, 1u);
    EXPECT_EQ(errors().destroyed_in_use, 1u);
    watch_.expect_destroyed_in_use(1);
}

TEST_F(pool_t, owns_exactly_the_elements_in_use_and_reads_no_other_memory) {
    fwx_chunk_t *other = fwx_chunk_create("other", element_size, 4, 257, 4, 0);
    EXPECT_EQ(fwx_chunk_owns(pool_, this), 0u) << "an empty pool";
    std::vector<char *> elements;
    for (int i = 0; i < 50; ++i) {
        elements.push_back(static_cast<char *>(chunk_malloc(pool_)));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(elements.back()) % 16, 0u);
        memset(elements.back(), 0x5a, element_size); /* an overlap would damage a neighbour's header */
    }
    EXPECT_EQ(std::set<char *>(elements.begin(), elements.end()).size(), 50u);
    char *foreign = static_cast<char *>(chunk_malloc(other));
    char *next = elements.back() + (elements[1] - elements[0]); /* not allocated yet */
    auto *unmapped = static_cast<char *>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    for (char *element : elements) {
        EXPECT_EQ(fwx_chunk_owns(pool_, element), 1u);
        EXPECT_EQ(fwx_chunk_owns(other, element), 0u);
        for (const int beside : {-16, -1, 1, 8, 16}) {
            EXPECT_EQ(fwx_chunk_owns(pool_, element + beside), 0u) << beside;
        }
    }
    char *const last = reinterpret_cast<char *>(UINTPTR_MAX);
    for (char *address : {static_cast<char *>(nullptr), foreign, next, unmapped, unmapped + 16, last}) {
        EXPECT_EQ(fwx_chunk_owns(pool_, address), 0u) << static_cast<void *>(address);
    }
    EXPECT_EQ(fwx_chunk_owns(nullptr, elements[0]), 0u);
    chunk_free(pool_, elements[7]);
    EXPECT_EQ(fwx_chunk_owns(pool_, elements[7]), 0u);
    EXPECT_EQ(chunk_malloc(pool_), elements[7]);
    EXPECT_EQ(fwx_chunk_owns(pool_, elements[7]), 1u);
    munmap(unmapped, 4096);
    chunk_free(other, foreign);
    fwx_chunk_destroy(other);
}

}  // namespace
