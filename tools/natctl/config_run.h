/* Making the server run a document. */
#ifndef TOOLS_NATCTL_CONFIG_RUN_H
#define TOOLS_NATCTL_CONFIG_RUN_H

#include <string>

#include "config/document.h"
#include "tools/natctl/pal.h"

struct config_wish_t {
    std::string what;   /* as it stands in the log */
    bool is_check;      /* nothing is sent */
    bool shows_diff;    /* the commands are part of the answer in every format */
    bool replays;       /* whatever the server is thought to hold */
    uint64_t confirm_s; /* 0: it stays without being confirmed */
};

/** The running document to look at, which `place` may be given; null: it cannot be, and the call says why. */
running_t *config_look(call_t &call, std::optional<running_t> &place);
/** Says what leads from what the server runs to the document; returns how many commands that are. */
size_t config_diff(call_t &call, const document_t &document, bool replays);
/** Leads there. */
void config_apply(call_t &call, const document_t &document, const config_wish_t &wish);

#endif
