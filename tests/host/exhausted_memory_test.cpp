/* Exhausted memory. A child process takes all memory and calls every operation that allocates. Each must return an
 * error and leave nothing behind. After the memory is freed, the operations must work again. */
#include <sys/resource.h>

#include <cstdlib>
#include <iterator>

#include "channel_fixture.h"
#include "platform/cgm.h"
#include "platform/runtime.h"
#include "tests/support/checked_tree.h"
#include "tests/support/zero_server.h"

#ifndef ADDRESS_SANITIZER /* the sanitizer itself would run out of memory */
namespace {

constexpr char long_name[] = "a name that is longer than what a string holds without memory";
constexpr uint32_t no_memory = 12;
constexpr uint32_t module = 0x1c000000;
constexpr cgm_client_reg_t cgm_client = {[](uint32_t, void **, uint32_t, uint32_t, void *, void *) { return 0U; }, 7,
                                         0};
const std::vector<uint32_t> strides(2, 6); /* allocated before memory is exhausted */

/** Takes all the memory that malloc can still give, in blocks of every size. */
class all_memory_t {
public:
    void take_all() {
        const rlimit no_more = {0, 0};
        setrlimit(RLIMIT_AS, &no_more);
        for (size_t size = size_t{1} << 26; size > 0; size -= size > 4096 ? size / 2 : 16) {
            while (auto *block = static_cast<void **>(malloc(size))) {
                *block = std::exchange(blocks_, block);
            }
        }
    }
    void release() {
        while (void *block = blocks_) {
            blocks_ = *static_cast<void **>(block);
            free(block);
        }
    }

private:
    void *blocks_ = nullptr; /* each begins with the address of the next one */
};

class exhausted_memory_t : public shm_fixture_t {
protected:
    void SetUp() override {
        shm_fixture_t::SetUp();
        ASSERT_EQ(fwx_host_server_register("deaf", loop_, &zero_server_ops, nullptr, &deaf_), 0u);
        ASSERT_EQ(fwx_cl_hash_create("empty", 0, 3, nullptr, nullptr, &table_), 0u);
        pool_ = chunk_create("empty", 32, 4, 1, 4, 0);
        tree_ = make_tree(strides, 12, 1, nullptr);
        const uint8_t keys[] = {0, 0x80};
        for (size_t i = 0; i < std::size(keys); ++i) {
            leaves_[i].resize(tbm_get_leaf_size(tree_, nullptr) + leaf_data_bytes);
            tbm_leaf_init(tree_, leaf(i), &keys[i], 8, nullptr);
        }
        ASSERT_EQ(insert(0), 0u);
    }
    void TearDown() override {
        for (size_t i = 0; i < std::size(leaves_); ++i) {
            tbm_leaf_delete(tree_, leaf(i), nullptr);
        }
        fwx_host_server_unregister(deaf_);
        fwx_cl_hash_destroy(table_, 1);
        chunk_destroy(pool_);
        shm_fixture_t::TearDown();
    }
    tbm_leaf_t *leaf(size_t index) { return reinterpret_cast<tbm_leaf_t *>(leaves_[index].data()); }
    uint32_t insert(size_t index) {
        uint32_t code = 1;
        tbm_leaf_insert(tree_, leaf(index), &code);
        return code;
    }

