/*
 * The platform's debug output: level checks by module, and lines to a sink or to standard error. Writing to standard
 * error never blocks, and errors and warnings are limited to a rate, because a peer can cause one for each message that
 * it sends. Lines that are left out are counted and reported.
 */
#include "fwx_host/debug.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "fwx_host/loop.h"
#include "host/runtime/memory.h"
#include "platform/runtime.h"

namespace {

enum : uint32_t { LEVEL_NONE, LEVEL_ERROR, LEVEL_WARN, LEVEL_INFO, LEVEL_TRACE };

struct {
    fwx_host_debug_sink_t fn;
    void *arg;
} sink;

using levels_t = std::vector<std::pair<uint32_t, uint32_t>>;

/** The levels of modules that had one set. A vector, because they are few and every log statement searches them. */
levels_t &levels = *new levels_t;

/* Limit of errors and warnings on standard error. */
constexpr uint32_t lines_per_second = 1000;
constexpr uint64_t second_ms = 1000;
struct {
    uint64_t since_ms = 0;
    uint32_t lines = 0;
    uint64_t left_out = 0;
} output;

/** Writes to standard error without blocking. Returns false when not everything was written, for example to a pipe that
 * nobody reads. */
bool write_now(const char *text, size_t size) {
    constexpr size_t piece = 4096; /* a pipe that polls as writable has room for this much */
    const int fd = fileno(stderr);
    while (size > 0) {
        pollfd watched = {fd, POLLOUT, 0};
        if (poll(&watched, 1, 0) != 1 || watched.revents != POLLOUT) return false;
        const ssize_t written = write(fd, text, std::min(size, piece));
        if (written <= 0) return false;
        text += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

/** Writes a log line with its line feed at the end, because the library's lines begin with a line feed and end without
 * one. Console output is written unchanged. The line feed replaces the terminating zero, so that one write does. */
bool write_line(char *text, uint32_t level) {
    size_t size = strlen(text);
    if (level == LEVEL_NONE) return write_now(text, size);
    const size_t begin = text[0] == '\n' ? 1 : 0;
    const bool is_ended = size > begin && text[size - 1] == '\n';
    if (!is_ended) text[size++] = '\n';
    return write_now(text + begin, size - begin);
}

bool is_within_the_second(uint32_t level) {
    if (level != LEVEL_ERROR && level != LEVEL_WARN)
        return true; /* other levels are off unless the user enables them */
    const uint64_t now = fwx_host_clock_ms();
    if (now - output.since_ms >= second_ms) {
        output.since_ms = now;
        output.lines = 0;
    }
    output.lines += 1;
    return output.lines <= lines_per_second;
}

/** Passes a text to the sink or to standard error. May overwrite the text's terminating zero. */
void put(fwx_host_debug_channel_t channel, uint32_t level, char *text) {
    if (sink.fn != nullptr) return sink.fn(sink.arg, channel, level, text);
    if (!is_within_the_second(level)) {
        output.left_out += 1;
        return;
    }
    if (output.left_out != 0) {
        char note[64];
        const int length = snprintf(note, sizeof(note), "(%" PRIu64 " lines left out)\n", output.left_out);
        if (write_now(note, static_cast<size_t>(length))) output.left_out = 0;
    }
    if (!write_line(text, level)) output.left_out += 1;
}

/** Returns the number of characters, or a negative number for an invalid format. */
__attribute__((format(printf, 3, 0))) int print(fwx_host_debug_channel_t channel, uint32_t level, const char *format,
                                                va_list args) {
    va_list again;
    va_copy(again, args);
    char text[512];
    const int length = vsnprintf(text, sizeof(text), format, args);
    if (length >= static_cast<int>(sizeof(text))) {
        const size_t whole = static_cast<size_t>(length) + 1;
        const std::unique_ptr<char[]> longer(new (std::nothrow) char[whole]);
        if (longer != nullptr) vsnprintf(longer.get(), whole, format, again);
        put(channel, level, longer != nullptr ? longer.get() : text); /* truncated when memory is exhausted */
    } else if (length >= 0) {
        put(channel, level, text);
    }
    va_end(again);
    return length;
}

}  // namespace

/* The body of the variadic functions below. A macro, because a variadic function cannot pass its arguments to another.
 */
#define HOST_PRINT(channel, level)                          \
    va_list args;                                           \
    va_start(args, format);                                 \
    const int length = print(channel, level, format, args); \
    va_end(args)

#define HOST_DEFINE_BUGINF(name, level)                                            \
    void fwx_buginf_##name(const char *format, ...) {                              \
        HOST_PRINT(FWX_HOST_DEBUG_LEVEL, level);                                   \
        (void)length;                                                              \
    }                                                                              \
    void fwx_buginf_flags_internal_##name(const void *, const char *format, ...) { \
        HOST_PRINT(FWX_HOST_DEBUG_FLAGS, level);                                   \
        (void)length;                                                              \
    }

extern "C" {

HOST_DEFINE_BUGINF(error, LEVEL_ERROR)
HOST_DEFINE_BUGINF(warn, LEVEL_WARN)
HOST_DEFINE_BUGINF(info, LEVEL_INFO)
HOST_DEFINE_BUGINF(trace, LEVEL_TRACE)

int fwx_printf(const char *format, ...) {
    HOST_PRINT(FWX_HOST_DEBUG_CONSOLE, LEVEL_NONE);
    return length;
}

uint32_t fwx_get_debug_level(uint32_t module) {
    for (const auto &[known, level] : levels) {
        if (known == module) return level;
    }
    return LEVEL_NONE;
}

void fwx_host_debug_level_set(uint32_t module, uint32_t level) {
    for (auto &[known, its_level] : levels) {
        if (known == module) {
            its_level = level;
            return;
        }
    }
    host_guarded(host_errno_nomem, [&] { levels.emplace_back(module, level); });
}

uint32_t fwx_host_stderr_write(const char *text, size_t size) {
    return write_now(text, size) ? 1 : 0;
}

void fwx_host_debug_sink_set(fwx_host_debug_sink_t fn, void *arg) {
    sink = {fn, arg};
}

}  // extern "C"
