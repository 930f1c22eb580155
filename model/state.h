/* The server and the engine of a model. Separate from model.h, so that the C type hides its implementation. */
#ifndef MODEL_STATE_H
#define MODEL_STATE_H

#include "server/server.h"

class model_engine_t;

struct model_state_t : nat64_server_t {
    model_state_t(fwx_host_loop_t *loop, std::unique_ptr<model_engine_t> of);

    model_engine_t &engine; /* the server's */
};

#endif
