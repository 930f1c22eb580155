#include "state/time_text.h"

#include <cstdio>
#include <ctime>

std::string time_text() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char text[64];
    const size_t length = strftime(text, sizeof text, "%FT%T", &utc);
    snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(now.tv_nsec / 1000000));
    return text;
}

double seconds_now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::optional<uint64_t> seconds_since(const std::string &time_text) {
    tm utc{};
    const char *rest = strptime(time_text.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    if (rest == nullptr || *rest != '.') return std::nullopt;
    const time_t then = timegm(&utc);
    const time_t now = time(nullptr);
    return now > then ? static_cast<uint64_t>(now - then) : 0;
}
