#include "library_fixture.h"

#include <map>
#include <sstream>

library_fixture_t *library_fixture_t::self = nullptr;

namespace {

bytes_t copy_of(const void *msg, size_t size) {
    const auto *at = static_cast<const uint8_t *>(msg);
    return {at, at + size};
}

}  // namespace

const fwx_host_server_ops_t library_fixture_t::server_ops = {
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

void library_fixture_t::run_on_call() const {
    const std::function<void()> act = on_call; /* copied, because it may set another one */
    if (act) act();
}

uint32_t library_fixture_t::record(const char *callback, const void *pal_ctx, std::initializer_list<uint64_t> arguments,
                                   const void *data) {
    std::ostringstream line;
    line << callback << std::hex;
    for (const uint64_t argument : arguments) {
        line << " " << argument;
    }
    if (data != nullptr) {
        self->data = copy_of(data, 24);
        line << ": " << hex(slice(self->data, 0, 3));
    }
    if (pal_ctx != self) line << (pal_ctx == nullptr ? ", no context" : ", another context");
    self->calls.push_back(line.str());
    const uint32_t stop = self->stop_value;
    self->run_on_call();
    return stop;
}

uint32_t library_fixture_t::walk_cb(void *pal_ctx, uint32_t count, void *data, uint64_t value, uint32_t value2,
                                    uint32_t status) {
    return record("walk", pal_ctx, {count, value, value2, status}, data);
}

void library_fixture_t::SetUp() {
    self = this;
    fwx_host_fault_reset();
    fwx_host_debug_sink_set(
        [](void *, fwx_host_debug_channel_t channel, uint32_t level, const char *text) {
            static constexpr const char *levels[] = {"", "error: ", "warning: ", "info: ", "trace: "};
            const char *where = channel == FWX_HOST_DEBUG_CONSOLE ? "console: " : levels[level];
            self->logged.push_back(std::string(where) + text);
        },
        nullptr);
    fwx_host_cgm_observe(
        [](void *ctx, uint32_t client_id, void *cgm_ctx, uint32_t result) {
            EXPECT_EQ(client_id, 20u);
            static_cast<library_fixture_t *>(ctx)->cgm_returns.emplace_back(cgm_ctx, result);
            self->run_on_call();
        },
        this);
    loop = fwx_host_loop_create();
    ASSERT_EQ(fwx_host_server_register("fwx_cp", loop, &server_ops, nullptr, &server), 0u);

    reply_cbs = {
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
    unsol_cbs.record_cb = [](uint32_t op, const void *at) {
        uint32_t words[3];
        memcpy(words, at, sizeof words);
        record("record", self, {op, words[0], words[1], words[2]});
    };
    unsol_cbs.event_cb = [] { record("event", self, {}); };
}

void library_fixture_t::TearDown() {
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
    self = nullptr;
}

uint32_t library_fixture_t::bind(const void *client_id) {
    return fwx_nat64_bind(client_id, loop, &unsol_cbs, &reply_cbs);
}

void library_fixture_t::bind_quietly() {
    ASSERT_EQ(bind(), 0u);
    pump();
    ASSERT_EQ(received.size(), 2u);
    deliver(reply_to(received[1], 0, 36));
    ASSERT_EQ(outstanding(), 0u);
    received.clear();
    logged.clear();
}

bytes_t library_fixture_t::reply_to(const bytes_t &command, uint32_t type, size_t size, uint32_t result) {
    bytes_t reply(std::max<size_t>(size, 36));
    put<uint16_t>(reply, 0, static_cast<uint16_t>(0xC000 | type));
    put<uint16_t>(reply, 2, 96);
    put(reply, 16, get<uint64_t>(command, 16));
    put(reply, 24, get<uint32_t>(command, 24));
    put(reply, 32, result);
    reply.resize(size);
    return reply;
}

bytes_t library_fixture_t::event(uint32_t code, size_t size) {
    bytes_t message(std::max<size_t>(size, 20));
    put<uint32_t>(message, 0, 0x0060C001);
    put(message, 16, code);
    message.resize(size);
    return message;
}

void library_fixture_t::deliver(const bytes_t &message) {
    ASSERT_NE(peer, nullptr);
    ASSERT_EQ(fwx_host_peer_send(peer, message.data(), message.size()), 0u);
    pump();
}

void library_fixture_t::expect_message(const bytes_t &message, size_t size, const std::vector<field_t> &fields) {
    SCOPED_TRACE(hex(message));
    EXPECT_EQ(message.size(), size);
    for (const field_t &field : fields) {
        const size_t width = (strlen(field.bytes) + 1) / 3;
        EXPECT_EQ(hex(slice(message, field.offset, width)), field.bytes) << "at " << field.offset;
    }
}

void library_fixture_t::break_channel() {
    fwx_host_peer_drop(peer);
    pump();
}

bool library_fixture_t::logged_line(const std::string &text) const {
    return std::find(logged.begin(), logged.end(), text) != logged.end();
}

fwx_host_live_t library_fixture_t::live() {
    fwx_host_live_t now;
    fwx_host_live_get(&now);
    return now;
}

std::string library_fixture_t::flags() {
    const fwx_nat64_dbg_flags_t &f = fwx_nat64_dbg_flags;
    return std::to_string(*f.error) + std::to_string(*f.warning) + std::to_string(*f.info) + std::to_string(*f.trace);
}

bytes_t bound_library_t::send(uint32_t msgno) {
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
