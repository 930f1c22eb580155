-- A Wireshark dissector for capture files of the messages between the NAT64 client library and the server.
--
-- tshark -X lua_script:fwx_nat64.lua -r FILE, or put this file into Wireshark's folder of personal Lua plugins.
-- Filters: fwx_nat64.message == "timeout_set", fwx_nat64.result != 0, fwx_nat64.refused, fwx_nat64.unanswered (with -2),
-- fwx_nat64.ipv4, .ipv6, .prefix, .id and .ifh in any message, fwx_nat64.MESSAGE.FIELD for every other field.
-- tshark -q -X lua_script:fwx_nat64.lua -X lua_script1:statistics -r FILE counts commands and their response times, and
-- so does Wireshark's menu Statistics.
--
-- The build target `documents` prints it from the description in wire/; do not edit it by hand.

local result_names = {
  [0] = "success",
  [0x4030020b] = "FWX_NAT64_ERR_AGAIN",
  [0x4030020c] = "FWX_NAT64_ERR_NOMEM",
  [0x4030020d] = "FWX_NAT64_ERR_NOT_READY",
  [0x40300216] = "FWX_NAT64_ERR_INVALID",
  [0x40300616] = "FWX_NAT64_ERR_BAD_ARG",
  [0xa030060c] = "FWX_NAT64_ERR_COMINGUP_NOMEM",
  [0xa030060d] = "FWX_NAT64_ERR_COMINGUP_NO_INFO",
  [0xa0300216] = "FWX_NAT64_ERR_CGM_INVALID",
  [0xa0300611] = "FWX_NAT64_ERR_EXISTS",
  [0xa0300602] = "FWX_NAT64_ERR_NOT_FOUND",
  [0xa0300616] = "FWX_NAT64_ERR_PLU_FAILED",
  [0x6001] = "malformed",
  [0x6002] = "unknown",
  [0x6003] = "no_entry",
  [0x6004] = "exists",
  [0x6005] = "no_pool",
  [0x6006] = "value",
  [0x6007] = "overlap",
  [0x6008] = "has_ranges",
  [0x6009] = "prefix_len",
  [0x600a] = "too_many",
  [0x600b] = "not_saved",
}

