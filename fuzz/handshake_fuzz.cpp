/* Fuzzes a server's handshake with a hostile client over shared memory. The input chooses which descriptors the client
 * sends and what it then writes to the segment and the bells. The server must always serve an honest client. */
#include <fcntl.h>
#include <sys/eventfd.h>

#include "fwx_host/fwx_host.h"
#include "input.h"
#include "platform/smc.h"
#include "tests/support/hand_over.h"
#include "tests/support/runtime_directory.h"

namespace {

constexpr char channel_name[] = "fuzzed";
constexpr char name[] = "server";

size_t honest_messages;

/** Sends each message back, and counts the honest client's messages. */
void received(void *, fwx_host_peer_t *peer, const void *msg, size_t size) {
    if (size == 6 && std::memcmp(msg, "honest", size) == 0) ++honest_messages;
    if (size < sizeof(uint32_t)) fwx_host_peer_malformed(peer);
    fwx_host_peer_send(peer, msg, size);
}

size_t asked(void *, fwx_host_peer_t *, const void *msg, size_t size, void *reply, size_t cap) {
    const size_t length = size < cap ? size : cap;
    std::memcpy(reply, msg, length);
    return length;
}

constexpr fwx_host_server_ops_t ops = {nullptr, nullptr, received, asked};

struct server_t {
    server_t() {
        FUZZ_CHECK(fwx_host_server_register(channel_name, loop, &ops, nullptr, &server) == 0);
        FUZZ_CHECK(fwx_host_server_listen(server, name) == 0);
        fwx_host_connect_set(channel_name, name);
        FUZZ_CHECK(smc_msg_chan_open(channel_name, reinterpret_cast<smc_event_t>(client_loop), 0, nullptr, &honest) ==
                   0);
        fwx_host_loop_run_until_idle(loop);
    }

    void serve_the_honest_one() {
        const size_t before = honest_messages;
        void *msg = nullptr;
        FUZZ_CHECK(smc_msg_tx_buffer_alloc(6, &msg) == 0);
        std::memcpy(msg, "honest", 6);
        const auto done = [](void *cookie, void *, uint32_t status) {
            FUZZ_CHECK(status == 0);
            smc_msg_tx_buffer_free(cookie);
        };
        FUZZ_CHECK(smc_async_msg_sends(honest, msg, msg, 6, done) == 0);
        for (fwx_host_loop_t *each : {client_loop, loop, client_loop}) {
            fwx_host_loop_run_until_idle(each);
        }
        FUZZ_CHECK(honest_messages > before);
    }

    const runtime_directory_t directory;
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_loop_t *client_loop = fwx_host_loop_create();
    fwx_host_server_t *server = nullptr;
    smc_chan_t honest = 0;
};

descriptor_t descriptor_of(uint8_t kind) {
    if (kind % 8 == 0) return descriptor_t(eventfd(kind / 8, 0));
    if (kind % 8 == 1) return descriptor_t(open("/dev/null", O_RDWR));
    if (kind % 8 == 2) return descriptor_t(pipe_without_reader());
    if (kind % 8 == 3) return descriptor_t(socket(AF_UNIX, SOCK_STREAM, 0));
    return kind % 8 == 4 ? shm_segment_make() : shm_bell_make();
}

/** Sends an offer, which is valid unless the input changes it. */
void greet(const descriptor_t &socket, const handles_t &handles, input_t &input) {
    const std::string words = word(greeting ^ input.byte()) + word(0);
    hand_over(socket, words.substr(0, 4 ^ input.below(8)), handles);
}

/** Overwrites a word among the indices and bells, or among the first bytes of a ring. */
void scribble(shm_segment_t &segment, input_t &input) {
    auto *bytes = reinterpret_cast<uint8_t *>(&segment);
    const bool is_index = input.flag();
    const uint32_t value = input.byte() * (input.flag() ? 8U : 0x01010101U);
    const size_t at = is_index ? input.below(10) * 64U : offsetof(shm_segment_t, to_server_bytes) + input.byte() * 4U;
    __atomic_store_n(reinterpret_cast<uint32_t *>(bytes + at), value, __ATOMIC_RELAXED);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {  // NOLINT(readability-identifier-naming)
    static server_t server;
    /* One segment for all inputs, because creating a segment takes longer than the rest of a run. */
    static const descriptor_t segment = shm_segment_make();
    static const shm_mapping_t mapping = shm_segment_map(segment);
    FUZZ_CHECK(mapping != nullptr);
    std::memset(mapping.get(), 0, offsetof(shm_segment_t, to_server_bytes));
    input_t input(data, size);
    {
        descriptor_t socket;
        FUZZ_CHECK(shm_connect(name, &socket) == 0);
        handles_t handles;
        handles.emplace_back(dup(segment.get()));
        handles.push_back(shm_bell_make());
        handles.push_back(shm_bell_make());
        for (uint32_t changes = input.below(4); changes > 0; --changes) {
            const uint32_t place = input.below(8);
            if (place >= handles.size()) handles.emplace_back();
            handles[place < handles.size() ? place : handles.size() - 1] = descriptor_of(input.byte());
        }
        greet(socket, handles, input);
        while (!input.is_empty()) {
            const uint32_t action = input.below(4);
            if (action == 0) fwx_host_loop_process(server.loop);
            if (action == 1 && shm_bell_is_sound(handles[2])) shm_bell_ring(handles[2]);
            if (action == 2) greet(socket, handles, input);
            if (action == 3) scribble(*mapping, input);
        }
        fwx_host_loop_run_until_idle(server.loop);
    }
    fwx_host_loop_run_until_idle(server.loop);
    server.serve_the_honest_one();
    return 0;
}
