/* The callbacks that natctl gives to the library. They lead to the pal that is attached; the library's shapes carry no
 * argument for it. */
#ifndef TOOLS_NATCTL_CALLBACKS_H
#define TOOLS_NATCTL_CALLBACKS_H

#include "fwx_nat64/fwx_nat64.h"

class pal_t;

/** Makes `pal` the receiver; null: answers are dropped. */
void pal_callbacks_attach(pal_t *pal);
const fwx_nat64_reply_cbs_t *pal_reply_callbacks();
const fwx_nat64_unsol_cbs_t *pal_unsolicited_callbacks();
/** For session walks that a pal starts. */
uint32_t pal_walk_callback(void *pal_ctx, uint32_t count, void *data, uint64_t value, uint32_t value2, uint32_t status);

#endif