local messages = {
  {
    name = "unsol_setup",
    purpose = "asks for unsolicited notifications",
    direction = 0, type = 0xc001, body = 32, size = 32, exact = true,
    fields = {},
  },
  {
    name = "init",
    purpose = "announces the client after a reconnection",
    direction = 0, type = 0xc002, body = 32, size = 40, exact = true,
    fields = {
      { "init_code", 32, 4, "hex" },
      { "client_id", 36, 4, "bytes" },
    },
  },
  {
    name = "stats_sys",
    purpose = "queries the system statistics",
    direction = 0, type = 0xc004, body = 32, size = 40, exact = true,
    fields = {
      { "sel", 32, 4, "number" },
    },
  },
  {
    name = "stats_intf",
    purpose = "queries the statistics of all interfaces",
    direction = 0, type = 0xc005, body = 32, size = 32, exact = true,
    fields = {},
  },
  {
    name = "stats_pool_all",
    purpose = "queries the statistics of all pools",
    direction = 0, type = 0xc006, body = 32, size = 64, exact = true,
    fields = {
      { "sel", 32, 4, "number" },
      { "one", 36, 4, "number" },
      { "zero", 40, 4, "number" },
      { "count", 44, 4, "number" },
      { "arg", 48, 4, "number" },
      { "cookie", 56, 8, "hex" },
    },
  },
  {
    name = "stats_mapping_all",
    purpose = "queries the statistics of all mappings",
    direction = 0, type = 0xc007, body = 32, size = 64, exact = true,
    fields = {
      { "sel", 32, 4, "number" },
      { "one", 36, 4, "number" },
      { "zero", 40, 4, "number" },
      { "count", 44, 4, "number" },
      { "arg", 48, 4, "number" },
      { "cookie", 56, 8, "hex" },
    },
  },
  {
    name = "stats_limit_all",
    purpose = "queries the statistics of all limits",
    direction = 0, type = 0xc008, body = 32, size = 56, exact = true,
    fields = {
      { "sel", 32, 4, "number" },
      { "one", 36, 4, "number" },
      { "count", 48, 4, "number" },
    },
  },
  {
    name = "session_walk",
    purpose = "walks the sessions",
    direction = 0, type = 0xc009, body = 32, size = 144, exact = true,
    fields = {
      { "cookie", 32, 8, "hex" },
      { "arg", 40, 4, "number" },
      { "walk_arg", 44, 4, "number" },
      { "count", 48, 4, "number" },
      { "opaque0", 56, 16, "bytes" },
      { "src", 72, 20, "address" },
      { "opaque36", 92, 4, "bytes" },
      { "dst", 96, 20, "address" },
      { "opaque60", 116, 28, "bytes" },
    },
  },
  {
    name = "cmd_q_resume",
    purpose = "answers a command-queue wakeup",
    direction = 0, type = 0xc00c, body = 32, size = 32, exact = true,
    fields = {},
  },
  {
    name = "mapt_bmr",
    purpose = "adds or deletes a basic mapping rule",
    direction = 0, type = 0xc00d, body = 32, size = 80, selector = 0, selector_offset = 32, exact = true,
    fields = {
      { "rule_type", 32, 4, "number" },
      { "op", 36, 4, "operation" },
      { "rule_id", 40, 4, "number" },
      { "domain_id", 44, 4, "number" },
      { "v6_prefix", 48, 8, "ipv6_swapped" },
      { "v6_prefix_len", 56, 1, "number" },
      { "v4_prefix", 60, 4, "ipv4_swapped" },
      { "v4_prefix_len", 64, 1, "number" },
      { "rule_param0", 66, 2, "number" },
      { "rule_param1", 68, 2, "number" },
      { "rule_param2", 70, 2, "number" },
      { "rule_param3", 72, 2, "number" },
    },
  },
  {
    name = "mapt_dmr",
    purpose = "adds, modifies or deletes a default mapping rule",
    direction = 0, type = 0xc00d, body = 32, size = 68, selector = 1, selector_offset = 32, exact = true,
    fields = {
      { "rule_type", 32, 4, "number" },
      { "op", 36, 4, "operation" },
      { "id", 40, 4, "number" },
      { "opaque", 44, 24, "bytes" },
    },
  },
  {
    name = "sync_init",
    purpose = "announces the client at bind",
    direction = 0, type = 0x8002, body = 16, size = 24, exact = true,
    fields = {
      { "init_code", 16, 4, "hex" },
      { "client_id", 20, 4, "bytes" },
    },
  },
  {
    name = "ctrl_end_batch",
    purpose = "ends a classifier batch and waits",
    direction = 0, type = 0x8003, body = 16, size = 24, selector = 21, selector_offset = 16, exact = true,
    fields = {
      { "op_code", 16, 4, "number" },
      { "batch_id", 20, 4, "number" },
    },
  },
  {
    name = "ctrl_classifier_update",
    purpose = "hands on a classifier update and waits",
    direction = 0, type = 0x8003, body = 16, size = 48, selector = 22, selector_offset = 16, exact = true,
    fields = {
      { "op_code", 16, 4, "number" },
      { "data", 20, 24, "bytes" },
      { "batch_id", 44, 4, "number" },
    },
  },
  {
    name = "interface_set",
    purpose = "sets an interface's prefixes and MTU",
    direction = 0, type = 0xc003, body = 32, size = 132, selector = 1, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "ifh", 36, 4, "number" },
      { "enable", 40, 4, "flag" },
      { "nvi", 44, 4, "flag" },
      { "sless_prefix_valid", 48, 4, "flag" },
      { "sful_prefix_valid", 52, 4, "flag" },
      { "sless_prefix_v6v4_valid", 56, 4, "flag" },
      { "sless_prefix", 60, 16, "prefix" },
      { "sless_prefix_kind", 76, 4, "number" },
      { "sful_prefix", 80, 16, "prefix" },
      { "sful_prefix_kind", 96, 4, "number" },
      { "sless_prefix_v6v4", 100, 16, "prefix" },
      { "sless_prefix_v6v4_kind", 116, 4, "number" },
      { "mtu_valid", 120, 4, "flag" },
      { "mtu", 124, 2, "number" },
    },
  },
  {
    name = "nvi_interface_enable",
    purpose = "enables an NVI interface",
    direction = 0, type = 0xc003, body = 32, size = 132, selector = 2, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "ifh", 36, 4, "number" },
      { "enable", 40, 4, "flag" },
      { "nvi", 44, 4, "flag" },
      { "sless_prefix_valid", 48, 4, "flag" },
      { "sful_prefix_valid", 52, 4, "flag" },
      { "sless_prefix_v6v4_valid", 56, 4, "flag" },
      { "sless_prefix", 60, 16, "prefix" },
      { "sless_prefix_kind", 76, 4, "number" },
      { "sful_prefix", 80, 16, "prefix" },
      { "sful_prefix_kind", 96, 4, "number" },
      { "sless_prefix_v6v4", 100, 16, "prefix" },
      { "sless_prefix_v6v4_kind", 116, 4, "number" },
      { "mtu_valid", 120, 4, "flag" },
      { "mtu", 124, 2, "number" },
    },
  },
  {
    name = "glb_prefix",
    purpose = "adds, modifies or deletes a global prefix of kind 1, 3 or 4",
    direction = 0, type = 0xc003, body = 32, size = 64, selector = 3, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "add", 36, 4, "flag" },
      { "prefix", 40, 16, "prefix" },
      { "prefix_kind", 56, 4, "number", { [1] = "stateful", [2] = "stateless", [3] = "stateless-v6v4", [4] = "dns64" } },
    },
  },
  {
    name = "pool_add",
    purpose = "adds or modifies an address pool",
    direction = 0, type = 0xc003, body = 32, size = 64, selector = 4, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "id", 36, 4, "number" },
      { "param", 40, 4, "number" },
      { "hsl_id", 44, 4, "number" },
      { "id2", 48, 4, "number" },
      { "start_addr", 52, 4, "ipv4" },
      { "end_addr", 56, 4, "ipv4" },
    },
  },
  {
    name = "pool_del",
    purpose = "deletes an address pool",
    direction = 0, type = 0xc003, body = 32, size = 48, selector = 5, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "id", 36, 4, "number" },
      { "one", 40, 4, "number" },
    },
  },
  {
    name = "pool_range_add",
    purpose = "adds a range to a pool",
    direction = 0, type = 0xc003, body = 32, size = 84, selector = 6, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "id", 36, 4, "number" },
      { "start_addr", 40, 20, "address" },
      { "end_addr", 60, 20, "address" },
    },
  },
  {
    name = "pool_range_del",
    purpose = "deletes a range of a pool",
    direction = 0, type = 0xc003, body = 32, size = 88, selector = 7, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "id", 36, 4, "number" },
      { "start_addr", 40, 20, "address" },
      { "end_addr", 60, 20, "address" },
      { "one", 80, 4, "number" },
    },
  },
  {
    name = "smapping_add",
    purpose = "adds a static mapping",
    direction = 0, type = 0xc003, body = 32, size = 124, selector = 8, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "id", 36, 4, "number" },
      { "opaque4", 40, 4, "bytes" },
      { "addr1", 44, 20, "address" },
      { "opaque28", 64, 16, "bytes" },
      { "addr2", 80, 20, "address" },
      { "opaque64", 100, 20, "bytes" },
    },
  },
  {
    name = "smapping_del",
    purpose = "deletes a static mapping",
    direction = 0, type = 0xc003, body = 32, size = 48, selector = 9, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "id", 36, 4, "number" },
      { "one", 40, 4, "number" },
    },
  },
  {
    name = "dmapping_add",
    purpose = "adds a dynamic mapping",
    direction = 0, type = 0xc003, body = 32, size = 120, selector = 11, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "id", 36, 4, "number" },
      { "opaque4", 40, 8, "bytes" },
      { "type", 48, 4, "number", { [0] = "endpoint-independent", [1] = "address-dependent", [2] = "address-and-port-dependent" } },
      { "ext", 52, 24, "bytes" },
      { "map_ext_arg", 76, 4, "number" },
      { "opaque44", 80, 8, "bytes" },
      { "second", 88, 24, "bytes" },
      { "ext_arg", 112, 4, "number" },
    },
  },
  {
    name = "dmapping_del",
    purpose = "deletes a dynamic mapping",
    direction = 0, type = 0xc003, body = 32, size = 48, selector = 12, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "id", 36, 4, "number" },
      { "one", 40, 4, "number" },
    },
  },
  {
    name = "dmapping_mod",
    purpose = "modifies a dynamic mapping",
    direction = 0, type = 0xc003, body = 32, size = 120, selector = 13, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "id", 36, 4, "number" },
      { "opaque4", 40, 8, "bytes" },
      { "type", 48, 4, "number", { [0] = "endpoint-independent", [1] = "address-dependent", [2] = "address-and-port-dependent" } },
      { "ext", 52, 24, "bytes" },
      { "map_ext_arg", 76, 4, "number" },
      { "opaque44", 80, 8, "bytes" },
      { "second", 88, 24, "bytes" },
      { "ext_arg", 112, 4, "number" },
    },
  },
  {
    name = "timeout_set",
    purpose = "sets a timeout",
    direction = 0, type = 0xc003, body = 32, size = 48, selector = 14, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "type", 36, 4, "number", { [1] = "udp", [2] = "tcp-trans", [3] = "tcp-est", [4] = "tcp-in-syn", [5] = "fragment-min", [6] = "icmp", [7] = "udp-min" } },
      { "value", 40, 4, "number" },
    },
  },
  {
    name = "limit_set",
    purpose = "adds or modifies a limit",
    direction = 0, type = 0xc003, body = 32, size = 48, selector = 15, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "type", 36, 4, "number", { [1] = "sessions" } },
      { "value", 40, 4, "number" },
    },
  },
  {
    name = "limit_del",
    purpose = "deletes a limit",
    direction = 0, type = 0xc003, body = 32, size = 48, selector = 16, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "type", 36, 4, "number", { [1] = "sessions" } },
      { "value", 40, 4, "number" },
    },
  },
  {
    name = "ipalias_upload",
    purpose = "has the server upload its IP aliases",
    direction = 0, type = 0xc003, body = 32, size = 40, selector = 17, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
    },
  },
  {
    name = "session_clear",
    purpose = "clears the sessions that a filter names",
    direction = 0, type = 0xc003, body = 32, size = 144, selector = 19, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "value", 36, 4, "number", { [1] = "icmp", [6] = "tcp", [17] = "udp", [58] = "icmpv6" } },
      { "src", 40, 20, "address" },
      { "dst", 60, 20, "address" },
      { "opaque", 80, 60, "bytes" },
    },
  },
  {
    name = "service_set",
    purpose = "adds or deletes a service",
    direction = 0, type = 0xc003, body = 32, size = 52, selector = 20, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "add", 36, 4, "flag" },
      { "type", 40, 4, "number", { [1] = "alg" } },
      { "value", 44, 4, "number" },
    },
  },
  {
    name = "end_batch",
    purpose = "ends a classifier batch",
    direction = 0, type = 0xc003, body = 32, size = 44, selector = 21, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "batch_id", 36, 4, "number" },
    },
  },
  {
    name = "classifier_update",
    purpose = "hands on a classifier update",
    direction = 0, type = 0xc003, body = 32, size = 68, selector = 22, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "data", 36, 24, "bytes" },
      { "batch_id", 60, 4, "number" },
    },
  },
  {
    name = "logging_add",
    purpose = "adds a logging destination",
    direction = 0, type = 0xc003, body = 32, size = 60, selector = 23, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "dest", 36, 4, "ipv4" },
      { "dest_port", 44, 2, "number" },
      { "param2", 46, 2, "number", { [0] = "all", [6] = "session", [10] = "bib", [16] = "port-block" } },
      { "mode", 48, 4, "number" },
      { "param", 52, 1, "number", { [17] = "udp", [6] = "tcp", [132] = "sctp" } },
    },
  },
  {
    name = "logging_mod",
    purpose = "modifies a logging destination",
    direction = 0, type = 0xc003, body = 32, size = 60, selector = 24, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "dest", 36, 4, "ipv4" },
      { "dest_port", 44, 2, "number" },
      { "param2", 46, 2, "number", { [0] = "all", [6] = "session", [10] = "bib", [16] = "port-block" } },
      { "mode", 48, 4, "number" },
      { "param", 52, 1, "number", { [17] = "udp", [6] = "tcp", [132] = "sctp" } },
    },
  },
  {
    name = "logging_del",
    purpose = "deletes a logging destination",
    direction = 0, type = 0xc003, body = 32, size = 60, selector = 25, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "dest", 36, 4, "ipv4" },
      { "dest_port", 44, 2, "number" },
      { "param2", 46, 2, "number", { [0] = "all", [6] = "session", [10] = "bib", [16] = "port-block" } },
      { "mode", 48, 4, "number" },
      { "param", 52, 1, "number", { [17] = "udp", [6] = "tcp", [132] = "sctp" } },
    },
  },
  {
    name = "adj_set",
    purpose = "sets an adjacency",
    direction = 0, type = 0xc003, body = 32, size = 64, selector = 26, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "type", 36, 4, "number", { [1] = "inside", [2] = "outside", [3] = "logging", [4] = "replication" } },
      { "address", 40, 20, "address" },
    },
  },
  {
    name = "glb_prefix_kind2",
    purpose = "adds, modifies or deletes a global prefix of kind 2",
    direction = 0, type = 0xc003, body = 32, size = 64, selector = 27, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "add", 36, 4, "flag" },
      { "prefix", 40, 16, "prefix" },
      { "prefix_kind", 56, 4, "number", { [1] = "stateful", [2] = "stateless", [3] = "stateless-v6v4", [4] = "dns64" } },
    },
  },
  {
    name = "global_settings",
    purpose = "sets the global settings",
    direction = 0, type = 0xc003, body = 32, size = 56, selector = 28, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "opaque", 36, 16, "bytes" },
    },
  },
  {
    name = "replication_set",
    purpose = "sets the replication",
    direction = 0, type = 0xc003, body = 32, size = 52, selector = 29, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "value", 36, 4, "number" },
      { "set", 40, 4, "flag" },
      { "value2", 44, 4, "number" },
    },
  },
  {
    name = "replication_unset",
    purpose = "takes the replication back",
    direction = 0, type = 0xc003, body = 32, size = 52, selector = 31, selector_offset = 32, exact = true,
    fields = {
      { "op_code", 32, 4, "number" },
      { "value", 36, 4, "number" },
      { "set", 40, 4, "flag" },
      { "value2", 44, 4, "number" },
    },
  },
  {
    name = "result",
    purpose = "result of a command",
    direction = 1, type = 0xc000, body = 32, size = 36, open = true,
    fields = {
      { "result", 32, 4, "code" },
    },
  },
  {
    name = "stats_sys_counts_reply",
    purpose = "what the server has counted",
    direction = 1, type = 0xc004, body = 32, size = 48, selector = 1, selector_offset = 44,
    fields = {
      { "result", 32, 4, "code" },
      { "more", 40, 4, "number" },
      { "sel", 44, 4, "number" },
    },
    entry = {
      name = "counts", offset = 48, size = 72,
      fields = {
        { "commands", 0, 8, "number" },
        { "malformed", 8, 8, "number" },
        { "refused", 16, 8, "number" },
        { "replies", 24, 8, "number" },
        { "held", 32, 8, "number" },
        { "clients", 40, 8, "number" },
        { "queued_bytes", 48, 8, "number" },
        { "dropped", 56, 8, "number" },
        { "turned_away", 64, 8, "number" },
      },
    },
  },
  {
    name = "stats_sys_boot_reply",
    purpose = "which run of the server it is",
    direction = 1, type = 0xc004, body = 32, size = 48, selector = 2, selector_offset = 44,
    fields = {
      { "result", 32, 4, "code" },
      { "more", 40, 4, "number" },
      { "sel", 44, 4, "number" },
    },
    entry = {
      name = "boot", offset = 48, size = 72,
      fields = {
        { "boot_id", 0, 8, "hex" },
        { "changes", 8, 8, "number" },
      },
    },
  },
  {
    name = "stats_sys_system_reply",
    purpose = "system statistics and what was refused",
    direction = 1, type = 0xc004, body = 32, size = 48, selector = 3, selector_offset = 44,
    fields = {
      { "result", 32, 4, "code" },
      { "more", 40, 4, "number" },
      { "sel", 44, 4, "number" },
    },
    entry = {
      name = "system", offset = 48, size = 168,
      fields = {
        { "interfaces", 0, 8, "number" },
        { "prefixes", 8, 8, "number" },
        { "static_mappings", 16, 8, "number" },
        { "dynamic_mappings", 24, 8, "number" },
        { "pools", 32, 8, "number" },
        { "pool_ranges", 40, 8, "number" },
        { "loggings", 48, 8, "number" },
        { "rules", 56, 8, "number" },
        { "sessions", 64, 8, "number" },
        { "refused_malformed", 72, 8, "number" },
        { "refused_unknown", 80, 8, "number" },
        { "refused_no_entry", 88, 8, "number" },
        { "refused_exists", 96, 8, "number" },
        { "refused_no_pool", 104, 8, "number" },
        { "refused_value", 112, 8, "number" },
        { "refused_overlap", 120, 8, "number" },
        { "refused_has_ranges", 128, 8, "number" },
        { "refused_prefix_len", 136, 8, "number" },
        { "refused_too_many", 144, 8, "number" },
        { "refused_not_saved", 152, 8, "number" },
        { "refused_ordered", 160, 8, "number" },
      },
    },
  },
  {
    name = "stats_sys_reply",
    purpose = "system statistics",
    direction = 1, type = 0xc004, body = 32, size = 48,
    fields = {
      { "result", 32, 4, "code" },
      { "more", 40, 4, "number" },
    },
    entry = {
      name = "system", offset = 48, size = 72,
      fields = {
        { "interfaces", 0, 8, "number" },
        { "prefixes", 8, 8, "number" },
        { "static_mappings", 16, 8, "number" },
        { "dynamic_mappings", 24, 8, "number" },
        { "pools", 32, 8, "number" },
        { "pool_ranges", 40, 8, "number" },
        { "loggings", 48, 8, "number" },
        { "rules", 56, 8, "number" },
        { "sessions", 64, 8, "number" },
      },
    },
  },
  {
    name = "stats_intf_reply",
    purpose = "statistics of interfaces",
    direction = 1, type = 0xc005, body = 32, size = 48,
    fields = {
      { "result", 32, 4, "code" },
      { "more", 40, 4, "number" },
      { "value", 44, 4, "number" },
    },
    entry = {
      name = "interfaces", offset = 48, size = 24, count_offset = 44,
      fields = {
        { "ifh", 0, 4, "number" },
        { "enabled", 4, 4, "flag" },
        { "nvi", 8, 4, "flag" },
        { "mtu", 12, 4, "number" },
        { "prefixes", 16, 4, "number" },
      },
    },
  },
  {
    name = "stats_pool_all_reply",
    purpose = "statistics of pools",
    direction = 1, type = 0xc006, body = 32, size = 64,
    fields = {
      { "result", 32, 4, "code" },
      { "more", 40, 4, "number" },
      { "value", 48, 8, "hex" },
      { "value2", 56, 4, "number" },
    },
    entry = {
      name = "pools", offset = 64, size = 24, count_offset = 56,
      fields = {
        { "id", 0, 4, "number" },
        { "ranges", 4, 4, "number" },
        { "addresses", 8, 8, "number" },
        { "sessions", 16, 8, "number" },
      },
    },
  },
  {
    name = "stats_mapping_all_reply",
    purpose = "statistics of mappings",
    direction = 1, type = 0xc007, body = 32, size = 64,
    fields = {
      { "result", 32, 4, "code" },
      { "more", 40, 4, "number" },
      { "value", 48, 8, "hex" },
      { "value2", 56, 4, "number" },
    },
    entry = {
      name = "mappings", offset = 64, size = 24, count_offset = 56,
      fields = {
        { "id", 0, 4, "number" },
        { "kind", 4, 4, "number", { [0] = "unknown", [1] = "static", [2] = "dynamic" } },
        { "active", 8, 4, "flag" },
        { "sessions", 16, 8, "number" },
      },
    },
  },
  {
    name = "stats_limit_all_reply",
    purpose = "statistics of limits",
    direction = 1, type = 0xc008, body = 32, size = 48,
    fields = {
      { "result", 32, 4, "code" },
      { "more", 40, 4, "number" },
      { "value", 44, 4, "number" },
    },
    entry = {
      name = "limits", offset = 48, size = 16, count_offset = 44,
      fields = {
        { "type", 0, 4, "number", { [1] = "sessions" } },
        { "value", 4, 4, "number" },
        { "in_use", 8, 8, "number" },
      },
    },
  },
  {
    name = "session_walk_full_reply",
    purpose = "sessions of a walk in full",
    direction = 1, type = 0xc009, body = 32, size = 72, selector = 1, selector_offset = 64,
    fields = {
      { "result", 32, 4, "code" },
      { "count", 40, 4, "number" },
      { "more", 48, 4, "flag" },
      { "stopped", 52, 4, "flag" },
      { "value", 56, 8, "hex" },
      { "value2", 64, 4, "number" },
    },
    entry = {
      name = "sessions", offset = 72, size = 152, count_offset = 40,
      fields = {
        { "id", 0, 8, "hex" },
        { "protocol", 8, 4, "number", { [1] = "icmp", [6] = "tcp", [17] = "udp", [58] = "icmpv6" } },
        { "state", 12, 4, "number", { [1] = "active", [2] = "v6-init", [3] = "v4-init", [4] = "established", [5] = "v6-fin", [6] = "v4-fin", [7] = "fin", [8] = "trans" } },
        { "src", 16, 20, "address" },
        { "dst_ipv6", 36, 20, "address" },
        { "pool_addr", 56, 20, "address" },
        { "dst", 76, 20, "address" },
        { "src_port", 96, 2, "number" },
        { "pool_port", 98, 2, "number" },
        { "dst_port", 100, 2, "number" },
        { "mapping_id", 104, 4, "number" },
        { "pool_id", 108, 4, "number" },
        { "age_s", 112, 4, "number" },
        { "remaining_s", 116, 4, "number" },
        { "packets_out", 120, 8, "number" },
        { "bytes_out", 128, 8, "number" },
        { "packets_in", 136, 8, "number" },
        { "bytes_in", 144, 8, "number" },
      },
    },
  },
  {
    name = "session_walk_reply",
    purpose = "sessions of a walk",
    direction = 1, type = 0xc009, body = 32, size = 72,
    fields = {
      { "result", 32, 4, "code" },
      { "count", 40, 4, "number" },
      { "more", 48, 4, "flag" },
      { "stopped", 52, 4, "flag" },
      { "value", 56, 8, "hex" },
      { "value2", 64, 4, "number" },
    },
    entry = {
      name = "sessions", offset = 72, size = 64, count_offset = 40,
      fields = {
        { "id", 0, 8, "hex" },
        { "src", 8, 20, "address" },
        { "dst", 28, 20, "address" },
        { "src_port", 48, 2, "number" },
        { "dst_port", 50, 2, "number" },
        { "protocol", 52, 4, "number", { [1] = "icmp", [6] = "tcp", [17] = "udp", [58] = "icmpv6" } },
        { "mapping_id", 56, 4, "number" },
        { "age_s", 60, 4, "number" },
      },
    },
  },
  {
    name = "end_batch_reply",
    purpose = "result of the end of a classifier batch",
    direction = 1, type = 0xc00a, body = 32, size = 36, open = true,
    fields = {
      { "result", 32, 4, "code" },
    },
  },
  {
    name = "classifier_update_reply",
    purpose = "result of a classifier update",
    direction = 1, type = 0xc00b, body = 32, size = 36, open = true,
    fields = {
      { "result", 32, 4, "code" },
    },
  },
  {
    name = "mapt_reply",
    purpose = "outcome of a MAP-T rule command",
    direction = 1, type = 0xc00d, body = 32, size = 64, exact = true,
    fields = {
      { "result", 32, 4, "code" },
      { "rule_id", 40, 4, "number" },
      { "domain_id", 44, 4, "number" },
      { "rule_type", 48, 4, "number" },
      { "op", 52, 4, "operation" },
      { "cleanup", 56, 4, "flag" },
      { "bmr_index", 60, 4, "number" },
    },
  },
  {
    name = "sync_init_answer",
    purpose = "answer to the client's announcement",
    direction = 1, type = 0x8002, body = 16, size = 20, exact = true,
    fields = {
      { "result", 16, 4, "code" },
    },
  },
  {
    name = "ctrl_answer",
    purpose = "answer to a control command",
    direction = 1, type = 0x8003, body = 16, size = 20, exact = true,
    fields = {
      { "result", 16, 4, "code" },
    },
  },
  {
    name = "unsol_record",
    purpose = "a record was added or deleted",
    direction = 1, type = 0xc001, body = 16, size = 42, selector = 0, selector_offset = 16, open = true, unsolicited = true,
    fields = {
      { "event", 16, 4, "number" },
      { "word2", 20, 4, "number" },
      { "word1", 24, 4, "number" },
      { "word3", 32, 4, "number" },
      { "add", 40, 2, "flag" },
    },
  },
  {
    name = "unsol_event",
    purpose = "something happened",
    direction = 1, type = 0xc001, body = 16, size = 20, selector = 1, selector_offset = 16, open = true, unsolicited = true,
    fields = {
      { "event", 16, 4, "number" },
    },
  },
  {
    name = "unsol_wakeup",
    purpose = "the server takes commands again",
    direction = 1, type = 0xc001, body = 16, size = 20, selector = 2, selector_offset = 16, open = true, unsolicited = true,
    fields = {
      { "event", 16, 4, "number" },
    },
  },
  {
    name = "unsol_mapping",
    purpose = "a mapping has changed",
    direction = 1, type = 0xc001, body = 16, size = 62, selector = 3, selector_offset = 16, open = true, unsolicited = true,
    fields = {
      { "event", 16, 4, "number" },
      { "id", 20, 4, "number" },
      { "value", 28, 4, "number" },
      { "inactive", 61, 1, "flag" },
    },
  },
  {
    name = "unsol_debug",
    purpose = "switches debug classes of the client",
    direction = 1, type = 0xc001, body = 16, size = 28, selector = 4, selector_offset = 16, open = true, unsolicited = true,
    fields = {
      { "event", 16, 4, "number" },
      { "selector", 20, 4, "number" },
      { "on", 24, 4, "flag" },
    },
  },
}

