#include <csignal>
#include <cstdlib>

#include "fwx_host/errors.h"
#include "fwx_nat64/server_result.h"
#include "tools/nat64d/daemon.h"
#include "tools/nat64d/log.h"
#include "tools/natctl/seed.h"

namespace {

constexpr int failure_status = 2;

/** The server's codes are in logs and in what is said of refusals. */
void add_error_texts() {
#define ADD_TEXT(code, count, text) fwx_host_error_text_add(code, text);
    FWX_NAT64_MODEL_RESULTS(ADD_TEXT)
#undef ADD_TEXT
}

}  // namespace

int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); /* a file that may not grow is an error */
    daemon_options_t options;
    const int status = read_options(argc, argv, options);
    if (status >= 0) return status;
    add_error_texts();
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
