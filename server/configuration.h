/* The configuration: the state that configuration commands reach, in parts, and each command's part. It checks what can
 * be checked without knowing how it is carried out. */
#ifndef SERVER_CONFIGURATION_H
#define SERVER_CONFIGURATION_H

#include <functional>
#include <memory>
#include <tuple>
#include <utility>

#include "server/pools.h"
#include "server/rules.h"
#include "server/server.h"

/** Settings that have a value each: timeouts, limits, services, adjacencies, replication, global settings. */
struct settings_t {
    table_t<uint32_t, fwx_nat64_timeout_t> timeouts; /* these four by type; one of 0 has its default */
    table_t<uint32_t, fwx_nat64_limit_t> limits;
    table_t<uint32_t, fwx_nat64_service_payload_t> services;
    table_t<uint32_t, fwx_nat64_adj_t> adjacencies; /* IPv4 in network order */
    std::optional<fwx_nat64_replication_t> replication;
    std::optional<fwx_nat64_global_settings_t> global;

    uint32_t timeout_set(const fwx_nat64_timeout_t &timeout);
    uint32_t limit_set(const fwx_nat64_limit_t &limit);
    uint32_t limit_delete(const fwx_nat64_limit_t &limit);
    uint32_t service_set(const fwx_nat64_service_payload_t &payload);
    uint32_t adjacency_set(const fwx_nat64_adj_t &adjacency);
    uint32_t replication_set(const fwx_nat64_replication_t &record);
    uint32_t replication_unset(const fwx_nat64_replication_t &record);
    uint32_t global_set(const fwx_nat64_global_settings_t &record);
};

using prefix_key_t = std::tuple<std::array<uint8_t, sizeof(fwx_nat64_prefix_t::prefix)>, uint8_t, uint32_t>;

/** Interfaces and global prefixes. */
struct interfaces_t {
    table_t<uint32_t, fwx_nat64_intf_payload_t> interfaces;         /* by handle */
    table_t<prefix_key_t, fwx_nat64_glb_prefix_payload_t> prefixes; /* by prefix, length in bits and kind */
    table_t<prefix_key_t, fwx_nat64_glb_prefix_payload_t> prefixes_kind2;

    uint32_t set(const fwx_nat64_intf_payload_t &payload);
    uint32_t nvi_enable(const fwx_nat64_intf_payload_t &payload);
    uint32_t prefix_set(const fwx_nat64_glb_prefix_payload_t &payload);
    uint32_t prefix_kind2_set(const fwx_nat64_glb_prefix_payload_t &payload);
};

/** Number of prefixes that came with an interface. */
uint32_t prefix_count(const fwx_nat64_intf_payload_t &interface);

/** Static and dynamic mappings; their identifiers are apart. */
struct mappings_t {
    table_t<uint32_t, fwx_nat64_smapping_t> fixed; /* IPv4 addresses in network order */
    table_t<uint32_t, fwx_nat64_dmapping_payload_t> dynamic;

    uint32_t static_add(const fwx_nat64_smapping_t &mapping);
    uint32_t static_delete(const fwx_nat64_delete_payload_t &payload);
    uint32_t dynamic_add(const fwx_nat64_dmapping_payload_t &payload);
    /** The second part and its argument stay: a modify carries none. */
    uint32_t dynamic_modify(const fwx_nat64_dmapping_payload_t &payload);
    uint32_t dynamic_delete(const fwx_nat64_delete_payload_t &payload);
};

/** Logging destinations, by address and port. */
struct loggings_t {
    table_t<std::pair<uint32_t, uint16_t>, fwx_nat64_logging_payload_t> loggings;

    uint32_t add(const fwx_nat64_logging_payload_t &payload);
    uint32_t modify(const fwx_nat64_logging_payload_t &payload);
    uint32_t remove(const fwx_nat64_logging_payload_t &payload);
};

/** What the classifier commands left behind, in both forms. */
struct classifier_t {
    uint64_t updates = 0;
    uint64_t batches = 0;  /* ended ones */
    uint32_t batch_id = 0; /* of the latest command */
    uint8_t data[24] = {}; /* of the latest update */

    uint32_t end_batch(const uint32_t &id);
    uint32_t update(const fwx_nat64_classifier_update_t &record);
};

struct configuration_t {
    settings_t settings;
    interfaces_t interfaces;
    mappings_t mappings;
    pools_t pools;
    loggings_t loggings;
    rules_t rules;
    classifier_t classifier;

    /** Carries out a configuration command or what stands for one of a rule, whose payload is at `payload`; returns its
     * result. */
    uint32_t carry_out(uint32_t op_code, const void *payload);
    /** Bytes of the payload of a command; 0 when there is none. */
    static size_t payload_size(uint32_t op_code);
    /** The same of a command that changes what is saved; 0 for all others. */
    static size_t kept_size(uint32_t op_code);
    /** Hands everything over that is kept, in an order in which it can be carried out again. */
    void save(server_part_fn_t fn, void *arg) const;
};

/** Takes one item that is kept, as the command that makes it; false: it does not, and gets it again. */
using item_fn_t = std::function<bool(uint32_t op_code, const void *payload, size_t size)>;

/** Where the items of one command stand in a reading. */
class item_cursor_t {
public:
    virtual ~item_cursor_t() = default;
    /** Hands items over as long as they are taken; true: there are no more. */
    virtual bool give(const item_fn_t &take) = 0;
};

/** Reads what `save` hands over piece by piece. Between the pieces the configuration may change: what is changed behind
 * the place of the reading is read as it is then. */
class configuration_reader_t {
public:
    explicit configuration_reader_t(const configuration_t &config) : config_(config) {}
    /** Hands items over as long as they are taken; true: there are no more. */
    bool give(const item_fn_t &take);

private:
    const configuration_t &config_;
    size_t row_ = 0; /* of the commands */
    std::unique_ptr<item_cursor_t> cursor_;
};

#endif
