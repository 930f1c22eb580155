/* The baseline: messages of the same size through a ring of slots in each direction, without any checks. An eventfd
 * wakes the other side when it sleeps. */
#include <sys/eventfd.h>
#include <sys/mman.h>

#include <atomic>
#include <cstring>

#include "channel_bench.h"

namespace {

constexpr uint32_t slots = 4096;

struct way_t {
    alignas(64) std::atomic<uint32_t> written;
    alignas(64) std::atomic<uint32_t> read;
    alignas(64) std::atomic<uint32_t> reader_sleeps;
    alignas(64) uint8_t messages[slots][command_bytes];
};

class ring_end_t {
public:
    ring_end_t(way_t &out, way_t &in, int out_bell, int in_bell, uint32_t spin_us)
        : out_(out), in_(in), out_bell_(out_bell), in_bell_(in_bell), spin_us_(spin_us) {}

    void send() {
        uint8_t message[command_bytes] = {};
        memcpy(out_.messages[written_ % slots], message, sizeof(message));
        out_.written.store(++written_, std::memory_order_release);
    }

    uint32_t receive() {
        wake_reader();
        if (!has_message()) spin();
        while (!has_message()) {
            sleep();
        }
        uint32_t received = 0;
        for (; has_message(); ++received) {
            uint8_t message[command_bytes];
            memcpy(message, in_.messages[read_ % slots], sizeof(message));
            asm volatile("" : : "r"(message) : "memory"); /* keeps the compiler from dropping the copy */
            in_.read.store(++read_, std::memory_order_release);
        }
        return received;
    }

private:
    bool has_message() const { return in_.written.load(std::memory_order_acquire) != read_; }

    void wake_reader() {
        std::atomic_thread_fence(std::memory_order_seq_cst);
        if (out_.reader_sleeps.load(std::memory_order_relaxed) == 0) return;
        if (out_.reader_sleeps.exchange(0) != 0) eventfd_write(out_bell_, 1);
    }

    void spin() {
        if (spin_us_ == 0) return;
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(spin_us_);
        while (!has_message() && std::chrono::steady_clock::now() < end) {
        }
    }

    void sleep() {
        in_.reader_sleeps.store(1, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_seq_cst);
        eventfd_t rings = 0;
        if (!has_message()) eventfd_read(in_bell_, &rings);
        in_.reader_sleeps.store(0, std::memory_order_relaxed);
    }

    way_t &out_;
    way_t &in_;
    int out_bell_;
    int in_bell_;
    uint32_t spin_us_;
    uint32_t written_ = 0;
    uint32_t read_ = 0;
};

}  // namespace

double run_bare_ring(const setting_t &setting) {
    pin(setting.client_cpu);
    void *memory = mmap(nullptr, 2 * sizeof(way_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return 0;
    auto *ways = static_cast<way_t *>(memory);
    const int bells[] = {eventfd(0, 0), eventfd(0, 0)};
    double seconds = 0;
    {
        const server_process_t process(setting.server_cpu, [&] {
            ring_end_t end(ways[1], ways[0], bells[1], bells[0], setting.spin_us);
            for (;;) {
                for (uint32_t i = end.receive(); i > 0; --i) {
                    end.send();
                }
            }
        });
        ring_end_t end(ways[0], ways[1], bells[0], bells[1], setting.spin_us);
        seconds = measure(end, setting);
    }
    close(bells[0]);
    close(bells[1]);
    munmap(memory, 2 * sizeof(way_t));
    return seconds;
}
