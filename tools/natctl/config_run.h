/* Making the server run a document. */
#ifndef TOOLS_NATCTL_CONFIG_RUN_H
#define TOOLS_NATCTL_CONFIG_RUN_H

#include <string>

#include "config/document.h"
#include "tools/natctl/pal.h"

struct config_options_t {
    std::string what;      /* as it stands in the log */
    bool is_check = false; /* nothing is sent */
    bool shows_diff = false;
    bool keeps_partial = false; /* what was done stays after a refusal or an interrupt */
    uint64_t confirm_s = 0;     /* 0: it stays without being confirmed */
    /* Of a server that does not tell what it holds. */
    bool assumes_empty = false;
    std::string assumed_file; /* empty: none */
};

/** Reads what the server holds: then it is in the reconciler. False: the call says why that is not known. */
bool config_read(call_t &call, const config_options_t &options = {});
/** Says what leads from what the server holds to the document; returns how many commands that are. */
size_t config_diff(call_t &call, const document_t &document, const config_options_t &options);
/** Leads there. */
void config_apply(call_t &call, const document_t &document, const config_options_t &options);

/** The document of a version; false: the call says why there is none. */
bool config_version(call_t &call, const versions_t &versions, uint32_t number, document_t &document);

#endif
