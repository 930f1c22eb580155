/* Applies plans to the kernel: text for libnftables, routes over rtnetlink, settings below /proc/sys/net. Routes are
 * added before the transaction and removed after it. After a failure, added routes and settings are rolled back. */
#include "gateway/kernel.h"

#include <arpa/inet.h>
#include <endian.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/rtnetlink.h>
#include <nftables/libnftables.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include "records/value.h"

namespace {

constexpr const char *settings_folder = "/proc/sys/net/";
constexpr const char *table_prefix = "fwx_nat64_";
constexpr const char *session_limit = "session_limit";

/** Returns the networks of `one` that `other` does not have. */
networks_t difference(const networks_t &one, const networks_t &other) {
    networks_t only;
    std::ranges::set_difference(one, other, std::back_inserter(only));
    return only;
}

/** Writes a setting below /proc/sys/net; returns what went wrong, or an empty text. */
std::string write_setting(const std::string &path, const std::string &value) {
    std::ofstream file(settings_folder + path);
    file << value << std::flush;
    return file ? "" : "cannot set " + (settings_folder + path) + " to " + value;
}

}  // namespace

kernel_t::kernel_t(const std::string &gateway)
    : table_(table_prefix + gateway), nft_(nft_ctx_new(NFT_CTX_DEFAULT), nft_ctx_free) {
    nft_ctx_buffer_output(nft_.get());
    nft_ctx_buffer_error(nft_.get());
    nft_ctx_output_set_flags(nft_.get(), NFT_CTX_OUTPUT_TERSE); /* list maps without their elements */
}

std::string kernel_t::run(const std::string &text, std::string *output) {
    if (text.empty()) return "";
    const int failed = nft_run_cmd_from_buffer(nft_.get(), text.c_str());
    /* Reading a buffer empties it for the next command. */
    const std::string printed = nft_ctx_get_output_buffer(nft_.get());
    const std::string error = nft_ctx_get_error_buffer(nft_.get());
    if (output != nullptr) *output = printed;
    if (failed == 0) return "";
    return "nftables: " + (error.empty() ? "failed without a reason" : error.substr(0, error.find('\n')));
}

std::string kernel_t::check_namespace() {
    std::string tables;
    const std::string error = run("list tables ip6", &tables);
    if (!error.empty()) return error + " (module nf_tables)";
    std::istringstream words(tables);
    for (std::string word; words >> word;) {
        if (word == table_ || word.rfind(table_prefix, 0) != 0) continue;
        const std::string other = word.substr(std::strlen(table_prefix));
        std::string text = "this network namespace is gateway ";
        return text.append(other).append("'s; remove that with: nat64-gateway --remove ").append(other);
    }
    return "";
}

std::string kernel_t::check() {
    const std::string error = check_namespace();
    return error.empty() ? check_forwarding() : error;
}

std::string kernel_t::check_forwarding() {
    for (const char *forwarding : {"ipv6/conf/all/forwarding", "ipv4/conf/all/forwarding"}) {
        const std::string path = std::string(settings_folder) + forwarding;
        std::string value;
        std::ifstream file(path);
        const bool is_unknown = !file.is_open() && errno != ENOENT; /* such as without descriptors */
        file >> value;
        if (value != "1" && !is_unknown) return "the kernel does not forward packets: set " + path + " to 1";
    }
    return "";
}

std::string kernel_t::apply(plan_t plan) {
    const bool was_known = is_known_;
    std::string error = change(plan);
    /* Another program may have changed the table: read it and try again. */
    if (!error.empty() && was_known) error = change(plan);
    if (error.empty()) {
        in_force_ = std::move(plan);
        table_handle_ = read_table_handle();
    } else {
        for (const auto &[path, value] : in_force_.settings) {
            write_setting(path, value);
        }
    }
    return error;
}

