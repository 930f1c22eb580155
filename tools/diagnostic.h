/* Formats the library's diagnostics for natctl and nat64d, which show them. */
#ifndef TOOLS_DIAGNOSTIC_H
#define TOOLS_DIAGNOSTIC_H

#include <string>

/** Makes one line of a diagnostic, because the library's diagnostics begin with line feeds and may contain more. */
inline std::string diagnostic_line(const char *text) {
    std::string line;
    for (; *text != '\0'; ++text) {
        const bool is_wanted = *text != '\n' && (*text != ' ' || !line.empty());
        if (is_wanted) line += *text;
    }
    return line;
}

#endif
