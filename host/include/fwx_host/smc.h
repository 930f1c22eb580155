/*
 * The server's side of the messaging service, and a tap on the messages that pass through it.
 *
 * A server registers under a channel name. The clients in this process that open a channel of that name are its peers.
 * A server that listens also has peers in other processes of the same user. They reach it by its server name, through
 * shared memory. The service owns received messages, which are valid during the callback only. It copies messages to
 * send.
 *
 * Between processes, a message is at most 1 MiB less 72 bytes long. A server takes up to 64 messages of a client in one
 * turn of its loop. At the end of the turn they are completed, and the client sees what the server sent meanwhile. When
 * a server's process dies, its clients get a channel error at once: messages of an unfinished turn are reported as
 * failed, and what the server sent before that turn is delivered. The servers of a process accept 256 clients. A
 * further client gets FWX_HOST_ERR_BUSY, and a client of another version of this service FWX_HOST_ERR_VERSION, from its
 * first synchronous message and its completions.
 *
 * Channels, servers and peers serve the process that created them. In a forked child, calls that name the parent's
 * objects are refused, with FWX_HOST_ERR_FORKED where they return a code.
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

/** A server's callbacks; all but `received` and `asked` may be null. The server's loop calls them. For peers in the
 * same process, a synchronous send calls them too; fwx_host_server_unregister also calls `disconnected`. */
typedef struct {
    void (*connected)(void *ctx, fwx_host_peer_t *peer);
    /** The peer has ended and must not be used after the call. Called only after `connected`. */
    void (*disconnected)(void *ctx, fwx_host_peer_t *peer);
    /** An asynchronous message. */
    void (*received)(void *ctx, fwx_host_peer_t *peer, const void *msg, size_t size);
    /** A synchronous message. Writes an answer of at most `reply_cap` bytes, which is 64 KiB, to `reply` and returns
     * its length, or 0 for no answer. The asynchronous messages sent before it have been received by then. */
    size_t (*asked)(void *ctx, fwx_host_peer_t *peer, const void *msg, size_t size, void *reply, size_t reply_cap);
} fwx_host_server_ops_t;

/** Registers a server for a channel name in this process. `ops` and `ctx` must outlive it.
 * @return 0, FWX_HOST_ERR_NAME_TAKEN, FWX_HOST_ERR_BAD_ARG for a null argument, FWX_HOST_ERR_FORKED, or ENOMEM (12). */
uint32_t fwx_host_server_register(const char *name, fwx_host_loop_t *loop, const fwx_host_server_ops_t *ops, void *ctx,
                                  fwx_host_server_t **server);
/** Returns the server that is registered for a channel name in this process, or null. */
fwx_host_server_t *fwx_host_server_find(const char *name);
/**
 * Lets other processes of this user reach a registered server as `server_name`, until it is unregistered. The name is
 * that of a socket file. Its directory is FWX_HOST_DIR if that is set in the environment, else
 * XDG_RUNTIME_DIR/fwx_host, else /tmp/fwx_host-UID. The socket of a dead server is replaced. A server listens under one
 * name at most.
 * @return 0, FWX_HOST_ERR_NAME_TAKEN, FWX_HOST_ERR_FOREIGN when other users can access the directory,
 * FWX_HOST_ERR_BAD_ARG, FWX_HOST_ERR_FORKED, or an errno value.
 */
uint32_t fwx_host_server_listen(fwx_host_server_t *server, const char *server_name);
/** Writes the path of the socket at which a server of that name listens, or would listen, to `path`, which has room for
 * `size` bytes.
 * @return 0, or FWX_HOST_ERR_BAD_ARG for a name that cannot be a file name, or when the path does not fit. */
uint32_t fwx_host_server_path(const char *server_name, char *path, size_t size);
/**
 * Connects channels of this name that are opened from now on to the server that listens as `server_name` in another
 * process. A null `server_name` connects them to this process again. When the server cannot be reached, opening a
 * channel fails with FWX_HOST_ERR_NO_SERVER or FWX_HOST_ERR_FOREIGN.
 * @return 0, FWX_HOST_ERR_BAD_ARG for a null `channel_name`, or ENOMEM (12).
 */
