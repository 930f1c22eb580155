/** @file
 * Records of the commands, with typed values. Each record converts to the C record of its command, so a member of
 * fwx::nat64::client accepts either.
 *
 * The library checks the ranges named here when the command is sent; fwx_nat64/config.h and fwx_nat64/mapt.h describe
 * the fields. "Defined by the server" means that the library passes a field on unchanged.
 */
#ifndef FWX_NAT64_CXX_RECORD_HPP
#define FWX_NAT64_CXX_RECORD_HPP

#include <cstring>
#include <span>
#include <stdexcept>

#include "fwx_nat64/cxx/value.hpp"

namespace fwx::nat64 {

namespace detail {
/** The C record of a prefix: its first 12 bytes and its length. */
constexpr fwx_nat64_prefix_t prefix_record(const ipv6_prefix &prefix, uint32_t kind) {
    fwx_nat64_prefix_t made{{}, {}, prefix.length(), kind};
    for (size_t i = 0; i < sizeof made.prefix; ++i) {
        made.prefix[i] = prefix.address().bytes()[i];
    }
    return made;
}
}  // namespace detail

/** A session timeout of 0 to UINT32_MAX seconds. The conversion to the C record throws std::out_of_range for any other
 * value. */
struct timeout {
    timeout_kind kind;
    seconds value;

    constexpr operator fwx_nat64_timeout_t() const {
        if (value.count() < 0 || value.count() > UINT32_MAX) throw std::out_of_range("a timeout is out of its range");
        return {static_cast<uint32_t>(kind), static_cast<uint32_t>(value.count())};
    }
};

/** The maximum number of sessions. */
struct limit {
    uint32_t value = 0;

    constexpr operator fwx_nat64_limit_t() const { return {FWX_NAT64_LIMIT_TYPE, value}; }
};

/** A service, given by the port of its protocol. */
struct service {
    uint32_t port = 0;

    constexpr operator fwx_nat64_service_t() const { return {FWX_NAT64_SERVICE_TYPE, port}; }
};

/** A neighbour of the translator. */
struct adjacency {
    adjacency_kind kind;
    ip_address address{};

    constexpr operator fwx_nat64_adj_t() const { return {static_cast<uint32_t>(kind), address.record()}; }
};

/** A replication: two words defined by the server. */
struct replication {
    uint32_t value = 0;
    uint32_t value2 = 0;
};

/** The global settings: bytes defined by the server. */
struct settings {
    std::array<uint8_t, 16> bytes{};

    constexpr operator fwx_nat64_global_settings_t() const {
        fwx_nat64_global_settings_t made{};
        for (size_t i = 0; i < sizeof made.opaque; ++i) {
            made.opaque[i] = bytes[i];
        }
        return made;
    }
};

/** The translation settings of an interface. An optional field that is empty is not set. */
struct interface {
    uint32_t ifh = 0; /**< interface handle */
    bool enable = true;
    std::optional<ipv6_prefix> stateless{};
    std::optional<ipv6_prefix> stateful{};
    std::optional<ipv6_prefix> stateless_v6v4{};
    std::optional<uint16_t> mtu{}; /**< bytes */

    constexpr operator fwx_nat64_intf_info_t() const {
        fwx_nat64_intf_info_t made{};
        made.ifh = ifh;
        made.enable = enable ? 1 : 0;
        made.sless_prefix_valid = stateless ? 1 : 0;
        made.sful_prefix_valid = stateful ? 1 : 0;
        made.sless_prefix_v6v4_valid = stateless_v6v4 ? 1 : 0;
        if (stateless) made.sless_prefix = detail::prefix_record(*stateless, 0);
        if (stateful) made.sful_prefix = detail::prefix_record(*stateful, 0);
        if (stateless_v6v4) made.sless_prefix_v6v4 = detail::prefix_record(*stateless_v6v4, 0);
        made.mtu_valid = mtu ? 1 : 0;
        made.mtu = mtu.value_or(0);
        return made;
    }
};

/** A global prefix. The record holds its length and its first 96 bits, even if it is longer. */
struct prefix {
    ipv6_prefix value{};
    prefix_kind kind = prefix_kind::stateful;

    constexpr operator fwx_nat64_prefix_t() const { return detail::prefix_record(value, static_cast<uint32_t>(kind)); }
};

/** A static mapping between two addresses; the server defines the side of each. A delete reads only `id`. */
struct static_mapping {
    uint32_t id = 0;
    ip_address addr1{};
    ip_address addr2{};

    constexpr operator fwx_nat64_smapping_t() const { return {id, {}, addr1.record(), {}, addr2.record(), {}}; }
};

/** A dynamic mapping. */
struct dynamic_mapping {
    uint32_t id = 0; /**< not 0 */
    mapping_kind kind = mapping_kind::eim;
    std::array<uint8_t, 24> ext{}; /**< defined by the server; a modification does not change it */
    uint32_t ext_arg = 0;          /**< likewise */

