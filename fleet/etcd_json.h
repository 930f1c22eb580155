/* What etcd's JSON gateway is told, and what it answers. */
#ifndef FLEET_ETCD_JSON_H
#define FLEET_ETCD_JSON_H

#include <string>
#include <vector>

#include "fleet/etcd.h"
#include "net/json.h"

/** An answer; what it says of an error, beyond what its user sees. */
struct etcd_answer_t {
    json_t json; /* an object when there is no error */
    etcd_error_t error;
    bool is_elsewhere_worth = false; /* another endpoint may do better */
    bool is_token_unknown = false;
};

/** Texts that are not shown to a user, even if the store says them. */
using secrets_t = std::vector<std::string>;

etcd_answer_t read_answer(const std::string &endpoint, const http_reply_t &reply, const secrets_t &secrets = {});
/** Of the object that stands for an error. */
etcd_answer_t read_failure(const std::string &endpoint, const json_t &failure, const secrets_t &secrets = {});
etcd_error_t malformed_answer(const std::string &endpoint, const std::string &reason);

json_t range_json(const std::string &key);
json_t txn_json(const etcd_txn_t &txn);

/** Entries of a member `kvs`, added; returns what is wrong, empty when nothing is. */
std::string read_entries(const json_t &range, std::vector<etcd_entry_t> &entries);
std::string read_entry(const json_t &object, etcd_entry_t &entry);
/** Of the store, as the head of an answer says it. */
int64_t revision_of(const json_t &answer);

/** The key before which all end that begin with a prefix. */
std::string end_of_prefix(std::string prefix);

#endif
