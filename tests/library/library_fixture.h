/* Fixture of the library on the host platform, with a server that records every message and answers only when a test
 * says so. A test fails if it leaves anything allocated, or frees anything twice. */
#ifndef TESTS_LIBRARY_LIBRARY_FIXTURE_H
#define TESTS_LIBRARY_LIBRARY_FIXTURE_H

#include <gtest/gtest.h>

#include <functional>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "tests/support/bytes.h"
#include "tests/support/outstanding.h"
#include "tests/support/platform_watch.h"

using lines_t = std::vector<std::string>;

struct field_t {
    size_t offset;
    const char *bytes;
};

class library_fixture_t : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    uint32_t bind(const void *client_id = "PAL1");
    void pump() { fwx_host_loop_run_until_idle(loop); }
    /** Binds, answers the initial commands and forgets what was received and logged. */
    void bind_quietly();

    static fwx_nat64_client_info_t *info() { return fwx_nat64_client_info_get(); }
    static size_t outstanding() { return outstanding_commands(); }

    /** Returns a reply of that type and of `size` bytes to a recorded command, with its context and epoch. */
    static bytes_t reply_to(const bytes_t &command, uint32_t type, size_t size, uint32_t result = 0);
    static bytes_t event(uint32_t code, size_t size);
    void deliver(const bytes_t &message);
    static void expect_message(const bytes_t &message, size_t size, const std::vector<field_t> &fields);
    /** Drops the client's connection to the server; the client sees a channel error. */
    void break_channel();

    /** Lines of both debug channels with their level ("error: \ntext"), in order. */
    lines_t logged;
    bool logged_line(const std::string &text) const;
    static fwx_host_live_t live();
    /** Returns the debug flags, '1' for on: error, warning, info, trace. */
    static std::string flags();

    fwx_host_loop_t *loop = nullptr;
    fwx_host_server_t *server = nullptr;
    fwx_host_peer_t *peer = nullptr;
    size_t channels_opened = 0;
    std::vector<bytes_t> received;  /* messages to the server, asynchronous and synchronous, in order */
    bool pauses_after_each = false; /* the server pauses after each asynchronous message */
    uint32_t sync_result = 0;       /* result of the answers to synchronous commands */
    bytes_t sync_extra;             /* bytes after this result */
    /** Calls of the PAL's callbacks: "walk 40 5600000056 64 2: d1 d2 d3" is a callback, its arguments in hexadecimal
     * and its first bytes of data. A call with a context other than the fixture says so. */
    lines_t calls;
    bytes_t data;                  /* the first 24 bytes of data of the last call that had any */
    uint32_t stop_value = 0;       /* result of query and walk callbacks */
    std::function<void()> on_call; /* run by the callbacks of the PAL and of the classifier manager */
    std::vector<std::pair<void *, uint32_t>> cgm_returns;
    fwx_nat64_reply_cbs_t reply_cbs{};
    fwx_nat64_unsol_cbs_t unsol_cbs{};
    platform_watch_t watch;

public:
    /** The callback that session walks use. */
    static uint32_t walk_cb(void *pal_ctx, uint32_t count, void *data, uint64_t value, uint32_t value2,
                            uint32_t status);

private:
    static library_fixture_t *self;
    static const fwx_host_server_ops_t server_ops;
    static uint32_t record(const char *callback, const void *pal_ctx, std::initializer_list<uint64_t> arguments,
                           const void *data = nullptr);
    void run_on_call() const;
};

/** A library that is bound, whose initial commands are answered and forgotten. */
class bound_library_t : public library_fixture_t {
protected:
    void SetUp() override {
        library_fixture_t::SetUp();
        bind_quietly();
    }
    /** Sends a command or query of a message number, and returns it as the server received it. */
    bytes_t send(uint32_t msgno);
};

#endif
