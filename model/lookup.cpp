/* Looks up MAP-T rules as a data plane does: by longest match in the client library's lookup tree. */
#include "fwx_host/tbm.h"
#include "model/engine.h"
#include "model/model.h"

namespace {

/* A key is two tag bits, which tell the address family, followed by the bits of the address. */
constexpr uint32_t tag_bits = 2;
constexpr uint8_t tag_ipv4 = 2;
constexpr uint8_t tag_ipv6 = 1;
constexpr uint32_t ipv4_bytes = 4;
constexpr uint32_t ipv6_bytes = 8;
constexpr uint32_t bits_in_byte = 8;

struct lookup_key_t {
    uint8_t bytes[ipv6_bytes + 1];
    uint32_t len; /* bits */
};

lookup_key_t key_of(const fwx_nat64_addr_t &address) {
    const bool is_ipv4 = address.family == FWX_NAT64_FAMILY_IPV4;
    const uint32_t address_bytes = is_ipv4 ? ipv4_bytes : ipv6_bytes;
    lookup_key_t key{{}, tag_bits + address_bytes * bits_in_byte};
    uint32_t carried = is_ipv4 ? tag_ipv4 : tag_ipv6;
    for (uint32_t i = 0; i <= address_bytes; ++i) {
        const uint32_t next = i < address_bytes ? address.addr[i] : 0;
        key.bytes[i] = static_cast<uint8_t>(carried << (bits_in_byte - tag_bits) | next >> tag_bits);
        carried = next & ((1U << tag_bits) - 1);
    }
    return key;
}

uint32_t rule_index(const uint8_t *leaf_data) {
    const uint8_t *at = leaf_data + offsetof(fwx_mapt_app_leaf_t, mapt_bmr);
    return uint32_t{at[0]} << 24 | uint32_t{at[1]} << 16 | uint32_t{at[2]} << 8 | at[3];
}

}  // namespace

bool fwx_nat64_model_t::lookup(const fwx_nat64_addr_t *address, fwx_nat64_model_match_t *match) const {
    tbm *tree = fwx_host_tbm_of_complex(0);
    if (tree == nullptr) return false;
    const lookup_key_t key = key_of(*address);
    uint32_t match_len = 0;
    const tbm_leaf *leaf = fwx_host_tbm_longest_match(tree, key.bytes, key.len, &match_len);
    if (leaf == nullptr) return false;
    const auto rule = state_->engine.config.rules.by_index.get(rule_index(fwx_host_tbm_leaf_data(tree, leaf)));
    if (!rule) return false;
    *match = {rule->index, rule->rule.rule_id, rule->rule.domain_id, match_len - tag_bits};
    ++state_->engine.lookups[{rule->rule.rule_id, rule->rule.domain_id}];
    return true;
}

std::optional<uint64_t> fwx_nat64_model_t::lookups(uint32_t bmr_index) const {
    const auto rule = state_->engine.config.rules.by_index.get(bmr_index);
    if (!rule) return std::nullopt;
    const auto found = state_->engine.lookups.find({rule->rule.rule_id, rule->rule.domain_id});
    return found == state_->engine.lookups.end() ? 0 : found->second;
}
