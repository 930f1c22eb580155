#include "state/directory.h"

#include <pwd.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "fwx_host/smc.h"

namespace {

std::string text_of(const char *name) {
    const char *value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string home() {
    std::string home = text_of("HOME");
    if (!home.empty()) return home;
    const passwd *entry = getpwuid(geteuid());
    return entry == nullptr ? "" : entry->pw_dir;
}

}  // namespace

std::string state_directory_of(const std::string &server, const std::string &folder) {
    const std::string of_service = text_of("STATE_DIRECTORY");
    if (!of_service.empty()) return of_service + "/" + server;
    const std::string state = text_of("XDG_STATE_HOME");
    const bool is_usable = !state.empty() && state.front() == '/';
    return (is_usable ? state : home() + "/.local/state") + "/" + folder + "/" + server;
}

std::string path_beside_socket(const std::string &server, const std::string &name) {
    char path[sizeof(sockaddr_un::sun_path)];
    if (fwx_host_server_path(server.c_str(), path, sizeof path) != 0) return "";
    const std::string_view folder(path, std::strlen(path) - server.size());
    return std::string(folder) + name;
}

std::string make_state_directory(const std::string &directory, files_t &files) {
    std::error_code error;
    std::filesystem::path made;
    for (const std::filesystem::path &part : std::filesystem::path(directory)) {
        made /= part;
        const bool is_there = std::filesystem::is_directory(made, error);
        if (is_there) continue;
        const bool is_made = mkdir(made.c_str(), 0700) == 0 || errno == EEXIST;
        if (!is_made || files.sync_directory_of(made) != 0) return file_error(made);
    }
    return "";
}
