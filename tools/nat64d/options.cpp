#include "tools/nat64d/options.h"

#include <CLI/CLI.hpp>

namespace {

constexpr int usage_status = 2;

}  // namespace

int read_options(int argc, const char *const *argv, daemon_options_t &options) {
    CLI::App app("Keeps a NAT64 server in the state that a document says", "nat64d");
    app.set_version_flag("--version", "nat64d " NAT64D_VERSION "\n", "Prints the version");
    app.add_option("server", options.server, "Name of the server, as natctl --connect takes it")
        ->required()
        ->type_name("SERVER");
    app.add_option("--config", options.config, "The document")->required()->type_name("FILE");
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
    return -1;
}
