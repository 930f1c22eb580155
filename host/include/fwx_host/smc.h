/*
 * The server's side of the messaging service, and a tap on what passes through it.
 *
 * A server registers under a channel name; clients in this process that open a channel of that name are its peers. A
 * server that listens also has peers in other processes of the same user, which reach it by its server name through
 * shared memory. Received messages stay the service's and are valid during the callback only; messages to send are
 * copied.
 *
 * Between processes a message is at most 1 MiB less 8 bytes long. A server takes up to 64 messages in a turn of its
 * loop; they count as taken, and what it sends to their client can be seen, when the turn is over. A process that dies
 * is a channel error at once: the messages of no finished turn are reported as failed, and what the server sent before
 * is delivered. A server takes 256 clients; one more, or one of another version of this service, hears
 * FWX_HOST_ERR_BUSY or FWX_HOST_ERR_VERSION from its first synchronous message and its completions.
 *
 * All this serves the process that made it. In a child that was forked, calls that name its parent's channels, servers
 * or peers are refused, with FWX_HOST_ERR_FORKED where they return a code.
 */
#ifndef FWX_HOST_SMC_H
#define FWX_HOST_SMC_H

#include <stddef.h>
#include <stdint.h>

#include "fwx_host/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct fwx_host_server fwx_host_server_t;
typedef struct fwx_host_peer fwx_host_peer_t;

/** What a server does; every entry but `received` and `asked` may be null. All are called from the server's loop, and
 * for peers in the same process also from inside a synchronous send; `disconnected` also from
 * fwx_host_server_unregister. */
typedef struct {
    void (*connected)(void *ctx, fwx_host_peer_t *peer);
    /** The peer is gone and must not be used after the call. Called only after `connected`. */
    void (*disconnected)(void *ctx, fwx_host_peer_t *peer);
    /** An asynchronous message. */
    void (*received)(void *ctx, fwx_host_peer_t *peer, const void *msg, size_t size);
    /** A synchronous message: writes at most `reply_cap` bytes of answer and returns its length, 0 for no answer.
     *  The asynchronous messages sent before it have been received by then. `reply_cap` is 64 KiB. */
    size_t (*asked)(void *ctx, fwx_host_peer_t *peer, const void *msg, size_t size, void *reply, size_t reply_cap);
} fwx_host_server_ops_t;

/** Registers a server for a channel name in this process. `ops` and `ctx` must outlive it. FWX_HOST_ERR_NAME_TAKEN,
 *  FWX_HOST_ERR_BAD_ARG for a null argument, 12. */
uint32_t fwx_host_server_register(const char *name, fwx_host_loop_t *loop, const fwx_host_server_ops_t *ops, void *ctx,
                                  fwx_host_server_t **server);
/** The server that is registered for a channel name in this process, or null. */
fwx_host_server_t *fwx_host_server_find(const char *name);
/**
 * Makes a registered server known to the other processes of this user as `server_name`, until it is unregistered. The
 * name is a file's, in the directory FWX_HOST_DIR of the environment, or in XDG_RUNTIME_DIR/fwx_host, or else in
 * /tmp/fwx_host-UID; what a dead server left there is replaced. A server listens under one name at most.
 * FWX_HOST_ERR_NAME_TAKEN, FWX_HOST_ERR_FOREIGN when others can get at the directory, FWX_HOST_ERR_BAD_ARG, or an errno
 * value.
 */
uint32_t fwx_host_server_listen(fwx_host_server_t *server, const char *server_name);
/** Writes the path of the socket under which a server of that name listens, or would; `size` is the room at `path`.
 *  FWX_HOST_ERR_BAD_ARG for a name that cannot be a file's, or when the path does not fit. */
uint32_t fwx_host_server_path(const char *server_name, char *path, size_t size);
/**
 * Channels of this name that are opened from now on go to the server that listens as `server_name` in another process;
 * null: back to this process. Opening then fails with FWX_HOST_ERR_NO_SERVER or FWX_HOST_ERR_FOREIGN.
 * FWX_HOST_ERR_BAD_ARG for a null `channel_name`, 12.
 */
