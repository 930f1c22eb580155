/*
 * The configuration: the state that configuration commands change, in parts. Each part has the commands that change it,
 * and checks their payloads as far as that does not depend on the engine. Functions that take a payload return 0 or one
 * of FWX_NAT64_MODEL_ERR_.
 */
#ifndef SERVER_CONFIGURATION_H
#define SERVER_CONFIGURATION_H

#include <functional>
#include <memory>
#include <tuple>
#include <utility>

#include "server/pools.h"
#include "server/rules.h"
#include "server/server.h"

/** Simple settings: timeouts, limits, services, adjacencies, replication, global settings. */
struct settings_t {
    table_t<uint32_t, fwx_nat64_timeout_t> timeouts; /* by type, like the next three; a value of 0 is the default */
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

/** Number of valid prefixes of an interface. */
uint32_t prefix_count(const fwx_nat64_intf_payload_t &interface);

/** Static and dynamic mappings; the two have separate identifiers. */
struct mappings_t {
    table_t<uint32_t, fwx_nat64_smapping_t> fixed; /* IPv4 addresses in network order */
    table_t<uint32_t, fwx_nat64_dmapping_payload_t> dynamic;

    uint32_t static_add(const fwx_nat64_smapping_t &mapping);
    uint32_t static_delete(const fwx_nat64_delete_payload_t &payload);
    uint32_t dynamic_add(const fwx_nat64_dmapping_payload_t &payload);
    /** Keeps the extension and its argument, because a modify command does not carry them. */
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

/** State left by the classifier commands, synchronous and asynchronous. */
struct classifier_t {
    uint64_t updates = 0;
    uint64_t batches = 0;  /* number of ended batches */
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

    /** Executes a configuration command, or the pseudo command of a rule, and returns its result. `payload` must have
     * payload_size(op_code) bytes. */
    uint32_t carry_out(uint32_t op_code, const void *payload);
    /** Size of a command's payload in bytes; 0 for an unknown op code. */
    static size_t payload_size(uint32_t op_code);
    /** The payload size of a command that changes the saved configuration; 0 for all others. */
    static size_t kept_size(uint32_t op_code);
    /** Calls `fn` with every saved payload, in an order in which they can be executed again. */
    void save(server_part_fn_t fn, void *arg) const;
};

/** Receives one saved item, as the command that restores it. Returns false to stop; the item is then passed again by
 * the next call of give(). */
using item_fn_t = std::function<bool(uint32_t op_code, const void *payload, size_t size)>;

/** A position in the saved items of one command. */
class item_cursor_t {
public:
    virtual ~item_cursor_t() = default;
    /** Passes items to `take` until it returns false. Returns true when there are no more items. */
    virtual bool give(const item_fn_t &take) = 0;
};

/** Reads the items that `save` passes, in several calls. The configuration may change between the calls; the reader
 * then sees changes behind its position and misses changes before it. */
class configuration_reader_t {
public:
    explicit configuration_reader_t(const configuration_t &config) : config_(config) {}
    /** Passes items to `take` until it returns false. Returns true when there are no more items. */
    bool give(const item_fn_t &take);

private:
    const configuration_t &config_;
    size_t row_ = 0; /* in the table of commands */
    std::unique_ptr<item_cursor_t> cursor_;
};

#endif
