/* Logging destinations, by address and port. */
#ifndef MODEL_LOGGINGS_H
#define MODEL_LOGGINGS_H

#include <utility>

#include "fwx_nat64/wire.h"
#include "model/command.h"
#include "model/table.h"

struct loggings_t {
    table_t<std::pair<uint32_t, uint16_t>, fwx_nat64_logging_payload_t> loggings;

    uint32_t add(const fwx_nat64_logging_payload_t &payload);
    uint32_t modify(const fwx_nat64_logging_payload_t &payload);
    uint32_t remove(const fwx_nat64_logging_payload_t &payload);
};

constexpr config_command_t loggings_commands[] = {
    kept<&loggings_t::add, &loggings_t::loggings>(FWX_NAT64_CFG_LOGGING_ADD),
    kept_as<&loggings_t::modify>(FWX_NAT64_CFG_LOGGING_MOD, FWX_NAT64_CFG_LOGGING_ADD),
    kept_as<&loggings_t::remove>(FWX_NAT64_CFG_LOGGING_DEL, FWX_NAT64_CFG_LOGGING_ADD),
};

#endif
