/*
 * The address of a fleet's store: `etcd://HOST:PORT[,HOST:PORT...]/PREFIX`. A host is a name, an IPv4 address or an
 * IPv6 address in brackets. The endpoints are members of one cluster. All keys begin with the prefix, which consists of
 * words of letters, digits, `.`, `_` and `-`, separated by slashes.
 *
 * The store is accessed by https if the file of an authority is given, otherwise by http. A password is read from a
 * file and never from the command line, because other users can see command lines.
 */
#ifndef FLEET_STORE_URL_H
#define FLEET_STORE_URL_H

#include <string>
#include <string_view>
#include <vector>

#include "net/http.h"

/** The options of a command; empty: not given. */
struct store_options_t {
    std::string url;
    std::string ca;   /* file with the authority */
    std::string cert; /* file with the client's certificate */
    std::string key;  /* file with its private key */
    std::string user;
    std::string password_file;    /* contains the password; a line feed at its end is ignored */
    bool sends_plaintext = false; /* allows sending the password without TLS */
};

struct store_t {
    std::vector<std::string> endpoints; /* `http://127.0.0.1:2379` */
    std::string prefix;                 /* without slashes at its ends */
    http_tls_t tls;
    std::string user; /* empty: no authentication */
    std::string password;
    std::string password_file; /* source of the password; empty: the password cannot change */
};

/** True if a text begins like the address of a store, so that it is not the name of a file. */
bool is_store_url(std::string_view text);

/** Checks the options and reads the files that they name. A password without TLS is an error, unless `sends_plaintext`
 * is set. @return an error or an empty text. */
std::string read_store(const store_options_t &options, store_t &store);
/** Reads the password from its file again. @return an error or an empty text. */
std::string read_password(store_t &store);
/** Warnings about options that are correct but unsafe: one for each file with a secret that other users can access. */
std::vector<std::string> store_warnings(const store_options_t &options);

#endif
