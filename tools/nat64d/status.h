/* nat64d's status, which the control socket, the metrics and systemd show. */
#ifndef TOOLS_NAT64D_STATUS_H
#define TOOLS_NAT64D_STATUS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/nat64d/store_status.h"

struct daemon_status_t {
    std::string server;           /* its name */
    bool is_server_up = false;    /* it answers */
    uint64_t boot_id = 0;         /* from the server's last answer; 0: it never answered */
    std::string document;         /* hash of the document in force; empty: none */
    uint64_t items = 0;           /* number of its items */
    std::string document_since;   /* when it came into force */
    bool is_in_step = false;      /* the server is in sync with the document in force */
    std::string reason;           /* why it is not */
    std::string since;            /* time of the last change of is_in_step */
    double since_s = 0;           /* the same, in seconds since the epoch */
    std::string refused_document; /* hash of the latest document if it was refused; may be empty even then */
    std::string refused_reason;   /* empty: the latest document was not refused */
    std::string refused_since;
    std::vector<std::string> foreign; /* the first items that others have added to the server */
    uint64_t foreign_count = 0;       /* number of all such items */
    uint64_t reconnections = 0;       /* channels opened after the first */
    uint64_t restarts = 0;            /* of the server, as far as nat64d noticed them */
    uint64_t replays = 0;             /* successful ones */
    uint64_t edits = 0;               /* successful ones */
    uint64_t refusals = 0;            /* of documents */
};

/** The status as one line of JSON. Without a `store` the document comes from a file. */
std::string status_json(const daemon_status_t &status, const std::optional<store_status_t> &store);

#endif