    /** Calls every operation that allocates. Returns null, or the name of the first that did not fail as expected. */
    const char *call_all() {
        void *made = nullptr;
        fwx_list_t *list = nullptr;
        fwx_cl_hash_t *table = nullptr;
        fwx_host_server_t *server = nullptr;
        smc_chan_t chan = 0;
        uint32_t code = 0;
        const smc_event_t ev = event();
        const int watched = fwx_host_loop_fd(client_loop_);
        if (fwx_calloc_named(1, 1, 8) != nullptr) return "memory";
        if (fwx_list_init(&list, 1) != no_memory) return "list";
        if (fwx_cl_hash_create("t", 4, 3, nullptr, nullptr, &table) != no_memory) return "hash table";
        if (fwx_cl_hash_add(table_, 1, this) != no_memory) return "hash table's entry";
        if (chunk_create(long_name, 32, 4, 1, 4, 0) != nullptr) return "pool of a new name";
        if (chunk_create("empty", 32, 4, 1, 4, 0) != nullptr) return "pool";
        if (chunk_malloc(pool_) != nullptr) return "pool's element";
        if (fwx_event_context_create(&chan_, &made) != no_memory) return "event context";
        make_tree(strides, 12, 1, &code);
        if (code != no_memory) return "tree";
        if (insert(1) != no_memory) return "second leaf of a tree";
        const uint8_t first = 0;
        if (tbm_exact_match(tree_, &first, 8, nullptr) != leaf(0)) return "first leaf of a tree";
        if (cgm_int_register_client(7, &cgm_client) != no_memory) return "classifier client";
        if (fwx_host_cgm_notify(7, 0, nullptr, 0, 0, nullptr) != FWX_HOST_ERR_NO_CLIENT) return "no classifier client";

        if (fwx_host_loop_create() != nullptr) return "loop";
        const fwx_host_fn_t uncalled = [](void *) { _exit(101); };
        if (fwx_host_timer_add(loop_, 0, uncalled, nullptr) != 0) return "timer";
        if (fwx_host_loop_watch(loop_, watched, uncalled, nullptr) != no_memory) return "watch";

        if (smc_msg_chan_open("deaf", ev, 0, on_error, &chan) != no_memory) return "channel";
        if (smc_msg_chan_open("tested", ev, 0, on_error, &chan) != no_memory) return "channel to another process";
        if (smc_msg_chan_open(long_name, ev, 0, on_error, &chan) != no_memory) return "channel of a long name";
        const uint16_t key[] = {0xc009, domain};
        if (smc_msg_handler_attach(chan_, key, on_message, 0, 0xc009, domain) != no_memory) return "handler";
        if (smc_msg_tx_buffer_alloc(100000, &made) != no_memory) return "transmit buffer";
        if (fwx_host_connect_set(long_name, "server") != no_memory) return "server's name";
        if (fwx_host_server_register(long_name, loop_, &zero_server_ops, nullptr, &server) != no_memory)
            return "server";
        if (fwx_host_server_find(long_name) != nullptr) return "no server";
        if (fwx_host_server_listen(deaf_, "another") != no_memory) return "listening server";

        if (strcmp(xerr_strerror(0xa0300611), xerr_strerror(12)) == 0) return "error text";
        fwx_host_error_text_add(0x6ffe, "lost");
        if (strcmp(xerr_strerror(0x6ffe), "unknown error 0x00006ffe") != 0) return "error text of a program";
        fwx_host_debug_level_set(module, 4);
        if (fwx_get_debug_level(module) != 0) return "debug level";
        fwx_host_pool_cap_set(long_name, 1);
        return nullptr;
    }

    /** Returns the exit status: 0 when all operations failed, and worked again once there was memory. */
    int exhaust() {
        all_memory_t all_memory;
        all_memory.take_all();
        const char *wrong = call_all();
        all_memory.release();
        if (wrong != nullptr) {
            fprintf(stderr, "does not fail as expected without memory: %s\n", wrong);
            return 1;
        }
        if (send("a") != 0 || fwx_host_server_listen(deaf_, "another") != 0 || insert(1) != 0) return 2;
        run();
        TearDown();
        return take_log() == "took a, done a 0, disconnected" && !HasFailure() ? 0 : 3;
    }

    fwx_host_server_t *deaf_ = nullptr;
    fwx_cl_hash_t *table_ = nullptr;
    fwx_chunk_t *pool_ = nullptr;
    tbm_t *tree_ = nullptr;
    std::vector<uint8_t> leaves_[2];
};

TEST_F(exhausted_memory_t, every_operation_returns_an_error_throws_nothing_and_works_again_when_there_is_memory) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); /* a new process, because its malloc has no freed memory */
    EXPECT_EXIT(std::_Exit(exhaust()), testing::ExitedWithCode(0), "");
}

}  // namespace
#endif
