#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "tools/natctl/cli.h"

namespace {

/** Gives each standard descriptor that is closed one that fails at what it is for, so that no socket of ours takes its
 * number. */
void keep_standard_descriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

}  // namespace

int main(int argc, char **argv) {
    keep_standard_descriptors();
    std::signal(SIGXFSZ, SIG_IGN); /* a file that may not grow is an error */
    std::ios::sync_with_stdio(false);
    return run_natctl({argv + 1, argv + argc}, std::cin, std::cout, std::cerr);
}
