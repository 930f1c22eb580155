/* Times as logs have them. */
#ifndef STATE_TIME_TEXT_H
#define STATE_TIME_TEXT_H

#include <cstdint>
#include <optional>
#include <string>

/** This moment: `2026-01-31T23:59:59.123Z`. */
std::string time_text();
/** This moment in seconds since 1970. */
double seconds_now();
/** How many seconds ago that was, by this machine's clock: 0 also for what is still to come; nothing when the text is
 * no such time. */
std::optional<uint64_t> seconds_since(const std::string &time_text);

#endif
