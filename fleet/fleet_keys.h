/*
 * The names of a fleet's keys in the store, all under one prefix:
 *
 *     manifest             desired state of the gateways (manifest.h)
 *     history/NNNNNNNNNN   manifests of the last ten versions, each as it was pushed
 *     chunks/SHA256        chunks of documents (chunks.h); a chunk that no version names is garbage
 *     lock                 lock of the pusher; has a lease
 *     gateways/NAME/state  status of a gateway (gateway_state.h); has a lease
 *     gateways/NAME/seen   the same, written together with it, but without a lease
 */
#ifndef FLEET_FLEET_KEYS_H
#define FLEET_FLEET_KEYS_H

#include <cstdint>
#include <string>
#include <string_view>

constexpr uint32_t gateway_lease_s = 10;
constexpr uint32_t pusher_lease_s = 10;
/** Interval between keep-alives of a lease. */
constexpr uint64_t keep_lease_ms = 3000;
/** Longest delay between attempts while the store refuses the user or password, which only an administrator can fix. */
constexpr uint64_t rights_pause_ms = 60000;
/** Longest name of a user, a server or a document in what the store keeps. */
constexpr size_t most_name_bytes = 320;
/** Number of versions in the history, including the one in force. */
constexpr size_t kept_versions = 10;

class fleet_keys_t {
public:
    /** @param prefix without a slash at its end */
    explicit fleet_keys_t(const std::string &prefix) : prefix_(prefix + '/') {}

    std::string manifest() const { return prefix_ + "manifest"; }
    std::string lock() const { return prefix_ + "lock"; }
    std::string chunks() const { return prefix_ + "chunks/"; }
    std::string chunk(const std::string &hash) const { return chunks() + hash; }
    std::string history() const { return prefix_ + "history/"; }
    /** The key of a version, with leading zeros so that keys sort by version. */
    std::string history(uint64_t version) const {
        const std::string digits = std::to_string(version);
        return history() + std::string(digits.size() < 10 ? 10 - digits.size() : 0, '0') + digits;
    }
    std::string gateways() const { return prefix_ + "gateways/"; }
    std::string gateway_state(const std::string &name) const { return gateways() + name + "/state"; }
    std::string gateway_seen(const std::string &name) const { return gateways() + name + "/seen"; }

private:
    std::string prefix_; /* with a slash */
};

/** True for a valid name of a gateway: 1 to 64 letters, digits, `.`, `_` and `-`. */
bool is_gateway_name(std::string_view name);

#endif
