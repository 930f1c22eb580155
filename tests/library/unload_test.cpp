/* The library loaded at run time: unloading it while bound reports the outstanding commands. */
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "tests/support/platform_watch.h"
#include "tests/support/zero_server.h"

namespace {

std::vector<uint32_t> results;
std::vector<std::string> console;
/* An unload does not free the memory of the binding. Kept reachable here, it is not reported as a leak. */
std::vector<fwx_nat64_client_info_t *> &left_behind = *new std::vector<fwx_nat64_client_info_t *>;

/* A message that is framed before the unload, and the result of sending it during the unload. */
decltype(fwx_nat64_client_async_cmd_send) *send = nullptr;
void *framed = nullptr;
uint32_t sent = 0;

template <typename fn_t>
fn_t *symbol(void *library, const char *name) {
    return reinterpret_cast<fn_t *>(dlsym(library, name));
}

}  // namespace

TEST(unload_test, unloading_while_bound_reports_every_outstanding_command_and_a_fresh_load_starts_anew) {
    setenv("FWX_NAT64_DBG_WARNING", "", 1);
    fwx_host_debug_sink_set(
        [](void *, fwx_host_debug_channel_t channel, uint32_t, const char *text) {
            if (channel == FWX_HOST_DEBUG_CONSOLE) console.emplace_back(text);
        },
        nullptr);
    fwx_nat64_reply_cbs_t callbacks{};
    callbacks.cfg_reply_cb = [](fwx_nat64_cmd_result_t *result) {
        results.push_back(result->result);
        if (framed != nullptr) sent = send(std::exchange(framed, nullptr), 40);
    };

    for (int load = 0; load < 3; ++load) {
        results.clear();
        console.clear();
        void *library = dlopen(FWX_NAT64_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        fwx_host_loop_t *loop = fwx_host_loop_create();
        fwx_host_server_t *server = nullptr;
        ASSERT_EQ(fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &zero_server_ops, nullptr, &server), 0u);
        const auto bind = symbol<decltype(fwx_nat64_bind)>(library, "fwx_nat64_bind");
        const auto unbind = symbol<decltype(fwx_nat64_unbind)>(library, "fwx_nat64_unbind");
        const auto upload = symbol<decltype(fwx_nat64_ipalias_upload_a)>(library, "fwx_nat64_ipalias_upload_a");

        ASSERT_EQ(bind(nullptr, loop, nullptr, &callbacks), 0u);
        EXPECT_EQ(console, std::vector<std::string>{"\nFWX NAT64 EA: enable warning debug messages"});
        unbind();
        ASSERT_EQ(bind(nullptr, loop, nullptr, &callbacks), 0u);
        EXPECT_EQ(console.size(), 1u) << "the environment is read once a load";
        for (int i = 0; i < 5; ++i) {
            ASSERT_EQ(upload(nullptr), 0u);
        }
        const bool stay_bound = load != 1;
        if (stay_bound) {
            const auto frame =
                symbol<decltype(fwx_nat64_client_async_cmd_init)>(library, "fwx_nat64_client_async_cmd_init");
            send = symbol<decltype(fwx_nat64_client_async_cmd_send)>(library, "fwx_nat64_client_async_cmd_send");
            ASSERT_EQ(frame(40, FWX_NAT64_MSG_CONFIG, nullptr, nullptr, &framed), 0u);
            sent = 0;
        } else {
            unbind();
        }
        left_behind.push_back(symbol<decltype(fwx_nat64_client_info_get)>(library, "fwx_nat64_client_info_get")());
        ASSERT_EQ(dlclose(library), 0);
        EXPECT_EQ(dlopen(FWX_NAT64_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "really unloaded";
        EXPECT_EQ(results, std::vector<uint32_t>(stay_bound ? 5 : 0, FWX_NAT64_ERR_AGAIN));
        EXPECT_EQ(sent, FWX_NAT64_ERR_NOT_READY) << "nothing is sent any more";

        fwx_host_server_unregister(server);
        fwx_host_loop_destroy(loop);
        EXPECT_EQ(live().pool_elements + live().tx_buffers + live().channels, 0u);
    }
    fwx_host_debug_sink_set(nullptr, nullptr);
    unsetenv("FWX_NAT64_DBG_WARNING");
}
