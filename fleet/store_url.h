/*
 * Where the documents of a fleet are kept: `etcd://HOST:PORT[,HOST:PORT...]/PREFIX`, hosts as names, IPv4 addresses or
 * IPv6 addresses in brackets. The endpoints are members of one cluster. The prefix is what all keys begin with: words
 * of letters, digits, `.`, `_` and `-`, with slashes between them.
 *
 * With an authority's file the store is reached by https, without one by http. A password stands in a file, never on a
 * command line.
 */
#ifndef FLEET_STORE_URL_H
#define FLEET_STORE_URL_H

#include <string>
#include <string_view>
#include <vector>

#include "net/http.h"

/** As a user gives it; empty: not given. */
struct store_options_t {
    std::string url;
    std::string ca; /* files */
    std::string cert;
    std::string key;
    std::string user;
    std::string password_file;    /* its text is the password, without a line feed at its end */
    bool sends_plaintext = false; /* the password may go to the store without TLS */
};

struct store_t {
    std::vector<std::string> endpoints; /* `http://127.0.0.1:2379` */
    std::string prefix;                 /* without slashes at its ends */
    http_tls_t tls;
    std::string user; /* empty: nobody signs in */
    std::string password;
    std::string password_file; /* that it was read from; empty: it is fixed */
};

/** Whether it names a store, rightly or not, and no file. */
bool is_store_url(std::string_view text);

/** Reads options, and the files that they name; returns what is wrong, empty when nothing is. A password goes to no
 * store without TLS unless the user wants it to. */
std::string read_store(const store_options_t &options, store_t &store);
/** Reads the password again, which may be another one by now; returns what is wrong. */
std::string read_password(store_t &store);
/** What a user should know of options that are good: others can get at secrets; empty: nothing. */
std::string store_warning(const store_options_t &options);

#endif
