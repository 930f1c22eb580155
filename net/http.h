/*
 * An HTTP client for coroutines, on the host's loop. A request is a POST with one reply, or a POST whose reply is read
 * line by line as it arrives. Nothing here blocks. It relies on libcurl, which resolves a host name in a thread. The
 * thread may outlive its request and its client, because nothing waits for it.
 *
 * Timeouts limit silence and not the whole request, because a long body takes long on a slow connection. A request goes
 * on while at least one KiB moves within the timeout: bytes that the peer acknowledges or sends.
 *
 * Only http and https are supported, without redirects and without a proxy from the environment. The certificate of a
 * server must be signed by the given authority and be valid for the host's name.
 *
 * A coroutine that waits here may be destroyed at any time; that ends its request. The client may be destroyed too. A
 * coroutine that waits at that moment is never resumed, and its owner must destroy it, before or after.
 */
#ifndef NET_HTTP_H
#define NET_HTTP_H

#include <curl/curl.h>

#include <coroutine>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "net/descriptor.h"

/** Paths of PEM files; empty: none. */
struct http_tls_t {
    std::string authority;   /* the only one that is trusted; required for https */
    std::string certificate; /* of this client */
    std::string key;         /* private key of that certificate */
};

struct http_request_t {
    std::string url;
    std::string body;
    std::vector<std::string> headers; /* such as `Authorization: x`; the content type is always JSON */
    uint64_t timeout_ms = 5000;   /* longest time in which less than one KiB moves; of a stream: to its first line */
    uint64_t silence_ms = 0;      /* of a stream after its first line: longest time without one; 0: unlimited */
    size_t most_bytes = 1U << 20; /* of the reply's body; of a stream: of the bytes that were not read yet */
    bool is_repeatable = false;   /* the request may be carried out twice */
};

struct http_reply_t {
    enum class fault_t : uint8_t {
        none,     /* there is a reply, with any status */
        unsent,   /* no part of the request's body was sent */
        lost,     /* there is no reply, but the server may have carried out the request */
        too_long, /* the reply is too long */
    };

    fault_t fault = fault_t::none;
    std::string reason; /* of a fault */
    long status = 0;    /* HTTP status; 0: not received */
    std::string body;
};

class http_t {
public:
    class transfer_t;
    class post_t;
    class stream_t;
    static constexpr long success = 200; /* HTTP status */

    /** `loop` must outlive this object. */
    http_t(fwx_host_loop_t *loop, http_tls_t tls);
    ~http_t();
    http_t(const http_t &) = delete;
    http_t &operator=(const http_t &) = delete;

    /** Sends a POST. `co_await` gives its http_reply_t. */
    post_t post(http_request_t request);

private:
    static int socket_changed(CURL *easy, curl_socket_t socket, int what, void *self, void *known);
    static int timer_changed(CURLM *multi, long timeout_ms, void *self);
    void serve_sockets();
    void serve_timer();
    void take_finished();
    void resume_ready();
    void make_ready(transfer_t &transfer);

    fwx_host_loop_t *loop_;
    http_tls_t tls_;
    CURLM *multi_;
    std::vector<transfer_t *> transfers_;                           /* outstanding requests, not owned */
    std::deque<transfer_t *> ready_;                                /* requests whose coroutines must be resumed */
    std::shared_ptr<bool> is_gone_ = std::make_shared<bool>(false); /* shared, to detect destruction during a resume */
    uint64_t timer_ = 0;
    watched_descriptor_t sockets_; /* an epoll descriptor, because the loop can only watch for readability */
};

/** An outstanding request. It must not be moved, because the client and curl have its address. */
class http_t::transfer_t {
public:
    transfer_t(const transfer_t &) = delete;
    transfer_t &operator=(const transfer_t &) = delete;

protected:
    friend class http_t;

    transfer_t(http_t *client, http_request_t request, bool is_stream);
    ~transfer_t() { leave(); }
    /** Starts the request. If that fails, sets the fault of the reply and returns false. */
    bool begin();
    bool is_over() const { return is_over_; }

