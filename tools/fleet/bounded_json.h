/* JSON of others: nothing that it holds costs more than its length, and nothing is taken that is not what it should be.
 */
#ifndef TOOLS_FLEET_BOUNDED_JSON_H
#define TOOLS_FLEET_BOUNDED_JSON_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

/** Discarded when the text is no JSON, or nests deeper than anything here does. */
nlohmann::json parse_json(std::string_view text);

/** A text as `json_members_t::line` takes it: cut, and blanks for control characters. */
std::string clean_line(std::string_view text, size_t most_bytes);

/** Takes members of an object, and remembers the first thing that is wrong with them. */
class json_members_t {
public:
    /** `object` must outlive it. */
    explicit json_members_t(const nlohmann::json &object);

    /** 0, with a fault, unless it is there and within. */
    uint64_t number(const char *name, uint64_t least, uint64_t most);
    /** Empty, with a fault, unless it is there, and no longer; `least` bytes at least. */
    std::string text(const char *name, size_t most_bytes, size_t least_bytes = 0);
    /** Likewise, and without control characters. */
    std::string line(const char *name, size_t most_bytes);
    bool flag(const char *name);
    /** Of etcd's, which writes numbers as texts and leaves zeros out: 0 when it is not there. */
    int64_t int64(const char *name);
    /** Null when it is not there. */
    const nlohmann::json *find(const char *name) const;

    void fail(const std::string &reason);
    bool is_good() const { return fault_.empty(); }
    /** `version: must be 1 to 9999999999`; empty: nothing is wrong. */
    const std::string &fault() const { return fault_; }

private:
    const nlohmann::json &object_;
    std::string fault_;
};

#endif
