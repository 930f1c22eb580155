/* Answers to the statistics queries. */
#ifndef MODEL_STATISTICS_H
#define MODEL_STATISTICS_H

#include "model/request.h"
#include "model/state.h"

fwx_nat64_stats_counts_t counts_of(const model_state_t &model);
fwx_nat64_stats_boot_t boot_of(const model_state_t &model);
fwx_nat64_stats_sys_entry_t totals_of(const model_state_t &model);
/** Answers a query of type 4 to 8, with `code` when it is not 0. Returns the result of the command. */
uint32_t answer_statistics(model_state_t &model, const request_t &request, uint32_t code);

#endif
