/* Debug output: which flag or debug level opens which channel, and the environment variables that switch flags on. */
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
        deliver(event(1, 20));
        fwx_host_fault_arm(FWX_HOST_OP_CALLOC, 1, 0);
        deliver(reply_to(bytes_t(32), 0, 5000)); /* too long for the receive buffer */
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

TEST_F(debug_test_t, each_flag_opens_its_level_and_the_debug_level_those_of_its_own_channel) {
    bind_quietly();
    fwx_nat64_dbg_error_set(0);
    struct {
        void (*set)(uint32_t);
        const char *level;
    } const flags[] = {{fwx_nat64_dbg_error_set, "e"},
                       {fwx_nat64_dbg_warning_set, "w"},
                       {fwx_nat64_dbg_info_set, "i"},
                       {fwx_nat64_dbg_trace_set, "t"}};
    static constexpr const char *of_level[] = {"", "e", "ew", "ewi", "ewit", "ewit"};
    for (uint32_t level = 0; level <= 5; ++level) {
        fwx_host_debug_level_set(FWX_NAT64_DEBUG_MODULE, level);
        for (const auto &flag : flags) {
            flag.set(7);
            provoke();
            flag.set(0);
            EXPECT_EQ(levels(false), flag.level);
            EXPECT_EQ(levels(true), of_level[level]);
        }
    }
    fwx_nat64_dbg_error_set(1);
    provoke();
    ASSERT_GE(logged.size(), 2u);
    EXPECT_EQ(logged[0], "error: \nfwx_nat64_client_async_cmd_send msg_send failed Input/output error");
    EXPECT_EQ(logged[1], "error: \nNAT64: \nfwx_nat64_client_async_cmd_send msg_send failed Input/output error");
}

TEST_F(debug_test_t, the_environment_switches_flags_on_in_order_and_never_off) {
    struct {
        const char *variable, *line, *flags;
    } const cases[] = {
        {"FWX_NAT64_DBG_ERRORS", "console: \nFWX NAT64 EA: enable error debug messages", "1000"},
        {"FWX_NAT64_DBG_WARNING", "console: \nFWX NAT64 EA: enable warning debug messages", "1100"},
        {"FWX_NAT64_DBG_TRACE", "console: \nFWX NAT64 EA: enable trace debug messages", "1101"},
        {"FWX_NAT64_DBG_INFO", "console: \nFWX NAT64 EA: enable info debug messages", "1111"},
    };
    fwx_nat64_dbg_error_set(0);
    std::vector<std::string> lines;
    for (const auto &entry : cases) { /* each round sets one more variable */
        setenv(entry.variable, entry.variable == cases[0].variable ? "" : "0", 1);
        lines.emplace_back(entry.line);
        logged.clear();
        fwx_nat64_dbg_init();
        EXPECT_EQ(logged, lines);
        EXPECT_EQ(flags(), entry.flags);
    }
    for (const auto &entry : cases)
        unsetenv(entry.variable);
    fwx_nat64_dbg_init();
    EXPECT_EQ(flags(), "1111");
}
