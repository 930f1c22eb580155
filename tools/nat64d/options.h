/* nat64d's command line. */
#ifndef TOOLS_NAT64D_OPTIONS_H
#define TOOLS_NAT64D_OPTIONS_H

#include <cstdint>
#include <string>

#include "fleet/store_url.h"

struct daemon_options_t {
    std::string server;
    std::string config;                    /* file with the document; empty: it comes from a store */
    store_options_t store;                 /* that it comes from, when there is no file */
    std::string gateway;                   /* what the store knows this one by */
    std::string listen = "127.0.0.1:9464"; /* for metrics; empty: nowhere */
    std::string state;                     /* folder; empty: where running_t looks */
    uint32_t series = 1000;                /* pools, and mappings, that have metrics of their own */
    uint32_t debug_level = 0;              /* of the library, 0 silent to 4 trace */
};

/** Reads the command line. Returns the exit status to end with at once, what had to be said is said then; -1: go on. */
int read_options(int argc, const char *const *argv, daemon_options_t &options);

#endif
