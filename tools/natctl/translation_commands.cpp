/* What is translated and how: interfaces, prefixes, mappings, pools and their logging. */
#include "tools/natctl/grammar.h"

namespace {

/** A prefix record; returns the option, which also sets `valid`. */
option_t prefix_field(CLI::App &app, const char *option, fwx_nat64_prefix_t &prefix, const char *meaning) {
    return ipv6_prefix_field(app, option, prefix.prefix, sizeof prefix.prefix, prefix.prefix_len, meaning);
}

/** An interface's prefix, whose flag tells whether it is given. */
void interface_prefix_field(CLI::App &app, const char *option, fwx_nat64_prefix_t &prefix, uint32_t &is_valid,
                            const char *meaning) {
    prefix_field(app, option, prefix, meaning).mark(is_valid);
}

void interface_fields(CLI::App &app, fwx_nat64_intf_info_t &info, uint32_t) {
    number_field(app, "--ifh", info.ifh, "interface handle").required();
    info.enable = 1;
    number_field(app, "--enable", info.enable, "whether it translates, 1 without it", 0, 1);
    interface_prefix_field(app, "--sless", info.sless_prefix, info.sless_prefix_valid, "stateless prefix");
    interface_prefix_field(app, "--sful", info.sful_prefix, info.sful_prefix_valid, "stateful prefix");
    interface_prefix_field(app, "--sless-v6v4", info.sless_prefix_v6v4, info.sless_prefix_v6v4_valid,
                           "stateless prefix from IPv6 to IPv4");
    number_field(app, "--mtu", info.mtu, "MTU in bytes").mark(info.mtu_valid);
}

uint32_t set_interface(uint32_t, const fwx_nat64_intf_info_t *info, void *ctx) {
    return fwx_nat64_interface_set_a(info, ctx);
}

struct nvi_t {
    uint32_t ifh;
};

void nvi_fields(CLI::App &app, nvi_t &nvi, uint32_t) {
    number_field(app, "--ifh", nvi.ifh, "interface handle").required();
}

uint32_t enable_nvi(uint32_t, const nvi_t *nvi, void *ctx) {
    return fwx_nat64_nvi_interface_enable_a(nvi->ifh, ctx);
}

void global_prefix_fields(CLI::App &app, fwx_nat64_prefix_t &prefix, uint32_t) {
    prefix_field(app, "--prefix", prefix, "the prefix").required();
    number_field(app, "--kind", prefix.kind, "what it is for", 1, 4).required();
}

uint32_t set_global_prefix(uint32_t op, const fwx_nat64_prefix_t *prefix, void *ctx) {
    if (op == FWX_NAT64_OP_ADD) return fwx_nat64_glb_prefix_add_a(prefix, ctx);
    if (op == FWX_NAT64_OP_MOD) return fwx_nat64_glb_prefix_mod_a(prefix, ctx);
    return fwx_nat64_glb_prefix_del_a(prefix, ctx);
}

void smapping_fields(CLI::App &app, fwx_nat64_smapping_t &map, uint32_t op) {
    number_field(app, "--id", map.id, "identifier of the mapping").required();
    if (op == FWX_NAT64_OP_DEL) return;
    address_field(app, "--addr1", map.addr1, "first address").required();
    address_field(app, "--addr2", map.addr2, "second address").required();
}

void dmapping_fields(CLI::App &app, fwx_nat64_dmapping_t &map, uint32_t op) {
    number_field(app, "--id", map.id, "identifier of the mapping", 1).required();
    if (op == FWX_NAT64_OP_DEL) return;
    number_field(app, "--type", map.type, "type of the mapping", 0, 7).required();
    hex_field(app, "--ext", map.ext, sizeof map.ext, "second part, passed to the server");
    number_field(app, "--ext-arg", map.ext_arg, "argument of the second part");
}

void address_range_fields(CLI::App &app, fwx_nat64_addr_t &start, fwx_nat64_addr_t &end) {
    ipv4_field(app, "--start", start, "first address").required();
    ipv4_field(app, "--end", end, "last address").required();
}

void pool_fields(CLI::App &app, fwx_nat64_pool_t &pool, uint32_t op) {
    number_field(app, "--id", pool.id, "identifier of the pool", 1).required();
    if (op == FWX_NAT64_OP_DEL) return;
    number_field(app, "--param", pool.param, "parameter, passed to the server", 1).required();
    address_range_fields(app, pool.start_addr, pool.end_addr);
    number_field(app, "--hsl", pool.hsl_id, "identifier of its logging");
}

void range_fields(CLI::App &app, fwx_nat64_pool_range_t &range, uint32_t) {
    number_field(app, "--id", range.id, "identifier of the pool", 1).required();
    address_range_fields(app, range.start_addr, range.end_addr);
}

void logging_fields(CLI::App &app, fwx_nat64_logging_t &log, uint32_t) {
    log.type = 1;
    log.mode = 1;
    ipv4_field(app, "--dest", log.dest, "address that the records go to").required();
    number_field(app, "--port", log.dest_port, "its port", 1).required();
    number_field(app, "--param", log.param, "first parameter, passed to the server");
    number_field(app, "--param2", log.param2, "second parameter, passed to the server");
}

}  // namespace

void add_translation_commands(grammar_t &grammar) {
    grammar.family("interface", "Interfaces that translate");
    add_setters<fwx_nat64_intf_info_t>(grammar, "an interface's prefixes and MTU", {set_verb},
                                       {set_interface, interface_fields});

    grammar.family("nvi", "NAT virtual interfaces");
    constexpr verb_t enable_verb = {"enable", FWX_NAT64_OP_ADD, "Enables "};
    add_setters<nvi_t>(grammar, "an interface", {enable_verb}, {enable_nvi, nvi_fields});

    grammar.family("prefix", "Global prefixes");
    add_setters<fwx_nat64_prefix_t>(grammar, "a global prefix", {add_verb, mod_verb, del_verb},
                                    {set_global_prefix, global_prefix_fields});

    grammar.family("smapping", "Static mappings");
    add_setters<fwx_nat64_smapping_t>(grammar, "a static mapping", {add_verb, del_verb},
                                      {fwx_nat64_smapping_set_a, smapping_fields});

    grammar.family("dmapping", "Dynamic mappings");
    add_setters<fwx_nat64_dmapping_t>(grammar, "a dynamic mapping", {add_verb, mod_verb, del_verb},
                                      {fwx_nat64_dmapping_set_a, dmapping_fields});

    grammar.family("pool", "Address pools");
    add_setters<fwx_nat64_pool_t>(grammar, "an address pool", {add_verb, mod_verb, del_verb},
                                  {fwx_nat64_pool_set_a, pool_fields});

    grammar.family("range", "Further address ranges of pools");
    add_setters<fwx_nat64_pool_range_t>(grammar, "a range of a pool", {add_verb, del_verb},
                                        {fwx_nat64_pool_range_set_a, range_fields});

    grammar.family("logging", "Logging of translations");
    add_setters<fwx_nat64_logging_t>(grammar, "a logging destination", {add_verb, mod_verb, del_verb},
                                     {fwx_nat64_logging_set_a, logging_fields});
}
