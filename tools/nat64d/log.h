/* nat64d's log: a line of key=value pairs for each event, on standard error. docs/nat64d.md lists the events. */
#ifndef TOOLS_NAT64D_LOG_H
#define TOOLS_NAT64D_LOG_H

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

enum class log_level_t : uint8_t { error, warning, info };

using log_field_t = std::pair<std::string_view, std::string>;

/**
 * Writes `time=... level=info event=applied commands=7` with one write. If JOURNAL_STREAM is set, because systemd's
 * journal reads the log, the line begins with a priority such as `<6>`. Values with blanks or quotes are quoted as in
 * JSON. Writing never blocks: lines that standard error does not accept, and lines beyond the limit of an event, are
 * dropped and counted.
 */
void log_event(log_level_t level, std::string_view event, std::initializer_list<log_field_t> fields = {});

#endif
