/* nat64d's command line. */
#ifndef TOOLS_NAT64D_OPTIONS_H
#define TOOLS_NAT64D_OPTIONS_H

#include <cstdint>
#include <string>

#include "fleet/store_url.h"

struct daemon_options_t {
    std::string server;
    std::string config;                    /* file of the document; empty: it comes from a store */
    store_options_t store;                 /* used if there is no file */
    std::string gateway;                   /* this gateway's name in the store */
    std::string listen = "127.0.0.1:9464"; /* address for metrics; empty: none */
    std::string state;                     /* folder; empty: state_directory_of(server) */
    uint32_t series = 1000;                /* most pools, and most mappings, with metrics of their own */
    uint32_t debug_level = 0;              /* of the library, 0 silent to 4 trace */
};

/** Reads the command line.
 * @return -1 to continue; otherwise the exit status with which to end, after the help or the error was printed. */
int read_options(int argc, const char *const *argv, daemon_options_t &options);

#endif
