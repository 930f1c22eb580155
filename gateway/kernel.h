/* Applies a plan to the kernel: routes and settings, and the nftables ruleset in one transaction. It sends only the
 * differences to the plan in force while it knows what the kernel has; otherwise it reads the kernel first. */
#ifndef GATEWAY_KERNEL_H
#define GATEWAY_KERNEL_H

#include <memory>
#include <string>

#include "gateway/plan.h"
#include "gateway/routes.h"

struct nft_ctx;

class kernel_t {
public:
    explicit kernel_t(const std::string &gateway);

    /** Checks that the kernel has what a gateway needs, and that no other gateway uses the network namespace. Returns
     * what is missing or in the way, or an empty text. */
    std::string check();
    /**
     * Applies `plan`. The first time, and after a failure, it reads the state of the kernel and corrects it. Returns an
     * empty text, or why the kernel has refused; the previous plan then stays in force.
     */
    std::string apply(plan_t plan);
    /** True if the table is the one that the last apply left. Another program may have deleted it or replaced it; by
     * default a reload of Debian's nftables.service does, with `flush ruleset`. Does not see a change in the table. */
    bool has_table();
    /** Returns which setting keeps the kernel from forwarding packets, or an empty text. */
    static std::string check_forwarding();
    /** Makes the next apply read the state of the kernel again. */
    void forget() { is_known_ = false; }
    /** Deletes the table, and checks that no other gateway uses the network namespace. A table that does not exist is
     * no error, nor is a missing device for the next function. */
    std::string remove_table();
    /** Deletes the device with its routes, and resets the settings to the kernel's defaults. */
    std::string remove_device();

    const plan_t &in_force() const { return in_force_; }
    routes_t &routes() { return routes_; }

private:
    std::string run(const std::string &text, std::string *output = nullptr);
    std::string check_namespace();
    std::string change(const plan_t &plan);
    std::string text_from_found(const ruleset_t &to);
    uint64_t read_table_handle();

    const std::string table_; /* name of the nftables table, in family ip6 */
    std::unique_ptr<nft_ctx, void (*)(nft_ctx *)> nft_;
    netlink_t netlink_{NETLINK_NETFILTER};
    uint64_t table_handle_ = 0; /* the kernel's number of the table, which no later one has; 0: none */
    routes_t routes_;
    plan_t in_force_;
    bool is_known_ = false; /* true if the kernel has what `in_force_` says */
};

#endif