uint32_t fwx_host_connect_set(const char *channel_name, const char *server_name);
/** Calls `fn`, which must not be null, with each server name of this user that fwx_host_connect_set can take, in no
 * particular order. The names include those of servers that died without removing their socket. */
void fwx_host_server_names(void (*fn)(void *arg, const char *server_name), void *arg);
/** Sets how long a synchronous message to a server in another process waits for its answer before it fails with
 * FWX_HOST_ERR_NO_ANSWER. The default is 5000. */
void fwx_host_sync_timeout_set_ms(uint64_t timeout_ms);
/** Ends a server; may be called from its own callbacks. `disconnected` is called for every peer before this returns,
 * and the clients get a channel error. Null is ignored. */
void fwx_host_server_unregister(fwx_host_server_t *server);
/** Pauses (non-zero) or resumes a server. A paused server takes no messages, so they queue up in the channels. */
void fwx_host_server_pause(fwx_host_server_t *server, uint32_t paused);
/** Sends a copy of a message to a client.
 * @return 0, FWX_HOST_ERR_CHANNEL_DOWN, FWX_HOST_ERR_TOO_LONG, FWX_HOST_ERR_FORKED, ENOMEM (12), or FWX_HOST_ERR_FULL
 * when the messages queued for a client in another process would take more memory than is allowed: 64 MiB, or less when
 * many clients do not read. The client's channel then ends, as by fwx_host_peer_drop. */
uint32_t fwx_host_peer_send(fwx_host_peer_t *peer, const void *msg, size_t size);
/** Memory, in bytes, that messages take which are queued for a client in another process; 0 for a client in this
 * process. A server that sends much data checks it for back-pressure, because the channel ends when the limit of 64 MiB
 * is reached. */
uint64_t fwx_host_peer_waiting_bytes(const fwx_host_peer_t *peer);
/** Ends one channel from the server's side. The client gets a channel error after the messages sent to it before (in
 * another process: after those that were in its ring). The loop then calls `disconnected`. */
void fwx_host_peer_drop(fwx_host_peer_t *peer);
/** Counts a malformed message of this client. A client in another process is dropped when it has sent more than 1000.
 */
void fwx_host_peer_malformed(fwx_host_peer_t *peer);

/**
 * Number of bytes from `data` to the end of the message that is being delivered to a handler now. 0 when `data` is not
 * in that message, or no message is being delivered. A client uses it to check a claimed number of entries, because a
 * server can claim any number.
 */
size_t fwx_host_smc_bytes_behind(const void *data);

/**
 * The first bytes, at most FWX_HOST_SMC_HEAD_SIZE, of the message that is being delivered to a client's handler now.
 * They are an 8-byte aligned copy of the message as received, because handlers may write into the message itself. The
 * copy is valid during the handler's call. `size` receives its length. Null when no message is being delivered.
 */
const void *fwx_host_smc_head(size_t *size);
#define FWX_HOST_SMC_HEAD_SIZE 64u

/** Not 0 while a channel is throttled: from when its high mark is reached until it is down to its low mark. This is the
 * current state, whereas the flow control callback is called later, from the loop. 0 for a handle of no open channel.
 */
uint32_t fwx_host_smc_is_throttled(uint64_t chan);

/** Called from a channel's loop when the channel has ended with an error, after the client's own error handler has
 * returned. Nothing more is delivered through the channel. */
typedef void (*fwx_host_channel_end_fn_t)(void *arg);
/** Sets the process's observer of channels that end; null removes it. */
void fwx_host_channel_end_observe(fwx_host_channel_end_fn_t fn, void *arg);

typedef enum { FWX_HOST_SENT, FWX_HOST_RECEIVED } fwx_host_direction_t;
/** Called with each message when a client sends it, and with each message and synchronous answer that is delivered to a
 * client. Must not call the service. */
typedef void (*fwx_host_tap_fn_t)(void *arg, fwx_host_direction_t direction, const void *msg, size_t size);
/** Sets the tap of all channels of this process; null removes it. */
void fwx_host_tap_set(fwx_host_tap_fn_t fn, void *arg);

#ifdef __cplusplus
}
#endif

#endif
