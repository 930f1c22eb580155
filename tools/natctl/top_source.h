/* Where `natctl top` looks: a server, or the metrics of a nat64d. A look goes on while the caller waits for other
 * things too; it ends in any case, with what went wrong if nothing was found. */
#ifndef TOOLS_NATCTL_TOP_SOURCE_H
#define TOOLS_NATCTL_TOP_SOURCE_H

#include <memory>
#include <optional>
#include <string>

#include "tools/natctl/options.h"
#include "tools/natctl/top.h"

class top_source_t {
public:
    /** What to wait for until `process` has something to do. */
    struct wait_t {
        int fd;         /* negative: none */
        short events;   /* as poll has them */
        int timeout_ms; /* negative: for ever */
    };

    top_source_t() = default;
    virtual ~top_source_t() = default;
    top_source_t(const top_source_t &) = delete;
    top_source_t &operator=(const top_source_t &) = delete;

    /** Begins a look, when none is under way. */
    virtual void begin() = 0;
    virtual wait_t wait() const = 0;
    virtual void process() = 0;
    /** The look that was begun, sorted, once it has ended. One with a problem has the source, and nothing else. */
    virtual std::optional<top_look_t> take() = 0;
};

/** The server of `--connect`. */
std::unique_ptr<top_source_t> top_server(const options_t &options);
/** The page at `http://ADDRESS/metrics`, from where an answer must come within `timeout_ms`. */
std::unique_ptr<top_source_t> top_metrics(const std::string &address, uint32_t timeout_ms);

#endif
