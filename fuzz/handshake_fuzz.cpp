/*
 * A client made of input, against a server in another process's place: what it hands over when it comes, and what it
 * then does to the segment and the bells. The server turns it away or serves it, and serves an honest one as ever.
 */
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "fwx_host/fwx_host.h"
#include "host/messaging/shm/bell.h"
#include "host/messaging/shm/segment.h"
#include "host/messaging/shm/socket.h"
#include "input.h"
#include "platform/smc.h"

namespace {

constexpr char channel_name[] = "fuzzed";
constexpr char name[] = "server";
constexpr uint32_t greeting = 0x46575832;

size_t honest_messages;

/** Answers whatever it gets, and counts the honest client's messages. */
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
        char directory[] = "/tmp/handshake_fuzz.XXXXXX";
        FUZZ_CHECK(mkdtemp(directory) != nullptr);
        setenv("XDG_RUNTIME_DIR", directory, 1);
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
        fwx_host_loop_run_until_idle(client_loop);
        fwx_host_loop_run_until_idle(loop);
        fwx_host_loop_run_until_idle(client_loop);
        FUZZ_CHECK(honest_messages > before);
    }

    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_loop_t *client_loop = fwx_host_loop_create();
    fwx_host_server_t *server = nullptr;
    smc_chan_t honest = 0;
};

descriptor_t descriptor_of(uint8_t kind) {
    int ends[2] = {-1, -1};
    switch (kind % 8) {
        case 0:
            return descriptor_t(eventfd(kind / 8, 0));
        case 1:
            return descriptor_t(open("/dev/null", O_RDWR));
        case 2:
            FUZZ_CHECK(pipe(ends) == 0);
            close(ends[0]);
            return descriptor_t(ends[1]);
        case 3:
            return descriptor_t(socket(AF_UNIX, SOCK_STREAM, 0));
        case 4:
            return shm_segment_make();
        default:
            return shm_bell_make();
    }
}

/** Sends a greeting; sound where the input says nothing else. */
void greet(const descriptor_t &socket, const std::vector<descriptor_t> &handles, input_t &input) {
    const uint32_t words[] = {greeting ^ input.byte(), 0};
    iovec body{const_cast<uint32_t *>(words), 4 ^ input.below(8)};
    alignas(cmsghdr) char control[CMSG_SPACE(16 * sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &body;
    message.msg_iovlen = 1;
    if (!handles.empty()) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(handles.size() * sizeof(int));
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(handles.size() * sizeof(int));
        for (size_t i = 0; i < handles.size(); ++i) {
            const int number = handles[i].get();
            std::memcpy(CMSG_DATA(header) + i * sizeof(number), &number, sizeof(number));
        }
    }
    sendmsg(socket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

/** The segment of all inputs, as good as new: to make one takes longer than everything else. */
struct reused_segment_t {
    void renew() const { std::memset(mapping.get(), 0, offsetof(shm_segment_t, to_server_bytes)); }

    const descriptor_t descriptor = shm_segment_make();
    const shm_mapping_t mapping = shm_segment_map(descriptor);
};

/** Changes a word among the indices and bells, or among the first of the bytes of a ring. */
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
    static const reused_segment_t segment;
    FUZZ_CHECK(segment.mapping != nullptr);
    segment.renew();
    input_t input(data, size);
    {
        descriptor_t socket;
        FUZZ_CHECK(shm_connect(name, &socket) == 0);
        std::vector<descriptor_t> handles;
        handles.emplace_back(dup(segment.descriptor.get()));
        handles.push_back(shm_bell_make());
        handles.push_back(shm_bell_make());
        for (uint32_t changes = input.below(4); changes > 0; --changes) {
            const uint32_t place = input.below(8);
            if (place >= handles.size()) handles.emplace_back();
            handles[place < handles.size() ? place : handles.size() - 1] = descriptor_of(input.byte());
        }
        greet(socket, handles, input);
        while (!input.is_empty()) {
            switch (input.below(4)) {
                case 0:
                    fwx_host_loop_process(server.loop);
                    break;
                case 1:
                    if (shm_bell_is_sound(handles[2])) shm_bell_ring(handles[2]);
                    break;
                case 2:
                    greet(socket, handles, input);
                    break;
                default:
                    scribble(*segment.mapping, input);
                    break;
            }
        }
        fwx_host_loop_run_until_idle(server.loop);
    }
    fwx_host_loop_run_until_idle(server.loop);
    server.serve_the_honest_one();
    return 0;
}
