/* Fixture of the library on the host platform, with a server that records every message and answers only when a test
 * says so. A test fails if it leaves anything allocated, or frees anything twice. */
#ifndef TESTS_LIBRARY_LIBRARY_FIXTURE_H
#define TESTS_LIBRARY_LIBRARY_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <sstream>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "platform/tbm.h"
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
    void SetUp() override {
        self = this;
        fwx_host_fault_reset();
        fwx_host_debug_sink_set(on_line, nullptr);
        fwx_host_cgm_observe(on_cgm_return, nullptr);
        loop = fwx_host_loop_create();
        ASSERT_EQ(fwx_host_server_register("fwx_cp", loop, &server_ops, nullptr, &server), 0u);
    }

    void TearDown() override {
        on_call = nullptr;
        fwx_host_fault_reset();
        fwx_nat64_unbind();
        fwx_mapt_plu_cleanup();
        pump();
        fwx_host_server_unregister(server);
        fwx_host_loop_destroy(loop);
        fwx_host_debug_sink_set(nullptr, nullptr);
        fwx_host_debug_level_set(FWX_NAT64_DEBUG_MODULE, 0);
        fwx_host_cgm_observe(nullptr, nullptr);
        debug_flags_set(1, 0);
        EXPECT_EQ(watch.left(), "");
        EXPECT_EQ(watch.errors().bad_frees, 0u);
    }

    uint32_t bind(const void *client_id = "PAL1") { return fwx_nat64_bind(client_id, loop, &unsol_cbs, &reply_cbs); }
    void pump() { fwx_host_loop_run_until_idle(loop); }
    /** Binds, answers the initial commands and forgets what was received and logged. */
    void bind_quietly() {
        ASSERT_EQ(bind(), 0u);
        pump();
        ASSERT_EQ(received.size(), 2u);
        deliver(reply_to(received[1], 0, 36));
        ASSERT_EQ(outstanding(), 0u);
        received.clear();
        logged.clear();
    }

    static fwx_nat64_client_info_t *info() { return fwx_nat64_client_info_get(); }
    static size_t outstanding() { return outstanding_commands(); }
    /** Returns the debug flags, '1' for on: error, warning, info, trace. */
    static std::string flags() {
        const fwx_nat64_dbg_flags_t &f = fwx_nat64_dbg_flags;
        return std::to_string(*f.error) + std::to_string(*f.warning) + std::to_string(*f.info) +
               std::to_string(*f.trace);
    }
    bool logged_line(const std::string &text) const {
        return std::find(logged.begin(), logged.end(), text) != logged.end();
    }

    /** Returns a reply of that type and of `size` bytes to a recorded command, with its context and epoch. */
    static bytes_t reply_to(const bytes_t &command, uint32_t type, size_t size, uint32_t result = 0) {
        bytes_t reply(std::max<size_t>(size, 36));
        put<uint32_t>(reply, 0, 0x0060C000 | type);
        put(reply, 16, get<uint64_t>(command, 16));
        put(reply, 24, get<uint32_t>(command, 24));
        put(reply, 32, result);
        return slice(reply, 0, size);
    }
    static bytes_t event(uint32_t code, size_t size) {
        bytes_t message(std::max<size_t>(size, 20));
        put<uint32_t>(message, 0, 0x0060C001);
        put(message, 16, code);
        return slice(message, 0, size);
    }
    void deliver(const bytes_t &message) {
        ASSERT_NE(peer, nullptr);
        ASSERT_EQ(fwx_host_peer_send(peer, message.data(), message.size()), 0u);
        pump();
    }
    static void expect_message(const bytes_t &message, size_t size, const std::vector<field_t> &fields) {
        SCOPED_TRACE(hex(message));
        EXPECT_EQ(message.size(), size);
        for (const field_t &field : fields) {
            const size_t width = (strlen(field.bytes) + 1) / 3;
            EXPECT_EQ(hex(slice(message, field.offset, width)), field.bytes) << "at " << field.offset;
        }
    }

    fwx_host_loop_t *loop = nullptr;
    fwx_host_server_t *server = nullptr;
    fwx_host_peer_t *peer = nullptr;
    size_t channels_opened = 0;
    std::vector<bytes_t> received;  /* messages to the server, asynchronous and synchronous, in order */
    bool pauses_after_each = false; /* the server pauses after each asynchronous message */
    uint32_t sync_result = 0;       /* result of the answers to synchronous commands */
    bytes_t sync_extra;             /* bytes after this result */
    lines_t logged;                 /* lines of both debug channels with their level: "error: \ntext" */
    /** Calls of the PAL's callbacks: "walk 40 5600000056 64 2: d1 d2 d3" is a callback, its arguments in hexadecimal
     * and its first bytes of data. A call with a context other than the fixture says so. */
    lines_t calls;
    bytes_t data;                  /* the first 24 bytes of data of the last call that had any */
    uint32_t stop_value = 0;       /* result of query and walk callbacks */
    std::function<void()> on_call; /* run by the callbacks of the PAL and of the classifier manager */
    std::vector<std::pair<void *, uint32_t>> cgm_returns;
    fwx_nat64_reply_cbs_t reply_cbs{
        [](fwx_nat64_cmd_result_t *r) { record("cfg", r->pal_ctx, {r->result}); },
        [](void *ctx, uint32_t count, void *at) { return record("sys", ctx, {count}, at); },
        [](void *ctx, uint32_t count, uint32_t value, void *at) {
            return record("intf", ctx, {count, value}, at);
        },
        [](void *ctx, uint32_t count, uint64_t value, uint32_t value2, void *at) {
            return record("pool", ctx, {count, value, value2}, at);
        },
        [](void *ctx, uint32_t count, uint32_t value, void *at) {
            return record("limit", ctx, {count, value}, at);
        },
        [](void *ctx, uint32_t count, uint64_t value, uint32_t value2, void *at) {
            return record("mapping", ctx, {count, value, value2}, at);
        },
    };
    fwx_nat64_unsol_cbs_t unsol_cbs{nullptr,
                                    [](uint32_t op, const void *at) {
                                        uint32_t words[3];
                                        memcpy(words, at, sizeof words);
                                        record("record", self, {op, words[0], words[1], words[2]});
                                    },
                                    [] { record("event", self, {}); }};
    platform_watch_t watch;

