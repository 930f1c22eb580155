/*
 * Stream sockets between processes of one user, beside those of servers and with the same checks: the directory is its
 * user's alone and no link, and the process at the other end is that user's.
 *
 * A name is a file's in the directory of servers' sockets (fwx_host/smc.h says which that is) and begins with a dot, as
 * no server's name does.
 */
#ifndef FWX_HOST_USER_SOCKET_H
#define FWX_HOST_USER_SOCKET_H

#include <stdint.h>

#include "fwx_host/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct fwx_host_user_listener fwx_host_user_listener_t;

/** Takes a client: its socket, which is the callee's to close, does not block and is not inherited. Called from the
 * loop; must not end the listener. */
typedef void (*fwx_host_user_client_fn_t)(void *arg, int fd);

/**
 * Listens under a name; `loop` must outlive the listener. The socket of a dead process is replaced, one that a process
 * listens at is not. At the process's last descriptor clients are turned away. FWX_HOST_ERR_NAME_TAKEN, also for a file
 * that is no socket; FWX_HOST_ERR_FOREIGN when others can get at the directory, or it is a link; FWX_HOST_ERR_BAD_ARG
 * for a name that cannot be taken; FWX_HOST_ERR_FORKED, 12, or another errno value.
 */
uint32_t fwx_host_user_listen(const char *name, fwx_host_loop_t *loop, fwx_host_user_client_fn_t fn, void *arg,
                              fwx_host_user_listener_t **listener);
/** Ends a listener and removes its socket's file, if it still is its own. Null is ignored. */
void fwx_host_user_unlisten(fwx_host_user_listener_t *listener);
/**
 * Connects to the process that listens under a name. Blocks, for at most `timeout_ms`, while its queue of clients is
 * full. `*fd` is the caller's to close and does not block. FWX_HOST_ERR_NO_SERVER; FWX_HOST_ERR_FOREIGN when the
 * directory is not this user's alone or the process another user's; FWX_HOST_ERR_BUSY when the queue stayed full;
 * FWX_HOST_ERR_BAD_ARG, or an errno value.
 */
uint32_t fwx_host_user_connect(const char *name, uint64_t timeout_ms, int *fd);

#ifdef __cplusplus
}
#endif

#endif
