/* The runtime: the intrusive list and the hash table, blocks of memory and pools of elements, faults, debug lines, and
 * the texts of codes. */
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <set>
#include <unordered_map>

#include "host_fixture.h"
#include "platform/runtime.h"

namespace {

struct element_t {
    fwx_list_link_t link;
    int number;
};

class list_t : public host_fixture_t {
protected:
    void SetUp() override {
        host_fixture_t::SetUp();
        ASSERT_EQ(fwx_list_init(&list_, 1), 0u);
        for (element_t &element : elements_) {
            ASSERT_EQ(fwx_list_insert_tail(list_, &element), 0u);
        }
    }

    void TearDown() override {
        const size_t left = numbers().size();
        EXPECT_EQ(fwx_list_destroy(list_), 0u);
        EXPECT_EQ(errors().destroyed_in_use, left) << "a list that does not own its elements";
        watch_.expect_destroyed_in_use(left);
        host_fixture_t::TearDown();
    }

    std::vector<int> numbers() {
        std::vector<int> all;
        void *head = nullptr;
        EXPECT_EQ(fwx_list_head(list_, &head), 0u);
        for (auto *at = static_cast<element_t *>(head); at != nullptr;
             at = reinterpret_cast<element_t *>(at->link.next)) {
            all.push_back(at->number);
        }
        return all;
    }

    fwx_list_t *list_ = nullptr;
    std::array<element_t, 3> elements_{{{{}, 1}, {{}, 2}, {{}, 3}}};
};

TEST_F(list_t, elements_keep_the_order_of_insertion_and_can_be_removed_once_from_the_middle_the_front_and_the_end) {
    using numbers_t = std::vector<int>;
    EXPECT_EQ(numbers(), (numbers_t{1, 2, 3}));
    const std::pair<size_t, numbers_t> removals[] = {{1, {1, 3}}, {0, {3}}, {2, {}}};
    for (const auto &[place, left] : removals) {
        EXPECT_EQ(fwx_list_remove_element(list_, &elements_[place]), 0u);
        EXPECT_EQ(fwx_list_remove_element(list_, &elements_[place]), FWX_HOST_ERR_NOT_LISTED);
        EXPECT_EQ(numbers(), left);
    }
    EXPECT_EQ(fwx_list_insert_tail(list_, &elements_[1]), 0u);
    EXPECT_EQ(fwx_list_insert_tail(list_, &elements_[1]), FWX_HOST_ERR_LISTED);
    EXPECT_EQ(numbers(), (numbers_t{2}));
}

TEST_F(list_t, the_last_element_of_another_list_is_refused) {
    fwx_list_t *other = nullptr;
    std::array<element_t, 2> elsewhere{};
    ASSERT_EQ(fwx_list_init(&other, 1), 0u);
    for (element_t &element : elsewhere) {
        ASSERT_EQ(fwx_list_insert_tail(other, &element), 0u);
    }
    for (element_t &element : elsewhere) {
        EXPECT_EQ(fwx_list_remove_element(list_, &elsewhere[1]), FWX_HOST_ERR_NOT_LISTED);
        EXPECT_EQ(fwx_list_insert_tail(list_, &elsewhere[1]), FWX_HOST_ERR_LISTED);
        EXPECT_EQ(fwx_list_remove_element(other, &element), 0u);
    }
    EXPECT_EQ(fwx_list_destroy(other), 0u);
}

TEST_F(list_t, an_owning_list_frees_its_elements) {
    fwx_list_t *owning = nullptr;
    ASSERT_EQ(fwx_list_init(&owning, 0), 0u);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(fwx_list_insert_tail(owning, fwx_calloc_named(96, 1, sizeof(element_t))), 0u);
    }
    EXPECT_EQ(fwx_host_memory_blocks_tag(96), 3u);
    EXPECT_EQ(fwx_list_destroy(owning), 0u);
    EXPECT_EQ(fwx_host_memory_blocks_tag(96), 0u);
}

void *element_of(uint64_t key) {
    return reinterpret_cast<void *>(key * 8 + 8);
}

class hash_table_t : public host_fixture_t {
protected:
    void SetUp() override {
        host_fixture_t::SetUp();
        ASSERT_EQ(fwx_cl_hash_create("tested", 2, 3, nullptr, nullptr, &table_), 0u);
    }

