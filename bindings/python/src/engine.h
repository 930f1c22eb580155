/*
 * What the module does in C: it sends commands from packed bytes, takes the library's callbacks, and keeps what came of
 * them until Python asks, once in a turn of its loop.
 *
 * A command that is under way has a slot. The library gets the slot's number with a generation and never an address, so
 * an answer to what has ended finds nothing. There is one binding in a process, and so one of everything here; nothing
 * is thread-safe.
 */
#ifndef FWX_NAT64_PYTHON_ENGINE_H
#define FWX_NAT64_PYTHON_ENGINE_H

#include <fwx_host/fwx_host.h>
#include <fwx_nat64/fwx_nat64.h>
#include <fwx_nat64_model/model.h>

/* Of a command before its record: a family (nat64_family) and an operation, FWX_NAT64_OP_, 16 bits each. */
#define NAT64_COMMAND_HEADER 4u

/** Number of the family of that word, whose records have that size; -1: there is none. */
int32_t nat64_family(const char *word, size_t record_size);

/** Gives a record to the library's setter; FWX_NAT64_ERR_INVALID for bytes that are no command. */
uint32_t nat64_command_send(const char *command, size_t size, void *pal_ctx);

/** Bytes of a command at the beginning of several, or 0 when there is none. */
size_t nat64_command_size(const char *commands, size_t size);

/** Binds to the server in another process, or with null to the one that has the channel in this process. */
uint32_t nat64_open(const char *server, const char client_id[4], fwx_host_loop_t *loop, uint32_t timeout_ms);
/** Unbinds, forgets what is under way, and empties the library's rule table. */
void nat64_close(void);

/* Each begins a command; a code comes back as a negative number. A `timeout_ms` of 0 is none. */

/** Returns the command's slot. */
int64_t nat64_send(const char *command, size_t size, uint32_t timeout_ms);
/** Returns the query's id; `msgno` is FWX_NAT64_MSG_STATS_SYS to FWX_NAT64_MSG_STATS_LIMIT_ALL. */
int64_t nat64_query(uint32_t msgno, uint32_t sel, uint64_t cookie, uint32_t count, uint32_t arg, uint32_t timeout_ms);
/** Returns the walk's id; `filter` is a fwx_nat64_sess_walk_filter_t. */
int64_t nat64_walk(const char *filter, uint64_t cookie, uint32_t count, uint32_t walk_arg, uint32_t timeout_ms);
/** Forgets a query or walk that is under way; what the server still says to it is dropped. */
void nat64_forget(uint64_t id);

/** Many commands behind each other. The caller keeps it until `left` is 0 or it is stopped. */
typedef struct nat64_load {
    struct nat64_load *next; /* of those that are under way */
    const char *commands;
    size_t size;         /* bytes that are left of them */
    uint32_t *codes;     /* of each */
    uint32_t sent;       /* also those that failed at once */
    uint32_t left;       /* that have no code yet */
    uint32_t under_way;  /* sent, and not answered */
    uint32_t window;     /* most of them */
    uint32_t timeout_ms; /* of each */
} nat64_load_t;
void nat64_load_start(nat64_load_t *load);
void nat64_load_stop(nat64_load_t *load);

/** What came of commands since the last turn; valid until the next command begins. */
typedef struct {
    uint32_t *done; /* slots */
    uint32_t *failed;
    uint32_t *codes; /* of those that failed */
    uint32_t done_count;
    uint32_t failed_count;
} nat64_results_t;

/**
 * One turn: dispatches what is ready, goes on with what is loaded, ends what is late or was cut off.
 * @return milliseconds until the next turn is due by itself: 0 now, -1 never.
 */
int nat64_turn(fwx_host_loop_t *loop, nat64_results_t *results);

enum { NAT64_PAGE, NAT64_RECORD, NAT64_EVENT, NAT64_MAPPING, NAT64_THROTTLE };

/** Part of an answer to a query, or something that nobody asked for. */
typedef struct nat64_news {
    struct nat64_news *next;
    uint32_t kind;
    uint64_t id;     /* of a page's query */
    uint32_t code;   /* 0, or why no further page comes */
    uint32_t more;   /* pages follow by themselves; with a record its operation, with a throttle whether to send */
    uint64_t cookie; /* where a further query goes on */
    uint32_t value2; /* of a walk */
    uint32_t count;  /* entries */
    size_t size;     /* bytes of them */
    char data[];
} nat64_news_t;
/** The oldest that has not been taken, or null; free it with nat64_news_free. */
nat64_news_t *nat64_news_take(void);
void nat64_news_free(nat64_news_t *news);

#endif
