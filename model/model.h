/*
 * The server model as the tools and tests of this tree use it. What a member of the class promises stands with the
 * function of the same name in fwx_nat64_model/model.h or in server/server.h. Members allocate, and throw when memory
 * is out.
 */
#ifndef MODEL_MODEL_H
#define MODEL_MODEL_H

#include <optional>

#include "fwx_nat64_model/model.h"
#include "server/server.h"

using fwx_nat64_model_order_t = reply_order_t;

class model_engine_t;

struct fwx_nat64_model_t final : nat64_server_t {
    /** Null when the name is taken. */
    static std::unique_ptr<fwx_nat64_model_t> create(fwx_host_loop_t *loop, const char *name);

    void order_cleanup(bool on);
    static uint32_t cgm_end_batch(uint32_t batch_id, bool async, void *ctx);
    static uint32_t cgm_update(uint32_t batch_id, const uint8_t data[24], bool async, void *ctx);

    /** Value of a timeout (type 1 to 7), when it is set. */
    std::optional<uint32_t> timeout(uint32_t type) const;
    void sessions_generate(uint64_t count);
    /** False when no prefix matches, or when the model holds no rule of that index. */
    bool lookup(const fwx_nat64_addr_t *address, fwx_nat64_model_match_t *match) const;
    /** How many of them have found the rule of that index; nothing when there is none. */
    std::optional<uint64_t> lookups(uint32_t bmr_index) const;

private:
    fwx_nat64_model_t(fwx_host_loop_t *loop, std::unique_ptr<model_engine_t> engine);

    model_engine_t &engine_; /* the server's */
};

#endif
