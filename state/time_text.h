/* The time of day as a text for logs and versions. */
#ifndef STATE_TIME_TEXT_H
#define STATE_TIME_TEXT_H

#include <cstdint>
#include <optional>
#include <string>

/** The present time in UTC: `2026-01-31T23:59:59.123Z`. */
std::string time_text();
/** The present time in seconds since 1970. */
double seconds_now();
/** Seconds since a time, by this machine's clock; 0 for a future time. Nothing if the text is not such a time. */
std::optional<uint64_t> seconds_since(const std::string &time_text);

#endif
