/* The server's record of the drill's commands, in memory that the drill and the server share and that survives the
 * server. */
#ifndef TESTS_DRILL_VIEW_H
#define TESTS_DRILL_VIEW_H

#include <sys/mman.h>

#include <atomic>
#include <cstdint>

struct server_view_t {
    static constexpr uint32_t ids = uint32_t{1} << 24;

    std::atomic<uint8_t> refusals[ids]; /* how often a command was refused, by its number modulo `ids` */

    std::atomic<uint8_t> &refusals_of(uint64_t number) { return refusals[number % ids]; }

    /** Maps the view in a descriptor of sizeof(server_view_t) bytes. It is never unmapped. Null when mapping fails. */
    static server_view_t *map(int fd) {
        void *memory = mmap(nullptr, sizeof(server_view_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        return memory == MAP_FAILED ? nullptr : static_cast<server_view_t *>(memory);
    }
};

#endif
