#include "state/write_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "state/files.h"

std::string write_file(const std::string &path, const std::string &text) {
    const std::string name = path + ".new";
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return name + ": " + std::strerror(errno);
    std::string_view rest = text;
    ssize_t now = 0;
    while (!rest.empty()) {
        now = write(fd, rest.data(), rest.size());
        if (now < 0 && errno == EINTR) continue;
        if (now < 0) break;
        rest.remove_prefix(static_cast<size_t>(now));
    }
    const bool is_renamed = rest.empty() && fsync(fd) == 0 && rename(name.c_str(), path.c_str()) == 0;
    const bool is_written = is_renamed && files_t::system().sync_directory_of(path) == 0;
    std::string error = is_written ? "" : (is_renamed ? path : name) + ": " + std::strerror(errno);
    close(fd);
    if (!is_renamed) unlink(name.c_str());
    return error;
}
