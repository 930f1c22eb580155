/* Writes requests to etcd's JSON gateway, and parses its answers and errors. */
#ifndef FLEET_ETCD_JSON_H
#define FLEET_ETCD_JSON_H

#include <string>
#include <vector>

#include "fleet/etcd.h"
#include "net/json.h"

/** An answer, or an error with hints for the next step. */
struct etcd_answer_t {
    json_t json; /* an object if there is no error */
    etcd_error_t error;
    bool should_try_next_endpoint = false; /* worth a try at another endpoint */
    bool is_token_unknown = false;         /* etcd does not know the token any more */
};

/** Texts that are hidden in errors, even if the store quotes them. */
using secrets_t = std::vector<std::string>;

/** Parses a reply. `endpoint` is for the text of an error. */
etcd_answer_t read_answer(const std::string &endpoint, const http_reply_t &reply, const secrets_t &secrets = {});
/** Parses the JSON object of an error. */
etcd_answer_t read_failure(const std::string &endpoint, const json_t &failure, const secrets_t &secrets = {});
/** The error for an answer that etcd cannot have sent. */
etcd_error_t malformed_answer(const std::string &endpoint, const std::string &reason);

/** The request that reads one key. */
json_t range_json(const std::string &key);
/** The request of a transaction. */
json_t txn_json(const etcd_txn_t &txn);

/** Appends the entries of the member `kvs`. @return an error or an empty text. */
std::string read_entries(const json_t &range, std::vector<etcd_entry_t> &entries);
/** The same for the answer to a request for one key. Another key is an error. */
std::string read_entry_of(const json_t &range, const std::string &key, std::vector<etcd_entry_t> &entries);
/** The same for a page of a list. Keys without the prefix, or not behind the keys before them, are an error. */
std::string read_page(const json_t &range, const std::string &prefix, std::vector<etcd_entry_t> &entries);
/** Parses one entry. @return an error or an empty text. */
std::string read_entry(const json_t &object, etcd_entry_t &entry);
/** The revision of the store in the header of an answer; 0: none. */
int64_t revision_of(const json_t &answer);

/** The end of the range of keys that begin with a prefix: the first key behind them. */
std::string end_of_prefix(std::string prefix);

#endif
