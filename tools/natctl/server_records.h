/* What the server model tells of itself, by the selector of a system statistics query. */
#ifndef TOOLS_NATCTL_SERVER_RECORDS_H
#define TOOLS_NATCTL_SERVER_RECORDS_H

#include "model/model.h"
#include "tools/natctl/outcome.h"

using record_row_fn_t = json_t (*)(const void *record);

json_t counts_row(const fwx_nat64_model_counts_t &counts);
json_t boot_row(const fwx_nat64_model_boot_t &boot);

/** What makes a row of the record for this selector; null: it is that of all other selectors. */
record_row_fn_t server_record_row(uint32_t sel);

#endif