public:
    /** The callback that session walks use. */
    static uint32_t walk_cb(void *ctx, uint32_t count, void *at, uint64_t value, uint32_t value2, uint32_t status) {
        return record("walk", ctx, {count, value, value2, status}, at);
    }

private:
    static bytes_t copy_of(const void *at, size_t size) {
        const auto *bytes = static_cast<const uint8_t *>(at);
        return {bytes, bytes + size};
    }
    void run_on_call() const {
        const std::function<void()> act = on_call; /* copied, because it may set another one */
        if (act) act();
    }
    static uint32_t record(const char *callback, const void *pal_ctx, std::initializer_list<uint64_t> arguments,
                           const void *at = nullptr) {
        std::ostringstream line;
        line << callback << std::hex;
        for (const uint64_t argument : arguments) {
            line << " " << argument;
        }
        if (at != nullptr) {
            self->data = copy_of(at, 24);
            line << ": " << hex(slice(self->data, 0, 3));
        }
        if (pal_ctx != self) line << (pal_ctx == nullptr ? ", no context" : ", another context");
        self->calls.push_back(line.str());
        const uint32_t stop = self->stop_value;
        self->run_on_call();
        return stop;
    }
    static void on_line(void *, fwx_host_debug_channel_t channel, uint32_t level, const char *text) {
        static constexpr const char *levels[] = {"", "error: ", "warning: ", "info: ", "trace: "};
        const char *where = channel == FWX_HOST_DEBUG_CONSOLE ? "console: " : levels[level];
        self->logged.push_back(std::string(where) + text);
    }
    static void on_cgm_return(void *, uint32_t client_id, void *cgm_ctx, uint32_t result) {
        EXPECT_EQ(client_id, 20u);
        self->cgm_returns.emplace_back(cgm_ctx, result);
        self->run_on_call();
    }

    static inline library_fixture_t *self = nullptr;
    static const fwx_host_server_ops_t server_ops;
};

inline const fwx_host_server_ops_t library_fixture_t::server_ops = {
    [](void *, fwx_host_peer_t *opened) {
        self->peer = opened;
        ++self->channels_opened;
    },
    [](void *, fwx_host_peer_t *gone) {
        if (self->peer == gone) self->peer = nullptr;
    },
    [](void *, fwx_host_peer_t *, const void *msg, size_t size) {
        self->received.push_back(copy_of(msg, size));
        if (self->pauses_after_each) fwx_host_server_pause(self->server, 1);
    },
    [](void *, fwx_host_peer_t *, const void *msg, size_t size, void *reply, size_t reply_cap) {
        self->received.push_back(copy_of(msg, size));
        bytes_t answer(20);
        memcpy(answer.data(), msg, 4);
        put(answer, 16, self->sync_result);
        answer.insert(answer.end(), self->sync_extra.begin(), self->sync_extra.end());
        const size_t written = std::min(answer.size(), reply_cap);
        memcpy(reply, answer.data(), written);
        return written;
    },
};

