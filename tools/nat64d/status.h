/* What nat64d says of itself, to whoever asks: the control socket, the metrics, systemd. */
#ifndef TOOLS_NAT64D_STATUS_H
#define TOOLS_NAT64D_STATUS_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/nat64d/store_status.h"

struct daemon_status_t {
    std::string server;           /* its name */
    bool is_server_up = false;    /* it answers */
    uint64_t boot_id = 0;         /* of the server as it answered last; 0: it never has */
    std::string document;         /* in force, by the hash of what it says; empty: none */
    uint64_t items = 0;           /* of it */
    std::string document_since;   /* when it came into force */
    bool is_in_step = false;      /* the server holds what the document says */
    std::string reason;           /* why it does not */
    std::string since;            /* since when it does, or does not */
    double since_s = 0;           /* the same, in seconds of the epoch */
    std::string refused_document; /* that the file holds, and why it is not in force; empty: it is */
    std::string refused_reason;
    std::string refused_since;
    std::vector<std::string> foreign; /* the first items that the server holds and nat64d has nothing to do with */
    uint64_t foreign_count = 0;       /* all of them */
    uint64_t reconnections = 0;       /* channels that were opened, after the first */
    uint64_t restarts = 0;            /* of the server that were seen */
    uint64_t replays = 0;             /* that went well */
    uint64_t edits = 0;               /* that went well */
    uint64_t refusals = 0;            /* of documents */
};

/** One JSON object, on one line; `store` may be null. */
std::string status_json(const daemon_status_t &status, const store_status_t *store);

#endif
