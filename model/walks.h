/* Session walks. */
#ifndef MODEL_WALKS_H
#define MODEL_WALKS_H

#include "model/configuration.h"
#include "model/pager.h"

/** Answers a walk: with `code` at once, or by pages. Returns the result of the command. */
uint32_t walk_start(const request_t &request, uint32_t code, const configuration_t &config, outbox_t &outbox,
                    pager_t &pager);

#endif
