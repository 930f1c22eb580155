/* nat64-gateway: a NAT64 server whose configuration Linux carries out. It reads the options, claims the network
 * namespace, starts the engine, loads the saved configuration, and serves clients until it is told to end. With
 * --translator the process becomes the translator instead; with --remove it deletes everything that the gateway created
 * in the kernel. */
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

#include "fwx_nat64/client.h"
#include "gateway/engine.h"
#include "state/directory.h"
#include "tools/command_line.h"
#include "tools/server_runner.h"

namespace {

constexpr uint64_t watch_ms = 1000;
constexpr size_t longest_name = 64;
constexpr const char *name_characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-";

struct options_t {
    translator_options_t translator;
    bool is_remove = false;
    bool is_translator = false;
};

int fail(const std::string &text) {
    std::fprintf(stderr, "nat64-gateway: %s\n", text.c_str());
    return usage_status;
}

/** Returns the exit status with which to end at once, or -1 to go on. */
int read_options(int argc, const char *const *argv, options_t &options) {
    command_spec_t root;
    root.name = "nat64-gateway";
    root.version = "nat64-gateway " NAT64_GATEWAY_VERSION "\n";
    root.summary = "A NAT64 server that has Linux translate packets, configured by natctl and nat64d";
    word_field(root, "name", options.translator.gateway, "Name of the gateway, as natctl --connect takes it", "NAME")
        .required();
    word_field(root, "--state", options.translator.directory,
               "Folder for its configuration, by default $XDG_STATE_HOME/fwx/gateway/NAME", "FOLDER");
    word_field(root, "--tayga", options.translator.program, "The translator's program", "PROGRAM").preset = "tayga";
    flag_field(root, "--external-translator", options.translator.is_external,
               "Another service runs nat64-gateway --translator");
    flag_field(root, "--translator", options.is_translator, "Becomes the translator of gateway NAME");
    flag_field(root, "--remove", options.is_remove,
               "Removes everything that gateway NAME has configured in the kernel");
    const int status = read_command_line(root, argc, argv);
    if (status >= 0) return status;
    const std::string &name = options.translator.gateway;
    const bool is_ok = !name.empty() && name.size() <= longest_name && name.front() != '.' && name.front() != '-' &&
                       name.find_first_not_of(name_characters) == std::string::npos;
    if (!is_ok) return fail("NAME \"" + name + "\": must be at most 64 letters, digits, dots, dashes and underscores");
    if (options.translator.directory.empty()) options.translator.directory = state_directory_of(name, "fwx/gateway");
    return -1;
}

/** Lock of the gateway that runs in this network namespace. It is an abstract socket, because a network namespace has
 * its own names of abstract sockets. */
class namespace_lock_t {
public:
    namespace_lock_t() = default;
    ~namespace_lock_t() {
        if (fd_ >= 0) close(fd_);
    }
    namespace_lock_t(const namespace_lock_t &) = delete;
    namespace_lock_t &operator=(const namespace_lock_t &) = delete;

    std::string take() {
        constexpr char name[] = "\0fwx_nat64_gateway";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name, sizeof name - 1);
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + sizeof name - 1);
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd_ >= 0 && bind(fd_, reinterpret_cast<const sockaddr *>(&address), size) == 0) return "";
        if (errno == EADDRINUSE) return "a gateway runs in this network namespace";
        return std::string("cannot claim this network namespace: ") + std::strerror(errno);
    }

private:
    int fd_ = -1;
};

struct kernel_watch_t {
    fwx_host_loop_t *loop;
    gateway_engine_t &engine;
    bool is_planned = false;

    /** Plans the next look at the kernel, unless it is planned. If no memory is left for that, the next turn of the
     * loop plans it. */
    void plan() {
        const auto look = [](void *arg) {
            auto &self = *static_cast<kernel_watch_t *>(arg);
            self.is_planned = false;
            self.engine.watch();
        };
        if (!is_planned) is_planned = fwx_host_timer_add(loop, watch_ms, look, this) != 0;
    }
};

int run(const options_t &options) {
    const std::string &name = options.translator.gateway;
    const std::string &directory = options.translator.directory;
    std::string error = make_state_directory(directory);
    if (!error.empty()) return fail(error);
    if (options.is_translator) return fail(translator_t(options.translator).become());

    namespace_lock_t lock;
    error = lock.take();
    if (!error.empty()) return fail(error);
    server_log_t log("nat64-gateway");
    const host_loop_t loop = make_host_loop();
    auto owned =
        std::make_unique<gateway_engine_t>(options.translator, [&log](const std::string &text) { log.write(text); });
    gateway_engine_t &engine = *owned;
    if (options.is_remove) {
        error = engine.remove();
        return error.empty() ? 0 : fail(error);
    }
    error = engine.open();
    if (!error.empty()) return fail(error);
    nat64_server_t server(loop.get(), std::move(owned));
    if (!server.serve(FWX_NAT64_CHANNEL_NAME)) return fail("no memory left to run a server with");
    server_runner_t runner(loop.get(), log, server);
    error = runner.load(directory + "/configuration");
    if (error.empty() && engine.commit() != 0) error = "the kernel refuses the configuration";
    if (error.empty()) error = runner.listen(name);
    if (!error.empty()) return fail(error);
    std::printf("serving %s\n", name.c_str());
    if (std::fflush(stdout) != 0) return fail("cannot write to standard output");
    kernel_watch_t watch{loop.get(), engine};
    watch.plan();
    error = runner.run([&engine, &watch] {
        engine.turn_ended();
        watch.plan();
    });
    return error.empty() ? 0 : fail(error);
}

}  // namespace

int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); /* a write beyond the file size limit fails instead of ending the process */
    std::signal(SIGCHLD, SIG_IGN); /* no zombies: the process does not wait for the translator */
    options_t options;
    const int status = read_options(argc, argv, options);
    return status >= 0 ? status : run(options);
}
