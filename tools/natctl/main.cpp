#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "tools/natctl/cli.h"

namespace {

/** Opens each closed standard descriptor so that its use fails, because otherwise a socket would get its number. */
void keep_standard_descriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

}  // namespace

int main(int argc, char **argv) {
    keep_standard_descriptors();
    std::signal(SIGXFSZ, SIG_IGN); /* exceeding the file size limit is an error, not a signal */
    std::ios::sync_with_stdio(false);
    return run_natctl({argv + 1, argv + argc}, std::cin, std::cout, std::cerr);
}
