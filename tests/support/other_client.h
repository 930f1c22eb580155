/* A client of a server process that is neither natctl nor nat64d, and therefore takes no lock. */
#ifndef TESTS_SUPPORT_OTHER_CLIENT_H
#define TESTS_SUPPORT_OTHER_CLIENT_H

#include <gtest/gtest.h>

#include "fwx_host/adapter.hpp"

/** Calls `use` with a client of the server, and runs the command that it returns. Returns false when that fails. */
template <typename use_t>
bool as_other_client(use_t use, const char *server = "alpha") {
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, server);
    bool is_done = false;
    {
        const fwx::host::loop loop;
        std::error_code error;
        fwx::nat64::client client("othr", loop.get(), {}, fwx::host::adapter, error);
        const auto run = [&]() -> fwx::nat64::task<fwx::nat64::result> { co_return co_await use(client); };
        is_done = !error && loop.run(run());
    }
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
    fwx_mapt_plu_cleanup();
    return is_done;
}

inline bool others_add_pool(uint32_t id, fwx::nat64::ipv4_address address, const char *server = "alpha") {
    return as_other_client(
        [=](fwx::nat64::client &client) {
            return client.pool_add(fwx::nat64::pool{.id = id, .start = address, .end = address});
        },
        server);
}
inline bool others_delete_pool(uint32_t id) {
    return as_other_client([=](fwx::nat64::client &client) { return client.pool_del(fwx::nat64::pool{.id = id}); });
}

#endif
