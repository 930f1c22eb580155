/* Makes the kernel do what a plan says: nftables in one transaction, routes and settings around it. */
#ifndef GATEWAY_KERNEL_H
#define GATEWAY_KERNEL_H

#include <memory>
#include <string>

#include "gateway/plan.h"
#include "gateway/routes.h"

struct nft_ctx;

/** Name of a gateway's table in family ip6. */
inline std::string table_of(const std::string &gateway) {
    return "fwx_nat64_" + gateway;
}

class kernel_t {
public:
    explicit kernel_t(const std::string &gateway);
    ~kernel_t();
    kernel_t(const kernel_t &) = delete;
    kernel_t &operator=(const kernel_t &) = delete;

    /** Looks for what a gateway needs of the kernel and for another gateway's table; returns what is missing or in the
     * way. */
    std::string check();
    /**
     * Changes what is in force to `plan`. The first time, and after a failure, it finds out what is there and corrects
     * it. Returns why the kernel has refused; then what was in force before still is.
     */
    std::string apply(plan_t plan);
    /** Has the next apply look at everything anew. */
    void forget() { is_known_ = false; }
    /** Takes the table away; what is not there is no error, as with the next one. */
    std::string remove_table();
    /** Takes the device away, its routes with it, and sets the settings to what the kernel begins with. */
    std::string remove_device();

    const plan_t &in_force() const { return in_force_; }
    routes_t &routes() { return routes_; }

private:
    std::string run(const std::string &text, std::string *output = nullptr);
    std::string change(const plan_t &plan);
    std::string text_from_found(const ruleset_t &to);

    const std::string table_;
    std::unique_ptr<nft_ctx, void (*)(nft_ctx *)> nft_;
    routes_t routes_;
    plan_t in_force_;
    bool is_known_ = false; /* whether the kernel has what `in_force_` says */
};

/** Writes a setting below /proc/sys/net; returns what went wrong. */
std::string write_setting(const std::string &path, const std::string &value);
/** Its value; empty when it cannot be read. */
std::string read_setting(const std::string &path);

#endif
