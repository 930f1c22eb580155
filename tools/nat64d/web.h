/*
 * An HTTP server on the loop, for /metrics, which takes time to make, and /healthz.
 *
 * Any user of the machine may connect, so no client may block others. Each has a deadline for its whole request, and
 * one for taking the answer. If there are too many connections, one that waits for no answer is closed: the oldest of
 * the address with the most connections.
 */
#ifndef TOOLS_NAT64D_WEB_H
#define TOOLS_NAT64D_WEB_H

#include <microhttpd.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "net/descriptor.h"

class web_t {
public:
    struct page_t {
        unsigned status = 0; /* of HTTP; 0: the page is not made yet */
        std::string text;
    };
    /** Starts making the page /metrics. `web_t::metrics_made` must follow; it may be called before this returns. */
    using make_metrics_fn_t = std::function<void()>;
    using health_fn_t = std::function<page_t()>;

    web_t(fwx_host_loop_t *loop, make_metrics_fn_t make_metrics, health_fn_t health)
        : loop_(loop), make_metrics_(std::move(make_metrics)), health_(std::move(health)) {}
    ~web_t();
    web_t(const web_t &) = delete;
    web_t &operator=(const web_t &) = delete;

    /** Listens at `127.0.0.1:9464` or `[::1]:9464`; port 0 means any. Only loopback addresses are accepted. Returns an
     * error text, empty on success. Call it once. */
    std::string listen(const std::string &address);
    /** The port at which it listens; 0: none. */
    uint16_t port() const;
    /** Sends the page to all clients that wait for it. */
    void metrics_made(const std::string &text);

private:
    struct request_t {
        MHD_Connection *connection;
        page_t page;
    };
    /** A connection. */
    struct visit_t {
        int fd;
        std::string address;
        uint64_t since_ms;      /* start of its current deadline: it opened, its answer was ready or was taken */
        bool is_served = false; /* its request is complete */
        bool is_suspended = false;
    };
    using visits_t = std::list<visit_t>; /* the oldest first */

    static MHD_Result handle(void *self, MHD_Connection *connection, const char *url, const char *method,
                             const char *version, const char *body, size_t *body_size, void **request);
    static void connected(void *self, MHD_Connection *connection, void **visit, MHD_ConnectionNotificationCode what);
    static visit_t &visit_of(MHD_Connection *connection);
    void let_in(MHD_Connection *connection, void **visit);
    void make_room();
    void end_late();
    static void completed(void *self, MHD_Connection *connection, void **request, MHD_RequestTerminationCode how);
    MHD_Result wait_for_metrics(request_t &request);
    page_t page_of(const std::string &url, const std::string &method) const;
    int fd() const;
    void watch();
    void rest();
    void run_for_event();
    void run();
    void plan_run(uint64_t delay_ms);

    fwx_host_loop_t *loop_;
    make_metrics_fn_t make_metrics_;
    health_fn_t health_;
    MHD_Daemon *daemon_ = nullptr;
    bool is_watched_ = false;
    uint64_t timer_ = 0;
    visits_t visits_;
    bool has_new_visit_ = false;       /* a client was accepted in this run */
    bool has_room_ = false;            /* a connection has ended in this run */
    uint64_t rest_timer_ = 0;          /* not 0: no descriptor is left, pause until then */
    uint64_t late_timer_ = 0;          /* of the next check for expired deadlines */
    std::vector<request_t *> waiting_; /* suspended until the metrics are made */
};

#endif
