/*
 * HTTP requests on a loop, for those who co_await: a POST and its reply, or a reply that comes line by line for as long
 * as it is wanted. No request blocks, and nothing here has a thread of its own.
 *
 * A deadline is for silence, because a long body takes its time on a thin line: as long as the peer acknowledges what
 * is sent, or sends, a request goes on. A peer that only trickles does not count as one that does.
 *
 * Only http and https are spoken, without redirects and without a proxy of the environment. A server's certificate must
 * be signed by the authority that is given and bear the host's name.
 *
 * A coroutine that waits here may be destroyed at any moment, and takes its request back with it. So may the client:
 * who waits then is not resumed any more, and has to be destroyed by its owner, before or after.
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

/** Files in PEM; empty: none. */
struct http_tls_t {
    std::string authority;   /* that alone is trusted; needed for https */
    std::string certificate; /* of this client */
    std::string key;         /* of that certificate */
};

struct http_request_t {
    std::string url;
    std::string body;
    std::vector<std::string> headers; /* `Authorization: x`, beside the content's type, which is JSON */
    uint64_t timeout_ms = 5000;       /* longest time in which less than a KiB moves; of a stream, to its first line */
    uint64_t silence_ms = 0;          /* of a stream behind that, longest time without a line; 0: there is none */
    size_t most_bytes = 1U << 20;     /* of the reply's body; of a stream, of what has come and is not taken */
    bool is_repeatable = false;       /* nothing is lost when it is carried out twice */
};

struct http_reply_t {
    enum class fault_t : uint8_t {
        none,     /* there is a reply, whatever its status */
        unsent,   /* the server has got nothing of the request's body */
        lost,     /* the server may have got the request, and nobody knows what became of it */
        too_long, /* the reply was */
    };

    fault_t fault = fault_t::none;
    std::string reason; /* of a fault */
    long status = 0;    /* of HTTP; 0: it has not come */
    std::string body;
};

class http_t {
public:
    class transfer_t;
    class post_t;
    class stream_t;
    static constexpr long success = 200; /* the status */

    /** `loop` must outlive it. */
    http_t(fwx_host_loop_t *loop, http_tls_t tls);
    ~http_t();
    http_t(const http_t &) = delete;
    http_t &operator=(const http_t &) = delete;

    /** Awaits the reply of a POST: an http_reply_t. */
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
    std::vector<transfer_t *> transfers_;                           /* that were begun; their owners' */
    std::deque<transfer_t *> ready_;                                /* have something for who awaits them */
    std::shared_ptr<bool> is_gone_ = std::make_shared<bool>(false); /* outlives this for who is resumed meanwhile */
    uint64_t timer_ = 0;
    watched_descriptor_t sockets_; /* an epoll descriptor: a loop tells readability alone */
};

/** What a request is while it is under way. Its owner keeps it where it is. */
class http_t::transfer_t {
public:
    transfer_t(const transfer_t &) = delete;
    transfer_t &operator=(const transfer_t &) = delete;

protected:
    friend class http_t;

    transfer_t(http_t *client, http_request_t request, bool is_stream);
    ~transfer_t() { leave(); }
    /** Sends it off; false, with the fault in the reply, when that cannot be. */
    bool begin();
    bool is_over() const { return is_over_; }

    http_t *client_; /* may be gone when it is not listed there */
    http_request_t request_;
    http_reply_t reply_;
    std::coroutine_handle<> waiting_;

private:
    static size_t take_body(char *data, size_t size, size_t count, void *self);
    static size_t give_body(char *room, size_t size, size_t count, void *self);
    static int rewind_body(void *self, curl_off_t offset, int origin);
    bool set_options();
    void start_timer();
    void set_timer(uint64_t delay_ms);
    void stop_timer();
    void look_for_silence();
    int64_t moved_bytes() const;
    void set_fault(std::string reason);
    void end_transfer();
    void leave();
    void finish(CURLcode result);

    CURL *easy_ = nullptr;
    curl_slist *headers_ = nullptr;
    char error_[CURL_ERROR_SIZE] = "";
    size_t sent_ = 0;            /* bytes of the request's body that were taken */
    int socket_ = -1;            /* that curl uses for it now; -1: none */
    size_t received_ = 0;        /* bytes of the reply's body */
    uint64_t timer_ = 0;         /* of the next look for silence; 0: none */
    uint64_t most_quiet_ms_ = 0; /* that there may be now */
    int64_t moved_ = 0;          /* bytes that had moved, when that was seen last */
    uint64_t moved_at_ms_ = 0;
    bool is_stream_;
    bool is_listed_ = false; /* the client knows it */
    bool is_over_ = false;
};

/** An awaitable; to be awaited once. */
class [[nodiscard]] http_t::post_t : private transfer_t {
public:
    bool await_ready() { return !begin(); }
    void await_suspend(std::coroutine_handle<> waiting) { waiting_ = waiting; }
    http_reply_t await_resume() { return std::move(reply_); }

private:
    friend class http_t;
    post_t(http_t *client, http_request_t request) : transfer_t(client, std::move(request), false) {}
};

/** A POST whose reply is lines, one as soon as it is there. It ends the request when it is destroyed. */
class http_t::stream_t : private transfer_t {
public:
    stream_t(http_t &client, http_request_t request) : transfer_t(&client, std::move(request), true) {}
    ~stream_t();

    class line_t;
    /** Awaits the next line, without its line feed: an optional<string>, nothing at the end. One waits at a time, and
     * may be destroyed before the stream is. */
    line_t next();
    /** Behind the end: why it ended, its status, and the body of a status other than 200. Before: the status alone. */
    const http_reply_t &reply() const { return reply_; }

private:
    bool has_next();
    std::optional<std::string> take_line();
    void forget(line_t *line) {
        if (line_ != line) return;
        line_ = nullptr;
        waiting_ = nullptr;
    }

    line_t *line_ = nullptr; /* that waits, or waited last */
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

    stream_t *stream_; /* null when it is gone */
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
