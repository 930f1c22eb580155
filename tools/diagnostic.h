/* Diagnostics of the library, for those who show them. */
#ifndef TOOLS_DIAGNOSTIC_H
#define TOOLS_DIAGNOSTIC_H

#include <string>

/** One line of a diagnostic: the library begins them with line feeds, and some have more inside. */
inline std::string diagnostic_line(const char *text) {
    std::string line;
    for (; *text != '\0'; ++text) {
        const bool is_wanted = *text != '\n' && (*text != ' ' || !line.empty());
        if (is_wanted) line += *text;
    }
    return line;
}

#endif
