/* Starts, finds and ends the translator process. The gateway starts itself again with --translator, in a session of its
 * own; that process creates the TUN device, writes the translator's files and then executes the program. */
#include "gateway/translator.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

#include "gateway/plan.h"
#include "gateway/routes.h"
#include "records/value.h"
#include "state/write_file.h"

namespace {

constexpr const char *config_name = "translator.conf";
constexpr const char *process_name = "translator.pid";
constexpr const char *lock_name = "translator.lock";
constexpr const char *tun_path = "/dev/net/tun";
constexpr int end_patience_ms = 1000;
constexpr int look_ms = 10;

std::string system_error(const std::string &what) {
    return what + ": " + std::strerror(errno);
}

template <typename condition_t>
bool comes_true(int patience_ms, condition_t condition) {
    for (int waited = 0; waited < patience_ms; waited += look_ms) {
        if (condition()) return true;
        poll(nullptr, 0, look_ms);
    }
    return condition();
}

/** Creates the device, which persists without a process. Does not open a device that exists, because it would then
 * look as if a translator served it. */
std::string make_device() {
    if (if_nametoindex(translator_device) != 0) return "";
    const int fd = open(tun_path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return system_error(std::string("cannot open ") + tun_path + " (module tun)");
    ifreq request{};
    std::string_view(translator_device).copy(request.ifr_name, sizeof request.ifr_name - 1);
    request.ifr_flags = IFF_TUN;
    const bool is_made = ioctl(fd, TUNSETIFF, &request) == 0 && ioctl(fd, TUNSETPERSIST, 1) == 0;
    std::string error = is_made ? "" : system_error(std::string("cannot make device ") + translator_device);
    close(fd);
    return error;
}

}  // namespace

std::string translator_t::program_path() const {
    if (options_.program.find('/') != std::string::npos) return options_.program;
    const char *path = std::getenv("PATH");
    std::istringstream folders(std::string(path == nullptr ? "" : path) + ":/usr/sbin:/sbin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string candidate = folder + "/" + options_.program;
        if (!folder.empty() && access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return options_.program;
}

std::string translator_t::check() const {
    if (options_.is_external) return "";
    const std::string program = program_path();
    if (access(program.c_str(), X_OK) != 0) {
        return "there is no program " + program + " to translate with; install it: apt-get install tayga";
    }
    return access(tun_path, F_OK) == 0 ? "" : system_error(std::string(tun_path) + " (module tun)");
}

std::string translator_t::ensure(routes_t &routes, int patience_ms) {
    const bool must_start = !routes.is_device_served() && !options_.is_external;
    if (must_start) {
        std::string error = end(); /* ends a process that has lost its device */
        if (error.empty()) error = start();
        if (!error.empty()) return error;
    }
    /* Waits for the program itself, because make_device serves a new device for a moment. */
    const auto is_served = [&] { return (!must_start || process() != 0) && routes.is_device_served(); };
    if (!comes_true(patience_ms, is_served)) {
        return std::string("no program serves device ") + translator_device + "; see why: nat64-gateway --translator " +
               options_.gateway;
    }
    /* A served device is set up, too, because a gateway may have been killed before it added the route. */
    const int failed = routes.set_up_device(NLM_F_REPLACE);
    return failed == 0 ? "" : std::string("cannot set up device ") + translator_device + ": " + std::strerror(failed);
}

std::string translator_t::start() const {
    const std::string program = program_path();
    const pid_t pid = fork();
    if (pid != 0) return pid > 0 ? "" : system_error("cannot start the translator");
    sigset_t none; /* the gateway blocks the signals that end it */
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setsid();
    const int null = open("/dev/null", O_RDWR);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(null, fd);
    }
    if (null > STDERR_FILENO) close(null);
    execl("/proc/self/exe", "nat64-gateway", "--translator", "--state", options_.directory.c_str(), "--tayga",
          program.c_str(), options_.gateway.c_str(), nullptr);
    _exit(EXIT_FAILURE);
}

std::string translator_t::become() const {
    std::string error = check();
    if (!error.empty()) return error;
    /* The lock is held until the translator ends. Without it, the gateway that follows a killed one could start a
     * second translator, and the file with the process id might name the wrong one. */
    const int lock = open(file(lock_name).c_str(), O_RDWR | O_CREAT, 0600);
    if (lock < 0) return system_error("cannot open " + file(lock_name));
    const bool is_only = comes_true(end_patience_ms, [lock] { return flock(lock, LOCK_EX | LOCK_NB) == 0; });
    if (!is_only) return "a translator of gateway " + options_.gateway + " runs";
    error = make_device();
    if (!error.empty()) return error;
    const std::string config = file(config_name);
    error = write_file(
        config, std::string("tun-device ") + translator_device + "\nipv4-addr " + translator_ipv4 + "\nprefix " +
                    prefix_text(AF_INET6, translator_prefix.data(), translator_prefix.size(), translator_prefix_len) +
                    "\n");
    if (error.empty()) error = write_file(file(process_name), std::to_string(getpid()) + "\n");
    if (!error.empty()) return error;
    const std::string program = program_path();
    execl(program.c_str(), "tayga", "--nodetach", "--config", config.c_str(), nullptr);
    return system_error("cannot run " + program);
}

/** Returns the process id in the file if that process is the translator of this gateway, else 0. */
pid_t translator_t::process() const {
    pid_t pid = 0;
    std::ifstream(file(process_name)) >> pid;
    if (pid <= 0) return 0;
    std::ifstream command("/proc/" + std::to_string(pid) + "/cmdline");
    std::string words(std::istreambuf_iterator<char>(command), {});
    std::ranges::replace(words, '\0', ' ');
    return words == "tayga --nodetach --config " + file(config_name) + ' ' ? pid : 0;
}

std::string translator_t::end() const {
    const pid_t pid = process();
    if (pid == 0) return "";
    kill(pid, SIGKILL); /* it has nothing to save, and a stopped process does not end by SIGTERM */
    const bool has_ended = comes_true(end_patience_ms, [this, pid] { return process() != pid; });
    return has_ended ? "" : "the translator does not end: process " + std::to_string(pid);
}
