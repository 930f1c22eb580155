#include "tools/pal/time_text.h"

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
