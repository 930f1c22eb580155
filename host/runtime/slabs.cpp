/* Slabs from malloc, or from huge pages when they are large, and the growth of slabs_t. */
#include "host/runtime/slabs.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr size_t least_slab_bytes = 4096;

#ifdef ADDRESS_SANITIZER /* it checks bounds, and finds leaks, of blocks from malloc only */
constexpr size_t largest_malloc_bytes = SIZE_MAX;
#else
constexpr size_t largest_malloc_bytes = host_huge_page_bytes / 2;
#endif

size_t whole_pages(size_t size) {
    return (size + host_huge_page_bytes - 1) / host_huge_page_bytes * host_huge_page_bytes;
}

/** Maps memory at a multiple of the huge page size, which huge pages need. Maps more than that and unmaps both ends. */
void *map_pages(size_t size) {
    const size_t mapped = size + host_huge_page_bytes;
    void *all = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) return nullptr;
    const auto begin = reinterpret_cast<uintptr_t>(all);
    const uintptr_t pages = whole_pages(begin);
    if (pages != begin) munmap(all, pages - begin);
    void *found = reinterpret_cast<void *>(pages);
    munmap(reinterpret_cast<void *>(pages + size), begin + mapped - pages - size);
    madvise(found, size, MADV_HUGEPAGE); /* a failure is ignored, because small pages also work */
    return found;
}

}  // namespace

void *host_slab_alloc(size_t size) {
    if (size <= largest_malloc_bytes) return std::calloc(1, size);
    return size > SIZE_MAX - 2 * host_huge_page_bytes ? nullptr : map_pages(whole_pages(size));
}

void host_slab_free(void *slab, size_t size) {
    if (size <= largest_malloc_bytes) return std::free(slab);
    if (slab != nullptr) munmap(slab, whole_pages(size));
}

struct slabs_t::slab_t {
    slab_t *older;
    size_t size;
};

bool slabs_t::grow() {
    const bool is_large = bytes_ >= host_huge_page_bytes;
    const size_t size = is_large ? host_huge_page_bytes : std::max<size_t>(bytes_ / 8, least_slab_bytes);
    auto *slab = static_cast<slab_t *>(host_slab_alloc(size));
    if (slab == nullptr) return false;
    *slab = {newest_, size};
    newest_ = slab;
    bytes_ += size;
    next_ = reinterpret_cast<char *>(slab + 1);
    end_ = reinterpret_cast<char *>(slab) + size;
    return true;
}

void slabs_t::clear() {
    while (newest_ != nullptr) {
        slab_t *slab = newest_;
        newest_ = slab->older;
        host_slab_free(slab, slab->size);
    }
    *this = {};
}
