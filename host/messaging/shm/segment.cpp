#include "host/messaging/shm/segment.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>

namespace {

constexpr size_t segment_bytes = sizeof(shm_segment_t);
constexpr int size_seals = F_SEAL_SHRINK | F_SEAL_GROW;

}  // namespace

void shm_unmap_t::operator()(shm_segment_t *segment) const {
    munmap(segment, segment_bytes);
}

descriptor_t shm_segment_make() {
    descriptor_t segment(memfd_create("fwx_host_channel", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!segment.is_open()) return segment;
    errno = posix_fallocate(segment.get(), 0, segment_bytes);
    const bool is_made = errno == 0 && fcntl(segment.get(), F_ADD_SEALS, size_seals | F_SEAL_SEAL) == 0;
    return is_made ? std::move(segment) : descriptor_t();
}

bool shm_segment_is_sound(const descriptor_t &segment) {
    const int seals =
        fcntl(segment.get(), F_GET_SEALS); /* fails unless it is memory; fstat of another file could block */
    if (seals < 0 || (seals & size_seals) != size_seals) return false;
    struct stat status {};
    return fstat(segment.get(), &status) == 0 && status.st_size == static_cast<off_t>(segment_bytes);
}

shm_mapping_t shm_segment_map(const descriptor_t &segment) {
    constexpr int flags = MAP_SHARED | MAP_POPULATE; /* no message causes a page fault */
    void *memory = mmap(nullptr, segment_bytes, PROT_READ | PROT_WRITE, flags, segment.get(), 0);
    return memory == MAP_FAILED ? nullptr : shm_mapping_t(static_cast<shm_segment_t *>(memory));
}
