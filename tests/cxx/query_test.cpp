/* Queries of the C++ interface: whole lists, replies one by one, walks, the configuration, and a server that sends
 * wrong replies. */
#include "cxx_fixture.h"
#include "tests/support/bytes.h"
#include "tests/support/zero_server.h"

namespace nat64 = fwx::nat64;
using namespace std::chrono_literals;

namespace {

using cxx_query_test_t = cxx_fixture_t;

/** The reply of the lying server to every query, from the result on, and a second reply unless it is empty. */
std::vector<uint8_t> scripted;
std::vector<uint8_t> scripted_next;

void lie(void *, fwx_host_peer_t *peer, const void *msg, size_t) {
    const std::vector<uint8_t> head(static_cast<const uint8_t *>(msg), static_cast<const uint8_t *>(msg) + 32);
    if (head[0] < 3) return; /* a message of the connection set-up */
    for (const std::vector<uint8_t> &reply : {scripted, scripted_next}) {
        std::vector<uint8_t> message = head;
        message.insert(message.end(), reply.begin(), reply.end());
        if (!reply.empty()) fwx_host_peer_send(peer, message.data(), message.size());
    }
}
constexpr fwx_host_server_ops_t liar = {nullptr, nullptr, lie, zero_server_ops.asked};

}  // namespace

TEST_F(cxx_query_test_t, a_list_is_whole_however_many_replies_and_queries_it_takes) {
    add_pools(2500);
    model->reply_limit_set(100 * sizeof(fwx_nat64_stats_pool_entry_t));
    const auto pools = run(client->stats_pools());
    EXPECT_TRUE(pools);
    ASSERT_EQ(pools.size(), 2500u);
    for (uint32_t i = 0; i < 2500; ++i)
        EXPECT_EQ(pools.entries[i].id, i + 1);

    size_t seen = 0;
    const auto take_300 = [&](std::span<const fwx_nat64_stats_pool_entry_t> entries) {
        return (seen += entries.size()) < 300;
    };
    EXPECT_TRUE(run(client->stats_pools(take_300)));
    EXPECT_EQ(seen, 300u);
    std::string ended;
    seen = 0;
    const auto held = std::make_shared<int>();
    EXPECT_TRUE(client->stats_pools(
        [&, held](std::span<const fwx_nat64_stats_pool_entry_t> entries) { seen += entries.size(); },
        [&](const nat64::result &got) { ended = got.error.message(); }));
    pump();
    EXPECT_EQ(ended + ' ' + std::to_string(seen), "Success 2500");
    EXPECT_EQ(held.use_count(), 1) << "the functions are destroyed with the list";
    for (uint32_t id = 1; id <= 2001; ++id)
        ASSERT_TRUE(client->smapping_add(nat64::static_mapping{.id = id}, ignored));
    EXPECT_EQ(run(client->stats_mappings()).size(), 2001u);
}

TEST_F(cxx_query_test_t, single_records_and_the_other_lists_come_with_their_values) {
    add_pools(3);
    const auto totals = run(client->stats_totals());
    const auto system = run(client->stats_system());
    const auto boot = run(client->stats_boot());
    const auto counts = run(client->stats_counts());
    EXPECT_TRUE(totals && system && boot && counts);
    EXPECT_EQ(totals.record.pools, 3u);
    EXPECT_EQ(system.record.holds.pools, 3u);
    EXPECT_NE(boot.record.boot_id, 0u);
    EXPECT_EQ(boot.record.changes, 3u);
    EXPECT_GE(counts.record.commands, 6u);
    EXPECT_TRUE(run(client->limit_add(nat64::limit{500})));
    const auto limits = run(client->stats_limits());
    EXPECT_TRUE(limits && run(client->stats_interfaces()) && run(client->stats_mappings()));
    EXPECT_EQ(limits.entries.at(0).value, 500u);
}