/** Makes the kernel carry out the plan. If a step up to the transaction fails, ruleset and routes stay as before. */
std::string kernel_t::change(const plan_t &plan) {
    const bool was_known = std::exchange(is_known_, false);
    for (const auto &[path, value] : plan.settings) {
        std::string failed = write_setting(path, value);
        if (!failed.empty()) return failed;
    }
    networks_t networks = in_force_.networks;
    int failed = was_known ? 0 : routes_.read(networks);
    if (failed != 0) return std::string("cannot read the routes: ") + std::strerror(failed);
    /* A route exists as long as packets are translated to its addresses, so it is added first and removed last. */
    const networks_t added = difference(plan.networks, networks);
    std::string error;
    for (const ipv4_network_t &network : added) {
        failed = routes_.change(RTM_NEWROUTE, network);
        if (failed != 0) {
            const uint32_t word = htonl(network.address);
            error = "cannot add the route of " + prefix_text(AF_INET, &word, sizeof word, network.prefix_len) + ": " +
                    std::strerror(failed);
            break;
        }
    }
    if (error.empty()) {
        error = run(was_known ? changes_text(table_, in_force_.ruleset, plan.ruleset) : text_from_found(plan.ruleset));
    }
    is_known_ = error.empty();
    /* The plan is in force by now, so a route that remains is no error. The next change reads and removes it. */
    for (const ipv4_network_t &network : is_known_ ? difference(networks, plan.networks) : added) {
        failed = routes_.change(RTM_DELROUTE, network);
        const bool is_gone = failed == 0 || failed == ESRCH;
        is_known_ = is_known_ && is_gone;
    }
    return error;
}

/** Returns the text that rebuilds the whole table from whatever is there. Only a session limit that stays the same is
 * kept, because a new one would start counting at zero. */
std::string kernel_t::text_from_found(const ruleset_t &to) {
    ruleset_t found;
    std::string listing, chain;
    run("list table ip6 " + table_, &listing);
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string kind, name, third;
        words >> kind >> name >> third;
        if (kind == "chain" && third == "{") {
            chain = name;
            found.chains[chain].rules = {"unknown"};
        } else if (kind == "counter" && third == "{") {
            found.objects[{"counter", name}];
        } else if (kind == "ct" && name == "timeout") {
            found.objects[{"ct timeout", third}];
        } else if (chain == session_limit && kind == "ct" && name == "count") {
            found.chains[chain].rules = {line.substr(line.find_first_not_of('\t'))};
        }
    }
    return table_text(table_) + changes_text(table_, found, to);
}

bool kernel_t::has_table() {
    const uint64_t handle = read_table_handle();
    return handle != 0 && handle == table_handle_; /* it may have been deleted at once after the last apply */
}

/** Returns what is known already if the kernel cannot be asked. */
uint64_t kernel_t::read_table_handle() {
    netlink_request_t<nfgenmsg> request((NFNL_SUBSYS_NFTABLES << 8) | NFT_MSG_GETTABLE, NLM_F_ACK);
    request->nfgen_family = NFPROTO_IPV6;
    mnl_attr_put_strz(request.message(), NFTA_TABLE_NAME, table_.c_str());
    uint64_t handle = 0;
    const int failed = netlink_.ask(request.message(), [&handle](const nlmsghdr *answer) {
        const nlattr *found = find_attribute(answer, sizeof(nfgenmsg), NFTA_TABLE_HANDLE);
        if (found != nullptr) handle = be64toh(mnl_attr_get_u64(found));
    });
    return failed == 0 || failed == ENOENT ? handle : table_handle_;
}

std::string kernel_t::remove_table() {
    std::string error = run("add table ip6 " + table_ + "\ndelete table ip6 " + table_);
    return error.empty() ? check_namespace() : error;
}

std::string kernel_t::remove_device() {
    const std::pair<const char *, const char *> defaults[] = {{"netfilter/nf_conntrack_acct", "0"},
                                                              {"netfilter/nf_conntrack_timestamp", "0"},
                                                              {"netfilter/nf_conntrack_icmpv6_timeout", "30"},
                                                              {"netfilter/nf_conntrack_frag6_timeout", "60"}};
    for (const auto &[path, value] : defaults) {
        write_setting(path, value);
    }
    const int failed = routes_.delete_device();
    return failed == 0 || failed == ENODEV
               ? ""
               : std::string("cannot delete device ") + translator_device + ": " + std::strerror(failed);
}
