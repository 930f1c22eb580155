/* The scenarios of the fault sweep: different uses of a binding. Without a fault, every command is accepted. */
#include <cstdlib>
#include <cstring>

#include "records/reader.h"
#include "records/words.h"
#include "stage.h"

namespace {

constexpr uint32_t add = FWX_NAT64_OP_ADD;
constexpr uint32_t del = FWX_NAT64_OP_DEL;
constexpr uint32_t missing_leaf = 22;

/** Sends the configuration command of a line; the line is also the ticket's name. */
void configure(stage_t &stage, const char *line) {
    line_words_t words;
    record_reader_t reader;
    words.split(line);
    if (reader.read(words.words()) != record_reader_t::result_t::record) std::abort();
    stage.send(line, [&](void *ctx) { return reader.family().send(reader.verb().op, reader.record().bytes, ctx); });
}
void set_rule(stage_t &stage, uint32_t op, uint32_t id, uint8_t v4_net, uint32_t expected = 0, uint32_t verdict = 0) {
    const auto v6_net = static_cast<uint8_t>(id);
    const fwx_nat64_mapt_bmr_t rule = {id, 1, {0x20, 0x01, 0x0d, 0xb8, 0, v6_net}, 48, {192, 0, v4_net}, 24, {}};
    stage.send(
        "mapt bmr", [&](void *ctx) { return fwx_nat64_mapt_bmr_set_a(op, &rule, ctx); }, expected, verdict);
}
void walk_sessions(stage_t &stage, uint32_t count) {
    const fwx_nat64_sess_walk_filter_t filter{};
    stage.ask("session walk", answer_t::walk,
              [&](void *ctx) { return fwx_nat64_session_walk_a(count, &filter, 0, 0, 0, stage_t::walk_cb, ctx); });
}

void bind_twice(stage_t &stage) {
    stage.bind();
    fwx_nat64_unbind();
    stage.bind();
}

void change_settings(stage_t &stage) {
    stage.bind();
    for (const char *line :
         {"settings set --bytes 00000000000000000000000000000000", "adj set --type 1 --address 192.0.2.1",
          "limit add --type sessions --value 100", "service add --type alg --value 5",
          "replication set --value 1 --value2 2", "timeout set --type 1 --value 60"}) {
        configure(stage, line);
    }
    stage.send("alias upload", fwx_nat64_ipalias_upload_a);
    const fwx_nat64_session_filter_t filter{};
    stage.send("session clear", [&](void *ctx) { return fwx_nat64_session_clear_a(&filter, ctx); });
    configure(stage, "logging add --dest 192.0.2.9 --port 514");
    stage.pump();
    uint8_t reply[64];
    for (const size_t reply_size : {size_t{0}, sizeof(reply)}) {
        void *msg = nullptr;
        constexpr size_t size = 24; /* a synchronous end of batch */
        uint32_t code = fwx_nat64_client_sync_cmd_init(size, FWX_NAT64_MSG_CONFIG, &msg);
        if (code == 0) {
            const uint32_t op_code = FWX_NAT64_CFG_END_BATCH;
            std::memcpy(static_cast<uint8_t *>(msg) + sizeof(fwx_nat64_sync_hdr_t), &op_code, sizeof(op_code));
            code = reply_size == 0 ? fwx_nat64_client_sync_cmd_send(msg, size)
                                   : fwx_nat64_client_sync_cmd_rsp_send(msg, size, reply, reply_size);
        }
        stage.call("synchronous command", code);
    }
    stage.pump();
}

void change_translation(stage_t &stage) {
    stage.bind();
    for (const char *line :
         {"interface set --ifh 7 --enable 0", "nvi enable --ifh 7", "prefix add --prefix 2001:db8::/96 --kind stateful",
          "prefix mod --prefix 2001:db8::/96 --kind stateful", "prefix del --prefix 2001:db8::/96 --kind stateful",
          "smapping add --id 1 --addr1 192.0.2.1 --addr2 192.0.2.2", "dmapping add --id 2 --type 0"}) {
        configure(stage, line);
    }
    configure(stage, "pool add --id 3 --param 1 --start 192.0.2.12 --end 192.0.2.15");
    configure(stage, "range add --id 3 --start 198.51.100.1 --end 198.51.100.16");
    stage.pump();
    configure(stage, "range del --id 3 --start 198.51.100.1 --end 198.51.100.16");
    configure(stage, "pool del --id 3");
    stage.pump();
}

/* Queries with replies in several parts, and a page that is longer than the first receive buffer. */
void query_and_walk(stage_t &stage) {
    stage.bind();
    for (const char *line :
         {"pool add --id 1 --param 1 --start 192.0.2.4 --end 192.0.2.7",
          "pool add --id 2 --param 1 --start 192.0.2.8 --end 192.0.2.11",
          "pool add --id 3 --param 1 --start 192.0.2.12 --end 192.0.2.15", "dmapping add --id 1 --type 0",
          "dmapping add --id 2 --type 0", "dmapping add --id 3 --type 0"}) {
        configure(stage, line);
    }
    stage.pump();
    stage.model->sessions_generate(80);
    walk_sessions(stage, 70);
    walk_sessions(stage, 30);
    stage.model->reply_limit_set(1);
    stage.ask("system query", answer_t::query, [](void *ctx) { return fwx_nat64_stats_sys_query_a(0, ctx); });
    stage.ask("interface query", answer_t::query, fwx_nat64_stats_intf_query_a);
    stage.ask("pool query", answer_t::query,
              [](void *ctx) { return fwx_nat64_stats_pool_all_query_a(0, nullptr, 9, 0, ctx); });
    stage.ask("mapping query", answer_t::query,
              [](void *ctx) { return fwx_nat64_stats_mapping_all_query_a(0, nullptr, 9, 0, ctx); });
    stage.ask("limit query", answer_t::query, [](void *ctx) { return fwx_nat64_stats_limit_all_query_a(0, 9, ctx); });
}

/* A channel ends with commands in its queue and commands at the server. The next command opens another channel. */
void lose_the_channel(stage_t &stage) {
    stage.bind();
    stage.model->sessions_generate(9);
    for (int round = 0; round < 2; ++round) {
        stage.model->hold();
        configure(stage, "timeout set --type 1 --value 60");
        stage.ask("system query", answer_t::query, [](void *ctx) { return fwx_nat64_stats_sys_query_a(0, ctx); });
        walk_sessions(stage, 3);
        stage.model->pause_set(true);
        configure(stage, "timeout set --type 2 --value 60");
        walk_sessions(stage, 3);
        set_rule(stage, add, 1 + static_cast<uint32_t>(round), 2);
        stage.model->drop_clients();
        stage.pump();
        stage.model->pause_set(false);
        configure(stage, "timeout set --type 3 --value 60");
        stage.pump();
        stage.model->release(fwx_nat64_model_order_t::reverse);
        stage.pump();
    }
}

void notify(stage_t &stage) {
    stage.bind();
    const uint8_t update[24] = {1, 2, 3};
    stage.call("synchronous end of batch", fwx_nat64_model_t::cgm_end_batch(1, false, nullptr));
    stage.call("synchronous update", fwx_nat64_model_t::cgm_update(2, update, false, nullptr));
    stage.send("end of batch", [](void *ctx) { return fwx_nat64_model_t::cgm_end_batch(3, true, ctx); });
    stage.send("update", [&](void *ctx) { return fwx_nat64_model_t::cgm_update(4, update, true, ctx); });
    stage.pump();
    stage.model->wakeup();
    stage.model->notify_record(true, 1, 2, 3);
    stage.model->notify_event();
    stage.model->notify_mapping(1, true, 2);
    stage.model->notify_debug(5, 1);
    stage.pump();
}

/* Deleting the first of two rules with the same IPv4 prefix removes their leaf. Deleting the second then fails. */
void share_a_prefix(stage_t &stage) {
    stage.bind();
    set_rule(stage, add, 1, 2);
    set_rule(stage, add, 2, 2);
    set_rule(stage, add, 3, 3);
    stage.pump();
    configure(stage, "mapt dmr add --id 1");
    set_rule(stage, del, 1, 2);
    set_rule(stage, del, 2, 2, missing_leaf);
    set_rule(stage, del, 3, 3);
    set_rule(stage, add, 4, 4);
    set_rule(stage, del, 4, 4); /* while it is pending */
    stage.pump();
}

/* When the last rule is deleted, the server orders the client to empty the whole table, including a pending rule. */
void empty_the_table(stage_t &stage) {
    stage.model->order_cleanup(true);
    stage.bind();
    set_rule(stage, add, 1, 2);
    set_rule(stage, add, 2, 3);
    stage.pump();
    set_rule(stage, del, 1, 2);
    set_rule(stage, del, 2, 3);
    stage.model->hold();
    stage.pump();
    set_rule(stage, add, 3, 4, 0, FWX_NAT64_ERR_INVALID);
    stage.model->release(fwx_nat64_model_order_t::in_order);
    stage.pump();
}

}  // namespace

const scenario_t scenarios[] = {
    {"bind_and_unbind", bind_twice, true},
    {"settings", change_settings, true},
    {"translation", change_translation, true},
    {"queries_and_walks", query_and_walk, true},
    {"a_lost_channel", lose_the_channel, false},
    {"notifications", notify, true},
    {"rules_that_share_a_prefix", share_a_prefix, true},
    {"the_clean_up_that_the_server_asks_for", empty_the_table, true},
};
const size_t scenario_count = sizeof(scenarios) / sizeof(scenarios[0]);