TEST_F(cxx_query_test_t, a_walk_gives_every_page_even_those_that_came_while_nobody_waited) {
    add_pools(1);
    model->sessions_generate(1000);
    const auto walk = [](nat64::client &c, bool is_slow) -> nat64::task<size_t> {
        size_t count = 0;
        uint64_t last = 0;
        auto sessions = c.sessions_full({}, 50);
        while (auto page = co_await sessions.next()) {
            for (const fwx_nat64_session_full_t &session : page) {
                EXPECT_GT(session.id, last);
                last = session.id;
            }
            count += page.size();
            if (is_slow) co_await c.pool_add(a_pool(1));
        }
        EXPECT_TRUE(sessions.end());
        EXPECT_FALSE(co_await sessions.next());
        co_return count;
    };
    EXPECT_EQ(run(walk(*client, false)), 1000u);
    EXPECT_EQ(run(walk(*client, true)), 1000u);
    {
        auto udp = client->sessions(nat64::session_filter{.ip_protocol = nat64::protocol::udp});
        EXPECT_EQ(run(udp.next()).size(), 100u);
    }
    EXPECT_EQ(client->outstanding(), 0u) << "the walk is dropped after its first page";
    client->close();
    auto refused = client->sessions();
    EXPECT_FALSE(run(refused.next()));
    EXPECT_EQ(refused.end().code(), FWX_NAT64_ERR_NOT_READY);
}

TEST_F(cxx_query_test_t, walks_beyond_the_servers_limit_wait_until_others_end) {
    model->sessions_generate(300);
    std::vector<nat64::task<size_t>> walks;
    for (int i = 0; i < 200; ++i)
        walks.push_back(begin(count([&] { return client->sessions_full({}, 10); })));
    for (size_t i = 0; i < 200; i += 4) /* the server still answers some of these walks, though nobody reads them */
        walks[i] = nat64::task<size_t>(nullptr);
    nat64::result callback;
    auto ask = [](void *pal_ctx, uint64_t cookie, uint64_t) {
        const fwx_nat64_sess_walk_filter_t all{};
        return fwx_nat64_session_walk_a(10, &all, cookie, 0, 0, nat64::client::walk_callback, pal_ctx);
    };
    const auto refused = [&](const nat64::result &end) { callback = end; };
    ASSERT_TRUE(client->query(
        ask, [](const nat64::page &) { return nat64::list_step::next; }, refused));
    pump();
    for (size_t i = 0; i < 200; ++i)
        EXPECT_TRUE(i % 4 == 0 || walks[i].get() == 300) << i;
    EXPECT_EQ(callback.code(), FWX_NAT64_MODEL_ERR_TOO_MANY);
    EXPECT_GT(model->counts().refused, 150u - FWX_NAT64_MODEL_LISTS_MAX);
    EXPECT_EQ(client->outstanding(), 0u);
}

TEST_F(cxx_query_test_t, a_list_that_waits_for_others_starts_though_one_before_it_was_dropped_or_fails) {
    model->fail_next(FWX_NAT64_MODEL_ERR_TOO_MANY, 3);
    const auto list = [&] { return client->stats_pools(); };
    nat64::task<> waiting[] = {begin(list), begin(list), begin(list)};
    const auto drop = [&](std::span<const fwx_nat64_stats_pool_entry_t>) { waiting[0] = nat64::task<>(nullptr); };
    const auto fail = [](const nat64::result &) { fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, 0); };
    EXPECT_TRUE(client->stats_pools(drop, fail));
    pump();
    EXPECT_EQ(ends_, std::vector({nat64::nat64_error(FWX_HOST_ERR_FAULT), std::error_code()}));
    {
        const nat64::task<size_t> dropped = begin(count([&] { return client->sessions(); }));
    }
    pump();
    model->fail_next(FWX_NAT64_MODEL_ERR_TOO_MANY, 1);
    EXPECT_EQ(run(client->stats_pools()).code(), FWX_NAT64_MODEL_ERR_TOO_MANY)
        << "the walk that was dropped is no longer counted";
}

TEST_F(cxx_query_test_t, a_list_whose_next_query_waits_for_room_is_counted_once) {
    add_pools(2500);
    size_t seen = 0;
    const auto fill_up_and_count = [&](std::span<const fwx_nat64_stats_pool_entry_t> pools) {
        if (seen == 0) fill_up();
        seen += pools.size();
    };
    const nat64::task<> whole = begin([&] { return client->stats_pools(fill_up_and_count); });
    pump();
    EXPECT_LT(seen, 2500U) << "the channel is full";
    model->pause_set(false);
    pump();
    EXPECT_EQ(ends_, std::vector(1, std::error_code()));
    EXPECT_EQ(seen, 2500U);
    model->fail_next(FWX_NAT64_MODEL_ERR_TOO_MANY, 1);
    EXPECT_EQ(run(client->stats_pools()).code(), FWX_NAT64_MODEL_ERR_TOO_MANY)
        << "it waits for no other list, since there is none";
}

