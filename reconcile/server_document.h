/* What a server says that it holds, as a document. */
#ifndef RECONCILE_SERVER_DOCUMENT_H
#define RECONCILE_SERVER_DOCUMENT_H

#include <system_error>
#include <vector>

#include "config/document.h"
#include "fwx_host/loop.h"
#include "fwx_nat64/fwx_nat64.hpp"

struct server_document_t {
    std::error_code error; /* why it is not known; client_errc::unreadable: the server does not tell */
    uint64_t boot_id = 0;  /* as in fwx_nat64_stats_boot_t */
    uint64_t changes = 0;
    document_t document;                          /* settled */
    std::vector<fwx_mapt_rule_hash_elem_t> rules; /* the basic rules, with the server's indices */
};

/** Reads the configuration of a server. `loop` goes on while the document is made. */
fwx::nat64::task<server_document_t> read_server(fwx_host_loop_t *loop, fwx::nat64::client &client);

/** The same from what the client has read; an entry that no family has makes it client_errc::unreadable. */
server_document_t server_document_of(const fwx::nat64::running_configuration &configuration);

#endif
