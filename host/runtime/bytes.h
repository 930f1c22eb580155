/*
 * Copying and clearing of messages, which are mostly 32 to 64 bytes long, and copying of their short payloads. For the
 * usual lengths the code is inline: two moves of a constant length, which may overlap. Other lengths call memcpy or
 * memset.
 */
#ifndef HOST_RUNTIME_BYTES_H
#define HOST_RUNTIME_BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstring>

constexpr size_t bytes_half = 32; /* sizes from this to twice this are copied inline */

inline bool bytes_are_few(size_t size) {
    return __builtin_expect(size - bytes_half <= bytes_half, 1);
}

/** Copies 8 to 16 bytes, or none. Returns false for other sizes, which the caller has to copy. */
inline bool bytes_copy_short(void *to, const void *from, size_t size) {
    constexpr size_t half = 8;
    if (size - half > half) return size == 0;
    const size_t rest = size - half;
    memcpy(to, from, half);
    memcpy(static_cast<uint8_t *>(to) + rest, static_cast<const uint8_t *>(from) + rest, half);
    return true;
}

/** Like memcpy, but both pointers may be null when the size is 0. */
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
