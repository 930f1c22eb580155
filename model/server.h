/* The server that the messaging service calls: frame checks and dispatch by message number. */
#ifndef MODEL_SERVER_H
#define MODEL_SERVER_H

#include "fwx_host/smc.h"

/** Its context is the model. */
extern const fwx_host_server_ops_t model_server_ops;

#endif
