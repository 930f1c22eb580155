/*
 * Copying and clearing what is mostly some dozen bytes long, as messages are: that takes a few moves in place, of which
 * the last may overlap the first, and a call for other lengths only.
 */
#ifndef HOST_RUNTIME_BYTES_H
#define HOST_RUNTIME_BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstring>

constexpr size_t bytes_half = 32; /* what is as long as one or two of these is done in place */

inline bool bytes_are_few(size_t size) {
    return size - bytes_half <= bytes_half;
}

/** Nothing is read or written for a size of 0, also not through null. */
inline void bytes_copy(void *to, const void *from, size_t size) {
    if (bytes_are_few(size)) {
        const size_t rest = size - bytes_half;
        memcpy(to, from, bytes_half);
        memcpy(static_cast<uint8_t *>(to) + rest, static_cast<const uint8_t *>(from) + rest, bytes_half);
    } else if (size != 0) {
        memcpy(to, from, size);
    }
}

inline void bytes_clear(void *at, size_t size) {
    if (bytes_are_few(size)) {
        memset(at, 0, bytes_half);
        memset(static_cast<uint8_t *>(at) + size - bytes_half, 0, bytes_half);
    } else if (size != 0) {
        memset(at, 0, size);
    }
}

#endif
