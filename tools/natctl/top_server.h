/* The server of --connect, where `natctl top` looks. A look goes on while the caller waits for other things too; it
 * ends in any case, with what went wrong if nothing was found. */
#ifndef TOOLS_NATCTL_TOP_SERVER_H
#define TOOLS_NATCTL_TOP_SERVER_H

#include <memory>
#include <optional>
#include <string>

#include "reconcile/scrape.h"
#include "tools/natctl/options.h"
#include "tools/natctl/pal.h"
#include "tools/natctl/top.h"

/** Binds anew after each look that failed. */
class top_server_t {
public:
    explicit top_server_t(const options_t &options) : options_(options) {}

    /** Begins a look, when none is under way. */
    void begin();
    /** What is readable when `process` has something to do; negative: nothing. */
    int fd() const;
    /** Until `process` has something to do without that; negative: for ever. */
    int timeout_ms() const;
    void process();
    /** The look that was begun, sorted, once it has ended. One with a problem has the source, and nothing else. */
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
