#include "library_fixture.h"

namespace {

class debug_test_t : public library_fixture_t {
protected:
    /** Provokes one line at each level: an error, a warning, an info and a trace. */
    void provoke() {
        logged.clear();
        fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, 5);
        EXPECT_EQ(fwx_nat64_ipalias_upload_a(nullptr), 5u);
        bytes_t foreign = reply_to(bytes_t(32), 0, 36);
        put(foreign, 24, info()->epoch + 1);
        deliver(foreign);
        bytes_t event(20);
        put<uint32_t>(event, 0, 0x0060C001);
        put<uint32_t>(event, 16, 1);
        deliver(event);
        bytes_t too_long = reply_to(bytes_t(32), 0, 5000);
        fwx_host_fault_arm(FWX_HOST_OP_CALLOC, 1, 0);
        deliver(too_long);
    }
    std::string levels(bool level_channel) const {
        std::string result;
        for (const std::string &line : logged) {
            if ((line.find(": \nNAT64: \n") != std::string::npos) == level_channel) result += line.substr(0, 1);
        }
        return result;
    }
};

}  // namespace

TEST_F(debug_test_t, each_flag_opens_its_level_on_the_flag_channel_alone) {
    bind_quietly();
    provoke();
    EXPECT_EQ(levels(false), "e");
    EXPECT_EQ(levels(true), "");
    fwx_nat64_dbg_error_set(0);
    fwx_nat64_dbg_warning_set(7);
    provoke();
    EXPECT_EQ(levels(false), "w");
    fwx_nat64_dbg_warning_set(0);
    fwx_nat64_dbg_info_set(1);
    provoke();
    EXPECT_EQ(levels(false), "i");
    fwx_nat64_dbg_info_set(0);
    fwx_nat64_dbg_trace_set(1);
    provoke();
    EXPECT_EQ(levels(false), "t");
}

TEST_F(debug_test_t, the_debug_level_opens_the_level_channel_whatever_the_flags_say) {
    bind_quietly();
    fwx_nat64_dbg_error_set(0);
    static constexpr const char *expected[] = {"", "e", "ew", "ewi", "ewit", "ewit"};
    for (uint32_t level = 0; level <= 5; ++level) {
        fwx_host_debug_level_set(0x1c000000, level);
        provoke();
        EXPECT_EQ(levels(true), expected[level]);
        EXPECT_EQ(levels(false), "");
    }
    fwx_nat64_dbg_error_set(1);
    fwx_host_debug_level_set(0x1c000000, 1);
    provoke();
    EXPECT_EQ(logged, (std::vector<std::string>{
                          "error: \nfwx_nat64_client_async_cmd_send msg_send failed Input/output error",
                          "error: \nNAT64: \nfwx_nat64_client_async_cmd_send msg_send failed Input/output error"}));
}

TEST_F(debug_test_t, the_environment_switches_flags_on_in_order_and_never_off) {
    fwx_nat64_dbg_error_set(0);
    setenv("FWX_NAT64_DBG_ERRORS", "", 1);
    setenv("FWX_NAT64_DBG_TRACE", "0", 1);
    setenv("FWX_NAT64_DBG_INFO", "x", 1);
    unsetenv("FWX_NAT64_DBG_WARNING");
    fwx_nat64_dbg_warning_set(3);
    fwx_nat64_dbg_init();
    for (const char *name : {"FWX_NAT64_DBG_ERRORS", "FWX_NAT64_DBG_TRACE", "FWX_NAT64_DBG_INFO"})
        unsetenv(name);
    EXPECT_EQ(logged, (std::vector<std::string>{"console: \nFWX NAT64 EA: enable error debug messages",
                                                "console: \nFWX NAT64 EA: enable trace debug messages",
                                                "console: \nFWX NAT64 EA: enable info debug messages"}));
    EXPECT_EQ(*fwx_nat64_dbg_flags.error, 1u);
    EXPECT_EQ(*fwx_nat64_dbg_flags.warning, 3u);
    EXPECT_EQ(*fwx_nat64_dbg_flags.info, 1u);
    EXPECT_EQ(*fwx_nat64_dbg_flags.trace, 1u);
}

TEST_F(debug_test_t, the_flag_set_is_six_pointers_in_the_platforms_order) {
    const auto *slots = reinterpret_cast<const void *const *>(&fwx_nat64_dbg_flags);
    EXPECT_EQ(sizeof(fwx_nat64_dbg_flags), 48u);
    EXPECT_EQ(slots[0], nullptr);
    EXPECT_EQ(slots[1], fwx_nat64_dbg_flags.error);
    EXPECT_EQ(slots[2], fwx_nat64_dbg_flags.info);
    EXPECT_EQ(slots[3], fwx_nat64_dbg_flags.trace);
    EXPECT_EQ(slots[4], fwx_nat64_dbg_flags.warning);
    EXPECT_EQ(slots[5], nullptr);
}
