/* Brings the server in sync with a document. The commands `config diff`, `apply` and `rollback` use it. */
#ifndef TOOLS_NATCTL_CONFIG_RUN_H
#define TOOLS_NATCTL_CONFIG_RUN_H

#include <string>

#include "config/document.h"
#include "tools/natctl/pal.h"

struct config_options_t {
    std::string what;      /* the entry in the log */
    bool is_check = false; /* send nothing */
    bool shows_diff = false;
    bool keeps_partial = false; /* do not undo after a refusal or an interrupt */
    bool undoes = false;        /* sends the commands also if the state before cannot be saved */
    uint64_t confirm_s = 0;     /* time to confirm the change; 0: no confirmation is needed */
    /* For a server that does not report its configuration. */
    bool assumes_empty = false;
    std::string assumed_file; /* empty: none */
};

/** Reads the server's configuration into the reconciler. False: failed, the outcome of the call has the reason. */
bool config_read(call_t &call, const config_options_t &options = {});
/** Writes the commands that lead from the server's state to the document into the outcome. Returns their number. */
size_t config_diff(call_t &call, const document_t &document, const config_options_t &options);
/** Applies the document to the server. */
void config_apply(call_t &call, const document_t &document, const config_options_t &options);

/** Reads the document of a version. False: failed, the outcome of the call has the reason. */
bool config_version(call_t &call, const versions_t &versions, uint32_t number, document_t &document);

#endif
