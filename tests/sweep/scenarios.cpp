/* What the sweep plays: each scenario is a life of a binding in which every command is accepted while nothing fails. */
#include <cstring>

#include "stage.h"

namespace {

constexpr uint32_t add = FWX_NAT64_OP_ADD;
constexpr uint32_t del = FWX_NAT64_OP_DEL;
constexpr uint32_t missing_leaf = 22;

fwx_nat64_addr_t ipv4(uint32_t address) {
    fwx_nat64_addr_t record{};
    std::memcpy(record.addr, &address, sizeof(address));
    return record;
}

void add_pool(stage_t &stage, uint32_t id) {
    const fwx_nat64_pool_t pool = {id, 0, 1, ipv4(0xc0000200 + 4 * id), ipv4(0xc0000203 + 4 * id), 0};
    stage.send("pool add", [&](void *ctx) { return fwx_nat64_pool_set_a(add, &pool, ctx); });
}
void add_static_mapping(stage_t &stage, uint32_t id) {
    fwx_nat64_smapping_t mapping{};
    mapping.id = id;
    stage.send("static mapping add", [&](void *ctx) { return fwx_nat64_smapping_set_a(add, &mapping, ctx); });
}
void add_dynamic_mapping(stage_t &stage, uint32_t id) {
    fwx_nat64_dmapping_t mapping{};
    mapping.id = id;
    stage.send("dynamic mapping add", [&](void *ctx) { return fwx_nat64_dmapping_set_a(add, &mapping, ctx); });
}
void set_timeout(stage_t &stage, uint32_t type) {
    const fwx_nat64_timeout_t timeout = {type, 60};
    stage.send("timeout", [&](void *ctx) { return fwx_nat64_timeout_set_a(add, &timeout, ctx); });
}
void set_rule(stage_t &stage, uint32_t op, uint32_t id, uint8_t v4_net, uint32_t expected = 0, uint32_t verdict = 0) {
    const auto v6_net = static_cast<uint8_t>(id);
    const fwx_nat64_mapt_bmr_t rule = {id, 1, {0x20, 0x01, 0x0d, 0xb8, 0, v6_net}, 48, {192, 0, v4_net}, 24, {}};
    stage.send(
        "basic rule", [&](void *ctx) { return fwx_nat64_mapt_bmr_set_a(op, &rule, ctx); }, expected, verdict);
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
    const fwx_nat64_global_settings_t settings{};
    stage.send("global settings", [&](void *ctx) { return fwx_nat64_global_settings_set_a(&settings, ctx); });
    const fwx_nat64_adj_t adj = {1, ipv4(0xc0000201)};
    stage.send("adjacency", [&](void *ctx) { return fwx_nat64_adj_set_a(add, &adj, ctx); });
    const fwx_nat64_limit_t limit = {1, 100};
    stage.send("limit", [&](void *ctx) { return fwx_nat64_limit_set_a(add, &limit, ctx); });
    const fwx_nat64_service_t service = {1, 5};
    stage.send("service", [&](void *ctx) { return fwx_nat64_service_set_a(add, &service, ctx); });
    const fwx_nat64_replication_t replication = {1, 1, 2};
    stage.send("replication", [&](void *ctx) { return fwx_nat64_replication_set_a(add, &replication, ctx); });
    set_timeout(stage, 1);
    stage.send("alias upload", fwx_nat64_ipalias_upload_a);
    const fwx_nat64_session_filter_t filter{};
    stage.send("session clear", [&](void *ctx) { return fwx_nat64_session_clear_a(&filter, ctx); });
    const fwx_nat64_logging_t logging = {1, 1, 0, ipv4(0xc0000209), 514, 0};
    stage.send("logging add", [&](void *ctx) { return fwx_nat64_logging_set_a(add, &logging, ctx); });
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
    fwx_nat64_intf_info_t interface {};
    interface.ifh = 7;
    stage.send("interface", [&](void *ctx) { return fwx_nat64_interface_set_a(&interface, ctx); });
    stage.send("NVI interface", [](void *ctx) { return fwx_nat64_nvi_interface_enable_a(7, ctx); });
    const fwx_nat64_prefix_t prefix = {{0x20, 0x01, 0x0d, 0xb8}, {}, 96, 1};
    stage.send("prefix add", [&](void *ctx) { return fwx_nat64_glb_prefix_add_a(&prefix, ctx); });
    stage.send("prefix modify", [&](void *ctx) { return fwx_nat64_glb_prefix_mod_a(&prefix, ctx); });
    stage.send("prefix delete", [&](void *ctx) { return fwx_nat64_glb_prefix_del_a(&prefix, ctx); });
    add_static_mapping(stage, 1);
    add_dynamic_mapping(stage, 2);
    add_pool(stage, 3);
    const fwx_nat64_pool_range_t range = {3, ipv4(0xc6336401), ipv4(0xc6336410)};
    stage.send("pool range", [&](void *ctx) { return fwx_nat64_pool_range_set_a(add, &range, ctx); });
    fwx_nat64_pool_t pool{};
    pool.id = 3;
    stage.pump();
    stage.send("pool range delete", [&](void *ctx) { return fwx_nat64_pool_range_set_a(del, &range, ctx); });
    stage.send("pool delete", [&](void *ctx) { return fwx_nat64_pool_set_a(del, &pool, ctx); });
    stage.pump();
}

/* Several parts for whatever has several records, and a page that is longer than the first receive buffer. */
void query_and_walk(stage_t &stage) {
    stage.bind();
    for (uint32_t id = 1; id <= 3; ++id) {
        add_pool(stage, id);
        add_dynamic_mapping(stage, id);
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

/* A channel ends with commands in it and with commands at the server; what comes after opens another. */
void lose_the_channel(stage_t &stage) {
    stage.bind();
    stage.model->sessions_generate(9);
    for (int round = 0; round < 2; ++round) {
        stage.model->hold();
        set_timeout(stage, 1);
        stage.ask("system query", answer_t::query, [](void *ctx) { return fwx_nat64_stats_sys_query_a(0, ctx); });
        walk_sessions(stage, 3);
        stage.model->pause_set(true);
        set_timeout(stage, 2);
        walk_sessions(stage, 3);
        set_rule(stage, add, 1 + static_cast<uint32_t>(round), 2);
        stage.model->drop_clients();
        stage.pump();
        stage.model->pause_set(false);
        set_timeout(stage, 3);
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

/* The first of two rules with one IPv4 prefix takes the leaf of both with it: the second can then not be deleted. */
void share_a_prefix(stage_t &stage) {
    stage.bind();
    set_rule(stage, add, 1, 2);
    set_rule(stage, add, 2, 2);
    set_rule(stage, add, 3, 3);
    stage.pump();
    const fwx_nat64_mapt_dmr_t default_rule = {1, {}};
    stage.send("default rule", [&](void *ctx) { return fwx_nat64_mapt_dmr_set_a(add, &default_rule, ctx); });
    set_rule(stage, del, 1, 2);
    set_rule(stage, del, 2, 2, missing_leaf);
    set_rule(stage, del, 3, 3);
    set_rule(stage, add, 4, 4);
    set_rule(stage, del, 4, 4); /* while it is pending */
    stage.pump();
}

/* With the last rule gone the server, told to do so, asks for the whole table to be emptied, the rule that is pending
 * included. */
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
