#include "tools/nat64d/options.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <utility>

#include "net/json.h"
#include "tools/command_line.h"

namespace {

std::string host_name() {
    char name[HOST_NAME_MAX + 1] = "";
    return gethostname(name, sizeof name) == 0 ? name : "";
}

}  // namespace

int read_options(int argc, const char *const *argv, daemon_options_t &options) {
    command_spec_t root;
    root.name = "nat64d";
    root.version = "nat64d " NAT64D_VERSION "\n";
    root.summary = "Keeps a NAT64 server in sync with a document";
    store_options_t &store = options.store;
    word_field(root, "server", options.server, "Name of the server, as natctl --connect takes it", "SERVER").required();
    word_field(root, "--config", options.config, "The document: a file, or etcd://HOST:PORT[,...]/PREFIX", "FILE|URL")
        .required();
    word_field(root, "--gateway", options.gateway, "Name of this gateway in the store, by default the host's name",
               "NAME");
    word_field(root, "--ca", store.ca,
               "Authority that signed the store's certificate; the store is then reached by https", "FILE");
    word_field(root, "--cert", store.cert, "Client certificate for the store", "FILE");
    word_field(root, "--key", store.key, "Key of that certificate", "FILE");
    word_field(root, "--user", store.user, "User of the store", "NAME");
    word_field(root, "--password-file", store.password_file, "File with the user's password", "FILE");
    flag_field(root, "--insecure-plaintext", store.sends_plaintext,
               "Sends the password without TLS, so that others on the way can read it");
    word_field(root, "--listen", options.listen, "Loopback address and port for metrics, or none", "ADDRESS:PORT")
        .preset = options.listen;
    word_field(root, "--state", options.state,
               "Folder of the document in force and the versions, by default natctl's folder for that server",
               "FOLDER");
    number_field(root, "--series", options.series, "Most pools, and most mappings, with metrics of their own", 1,
                 1000000)
        .preset = std::to_string(options.series);
    number_field(root, "--debug-level", options.debug_level, "Debug level of the library: 0 silent to 4 trace", 0, 4);
    const int status = read_command_line(root, argc, argv);
    if (status >= 0) return status;
    if (options.listen == "none") options.listen.clear();
    if (is_store_url(options.config)) options.store.url = std::exchange(options.config, "");
    if (options.gateway.empty()) options.gateway = host_name();
    return -1;
}
