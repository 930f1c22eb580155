/* Memory for many small things, on few pages. */
#ifndef HOST_RUNTIME_SLABS_H
#define HOST_RUNTIME_SLABS_H

#include <cstddef>
#include <cstdint>

constexpr size_t host_huge_page_bytes = size_t{2} << 20;

/** Zeroed memory, or null. What takes more than half of a huge page is on huge pages, where the system has them: what
 * is looked up in a million things is slowed down by the look-ups of addresses more than by anything else. */
[[gnu::visibility("hidden")]] void *host_slab_alloc(size_t size);
/** Takes what host_slab_alloc gave for this size; null is ignored. */
[[gnu::visibility("hidden")]] void host_slab_free(void *slab, size_t size);

/** Pieces of slabs, which go back all at once. Slabs grow with what there is, up to a huge page. All zero: there is
 * none. */
class slabs_t {
public:
    /** The next `size` zeroed bytes, much less than a page, aligned to 16 if all sizes are; null when memory is out. */
    void *cut(size_t size) {
        if (static_cast<size_t>(end_ - next_) < size && !grow()) return nullptr;
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
