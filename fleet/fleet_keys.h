/*
 * What the keys of a fleet in the store are called, all under one prefix:
 *
 *     manifest             what the gateways are to hold (manifest.h)
 *     history/NNNNNNNNNN   the last ten versions, each as it was pushed
 *     chunks/SHA256        pieces of documents (chunks.h); one that no version names is rubbish
 *     lock                 who pushes; goes with its lease
 *     gateways/NAME/state  what a gateway says of itself (gateway_state.h); goes with its lease
 *     gateways/NAME/seen   the same, put with it, which stays when the gateway is gone
 */
#ifndef FLEET_FLEET_KEYS_H
#define FLEET_FLEET_KEYS_H

#include <cstdint>
#include <string>
#include <string_view>

constexpr uint32_t gateway_lease_s = 10;
constexpr uint32_t pusher_lease_s = 10;
/** How often who has a lease says that it lives. */
constexpr uint64_t keep_lease_ms = 3000;
/** The longest delay between tries when the store refuses user or password: only an administrator can change that. */
constexpr uint64_t rights_pause_ms = 60000;
/** Versions that can be rolled back to, with the one in force. */
constexpr size_t kept_versions = 10;

class fleet_keys_t {
public:
    /** Without a slash at its end. */
    explicit fleet_keys_t(const std::string &prefix) : prefix_(prefix + '/') {}

    std::string manifest() const { return prefix_ + "manifest"; }
    std::string lock() const { return prefix_ + "lock"; }
    std::string chunks() const { return prefix_ + "chunks/"; }
    std::string chunk(const std::string &hash) const { return chunks() + hash; }
    std::string history() const { return prefix_ + "history/"; }
    /** In the order of the versions. */
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

/** What a gateway can be called: 1 to 64 letters, digits, `.`, `_` and `-`. */
bool is_gateway_name(std::string_view name);

#endif
