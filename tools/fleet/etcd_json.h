/* What etcd's JSON gateway is told, and what it answers. */
#ifndef TOOLS_FLEET_ETCD_JSON_H
#define TOOLS_FLEET_ETCD_JSON_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/fleet/etcd.h"

/** An answer; what it says of an error, beyond what its user sees. */
/* Moving a JSON value does not throw, which clang-tidy cannot tell. NOLINTNEXTLINE(bugprone-exception-escape) */
struct etcd_answer_t {
    nlohmann::json json; /* an object when there is no error */
    etcd_error_t error;
    bool is_elsewhere_worth = false; /* another endpoint may do better */
    bool is_token_unknown = false;
};

etcd_answer_t read_answer(const std::string &endpoint, const http_reply_t &reply);
/** Of the object that stands for an error. */
etcd_answer_t read_failure(const std::string &endpoint, const nlohmann::json &failure);
etcd_error_t malformed_answer(const std::string &endpoint, const std::string &reason);

nlohmann::json range_json(const std::string &key);
nlohmann::json txn_json(const etcd_txn_t &txn);

/** Entries of a member `kvs`, added; returns what is wrong, empty when nothing is. */
std::string read_entries(const nlohmann::json &range, std::vector<etcd_entry_t> &entries);
std::string read_entry(const nlohmann::json &object, etcd_entry_t &entry);
/** Of the store, as the head of an answer says it. */
int64_t revision_of(const nlohmann::json &answer);

/** The key before which all end that begin with a prefix. */
std::string end_of_prefix(std::string prefix);

#endif
