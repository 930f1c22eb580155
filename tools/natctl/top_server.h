/* Looks at the server of --connect, for `natctl top`. A look runs while the caller also waits for keys and timers. It
 * always ends, with the problem if it failed. */
#ifndef TOOLS_NATCTL_TOP_SERVER_H
#define TOOLS_NATCTL_TOP_SERVER_H

#include <memory>
#include <optional>
#include <string>

#include "reconcile/scrape.h"
#include "tools/natctl/options.h"
#include "tools/natctl/pal.h"
#include "tools/natctl/top.h"

/** After a look that failed, the next one makes a new binding. */
class top_server_t {
public:
    explicit top_server_t(const options_t &options) : options_(options) {}

    /** Begins a look. Requires that none is in progress. */
    void begin();
    /** The descriptor that is readable when `process` has something to do; negative: none. */
    int fd() const;
    /** The time until `process` must be called even if the descriptor is not readable; negative: no limit. */
    int timeout_ms() const;
    void process();
    /** Takes the result of a look that has ended, sorted. If it failed, it has only the source and the problem. */
    std::optional<top_look_t> take();

private:
    struct answer_t {
        scrape_t scrape;
        nat64::record_result<fwx_nat64_stats_system_t> system;
    };

    static nat64::task<answer_t> ask(nat64::client &client);
    static top_look_t look_of(const answer_t &answer);
    void bind();
    void fail(const std::string &problem);

    options_t options_;
    std::unique_ptr<pal_t> pal_; /* null: not bound */
    std::optional<nat64::task<answer_t>> task_;
    top_look_t look_;
    bool is_ended_ = false;
};

#endif