    void TearDown() override {
        EXPECT_EQ(fwx_cl_hash_destroy(table_, 1), 0u);
        host_fixture_t::TearDown();
    }

    fwx_cl_hash_t *table_ = nullptr;
};

TEST_F(hash_table_t, random_operations_agree_with_a_map) {
    std::unordered_map<uint64_t, void *> model;
    std::mt19937_64 random(7);
    for (int i = 0; i < 200000; ++i) {
        const uint64_t key = random() % 5000
                             << (random() % 2 * 32); /* keys that differ only in high bits, or only in low bits */
        void *element = element_of(random() % 1000);
        if (random() % 3 != 0) {
            const bool is_new = model.emplace(key, element).second;
            ASSERT_EQ(fwx_cl_hash_add(table_, key, element), is_new ? 0u : FWX_HOST_ERR_KEY_TAKEN);
        } else {
            ASSERT_EQ(fwx_cl_hash_delete(table_, key), model.erase(key) != 0 ? 0u : FWX_HOST_ERR_NO_KEY);
        }
        const uint64_t asked = random() % 5000;
        const auto known = model.find(asked);
        ASSERT_EQ(fwx_cl_hash_find(table_, asked), known == model.end() ? nullptr : known->second);
    }
}

TEST_F(hash_table_t, a_walk_that_deletes_as_it_goes_sees_every_element_once) {
    constexpr uint64_t count = 1000;
    for (uint64_t key = 0; key < count; ++key) {
        ASSERT_EQ(fwx_cl_hash_add(table_, key, element_of(key)), 0u);
    }
    std::set<void *> seen;
    for (uint32_t bucket = 0; bucket < fwx_cl_hash_bucket_count(table_); ++bucket) {
        for (auto *entry = fwx_cl_hash_bucket_first(table_, bucket); entry != nullptr;) {
            auto *next = fwx_cl_hash_entry_next(entry);
            void *element = fwx_cl_hash_entry_element(entry);
            EXPECT_TRUE(seen.insert(element).second);
            EXPECT_EQ(fwx_cl_hash_delete(table_, reinterpret_cast<uint64_t>(element) / 8 - 1), 0u);
            entry = next;
        }
        EXPECT_EQ(fwx_cl_hash_bucket_first(table_, bucket), nullptr);
    }
    EXPECT_EQ(seen.size(), count);
    EXPECT_EQ(fwx_cl_hash_find(table_, 0), nullptr);
}

TEST_F(hash_table_t, entries_that_come_and_go_take_no_more_room_than_those_that_stay) {
    for (uint64_t key = 0; key < 100000; ++key) {
        ASSERT_EQ(fwx_cl_hash_add(table_, key, element_of(key)), 0u);
        if (key < 100) continue;
        ASSERT_EQ(fwx_cl_hash_delete(table_, key - 100), 0u);
    }
    EXPECT_LE(fwx_cl_hash_bucket_count(table_), 512u);
}

TEST_F(hash_table_t, spreads_keys_that_differ_in_their_high_bits_only) {
    constexpr uint64_t count = 4096;
    for (uint64_t i = 0; i < count; ++i) {
        ASSERT_EQ(fwx_cl_hash_add(table_, i << 40, element_of(i)), 0u);
    }
    int longest = 0;
    int length = 0;
    for (uint32_t bucket = 0; bucket < fwx_cl_hash_bucket_count(table_); ++bucket) {
        length = fwx_cl_hash_bucket_first(table_, bucket) == nullptr ? 0 : length + 1;
        longest = std::max(longest, length);
    }
    EXPECT_LT(longest, 64) << "entries side by side";
}

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

TEST_F(memory_t, each_block_counts_for_its_own_tag) {
    const uint32_t tags[] = {7, 7 + 128, 7 + 256, 7}; /* which have their accounts in one place */
    std::vector<void *> blocks;
    for (const uint32_t tag : tags) {
        blocks.push_back(fwx_calloc_named(tag, 1, 24));
        fwx_free_named(fwx_calloc_named(tag, 1, 24));
    }
    EXPECT_EQ(fwx_host_memory_live_tag(tags[0]), 48u);
    EXPECT_EQ(fwx_host_memory_live_tag(tags[1]), 24u);
    EXPECT_EQ(fwx_host_memory_live_tag(tags[2]), 24u);
    for (void *block : blocks) {
        fwx_free_named(block);
    }
    EXPECT_EQ(live().memory_blocks, 0u);
}

