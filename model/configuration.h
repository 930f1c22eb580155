/* The configuration: the parts of the server's state that configuration commands reach, and each command's part. */
#ifndef MODEL_CONFIGURATION_H
#define MODEL_CONFIGURATION_H

#include "model/classifier.h"
#include "model/interfaces.h"
#include "model/loggings.h"
#include "model/mappings.h"
#include "model/pools.h"
#include "model/rules.h"
#include "model/sessions.h"
#include "model/settings.h"

struct configuration_t {
    sessions_t sessions;
    settings_t settings;
    interfaces_t interfaces;
    mappings_t mappings{sessions};
    pools_t pools{sessions};
    loggings_t loggings;
    rules_t rules;
    classifier_t classifier;

    /** Carries out a configuration command or a control command, whose payload is at `payload`; returns its result. */
    uint32_t carry_out(uint32_t op_code, const void *payload);
    /** Bytes of the payload of a command that changes what is saved; 0 for all others. */
    static size_t kept_size(uint32_t op_code);
    /* As fwx_nat64_model_t's. */
    void save(fwx_nat64_model_part_fn_t fn, void *arg) const;
    uint32_t restore(uint32_t op_code, const void *payload, size_t size);
};

#endif
