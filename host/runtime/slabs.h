/* Memory for many small objects, on few pages. */
#ifndef HOST_RUNTIME_SLABS_H
#define HOST_RUNTIME_SLABS_H

#include <cstddef>
#include <cstdint>

constexpr size_t host_huge_page_bytes = size_t{2} << 20;

/** Zeroed memory, or null. A slab of more than half a huge page is on huge pages, if the system has them, because TLB
 * misses dominate the cost of look-ups among a million objects. */
[[gnu::visibility("hidden")]] void *host_slab_alloc(size_t size);
/** Frees memory from host_slab_alloc of this size; null is ignored. */
[[gnu::visibility("hidden")]] void host_slab_free(void *slab, size_t size);

/** Allocates pieces of slabs, which are freed all at once. Slabs grow with the total size, from 4096 bytes to a
 * huge page. An object of all zero bytes is empty. */
class slabs_t {
public:
    /** The next `size` zeroed bytes, aligned to 16 if all sizes are multiples of 16. `size` must be much less than
     * 4096. Null when memory is exhausted. */
    void *cut(size_t size) {
        void *piece = cut_at_hand(size);
        return piece != nullptr || !grow() ? piece : cut_at_hand(size);
    }
    /** Like cut(), but null also if that needs a new slab. Makes no calls. */
    void *cut_at_hand(size_t size) {
        if (static_cast<size_t>(end_ - next_) < size) return nullptr;
        void *piece = next_;
        next_ += size;
        return piece;
    }
    void clear();
    uint64_t byte_count() const { return bytes_; }

private:
    struct slab_t;

    bool grow();

    slab_t *newest_;
    char *next_;
    char *end_;
    uint64_t bytes_;
};

#endif
