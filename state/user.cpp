#include "state/user.h"

#include <pwd.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

std::string user_name() {
    for (const char *name : {"SUDO_USER", "USER", "LOGNAME"}) {
        const char *value = std::getenv(name);
        std::string user = value == nullptr ? "" : value;
        if (!user.empty() && user.find_first_of(" \t\r\n") == std::string::npos) return user;
    }
    const passwd *entry = getpwuid(getuid());
    return entry == nullptr ? "uid:" + std::to_string(getuid()) : entry->pw_name;
}

std::string user_and_host() {
    char host[HOST_NAME_MAX + 1] = "";
    if (gethostname(host, sizeof host - 1) != 0) host[0] = '\0';
    return user_name() + '@' + host;
}
