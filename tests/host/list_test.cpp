/* The intrusive list: order, removal, elements of other lists, and ownership. */
#include <array>
#include <utility>
#include <vector>

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

}  // namespace
