/* nat64d's log: a line of key=value pairs for each event, on standard error. */
#ifndef TOOLS_NAT64D_LOG_H
#define TOOLS_NAT64D_LOG_H

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

enum class log_level_t : uint8_t { error, warning, info };

using log_field_t = std::pair<std::string_view, std::string>;

/**
 * Writes `time=... level=info event=applied commands=7`, in one piece, behind a priority such as `<6>` where
 * JOURNAL_STREAM says that systemd's journal reads it. Values with blanks or quotes are quoted, as JSON quotes them.
 * Standard error is not waited for: lines that it does not take, or of which there are too many of one event, are left
 * out and counted.
 */
void log_event(log_level_t level, std::string_view event, std::initializer_list<log_field_t> fields = {});

#endif