    http_t *client_; /* dangling if the client was destroyed; check is_listed_ first */
    http_request_t request_;
    http_reply_t reply_;
    size_t taken_ = 0; /* of a stream: bytes of the body that were given out as lines */
    std::coroutine_handle<> waiting_;

private:
    static size_t take_body(char *data, size_t size, size_t count, void *self);
    static size_t give_body(char *room, size_t size, size_t count, void *self);
    static int rewind_body(void *self, curl_off_t offset, int origin);
    bool set_options();
    void start_timer();
    void set_timer(uint64_t delay_ms);
    void stop_timer();
    void check_silence();
    int64_t moved_bytes() const;
    void set_fault(std::string reason);
    void end_transfer();
    void leave();
    void finish(CURLcode result);

    CURL *easy_ = nullptr;
    curl_slist *headers_ = nullptr;
    char error_[CURL_ERROR_SIZE] = "";
    size_t sent_ = 0;               /* bytes of the request's body that curl has taken */
    int socket_ = -1;               /* the one that curl uses for the request; -1: none */
    size_t received_ = 0;           /* bytes of the reply's body */
    uint64_t timer_ = 0;            /* for the next check for silence; 0: none */
    uint64_t silence_limit_ms_ = 0; /* timeout that applies now */
    int64_t moved_ = 0;             /* bytes that had moved at moved_at_ms_ */
    uint64_t moved_at_ms_ = 0;
    bool is_stream_;
    bool is_listed_ = false; /* is in the client's transfers_ */
    bool is_over_ = false;
};

/** The awaitable of one POST. To be awaited once. */
class [[nodiscard]] http_t::post_t : private transfer_t {
public:
    bool await_ready() { return !begin(); }
    void await_suspend(std::coroutine_handle<> waiting) { waiting_ = waiting; }
    http_reply_t await_resume() { return std::move(reply_); }

private:
    friend class http_t;
    post_t(http_t *client, http_request_t request) : transfer_t(client, std::move(request), false) {}
};

/** A POST whose reply is read line by line as it arrives. Destroying the stream ends the request. */
class http_t::stream_t : private transfer_t {
public:
    stream_t(http_t &client, http_request_t request) : transfer_t(&client, std::move(request), true) {}
    ~stream_t();

    class line_t;
    /** `co_await` gives the next line without its line feed, or nothing at the end (an optional<string>). Only one
     * coroutine may wait at a time. The awaitable may be destroyed before or after the stream. */
    line_t next();
    /** After the end: the status, the fault, and the body if the status is not 200. Before: only the status. */
    const http_reply_t &reply() const { return reply_; }

private:
    bool has_next();
    std::optional<std::string> take_line();
    void forget(line_t *line) {
        if (line_ != line) return;
        line_ = nullptr;
        waiting_ = nullptr;
    }

    line_t *line_ = nullptr; /* the last awaitable, if it still exists */
    bool is_begun_ = false;
};

class [[nodiscard]] http_t::stream_t::line_t {
public:
    line_t(const line_t &) = delete;
    line_t &operator=(const line_t &) = delete;
    ~line_t() {
        if (stream_ != nullptr) stream_->forget(this);
    }

    bool await_ready() const { return stream_->has_next(); }
    void await_suspend(std::coroutine_handle<> waiting) {
        stream_->waiting_ = waiting;
        stream_->line_ = this;
    }
    std::optional<std::string> await_resume() const { return stream_->take_line(); }

private:
    friend class stream_t;
    explicit line_t(stream_t *stream) : stream_(stream) {}

    stream_t *stream_; /* null if the stream was destroyed */
};

inline http_t::stream_t::~stream_t() {
    if (line_ != nullptr) line_->stream_ = nullptr;
}

inline http_t::stream_t::line_t http_t::stream_t::next() {
    return line_t(this);
}

inline http_t::post_t http_t::post(http_request_t request) {
    return {this, std::move(request)};
}

#endif
