/* The whole state of a server model. */
#ifndef MODEL_STATE_H
#define MODEL_STATE_H

#include "fwx_host/smc.h"
#include "model/changes.h"
#include "model/clients.h"
#include "model/configuration.h"
#include "model/outbox.h"
#include "model/pager.h"

struct model_state_t {
    explicit model_state_t(fwx_host_loop_t *loop);
    ~model_state_t() { fwx_host_server_unregister(server); }
    model_state_t(const model_state_t &) = delete;
    model_state_t &operator=(const model_state_t &) = delete;

    /** Counts changes that were answered as not saved. */
    void note_unsaved(uint64_t count) {
        refused += count;
        causes.not_saved += count;
    }

    fwx_host_server_t *server = nullptr;
    clients_t clients;
    outbox_t outbox;
    configuration_t config;
    pager_t pager;
    changes_t changes{outbox};
    const uint64_t boot_id; /* random, not 0 */

    uint32_t armed_failures = 0; /* commands that are still to be answered with `armed_code` */
    uint32_t armed_code = 0;
    uint64_t commands = 0;
    uint64_t malformed = 0;
    uint64_t refused = 0; /* well-formed ones */
    fwx_nat64_stats_system_t causes{};

    fwx_nat64_model_refusal_fn_t refusal_fn = nullptr;
    void *refusal_arg = nullptr;
};

#endif