uint32_t fwx_host_connect_set(const char *channel_name, const char *server_name);
/** Calls `fn` with the name of each server of this user that fwx_host_connect_set can take, in no order; one that died
 *  without taking its name away is among them. `fn` must not be null. */
void fwx_host_server_names(void (*fn)(void *arg, const char *server_name), void *arg);
/** How long a synchronous message to a server in another process waits for its answer, 5000 at the start; then it fails
 * with FWX_HOST_ERR_NO_ANSWER. */
void fwx_host_sync_timeout_set_ms(uint64_t timeout_ms);
/** Ends a server, also from within its own callbacks: `disconnected` is called for every peer before this returns, and
 * the clients see a channel error. Null is ignored. */
void fwx_host_server_unregister(fwx_host_server_t *server);
/** While paused (non-zero) the server takes no messages, so they pile up in the channels. */
void fwx_host_server_pause(fwx_host_server_t *server, uint32_t paused);
/** Sends a message to a client; copied. FWX_HOST_ERR_CHANNEL_DOWN, FWX_HOST_ERR_TOO_LONG, 12; FWX_HOST_ERR_FULL when
 *  messages that take 64 MiB wait for a client in another process to read: its channel ends, as by fwx_host_peer_drop.
 */
uint32_t fwx_host_peer_send(fwx_host_peer_t *peer, const void *msg, size_t size);
/** Bytes of memory that messages take which wait for a client in another process to read, of the 64 MiB that may; 0 for
 *  one in this process. A server that has much to say looks here before it goes on. */
uint64_t fwx_host_peer_waiting_bytes(const fwx_host_peer_t *peer);
/** Ends one channel from the server's side; the client sees a channel error after the messages sent to it before (in
 *  another process: after those that were in its ring), and `disconnected` is called from the loop. */
void fwx_host_peer_drop(fwx_host_peer_t *peer);
/** Notes that a message of this client broke a rule. One in another process is dropped for more than 1000 of them. */
void fwx_host_peer_malformed(fwx_host_peer_t *peer);

/**
 * How many bytes follow `data` in the message that a handler is being given now, `data` itself counted: 0 when it is
 * not in that message, or no message is being delivered. A client that is handed data by address asks here how much
 * there is of it, since a server can claim any number of entries.
 */
size_t fwx_host_smc_bytes_behind(const void *data);

/**
 * How the message that a client's handler is being given now began when it came: its first bytes, at most
 * FWX_HOST_SMC_HEAD_SIZE, in an 8-byte aligned copy that lives during the call, since handlers may write into the
 * message itself. `size` receives how many there are. Null when no message is being delivered.
 */
const void *fwx_host_smc_head(size_t *size);
#define FWX_HOST_SMC_HEAD_SIZE 64u

/** Not 0 while a channel is filled up, between its high and its low mark: as of now, while flow control tells it from
 * the loop. 0 for what is no open channel. */
uint32_t fwx_host_smc_is_throttled(uint64_t chan);

/** Hears of a channel of this process that has ended with an error, when the client's own error handler has returned
 * and nothing more comes through it. Called from the channel's loop. */
typedef void (*fwx_host_channel_end_fn_t)(void *arg);
/** Sets who hears of channels that end; null: nobody. */
void fwx_host_channel_end_observe(fwx_host_channel_end_fn_t fn, void *arg);

typedef enum { FWX_HOST_SENT, FWX_HOST_RECEIVED } fwx_host_direction_t;
/** Sees each message as a client hands it over, and as it is delivered to a client, synchronous answers included. */
typedef void (*fwx_host_tap_fn_t)(void *arg, fwx_host_direction_t direction, const void *msg, size_t size);
/** Sets the tap of all channels of this process; null takes it away. */
void fwx_host_tap_set(fwx_host_tap_fn_t fn, void *arg);

#ifdef __cplusplus
}
#endif

#endif