local to_server, to_client = 0, 1
local pseudo_header_size = 4
local short_header_size, header_size = 16, 32 -- of a synchronous message or notification, and of any other
local domain = 96

local nat64 = Proto("fwx_nat64", "NAT64 client protocol")

-- Fields by their abbreviation; one that several messages share is made once.
local fields = {}
local function field(make, abbrev, ...)
  if not fields[abbrev] then fields[abbrev] = ProtoField[make]("fwx_nat64." .. abbrev, ...) end
  return fields[abbrev]
end

local f_version = field("uint8", "version", "version")
local f_direction = field("uint8", "direction", "direction", base.DEC, { [0] = "to server", "to client" })
local f_form = field("uint8", "form", "form", base.DEC, { [0] = "asynchronous", "synchronous" })
local f_message = field("string", "message", "message")
local f_type = field("uint16", "type", "type word", base.HEX)
local f_number = field("uint16", "number", "message number", base.DEC, nil, 0x0fff)
local f_domain = field("uint16", "domain", "domain")
local f_context = field("uint64", "context", "client context", base.HEX)
local f_epoch = field("uint32", "epoch", "epoch")
local f_reserved = field("bytes", "reserved", "reserved")
local f_undissected = field("bytes", "undissected", "not dissected")
-- Of a value in any message.
local f_ipv4 = field("ipv4", "ipv4", "IPv4 address")
local f_ipv6 = field("ipv6", "ipv6", "IPv6 address")
local f_prefix = field("string", "prefix", "prefix")
local f_id = field("uint64", "id", "identifier")
local f_ifh = field("uint32", "ifh", "interface handle")
local by_name = { id = f_id, rule_id = f_id, pool_id = f_id, mapping_id = f_id, ifh = f_ifh }
local f_request_in = field("framenum", "request_in", "request in", base.NONE, frametype.REQUEST)
local f_response_in = field("framenum", "response_in", "response in", base.NONE, frametype.RESPONSE)
local f_response_time = field("relative_time", "response_time", "response time")

