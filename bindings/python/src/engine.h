/*
 * The C part of the module. It sends commands that Python has packed into bytes, implements the library's callbacks,
 * and keeps results and messages until Python fetches them, once per turn of its event loop.
 *
 * An outstanding command has a slot. The library gets the slot's number and generation as the context, never an
 * address, so a late answer to a command that has ended finds no slot. A process has one binding, so all state here is
 * global. Nothing is thread-safe.
 */
#ifndef FWX_NAT64_PYTHON_ENGINE_H
#define FWX_NAT64_PYTHON_ENGINE_H

#include <fwx_host/fwx_host.h>
#include <fwx_nat64/fwx_nat64.h>
#include <fwx_nat64_model/model.h>

/* Size of the header before a command's record: its family (nat64_family) and its operation (FWX_NAT64_OP_*), 16 bits
 * each. */
#define NAT64_COMMAND_HEADER 4u

/** Returns the number of the family named `word`, or -1 if there is none or its records have another size. */
int32_t nat64_family(const char *word, size_t record_size);

/** Passes a command's record to the library's setter, and returns its code. FWX_NAT64_ERR_INVALID for bytes that are
 * not one command. */
uint32_t nat64_command_send(const char *command, size_t size, void *pal_ctx);

/** Returns the size of the first of several commands, header included, or 0 if the bytes do not begin with one. */
size_t nat64_command_size(const char *commands, size_t size);

/** Binds to the server named `server` in another process or, with null, to the server in this process. A `timeout_ms`
 * other than 0 limits each synchronous command of the bind. */
uint32_t nat64_open(const char *server, const char client_id[4], fwx_host_loop_t *loop, uint32_t timeout_ms);
/** Unbinds, drops outstanding commands, and empties the library's rule table. */
void nat64_close(void);

/* Each of the next three functions sends a command, and returns an error code as a negative number. A `timeout_ms` of 0
 * means no time limit. */

/** Returns the command's slot. */
int64_t nat64_send(const char *command, size_t size, uint32_t timeout_ms);
/** Returns the query's id; `msgno` is FWX_NAT64_MSG_STATS_SYS to FWX_NAT64_MSG_STATS_LIMIT_ALL. */
int64_t nat64_query(uint32_t msgno, uint32_t sel, uint64_t cookie, uint32_t count, uint32_t arg, uint32_t timeout_ms);
/** Returns the walk's id; `filter` is a fwx_nat64_sess_walk_filter_t. */
int64_t nat64_walk(const char *filter, uint64_t cookie, uint32_t count, uint32_t walk_arg, uint32_t timeout_ms);
/** Drops an outstanding query or walk. Further replies to it are ignored. */
void nat64_forget(uint64_t id);

/** A batch of commands, sent in order through a window. It is complete when `left` is 0. The caller keeps the load and
 * its buffers until it has called nat64_load_stop. */
typedef struct nat64_load {
    struct nat64_load *next; /* in the list of active loads */
    const char *commands;    /* the first command that is not sent */
    size_t size;             /* bytes from there */
    uint32_t *codes;         /* result of each command */
    uint32_t sent;           /* commands sent, or refused at once */
    uint32_t left;           /* commands without a result */
    uint32_t outstanding;    /* commands sent and not answered */
    uint32_t window;         /* limit of `outstanding` */
    uint32_t timeout_ms;     /* time limit of each command */
} nat64_load_t;
void nat64_load_start(nat64_load_t *load);
void nat64_load_stop(nat64_load_t *load);

/** Results of commands since the last turn; valid until the next command is sent. */
typedef struct {
    uint32_t *done;   /* slots of commands without an error */
    uint32_t *failed; /* slots of commands with an error */
    uint32_t *codes;  /* error of each failed command */
    uint32_t done_count;
    uint32_t failed_count;
} nat64_results_t;

/**
 * One turn: runs the host's loop, sends more of each load, and ends commands whose deadline has passed or whose channel
 * is gone.
 * @return milliseconds until the next turn is due without an event on the loop's descriptor: 0 now, -1 never.
 */
int nat64_turn(fwx_host_loop_t *loop, nat64_results_t *results);

enum { NAT64_PAGE, NAT64_RECORD, NAT64_EVENT, NAT64_MAPPING, NAT64_THROTTLE };

/** A message for Python: a reply to a query, an unsolicited message of the server, or a change of flow control. */
typedef struct nat64_message {
    struct nat64_message *next;
    uint32_t kind;   /* NAT64_PAGE to NAT64_THROTTLE */
    uint64_t id;     /* page: id of its query */
    uint32_t code;   /* page: 0, or the error with which the query ended */
    uint32_t more;   /* page: not 0 if replies follow; record: the operation; throttle: not 0 if the channel has room */
    uint64_t cookie; /* page: continues the list in a further query */
    uint32_t value2; /* page of a walk: set by the server */
    uint32_t count;  /* entries in `data` */
    size_t size;     /* bytes of `data` */
    char data[];
} nat64_message_t;
/** Returns the oldest message and removes it from the queue, or null. Free it with nat64_message_free. */
nat64_message_t *nat64_message_take(void);
void nat64_message_free(nat64_message_t *message);

#endif