TEST_F(memory_t, a_copy_has_all_bytes_and_no_more) {
    const std::string from = "0123456789abcdefghij";
    for (size_t size = 0; size <= from.size(); ++size) {
        std::string to(from.size() + 1, '.');
        EXPECT_EQ(fwx_memcpy(to.data(), from.data(), size), to.data());
        EXPECT_EQ(to, from.substr(0, size) + std::string(to.size() - size, '.'));
    }
}

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

using debug_t = host_fixture_t;

TEST_F(debug_t, long_lines_are_not_truncated) {
    std::string seen;
    fwx_host_debug_sink_set([](void *arg, fwx_host_debug_channel_t, uint32_t,
                               const char *text) { *static_cast<std::string *>(arg) = text; },
                            &seen);
    for (const size_t length : {511u, 512u, 513u, 9000u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(fwx_printf("%s", text.c_str()), static_cast<int>(length));
        EXPECT_EQ(seen, text);
    }
    fwx_host_debug_sink_set(nullptr, nullptr);
}

TEST_F(debug_t, writing_to_standard_error_never_blocks_and_reports_later_how_many_lines_were_left_out) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int before = dup(STDERR_FILENO);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    fwx_host_clock_turn(5000);
    alarm(60);                          /* ends a test that hangs */
    for (const int width : {10, 200}) { /* first the limit of lines is reached, then the pipe is full */
        for (int i = 0; i < 1500; ++i) {
            fwx_buginf_error("\n%*d", width, i);
        }
        fwx_host_clock_turn(1000);
        std::string seen(size_t{1} << 20, '\0');
        seen.resize(static_cast<size_t>(read(ends[0], seen.data(), seen.size())));
        fwx_buginf_error("\nlast");
        const auto lines = static_cast<size_t>(std::count(seen.begin(), seen.end(), '\n'));
        std::string note(200, '\0');
        note.resize(static_cast<size_t>(read(ends[0], note.data(), note.size())));
        EXPECT_LE(lines, 1000u);
        EXPECT_EQ(note, "(" + std::to_string(1500 - lines) + " lines left out)\nlast\n");
        fwx_host_clock_turn(1000);
    }
    alarm(0);
    dup2(before, STDERR_FILENO);
    for (const int fd : {before, ends[0], ends[1]}) {
        close(fd);
    }
}

constexpr uint32_t of_the_library[] = {0x4030020b, 0x4030020c, 0x4030020d, 0x40300216, 0x40300616, 0xa030060c,
                                       0xa030060d, 0xa0300216, 0xa0300611, 0xa0300602, 0xa0300616};

TEST(error_text_t, every_code_of_the_library_and_of_the_platform_has_a_text_of_its_own) {
    std::vector<uint32_t> codes(std::begin(of_the_library), std::end(of_the_library));
    for (uint32_t code = FWX_HOST_ERR_NO_SERVER; code <= FWX_HOST_ERR_FORKED; ++code) {
        codes.push_back(code);
    }
    std::set<std::string> texts{"success"};
    for (const uint32_t code : codes) {
        const std::string text = xerr_strerror(code);
        EXPECT_NE(text.rfind("unknown error", 0), 0u) << text;
        EXPECT_TRUE(texts.insert(text).second) << text;
    }
}

TEST(error_text_t, other_codes_have_the_texts_of_the_system_or_the_program_and_unknown_ones_show_their_value) {
    const char *first = xerr_strerror(0x89abcdef);
    EXPECT_STREQ(xerr_strerror(134), "unknown error 0x00000086");
    EXPECT_STREQ(first, "unknown error 0x89abcdef");
    EXPECT_STREQ(xerr_strerror(EINVAL), "Invalid argument");
    EXPECT_STREQ(xerr_strerror(ENOMEM), "Cannot allocate memory");
    EXPECT_STREQ(xerr_strerror(133), "Memory page has hardware error");
    EXPECT_STREQ(xerr_strerror(0), "success");
    EXPECT_STREQ(xerr_strerror(0x6fff), "unknown error 0x00006fff");
    fwx_host_error_text_add(0x6fff, "table full");
    EXPECT_STREQ(xerr_strerror(0x6fff), "table full");
}

}  // namespace