TEST_F(cxx_query_test_t, the_deadline_of_a_list_begins_anew_with_each_reply) {
    model->sessions_generate(40);
    client->deadline_set(50ms);
    model->delay_set(40);
    nat64::task<size_t> slow = begin(count([&] { return client->sessions({}, 10); }));
    uint64_t waited_ms = 0;
    for (; !slow.done() && waited_ms < 1000; waited_ms += 10) {
        pump();
        fwx_host_clock_turn(10);
    }
    EXPECT_GT(waited_ms, 150U);
    EXPECT_EQ(slow.get(), 40U);
    model->delay_set(0);
    model->hold();
    const nat64::task<> whole = begin([&] { return client->stats_pools(); });
    pump();
    turn(50);
    EXPECT_EQ(ends_, std::vector({std::make_error_code(std::errc::timed_out)}));
    release();
}

TEST_F(cxx_query_test_t, the_configuration_comes_as_the_commands_that_make_it) {
    run(client->pool_add(a_pool(7)));
    run(client->mapt_bmr_add(a_rule(3)));
    run(client->mapt_dmr_add(nat64::default_rule{.id = 9, .value = "2001:db8:ffff::/64"}));
    nat64::running_configuration got = run(client->configuration());
    ASSERT_TRUE(got) << got.error.message();
    EXPECT_EQ(got.boot_id, model->boot().boot_id);
    EXPECT_EQ(got.changes, 3u);
    const auto word = [](auto... bytes) { return std::vector<uint8_t>{static_cast<uint8_t>(bytes)...}; };
    std::vector<std::vector<uint8_t>> items;
    got.for_each([&](const nat64::running_item &item) {
        std::vector<uint8_t> bytes = word(item.number, item.op_code);
        bytes.insert(bytes.end(), item.payload.begin(), item.payload.end());
        items.push_back(bytes);
    });
    std::vector<uint8_t> dmr = word(13, 1, 1, 0, 0, 0, 1, 0, 0, 0, 9, 0, 0, 0, 0x20, 0x01, 0x0d, 0xb8, 0xff, 0xff);
    dmr.resize(2 + FWX_NAT64_DMR_MSG_SIZE - sizeof(fwx_nat64_msg_hdr_t));
    dmr[2 + 12 + 16] = 64;
    EXPECT_EQ(items, (std::vector<std::vector<uint8_t>>{
                         word(3, FWX_NAT64_CFG_POOL_ADD, 7, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 7, 0, 0, 0, /* */
                              192, 0, 2, 56, 192, 0, 2, 63),
                         word(13, 0, 0, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, /* type, op, rule, domain */
                              0, 0, 0, 0, 0xb8, 0x0d, 0x01, 0x20, 40, 0, 0, 0, 0, 2, 0, 192, /* prefixes, turned */
                              24, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0), /* and the index */
                         dmr}));
}

TEST_F(cxx_query_test_t, a_configuration_that_changes_while_it_is_read_is_read_again_three_times_at_most) {
    add_pools(2500);
    model->reply_limit_set(4096);
    size_t readings = 0;
    size_t changes_left = 0;
    const auto read = [&](size_t changes) {
        readings = 0;
        changes_left = changes;
        nat64::task<nat64::running_configuration> task = begin(client->configuration());
        while (!task.done()) {
            const uint64_t page = model->counts().replies;
            fwx_host_loop_run_once(loop.get(), 0);
            const bool has_begun = model->counts().replies != page;
            if (has_begun && changes_left != 0) {
                --changes_left;
                ++readings;
                EXPECT_TRUE(client->pool_mod(a_pool(1), ignored));
            }
        }
        pump();
        return task.get();
    };
    EXPECT_TRUE(read(0));
    EXPECT_TRUE(read(1)) << "changed once";
    EXPECT_EQ(read(SIZE_MAX).error, nat64::client_errc::changing);
    EXPECT_GT(readings, 0u);
    size_t items = 0;
    run(client->configuration()).for_each([&](const nat64::running_item &) { ++items; });
    EXPECT_EQ(items, 2500u);
}

