/* What goes through this process's sockets, whoever writes and reads them by send and recv. */
#ifndef BENCH_SOCKET_METER_H
#define BENCH_SOCKET_METER_H

#include <cstdint>

struct traffic_t {
    uint64_t received_bytes = 0;
    uint64_t requests = 0; /* POSTs of HTTP */
};

/** Until now. */
const traffic_t &traffic();

#endif
