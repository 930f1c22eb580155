/* Resources that this process uses, for the process_* metrics. */
#ifndef TOOLS_NAT64D_PROCESS_USAGE_H
#define TOOLS_NAT64D_PROCESS_USAGE_H

#include <cstdint>

struct process_usage_t {
    double cpu_s = 0;   /* of user and system */
    double start_s = 0; /* start time, seconds since the epoch */
    uint64_t resident_bytes = 0;
    uint64_t virtual_bytes = 0;
    uint64_t open_fds = 0;
    uint64_t most_fds = 0;
};

/** Values that cannot be determined are 0. */
process_usage_t process_usage();

#endif
