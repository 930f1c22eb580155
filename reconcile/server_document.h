/* Reads the actual configuration of a server and converts it to a document. */
#ifndef RECONCILE_SERVER_DOCUMENT_H
#define RECONCILE_SERVER_DOCUMENT_H

#include <system_error>
#include <vector>

#include "config/document.h"
#include "fwx_host/loop.h"
#include "fwx_nat64/fwx_nat64.hpp"

struct server_document_t {
    std::error_code error; /* client_errc::unreadable: the server does not report its configuration */
    uint64_t boot_id = 0;  /* as in fwx_nat64_stats_boot_t */
    uint64_t changes = 0;
    document_t document;                          /* settled */
    std::vector<fwx_mapt_rule_hash_elem_t> rules; /* the basic rules, with the server's indices */
};

/** Reads the configuration of a server. The conversion runs in a thread, so it does not block `loop`. */
fwx::nat64::task<server_document_t> read_server(fwx_host_loop_t *loop, fwx::nat64::client &client);

/** Converts a configuration that the client has read. An entry of no family is the error client_errc::unreadable. */
server_document_t server_document_of(const fwx::nat64::running_configuration &configuration);

#endif