/** A library that is bound, whose initial commands are answered and forgotten. */
class bound_library_t : public library_fixture_t {
protected:
    void SetUp() override {
        library_fixture_t::SetUp();
        bind_quietly();
    }
    /** Sends a command or query of a message number, and returns it as the server received it. */
    bytes_t send(uint32_t msgno) {
        const fwx_nat64_sess_walk_filter_t filter{};
        const fwx_nat64_mapt_dmr_t dmr = {1, {}};
        const std::map<uint32_t, std::function<uint32_t()>> commands = {
            {3, [&] { return fwx_nat64_ipalias_upload_a(this); }},
            {4, [&] { return fwx_nat64_stats_sys_query_a(0, this); }},
            {5, [&] { return fwx_nat64_stats_intf_query_a(this); }},
            {6, [&] { return fwx_nat64_stats_pool_all_query_a(0, nullptr, 1, 0, this); }},
            {7, [&] { return fwx_nat64_stats_mapping_all_query_a(0, nullptr, 1, 0, this); }},
            {8, [&] { return fwx_nat64_stats_limit_all_query_a(0, 1, this); }},
            {9, [&] { return fwx_nat64_session_walk_a(1, &filter, 0, 0, 0, walk_cb, this); }},
            {13, [&] { return fwx_nat64_mapt_dmr_set_a(1, &dmr, this); }},
        };
        EXPECT_EQ(commands.at(msgno)(), 0u);
        pump();
        return received.back();
    }
};

inline fwx_nat64_mapt_bmr_t rule(uint32_t rule_id, uint32_t domain_id, uint8_t v4_third = 2, uint8_t v4_len = 24,
                                 uint8_t v6_fourth = 0xb8, uint8_t v6_len = 32) {
    return {rule_id, domain_id, {0x20, 0x01, 0x0d, v6_fourth, 0x12, 0x34, 0x56, 0x78}, v6_len, {192, 0, v4_third, 0},
            v4_len,  {}};
}

const bytes_t v4_key = {0xb0, 0x00, 0x00, 0x80}; /* 192.0.2.0/24 */

/** Drives the rule table through the library's exported functions and through replies of the server. */
class rule_table_test_t : public library_fixture_t {
protected:
    /** Returns the server's answer to an add or delete, with the fields that the rule table reads. */
    static bytes_t answer(uint32_t rule_id, uint32_t domain_id, uint32_t index, uint32_t op = 1, uint32_t cleanup = 0) {
        bytes_t reply(64);
        put(reply, 40, rule_id);
        put(reply, 44, domain_id);
        put(reply, 52, op);
        put(reply, 56, cleanup);
        put(reply, 60, index);
        return reply;
    }
    static uint32_t install(const fwx_nat64_mapt_bmr_t &bmr, uint32_t index) {
        const uint32_t rc = fwx_mapt_plu_add_pending_rule(&bmr);
        return rc != 0 ? rc : fwx_mapt_plu_add_rule(answer(bmr.rule_id, bmr.domain_id, index).data());
    }
    static uint64_t leaves() {
        fwx_host_tbm_counts_t counts{};
        tbm_t *tree = fwx_host_tbm_of_complex(0);
        if (tree != nullptr) fwx_host_tbm_counts_get(tree, &counts);
        return counts.leaves;
    }
    static std::string leaf(const bytes_t &key, uint32_t bits) {
        tbm_t *tree = fwx_host_tbm_of_complex(0);
        uint32_t rc = 0;
        bytes_t padded = key;
        padded.resize(64);
        const tbm_leaf_t *found = tbm_exact_match(tree, padded.data(), bits, &rc);
        if (rc != 0 || found == nullptr) return "";
        const uint8_t *data = fwx_host_tbm_leaf_data(tree, found);
        return hex(bytes_t(data, data + 16));
    }
    static std::string index_data(uint8_t index) {
        return "00 00 00 00 00 00 00 " + hex({index}) + " 00 00 00 00 00 00 00 00";
    }
    void SetUp() override {
        library_fixture_t::SetUp();
        ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    }
};

#endif
