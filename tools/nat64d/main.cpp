#include <csignal>
#include <cstdlib>

#include "tools/nat64d/daemon.h"
#include "tools/nat64d/log.h"
#include "tools/seed.h"

namespace {

constexpr int failure_status = 2;

}  // namespace

int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); /* exceeding the file size limit is an error, not a signal */
    daemon_options_t options;
    const int status = read_options(argc, argv, options);
    if (status >= 0) return status;
    fwx::host::add_server_texts();
    seed_random();
    daemon_t daemon(options);
    const std::string error = daemon.open();
    if (!error.empty()) {
        log_event(log_level_t::error, "cannot_start", {{"reason", error}});
        return failure_status;
    }
    daemon.run();
    return EXIT_SUCCESS;
}
