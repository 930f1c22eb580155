/*
 * The library's table of rules, brought to what a document says without the server's being changed: a PAL that starts
 * beside a server that holds its rules has none of them, and one whose server starts anew may have too many. The server
 * says of a rule that is added again what its index is, and keeps it as it is.
 */
#ifndef TOOLS_NAT64D_RULE_LEARNER_H
#define TOOLS_NAT64D_RULE_LEARNER_H

#include "config/document.h"
#include "fwx_nat64/fwx_nat64.hpp"
#include "reconcile/rule_book.h"

/**
 * Has the library install the basic mapping rules of a document that the server holds. Client, book and document
 * outlive the task.
 * @return how many could not be installed; those are not in the table.
 */
fwx::nat64::task<size_t> learn_rules(fwx::nat64::client &client, rule_book_t &rules, const document_t &document);

/** Takes rules out of the library's table that a document does not have: a server that restarted cannot tell of them.
 */
void prune_rules(rule_book_t &rules, const document_t &document);

#endif
