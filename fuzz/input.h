/* Shared by all fuzzers: a reader of the input, and a check that aborts the run. */
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                                  \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                      \
        }                                                                                      \
    } while (0)

/** Reads the input byte by byte, and zeros after its end. */
class input_t {
public:
    input_t(const uint8_t *data, size_t size) : at_(data), end_(data + size) {}

    bool is_empty() const { return at_ == end_; }
    uint8_t byte() { return is_empty() ? uint8_t{0} : *at_++; }
    uint32_t below(uint32_t limit) { return byte() % limit; }
    bool flag() { return (byte() & 1) != 0; }

private:
    const uint8_t *at_;
    const uint8_t *end_;
};

#endif