    constexpr operator fwx_nat64_dmapping_t() const {
        fwx_nat64_dmapping_t made{};
        made.id = id;
        made.type = static_cast<uint32_t>(kind);
        for (size_t i = 0; i < sizeof made.ext; ++i) {
            made.ext[i] = ext[i];
        }
        made.ext_arg = ext_arg;
        return made;
    }
};

/** An address pool. A delete reads only `id`. */
struct pool {
    uint32_t id = 0;      /**< not 0 */
    uint32_t param = 1;   /**< not 0; defined by the server */
    ipv4_address start{}; /**< first address */
    ipv4_address end{};   /**< last address */
    uint32_t hsl_id = 0;  /**< of the pool's logging; defined by the server */

    constexpr operator fwx_nat64_pool_t() const {
        return {id, FWX_NAT64_FAMILY_IPV4, param, ip_address(start).record(), ip_address(end).record(), hsl_id};
    }
};

/** A range of further addresses in a pool. */
struct pool_range {
    uint32_t id = 0;      /**< of the pool, not 0 */
    ipv4_address start{}; /**< first address */
    ipv4_address end{};   /**< last address */

    constexpr operator fwx_nat64_pool_range_t() const {
        return {id, ip_address(start).record(), ip_address(end).record()};
    }
};

/** A destination of translation logs. */
struct logging {
    ipv4_address destination{};         /**< not 0.0.0.0 */
    uint16_t port = 0;                  /**< not 0 */
    protocol transport = protocol::any; /**< any: the server chooses */
    logging_template what = logging_template::all;

    constexpr operator fwx_nat64_logging_t() const {
        return {FWX_NAT64_LOGGING_TYPE,
                FWX_NAT64_LOGGING_MODE,
                static_cast<uint8_t>(transport),
                ip_address(destination).record(),
                port,
                static_cast<uint16_t>(what)};
    }
};

/** A basic mapping rule of MAP-T. The record holds the first 64 bits of the IPv6 prefix; the library refuses to add a
 * rule with a longer one. */
struct basic_rule {
    uint32_t rule_id = 0; /**< not 0 */
    uint32_t domain_id = 0;
    ipv6_prefix v6{};
    ipv4_prefix v4{};
    uint16_t ea_len = 0;      /**< bits */
    uint16_t psid_offset = 0; /**< bits */
    uint16_t psid_len = 0;    /**< bits */
    uint16_t psid = 0;        /**< of a rule whose EA bits do not contain it */

    constexpr operator fwx_nat64_mapt_bmr_t() const {
        fwx_nat64_mapt_bmr_t made{};
        made.rule_id = rule_id;
        made.domain_id = domain_id;
        for (size_t i = 0; i < sizeof made.v6_prefix; ++i) {
            made.v6_prefix[i] = v6.address().bytes()[i];
        }
        made.v6_prefix_len = v6.length();
        for (size_t i = 0; i < sizeof made.v4_prefix; ++i) {
            made.v4_prefix[i] = static_cast<uint8_t>(v4.address().word() >> (24 - 8 * i));
        }
        made.v4_prefix_len = v4.length();
        made.rule_params[0] = ea_len;
        made.rule_params[1] = psid_offset;
        made.rule_params[2] = psid_len;
        made.rule_params[3] = psid;
        return made;
    }
};

/** A default mapping rule of MAP-T: the prefix into which all other IPv4 addresses are translated. */
struct default_rule {
    uint32_t id = 0; /**< not 0 */
    ipv6_prefix value{};

    constexpr operator fwx_nat64_mapt_dmr_t() const {
        fwx_nat64_mapt_dmr_t made{};
        made.id = id;
        for (size_t i = 0; i < value.address().bytes().size(); ++i) {
            made.opaque[i] = value.address().bytes()[i];
        }
        made.opaque[value.address().bytes().size()] = value.length();
        return made;
    }
};

/** Selects sessions to walk or to clear, in the encoding of this project's server. A field with its default value
 * matches every session. */
struct session_filter {
    protocol ip_protocol = protocol::any;
    ip_address inside{}; /**< of the inside host */
    ip_address destination{};
    ipv4_address pool_address{}; /**< translated source address */
    uint16_t port = 0;           /**< source, translated source or destination port */

    operator fwx_nat64_sess_walk_filter_t() const {
        fwx_nat64_sess_walk_filter_t made{};
        const auto number = static_cast<uint32_t>(ip_protocol);
        std::memcpy(made.opaque0, &number, sizeof number);
        made.src = inside.record();
        fwx_nat64_session_where_t where = this->where();
        where.dst = destination.record();
        if (where.dst.family == FWX_NAT64_FAMILY_IPV4) std::reverse(where.dst.addr, where.dst.addr + 4);
        std::memcpy(made.opaque60, &where, sizeof where);
        return made;
    }
    operator fwx_nat64_session_filter_t() const {
        fwx_nat64_session_filter_t made{};
        made.value = static_cast<uint32_t>(ip_protocol);
        made.src = inside.record();
        made.dst = destination.record();
        const fwx_nat64_session_where_t where = this->where();
        std::memcpy(made.opaque, &where, sizeof where);
        return made;
    }

private:
    fwx_nat64_session_where_t where() const {
        fwx_nat64_session_where_t made{};
        const uint32_t network = htonl(pool_address.word());
        std::memcpy(made.pool_addr, &network, sizeof network);
        made.port = port;
        return made;
    }
};

}  // namespace fwx::nat64

#endif