TEST_F(cxx_query_test_t, a_list_with_wrong_replies_ends_with_the_matching_error) {
    serve(liar);
    /* After the header: result, reserved, more, reserved, cookie, count, reserved, and the entries. */
    const auto reply = [](uint8_t result, uint8_t more, uint8_t cookie, uint8_t count, size_t entries) {
        std::vector<uint8_t> bytes(32 + entries * sizeof(fwx_nat64_stats_pool_entry_t));
        bytes[0] = result;
        bytes[8] = more;
        bytes[16] = cookie;
        bytes[24] = count;
        return bytes;
    };
    std::vector<uint8_t> half = reply(0, 0, 0, 3, 3);
    half.resize(half.size() - sizeof(fwx_nat64_stats_pool_entry_t) / 2);
    const std::tuple<const char *, std::vector<uint8_t>, std::error_code> rows[] = {
        {"refused", reply(9, 0, 0, 0, 0), nat64::nat64_error(9)},
        {"refused, short", std::vector<uint8_t>{9, 0, 0, 0}, nat64::nat64_error(9)},
        {"more entries than there are", reply(0, 0, 0, 3, 2), nat64::client_errc::list_short},
        {"an entry that is cut off", half, nat64::client_errc::list_short},
        {"nothing, and more", reply(0, 1, 0, 0, 0), nat64::client_errc::list_empty},
        {"nothing, and a cookie", reply(0, 0, 1, 0, 0), nat64::client_errc::list_empty},
        {"the same cookie again", reply(0, 0, 1, 1, 1), nat64::client_errc::list_stalled},
        {"good", reply(0, 0, 0, 1, 1), {}},
    };
    for (const auto &[what, bytes, error] : rows) {
        scripted = bytes;
        EXPECT_EQ(run(client->stats_pools()).error, error) << what;
        EXPECT_EQ(client->outstanding(), 0u) << what;
    }
    scripted = std::vector<uint8_t>(16 + sizeof(fwx_nat64_stats_sys_entry_t));
    EXPECT_EQ(run(client->stats_boot()).error, nat64::client_errc::unexpected_answer) << "another record";
    EXPECT_EQ(run(client->configuration()).error, nat64::client_errc::unreadable) << "totals for the configuration";

    /* Makes a page: its size, its number of entries, the size of the first entry, and the bytes after that entry's
     * header. */
    const auto page = [](uint8_t bytes, uint8_t entries, uint8_t size, size_t behind) {
        std::vector<uint8_t> made(16 + sizeof(fwx_nat64_config_page_t) + sizeof(fwx_nat64_config_entry_t) + behind);
        made[12] = FWX_NAT64_SEL_CONFIG;
        put<uint64_t>(made, 16, FWX_NAT64_CONFIG_MAGIC);
        made[24] = bytes;
        made[28] = entries;
        made[32] = 1;
        made[16 + sizeof(fwx_nat64_config_page_t) + 4] = size;
        return made;
    };
    const std::tuple<const char *, std::vector<uint8_t>, bool> pages[] = {
        {"good", page(48, 1, 5, 8), true},
        {"without entries", page(32, 0, 0, 8), true},
        {"more bytes than there are", page(49, 1, 5, 8), false},
        {"fewer than its head has", page(31, 0, 0, 8), false},
        {"an entry beyond the page", page(48, 1, 9, 8), false},
        {"an entry of nearly 4 GiB", page(48, 1, 255, 8), false},
        {"more entries than there are", page(48, 2, 5, 8), false},
        {"bytes that are no entry", page(48, 1, 0, 8), false},
    };
    for (const auto &[what, bytes, is_good] : pages) {
        scripted = bytes;
        const std::error_code error = run(client->configuration()).error;
        EXPECT_EQ(error, is_good ? std::error_code() : nat64::client_errc::list_short) << what;
    }
    scripted = scripted_next = page(48, 1, 5, 8);
    scripted[8] = 1; /* more follows */
    EXPECT_TRUE(run(client->configuration()));
    scripted_next[16 + offsetof(fwx_nat64_config_page_t, boot_id)] = 2;
    EXPECT_EQ(run(client->configuration()).error, nat64::client_errc::changing) << "a page of another run";
    scripted_next.clear();
}
