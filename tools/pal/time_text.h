/* Times as logs have them. */
#ifndef TOOLS_PAL_TIME_TEXT_H
#define TOOLS_PAL_TIME_TEXT_H

#include <string>

/** This moment: `2026-01-31T23:59:59.123Z`. */
std::string time_text();

#endif
