/*
 * nat64d as a whole. It connects the parts: the source of the document (a file or a store), the supervisor, signals,
 * the control socket, the web pages and systemd.
 */
#ifndef TOOLS_NAT64D_DAEMON_H
#define TOOLS_NAT64D_DAEMON_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "reconcile/scrape.h"
#include "tools/nat64d/control.h"
#include "tools/nat64d/document_file.h"
#include "tools/nat64d/options.h"
#include "tools/nat64d/store_link.h"
#include "tools/nat64d/supervisor.h"
#include "tools/nat64d/web.h"
#include "tools/signals.h"

class daemon_t {
public:
    explicit daemon_t(const daemon_options_t &options);
    ~daemon_t();
    daemon_t(const daemon_t &) = delete;
    daemon_t &operator=(const daemon_t &) = delete;

    /** Opens everything. Returns an error text, empty on success. */
    std::string open();
    /** Runs until SIGTERM or SIGINT. */
    void run();

private:
    static void keep_watchdog(void *self);
    void take_signals();
    std::string open_source();
    std::string open_file();
    std::string open_store();
    void load();
    nat64::task<> load_file();
    void loaded();
    nat64::task<taken_t> take(const std::string &text, std::string name);
    void asked(const std::string &word, control_t::reply_fn_t reply);
    std::string status_text() const;
    std::optional<store_status_t> store_status() const {
        return store_ ? std::optional(store_->status()) : std::nullopt;
    }
    void changed();
    web_t::page_t health() const;
    void make_metrics();
    void finish_metrics(const scrape_t &server);
    nat64::task<> scrape_server();

    const daemon_options_t &options_;
    fwx::host::loop loop_;
    supervisor_t supervisor_;
    const signals_t signals_{SIGTERM, SIGINT, SIGHUP};
    control_t control_;
    web_t web_;
    std::optional<file_watch_t> watch_;
    std::optional<store_link_t> store_;   /* null: the document comes from a file */
    std::optional<nat64::task<>> scrape_; /* in progress, or the last one */
    std::optional<nat64::task<>> load_;   /* likewise */
    std::vector<std::function<void()>> waiting_for_load_;
    std::string last_status_; /* the status that systemd got last; empty: none yet */
    bool is_ending_ = false;
};

#endif
