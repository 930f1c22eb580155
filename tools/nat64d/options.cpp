#include "tools/nat64d/options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <climits>
#include <utility>

namespace {

constexpr int usage_status = 2;

std::string host_name() {
    char name[HOST_NAME_MAX + 1] = "";
    return gethostname(name, sizeof name) == 0 ? name : "";
}

}  // namespace

int read_options(int argc, const char *const *argv, daemon_options_t &options) {
    CLI::App app("Keeps a NAT64 server in the state that a document says", "nat64d");
    app.set_version_flag("--version", "nat64d " NAT64D_VERSION "\n", "Prints the version");
    app.add_option("server", options.server, "Name of the server, as natctl --connect takes it")
        ->required()
        ->type_name("SERVER");
    app.add_option("--config", options.config, "The document: a file, or etcd://HOST:PORT[,...]/PREFIX")
        ->required()
        ->type_name("FILE|URL");
    app.add_option("--gateway", options.gateway, "Name of this gateway in the store, the host's without it")
        ->type_name("NAME");
    app.add_option("--ca", options.store.ca, "Authority that has signed the store's certificate: https")
        ->type_name("FILE");
    app.add_option("--cert", options.store.cert, "Certificate to show to the store")->type_name("FILE");
    app.add_option("--key", options.store.key, "Its key")->type_name("FILE");
    app.add_option("--user", options.store.user, "User of the store")->type_name("NAME");
    app.add_option("--password-file", options.store.password_file, "File with the user's password")->type_name("FILE");
    app.add_option("--listen", options.listen, "Loopback address and port for metrics; none for nowhere")
        ->capture_default_str()
        ->type_name("ADDRESS:PORT");
    app.add_option("--state", options.state, "Folder for what the server holds, in place of natctl's for that server")
        ->type_name("FOLDER");
    app.add_option("--series", options.series, "Pools, and mappings, that have metrics of their own")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));
    app.add_option("--debug-level", options.debug_level, "Debug level of the library: 0 silent to 4 trace")
        ->check(CLI::Range(0, 4));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : usage_status;
    }
    if (options.listen == "none") options.listen.clear();
    if (is_store_url(options.config)) options.store.url = std::exchange(options.config, "");
    if (options.gateway.empty()) options.gateway = host_name();
    return -1;
}