local e_malformed = ProtoExpert.new("fwx_nat64.malformed", "malformed message", expert.group.MALFORMED, expert.severity.ERROR)
local e_unknown = ProtoExpert.new("fwx_nat64.unknown", "unknown message", expert.group.UNDECODED, expert.severity.WARN)
local e_header = ProtoExpert.new("fwx_nat64.header", "unexpected header", expert.group.PROTOCOL, expert.severity.WARN)
local e_refused = ProtoExpert.new("fwx_nat64.refused", "refused", expert.group.RESPONSE_CODE, expert.severity.NOTE)
local e_unanswered = ProtoExpert.new("fwx_nat64.unanswered", "unanswered", expert.group.SEQUENCE, expert.severity.WARN)
nat64.experts = { e_malformed, e_unknown, e_header, e_refused, e_unanswered }

-- What nobody needs to see, and filters find.
local function add_hidden(tree, ...)
  tree:add(...):set_hidden()
end

local function add_reserved(tree, buffer, from, to)
  if to > from then add_hidden(tree, f_reserved, buffer(from, to - from)) end
end

local function add_undissected(tree, buffer, from)
  if buffer:len() > from then tree:add(f_undissected, buffer(from)) end
end

-- An IPv6 address from its first bytes.
local function ipv6(bytes)
  local groups = {}
  for i = 0, 14, 2 do
    local high = i < bytes:len() and bytes:get_index(i) or 0
    local low = i + 1 < bytes:len() and bytes:get_index(i + 1) or 0
    groups[#groups + 1] = string.format("%x", high * 256 + low)
  end
  return Address.ipv6(table.concat(groups, ":"))
end

local function reversed(bytes)
  local turned = ByteArray.new()
  turned:set_size(bytes:len())
  for i = 0, bytes:len() - 1 do turned:set_index(i, bytes:get_index(bytes:len() - 1 - i)) end
  return turned
end

local unsigned = { [1] = "uint8", [2] = "uint16", [4] = "uint32", [8] = "uint64" }
local operations = { [1] = "add", [2] = "modify", [3] = "delete" }
local families = { [0] = "IPv4" }

-- Of each kind of field: how it is declared, and how its bytes are shown; the item comes back, with the value as text if it
-- is one for the information column.
local function add_little_endian(shape, tree, range) return tree:add_le(shape.field, range) end
local function number(display, names)
  return {
    declare = function(shape)
      shape.names = names or shape.names
      shape.field = field(unsigned[shape.width], shape.abbrev, shape.name, display, shape.names)
    end,
    add = function(shape, tree, range)
      local item, value = tree:add_le(shape.field, range), range:le_uint64()
      local common = by_name[shape.name]
      if common then add_hidden(tree, common, range, common == f_id and value or value:tonumber()) end
      return item, display == base.DEC and (shape.names and shape.names[value:tonumber()] or tostring(value)) or nil
    end,
  }
end
local function simple(make, add)
  return { declare = function(shape) shape.field = field(make, shape.abbrev, shape.name) end, add = add }
end
local kinds = {
  number = number(base.DEC),
  hex = number(base.HEX),
  flag = simple("bool", add_little_endian),
  operation = number(base.DEC, operations),
  code = number(base.HEX, result_names),
  bytes = simple("bytes", function(shape, tree, range) return tree:add(shape.field, range) end),
  ipv4 = simple("ipv4", function(shape, tree, range)
    add_hidden(tree, f_ipv4, range)
    return tree:add(shape.field, range), tostring(range:ipv4())
  end),
  ipv4_swapped = simple("ipv4", function(shape, tree, range)
    tree:add_le(f_ipv4, range):set_hidden()
    return tree:add_le(shape.field, range), tostring(range:le_ipv4())
  end),
  ipv6_swapped = simple("ipv6", function(shape, tree, range)
    local address = ipv6(reversed(range:bytes()))
    add_hidden(tree, f_ipv6, range, address)
    return tree:add(shape.field, range, address), tostring(address)
  end),
  address = {
    declare = function(shape)
      shape.field = field("none", shape.abbrev, shape.name)
      shape.family = field("uint32", shape.abbrev .. ".family", "family", base.DEC, families)
      shape.ipv4 = field("ipv4", shape.abbrev .. ".ipv4", "address")
      shape.ipv6 = field("ipv6", shape.abbrev .. ".ipv6", "address")
    end,
    add = function(shape, tree, range)
      local item = tree:add(shape.field, range)
      item:add_le(shape.family, range(0, 4))
      local text
      if range(0, 4):le_uint() == 0 then
        local address = range(4, 4)
        text = tostring(address:ipv4())
        item:add(shape.ipv4, address)
        add_hidden(item, f_ipv4, address)
        add_hidden(item, f_reserved, range(8))
      else
        local address = range(4, 16)
        text = tostring(address:ipv6())
        item:add(shape.ipv6, address)
        add_hidden(item, f_ipv6, address)
      end
      item:append_text(": " .. text)
      return item, text
    end,
  },
  prefix = {
    declare = function(shape)
      shape.field = field("none", shape.abbrev, shape.name)
      shape.ipv6 = field("ipv6", shape.abbrev .. ".ipv6", "prefix")
      shape.bits = field("uint8", shape.abbrev .. ".length", "length")
    end,
    add = function(shape, tree, range)
      local address = ipv6(range(0, 12):bytes())
      local item = tree:add(shape.field, range)
      local text = tostring(address) .. "/" .. range(15, 1):uint()
      item:append_text(": " .. text)
      item:add(shape.ipv6, range(0, 12), address)
      add_hidden(item, f_reserved, range(12, 3))
      item:add(shape.bits, range(15, 1))
      add_hidden(item, f_prefix, range, text)
      return item, text
    end,
  },
}

-- A shape is { name, offset, width, kind, names of values if it has any } as it stands in the tables.
local function declare(shapes, prefix)
  local found = {}
  for _, shape in ipairs(shapes) do
    shape.name, shape.offset, shape.width, shape.kind, shape.names = shape[1], shape[2], shape[3], shape[4], shape[5]
    shape.abbrev = (shape.kind == "code" or shape.selects) and shape.name or prefix .. shape.name
    kinds[shape.kind].declare(shape)
    found[shape.name] = shape
  end
  for _, shape in ipairs(shapes) do shape.length = found[shape.name .. "_len"] end
end

local by_type = {} -- messages by direction and type word
for _, message in ipairs(messages) do
  for _, shape in ipairs(message.fields) do
    if message.selector and shape[2] == message.selector_offset then shape.selects = message.name end
  end
  declare(message.fields, message.name .. ".")
  if message.entry then
    message.entry.field = field("none", message.name .. "." .. message.entry.name, message.entry.name)
    declare(message.entry.fields, message.name .. "." .. message.entry.name .. ".")
  end
  local key = message.direction * 0x10000 + message.type
  by_type[key] = by_type[key] or {}
  table.insert(by_type[key], message)
end
nat64.fields = fields

-- Numbers that say nothing in the information column.
local silent = { one = true, zero = true, id2 = true, mode = true, more = true, stopped = true, rule_type = true, sel = true }

-- Adds the fields that end before `limit` of a record that starts at `start`, and the reserved bytes between them. Values
-- that tell what the message is about go into `summary`, if there is one.
local function add_fields(tree, shapes, buffer, start, at, limit, summary)
  for _, shape in ipairs(shapes) do
    local from = start + shape.offset
    if from + shape.width > limit then break end
    add_reserved(tree, buffer, at, from)
    local item, text = kinds[shape.kind].add(shape, tree, buffer(from, shape.width))
    local length = shape.length
    if length and start + length.offset < limit then
      local bits = "/" .. buffer(start + length.offset, 1):uint()
      item:append_text(bits)
      text = text .. bits
      tree:add(f_prefix, buffer(from, shape.width), text):set_hidden()
    end
    local is_length = shape.name:find("_len$")
    local is_said = text and text ~= "0" and text ~= "0.0.0.0" and text ~= "::/0"
    if summary and is_said and not (shape.selects or silent[shape.name] or is_length or shape.kind == "code") then
      table.insert(summary, shape.name .. "=" .. text)
    end
    if shape.selects then item:append_text(" (" .. shape.selects .. ")") end
    at = from + shape.width
  end
  return at
end

local function add_entries(tree, entry, buffer, count)
  local at = entry.offset
  for index = 1, count do
    local to = at + entry.size
    if to > buffer:len() then return at, index - 1 end
    local item = tree:add(entry.field, buffer(at, entry.size))
    item:append_text(" " .. index)
    add_reserved(item, buffer, add_fields(item, entry.fields, buffer, at, at, to), to)
    at = to
  end
  return at, count
end

local function add_header(tree, buffer, body)
  tree:add_le(f_type, buffer(0, 2)):add_le(f_number, buffer(0, 2))
  local item = tree:add_le(f_domain, buffer(2, 2))
  if buffer(2, 2):le_uint() ~= domain then item:add_proto_expert_info(e_header, "the domain must be " .. domain) end
  add_reserved(tree, buffer, 4, short_header_size)
  if body == short_header_size then return end
  tree:add_le(f_context, buffer(16, 8))
  tree:add_le(f_epoch, buffer(24, 4))
  add_reserved(tree, buffer, 28, header_size)
end

-- The description of a message, or why it cannot be told; neither for an unknown one.
local function find(direction, buffer)
  local candidates = by_type[direction * 0x10000 + buffer(0, 2):le_uint()] or {}
  local problem
  for _, message in ipairs(candidates) do
    local at = message.selector_offset
    if not at then return message end
    if buffer:len() < at + 4 then
      problem = "too short to tell which message it is"
    elseif buffer(at, 4):le_uint() == message.selector then
      return message
    end
  end
  return nil, problem
end

-- The result of a message from the server, or null.
local function result_of(message, buffer)
  local shape = message.fields[1]
  if not shape or shape.kind ~= "code" or buffer:len() < shape.offset + 4 then return nil end
  return buffer(shape.offset, 4):le_uint()
end

local function check_length(message, buffer, result)
  local least = message.size
  if result and result ~= 0 then least = message.fields[1].offset + 4 end
  if buffer:len() < least then return "only " .. buffer:len() .. " bytes, must be " .. least end
  if message.exact and buffer:len() > message.size then
    return buffer:len() .. " bytes, must be " .. message.size
  end
end

-- What remains of a message behind `at`: reserved where a longer message is well formed.
local function add_rest(tree, message, buffer, at)
  local reserved_to = message.open and buffer:len() or math.min(message.size, buffer:len())
  add_reserved(tree, buffer, at, reserved_to)
  add_undissected(tree, buffer, math.max(at, reserved_to))
end

local function add_body(tree, message, buffer, result, summary)
  local at = add_fields(tree, message.fields, buffer, 0, message.body, buffer:len(), summary)
  local entry = message.entry
  if not entry or result ~= 0 or buffer:len() < message.size then return add_rest(tree, message, buffer, at) end
  add_reserved(tree, buffer, at, entry.offset)
  local count = entry.count_offset and buffer(entry.count_offset, 4):le_uint() or 1
  local to, found = add_entries(tree, entry, buffer, count)
  add_undissected(tree, buffer, to)
  if found < count then return "has " .. found .. " of " .. count .. " " .. entry.name end
end

-- Exchanges by the key that their messages share while they last, and by frame; of each command how often it was sent and
-- answered, and how long that took.
local pending, exchanges, commands = {}, {}, {}
function nat64.init() pending, exchanges, commands = {}, {}, {} end

local function remember(pinfo, key, message)
  if message.direction == to_server then
    local command = commands[message.name] or { sent = 0, answered = 0, total = 0, longest = 0 }
    commands[message.name] = command
    command.sent = command.sent + 1
    pending[key] = { request = pinfo.number, time = pinfo.rel_ts, responses = {}, command = command }
  elseif pending[key] then
    local exchange = pending[key]
    local taken = pinfo.rel_ts - exchange.time
    table.insert(exchange.responses, { frame = pinfo.number, taken = taken })
    if #exchange.responses == 1 then
      local command = exchange.command
      command.answered = command.answered + 1
      command.total = command.total + taken
      command.longest = math.max(command.longest, taken)
    end
  end
  exchanges[pinfo.number] = pending[key]
end

local function seconds(time)
  local whole = math.floor(time)
  return NSTime.new(whole, math.floor((time - whole) * 1e9 + 0.5))
end

local function add_links(tree, pinfo, message, buffer)
  if message.body > buffer:len() then return end
  local is_request = message.direction == to_server
  if not pinfo.visited and not message.unsolicited then
    local key = message.body == header_size and tostring(buffer(16, 12):bytes()) or "sync " .. message.type
    remember(pinfo, key, message)
  end
  local exchange = exchanges[pinfo.number]
  if not exchange then return end
  if is_request then
    for _, response in ipairs(exchange.responses) do
      tree:add(f_response_in, response.frame):set_generated()
      tree:add(f_response_time, seconds(response.taken)):set_generated()
    end
    if pinfo.visited and #exchange.responses == 0 then tree:add_proto_expert_info(e_unanswered) end
  else
    tree:add(f_request_in, exchange.request):set_generated()
    tree:add(f_response_time, seconds(pinfo.rel_ts - exchange.time)):set_generated()
  end
end

-- The commands as a table.
local function statistics()
  local names = {}
  for name in pairs(commands) do names[#names + 1] = name end
  table.sort(names)
  local lines = { string.format("%-24s %10s %10s %14s %14s", "command", "sent", "answered", "mean us", "longest us") }
  for _, name in ipairs(names) do
    local of = commands[name]
    local mean = of.answered > 0 and of.total / of.answered or 0
    lines[#lines + 1] =
      string.format("%-24s %10d %10d %14.1f %14.1f", name, of.sent, of.answered, 1e6 * mean, 1e6 * of.longest)
  end
  return table.concat(lines, "\n") .. "\n"
end

local function dissect_message(tree, pinfo, buffer, direction, is_cut)
  local message, problem = find(direction, buffer)
  local name = message and message.name or "unknown message"
  pinfo.cols.info = name
  tree:append_text(": " .. name)
  tree:add(f_message, name):set_generated()
  local body = message and message.body or short_header_size
  if not message or buffer:len() < body then
    if problem or message then
      tree:add_proto_expert_info(e_malformed, problem or "ends within its header")
    else
      tree:add_proto_expert_info(e_unknown)
    end
    if buffer:len() < short_header_size then return add_undissected(tree, buffer, 0) end
    add_header(tree, buffer, short_header_size)
    return add_undissected(tree, buffer, short_header_size)
  end
  tree:append_text(", " .. message.purpose)
  add_header(tree, buffer, body)
  add_links(tree, pinfo, message, buffer)
  local result = result_of(message, buffer)
  if result then pinfo.cols.info:append(" " .. (result_names[result] or string.format("0x%x", result))) end
  if result and result ~= 0 then tree:add_proto_expert_info(e_refused) end
  problem = check_length(message, buffer, result)
  local summary = {}
  problem = add_body(tree, message, buffer, result, summary) or problem
  if #summary > 0 then pinfo.cols.info:append(" " .. table.concat(summary, " ", 1, math.min(#summary, 8))) end
  if problem and not is_cut then tree:add_proto_expert_info(e_malformed, name .. ": " .. problem) end
end

function nat64.dissector(tvb, pinfo, root)
  pinfo.cols.protocol = "NAT64"
  local tree = root:add(nat64, tvb())
  if tvb:len() < pseudo_header_size + 2 then
    tree:add_proto_expert_info(e_malformed, "no message")
    return add_undissected(tree, tvb, 0)
  end
  tree:add(f_version, tvb(0, 1))
  tree:add(f_direction, tvb(1, 1))
  local form = tree:add(f_form, tvb(2, 1))
  add_hidden(tree, f_reserved, tvb(3, 1))
  local direction, is_sync = tvb(1, 1):uint(), tvb(2, 1):uint() == 1
  if tvb(0, 1):uint() ~= 1 or direction > to_client then
    tree:add_proto_expert_info(e_unknown, "unknown version or direction")
    return add_undissected(tree, tvb, pseudo_header_size)
  end
  pinfo.cols.src = direction == to_server and "client" or "server"
  pinfo.cols.dst = direction == to_server and "server" or "client"
  local buffer = tvb(pseudo_header_size):tvb()
  if is_sync ~= (math.floor(buffer(0, 2):le_uint() / 0x1000) == 8) then
    form:add_proto_expert_info(e_header, "the type word has the other form")
  end
  dissect_message(tree, pinfo, buffer, direction, tvb:len() < tvb:reported_len())
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, nat64)

if ({ ... })[1] == "statistics" then
  local tap = Listener.new("frame", "fwx_nat64")
  function tap.draw() print(statistics()) end
elseif gui_enabled() then
  register_menu("NAT64 commands", function() TextWindow.new("NAT64 commands"):set(statistics()) end, MENU_STAT_GENERIC_UNSORTED or MENU_STAT_UNSORTED)
end
