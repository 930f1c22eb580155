/* A minimal server. */
#ifndef TESTS_SUPPORT_ZERO_SERVER_H
#define TESTS_SUPPORT_ZERO_SERVER_H

#include <cstring>

#include "fwx_host/smc.h"

/** Ignores asynchronous messages, and answers synchronous ones with 20 bytes: their first word, and a result of 0. */
inline constexpr fwx_host_server_ops_t zero_server_ops = {
    nullptr, nullptr, [](void *, fwx_host_peer_t *, const void *, size_t) {},
    [](void *, fwx_host_peer_t *, const void *msg, size_t, void *reply, size_t) -> size_t {
        constexpr size_t result_bytes = 20;
        memset(reply, 0, result_bytes);
        memcpy(reply, msg, sizeof(uint32_t));
        return result_bytes;
    }};

#endif
