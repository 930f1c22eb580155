/* The intrusive list, and the hash table: compared with a map, walked while it changes, and checked for long chains. */
#include <array>
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

}  // namespace
