/* The whole state of a server model. */
#ifndef MODEL_STATE_H
#define MODEL_STATE_H

#include "fwx_host/smc.h"
#include "model/clients.h"
#include "model/interfaces.h"
#include "model/loggings.h"
#include "model/mappings.h"
#include "model/outbox.h"
#include "model/pools.h"
#include "model/request.h"
#include "model/rules.h"
#include "model/sessions.h"
#include "model/settings.h"
#include "model/walks.h"

struct fwx_nat64_model_t {
    explicit fwx_nat64_model_t(fwx_host_loop_t *loop) : outbox(loop, clients), walks(loop, outbox, sessions) {}

    fwx_host_server_t *server = nullptr;
    clients_t clients;
    outbox_t outbox;

    settings_t settings;
    interfaces_t interfaces;
    mappings_t mappings;
    pools_t pools;
    loggings_t loggings;
    rules_t rules;
    sessions_t sessions;
    walks_t walks;
    fwx_nat64_model_classifier_t classifier{};

    uint32_t armed_failures = 0; /* commands that are still to be answered with `armed_code` */
    uint32_t armed_code = 0;
    uint64_t commands = 0;
    uint64_t malformed = 0;
    uint64_t refused = 0;

    fwx_nat64_model_refusal_fn_t refusal_fn = nullptr;
    void *refusal_arg = nullptr;
};

/** Carries out a configuration command or a control command, whose payload is at `payload`; returns its result. */
uint32_t configure(fwx_nat64_model_t &model, uint32_t op_code, const uint8_t *payload);

#endif
